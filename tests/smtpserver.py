#!/usr/bin/python3
"""A small SMTP server for the mail tests, on Debian's python3-aiosmtpd.

Listens on 127.0.0.1 on a port the system chooses and prints "PORT <n>" once it accepts.
Each message received is saved in --dir as <n>.eml (the bytes as they arrived) and
<n>.json: the envelope, and the message as Python's own e-mail parser reads it (decoded
subject, body, defects), so that the test checks the message with an independent reader.
--tls-cert/--tls-key: STARTTLS offered and required; --auth USER:PASSWORD: login required.
Stops when its standard input closes.
"""
import argparse
import asyncio
import base64
import email
import email.policy
import json
import os
import re
import ssl
import sys
import warnings

from aiosmtpd.smtp import SMTP, AuthResult


def encoded_words_whole(raw):
    """RFC 2047: each encoded word of the Subject is at most 75 characters and whole characters on its own."""
    header = re.search(rb"^Subject:(.*?)\r\n(?![ \t])", raw, re.M | re.S)
    for word in re.findall(rb"=\?([^?]*)\?[Bb]\?([^?]*)\?=", header.group(1) if header else b""):
        if len(word[1]) + len(word[0]) + 7 > 75:
            return False
        try:
            base64.b64decode(word[1], validate=True).decode(word[0].decode())
        except (ValueError, LookupError):
            return False
    return True


class Saver:
    def __init__(self, directory):
        self.directory = directory
        self.count = 0

    async def handle_DATA(self, server, session, envelope):
        self.count += 1
        raw = envelope.original_content
        message = email.message_from_bytes(raw, policy=email.policy.default)
        body = message.get_body(("plain",))
        required = ("Date", "From", "To", "Subject", "Message-ID", "MIME-Version", "Content-Transfer-Encoding")
        record = {
            "mail_from": envelope.mail_from,
            "rcpt_tos": envelope.rcpt_tos,
            "subject": str(message["subject"]),
            "content_type": message.get_content_type(),
            "charset": message.get_content_charset(),
            "body": body.get_content().replace("\r\n", "\n") if body is not None else None,
            "defects": [type(d).__name__ for d in message.defects],
            "missing": [name for name in required if name not in message]
                       + ([] if message["date"] and message["date"].datetime else ["a valid Date"]),
            "bare_lf": b"\n" in raw.replace(b"\r\n", b""),
            "encoded_words_whole": encoded_words_whole(raw),
            "authenticated": bool(session.authenticated),
            "tls": session.ssl is not None,
        }
        base = os.path.join(self.directory, str(self.count))
        with open(base + ".eml", "wb") as f:
            f.write(raw)
        # Written under another name first: the test never reads half a record.
        with open(base + ".tmp", "w", encoding="utf-8") as f:
            json.dump(record, f, ensure_ascii=False)
        os.rename(base + ".tmp", base + ".json")
        return "250 Message accepted"


def authenticator(user, password):
    def check(server, session, envelope, mechanism, auth_data):
        ok = auth_data.login == user.encode() and auth_data.password == password.encode()
        return AuthResult(success=ok, handled=False)
    return check


async def serve(args):
    context = None
    if args.tls_cert:
        context = ssl.create_default_context(ssl.Purpose.CLIENT_AUTH)
        context.load_cert_chain(args.tls_cert, args.tls_key)
    user, _, password = (args.auth or "").partition(":")
    saver = Saver(args.dir)

    def factory():
        return SMTP(saver, hostname="test.smtp", tls_context=context, require_starttls=context is not None,
                    authenticator=authenticator(user, password) if args.auth else None,
                    auth_required=bool(args.auth), auth_require_tls=context is not None)

    loop = asyncio.get_running_loop()
    server = await loop.create_server(factory, "127.0.0.1", 0)
    print("PORT %d" % server.sockets[0].getsockname()[1], flush=True)
    await loop.run_in_executor(None, sys.stdin.read)
    server.close()


def main():
    warnings.simplefilter("ignore")   # aiosmtpd's own deprecation notes
    parser = argparse.ArgumentParser()
    parser.add_argument("--dir", required=True)
    parser.add_argument("--tls-cert")
    parser.add_argument("--tls-key")
    parser.add_argument("--auth")
    asyncio.run(serve(parser.parse_args()))


if __name__ == "__main__":
    main()
