#include "mailmessage.h"

#include "protocol.h"

#include <QHostInfo>
#include <QLocale>
#include <QRegularExpression>
#include <QUrl>
#include <QUuid>

namespace MailMessage {

namespace {

// Bytes of UTF-8 text in one encoded word: its base64 with "=?UTF-8?B?" and "?=" stays within 75.
constexpr int kEncodedWordBytes = 45;
// A header or body line must stay below 998 bytes without its CRLF.
constexpr int kLineLimit = 998;

bool isPlainAscii(const QString& text)
{
    for (const QChar c : text) {
        if (c.unicode() < 0x20 || c.unicode() > 0x7E)
            return false;
    }
    return true;
}

QString hostName()
{
    const QString name = QHostInfo::localHostName();
    return name.isEmpty() ? QStringLiteral("localhost") : name;
}

// "1 h 2 min 3 s", "4.2 s", "250 ms".
QString durationText(quint64 ms)
{
    if (ms < 1000)
        return QStringLiteral("%1 ms").arg(ms);
    if (ms < 60000)
        return QStringLiteral("%1 s").arg(QString::number(ms / 1000.0, 'f', 1));
    const quint64 seconds = ms / 1000;
    QString text;
    if (seconds >= 3600)
        text += QStringLiteral("%1 h ").arg(seconds / 3600);
    text += QStringLiteral("%1 min %2 s").arg((seconds % 3600) / 60).arg(seconds % 60);
    return text;
}

// Date in the form RFC 5322 wants, with English names whatever the locale: "Mon, 23 Nov 2026 15:56:19 +0100".
QByteArray dateHeader(const QDateTime& date)
{
    const int offset = date.offsetFromUtc() / 60;
    const QString zone = QStringLiteral("%1%2%3")
                             .arg(offset < 0 ? QLatin1Char('-') : QLatin1Char('+'))
                             .arg(qAbs(offset) / 60, 2, 10, QLatin1Char('0'))
                             .arg(qAbs(offset) % 60, 2, 10, QLatin1Char('0'));
    return (QLocale::c().toString(date, QStringLiteral("ddd, d MMM yyyy hh:mm:ss ")) + zone).toLatin1();
}

// The body lines in CRLF form, 7bit when it is ASCII in short lines, else base64.
QByteArray encodeBody(const QString& body, QByteArray& encoding)
{
    QString text = body;
    text.replace(QLatin1String("\r\n"), QLatin1String("\n"));
    if (text.endsWith(QLatin1Char('\n')))
        text.chop(1);   // the last line's end is added below
    const QStringList lines = text.split(QLatin1Char('\n'));
    bool plain = true;
    for (const QString& line : lines)
        plain = plain && line.size() < kLineLimit && isPlainAscii(line.isEmpty() ? QStringLiteral(" ") : line);
    if (plain) {
        encoding = "7bit";
        return lines.join(QLatin1String("\r\n")).toLatin1() + "\r\n";
    }
    encoding = "base64";
    const QByteArray base64 = lines.join(QLatin1String("\r\n")).toUtf8().append("\r\n").toBase64();
    QByteArray wrapped;
    for (int at = 0; at < base64.size(); at += 76)
        wrapped += base64.mid(at, 76) + "\r\n";
    return wrapped;
}

} // namespace

QStringList Recipients(const QString& text)
{
    static const QRegularExpression separators(QStringLiteral("[,;\\s]+"));
    return text.split(separators, Qt::SkipEmptyParts);
}

QString CheckAddress(const QString& address)
{
    static const QRegularExpression allowed(QStringLiteral("^[^\\s<>,;\"()\\[\\]\\\\]+@[^\\s<>,;\"()\\[\\]\\\\@]+$"));
    if (!allowed.match(address).hasMatch() || !isPlainAscii(address))
        return QStringLiteral("'%1' is not an e-mail address (name@domain, ASCII, no spaces)").arg(address);
    return QString();
}

QString RunSubject(const JournalAttribute& journal, const QString& configured)
{
    if (!configured.trimmed().isEmpty())
        return configured.trimmed();
    return QStringLiteral("backupframe: %1 %2").arg(journal.getPlanName(), journal.getResult());
}

QString RunBody(const JournalAttribute& journal)
{
    QString text = QStringLiteral("The plan \"%1\" ran: %2.\n\n").arg(journal.getPlanName(), journal.getResult());
    text += QStringLiteral("Plan:      %1 %2\n").arg(journal.getPlanName(), journal.getPlanUuid());
    text += QStringLiteral("Operation: %1\n").arg(journal.getTaskName());
    text += QStringLiteral("Started:   %1\n").arg(journal.getStartTime());
    text += QStringLiteral("Ended:     %1\n").arg(journal.getEndTime());
    text += QStringLiteral("Duration:  %1\n").arg(durationText(journal.getTimeConsuming()));
    text += QStringLiteral("Result:    %1\n").arg(journal.getResult());
    if (!journal.getErrorReason().isEmpty())
        text += QStringLiteral("Reason:    %1\n").arg(journal.getErrorReason());
    if (!journal.getSolution().isEmpty())
        text += QStringLiteral("Solution:  %1\n").arg(journal.getSolution());
    text += QStringLiteral("\n-- \nbackupframe-scheduler on %1\n").arg(hostName());
    return text;
}

QString TestSubject(const QString& configured)
{
    if (!configured.trimmed().isEmpty())
        return configured.trimmed();
    return QStringLiteral("backupframe: test mail");
}

QString TestBody(const EmailConfigAttribute& settings)
{
    return QStringLiteral("This is a test mail from backupframe-scheduler on %1.\n\n"
                          "Server:     %2 port %3, encryption kind %4\n"
                          "Login:      %5\n"
                          "On success: %6\n"
                          "On failure: %7\n"
                          "Enabled:    %8\n")
        .arg(hostName(), settings.getSmtpServerAddress())
        .arg(settings.getSmtpServerPort())
        .arg(settings.getSmtpServerEncryptionType())
        .arg(settings.getStmpAuthentication() ? settings.getLoginUserName() : QStringLiteral("none"))
        .arg(settings.getOperationSuccessful() ? QStringLiteral("yes") : QStringLiteral("no"),
             settings.getOperationFailure() ? QStringLiteral("yes") : QStringLiteral("no"),
             settings.getEnableEmailNotification() ? QStringLiteral("yes") : QStringLiteral("no"));
}

QByteArray EncodeHeader(const QString& text)
{
    if (isPlainAscii(text) && text.size() < 900)
        return text.toLatin1();
    // Whole characters per word: a word never ends inside a character's UTF-8 bytes.
    QList<QByteArray> words;
    QByteArray chunk;
    const QVector<uint> points = text.toUcs4();
    for (const uint point : points) {
        const char32_t character = point;
        const QByteArray bytes = QString::fromUcs4(&character, 1).toUtf8();
        if (chunk.size() + bytes.size() > kEncodedWordBytes) {
            words << "=?UTF-8?B?" + chunk.toBase64() + "?=";
            chunk.clear();
        }
        chunk += bytes;
    }
    if (!chunk.isEmpty())
        words << "=?UTF-8?B?" + chunk.toBase64() + "?=";
    return words.join("\r\n ");
}

QByteArray Compose(const QString& sender, const QStringList& recipients, const QString& subject,
                   const QString& body, const QDateTime& date)
{
    QByteArray encoding;
    const QByteArray content = encodeBody(body, encoding);
    const QString id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    QByteArray domain = QUrl::toAce(hostName());
    if (domain.isEmpty())
        domain = "localhost";
    QByteArray message;
    message += "Date: " + dateHeader(date) + "\r\n";
    message += "From: " + sender.toLatin1() + "\r\n";
    message += "To: " + recipients.join(QLatin1String(",\r\n ")).toLatin1() + "\r\n";
    message += "Subject: " + EncodeHeader(subject) + "\r\n";
    message += "Message-ID: <" + id.toLatin1() + "@" + domain + ">\r\n";
    message += "MIME-Version: 1.0\r\n";
    message += "Content-Type: text/plain; charset=UTF-8\r\n";
    message += "Content-Transfer-Encoding: " + encoding + "\r\n";
    message += "X-Mailer: backupframe-scheduler\r\n\r\n";
    return message + content;
}

} // namespace MailMessage
