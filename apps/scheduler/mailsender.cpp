#include "mailsender.h"

#include "mailmessage.h"

#include <QCoreApplication>
#include <QFile>
#include <QRegularExpression>

#include <curl/curl.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace {

// One send's state, shared with libcurl's callbacks on the worker thread.
struct Transfer {
    QByteArray message;
    qsizetype offset = 0;
    QByteArray lastReply;                      // the server's last reply line
    QByteArray lastRefusal;                    // its last 4xx or 5xx reply line: the reason when there is one
    const std::atomic<bool>* abort = nullptr;
};

size_t readMessage(char* buffer, size_t size, size_t count, void* user)
{
    auto* transfer = static_cast<Transfer*>(user);
    const size_t left = static_cast<size_t>(transfer->message.size() - transfer->offset);
    const size_t bytes = std::min(size * count, left);
    std::memcpy(buffer, transfer->message.constData() + transfer->offset, bytes);
    transfer->offset += static_cast<qsizetype>(bytes);
    return bytes;
}

// Keeps the server's replies only: what it said last is the best reason a failure has.
int watchTraffic(CURL*, curl_infotype type, char* data, size_t size, void* user)
{
    if (type != CURLINFO_HEADER_IN)
        return 0;
    const QList<QByteArray> lines = QByteArray(data, static_cast<int>(size)).split('\n');
    auto* transfer = static_cast<Transfer*>(user);
    for (const QByteArray& line : lines) {
        const QByteArray reply = line.trimmed();
        if (reply.isEmpty())
            continue;
        transfer->lastReply = reply;
        if (reply.startsWith('4') || reply.startsWith('5'))
            transfer->lastRefusal = reply;
    }
    return 0;
}

// Called about once a second even while nothing moves: a non-zero return aborts the send.
int checkAbort(void* user, curl_off_t, curl_off_t, curl_off_t, curl_off_t)
{
    return static_cast<Transfer*>(user)->abort->load() ? 1 : 0;
}

QByteArray serverUrl(const EmailConfigAttribute& settings)
{
    QString host = settings.getSmtpServerAddress().trimmed();
    if (host.contains(QLatin1Char(':')) && !host.startsWith(QLatin1Char('[')))
        host = QStringLiteral("[%1]").arg(host);   // an IPv6 address
    const QString scheme = settings.getSmtpServerEncryptionType() == MailSender::Smtps ? QStringLiteral("smtps")
                                                                                      : QStringLiteral("smtp");
    const QString port = settings.getSmtpServerPort() ? QStringLiteral(":%1").arg(settings.getSmtpServerPort())
                                                      : QString();
    return QStringLiteral("%1://%2%3").arg(scheme, host, port).toUtf8();
}

using CurlList = std::unique_ptr<curl_slist, void (*)(curl_slist*)>;

// Sets everything but the callbacks' data; the byte arrays must outlive the send.
void configure(CURL* curl, const OutgoingMail& mail, const MailTransport& transport, const QByteArray& url,
               const QByteArray& sender, curl_slist* recipients)
{
    const EmailConfigAttribute& settings = mail.settings;
    curl_easy_setopt(curl, CURLOPT_URL, url.constData());
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "smtp,smtps");
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, static_cast<long>(transport.timeoutSeconds));
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, static_cast<long>(transport.timeoutSeconds));
    curl_easy_setopt(curl, CURLOPT_MAIL_FROM, sender.constData());
    curl_easy_setopt(curl, CURLOPT_MAIL_RCPT, recipients);
    curl_easy_setopt(curl, CURLOPT_UPLOAD, 1L);
    curl_easy_setopt(curl, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(mail.message.size()));
    if (settings.getSmtpServerEncryptionType() == MailSender::StartTls)
        curl_easy_setopt(curl, CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_ALL));
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, transport.verifyCertificate ? 1L : 0L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, transport.verifyCertificate ? 2L : 0L);
    if (!transport.caFile.isEmpty())
        curl_easy_setopt(curl, CURLOPT_CAINFO, QFile::encodeName(transport.caFile).constData());
}

void attachCallbacks(CURL* curl, Transfer& transfer, char* detail)
{
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, detail);
    curl_easy_setopt(curl, CURLOPT_READFUNCTION, &readMessage);
    curl_easy_setopt(curl, CURLOPT_READDATA, &transfer);
    curl_easy_setopt(curl, CURLOPT_VERBOSE, 1L);   // feeds watchTraffic, which prints nothing
    curl_easy_setopt(curl, CURLOPT_DEBUGFUNCTION, &watchTraffic);
    curl_easy_setopt(curl, CURLOPT_DEBUGDATA, &transfer);
    curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, &checkAbort);
    curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &transfer);
}

// One whole SMTP send; empty on success, else libcurl's error with the server's last reply.
QString sendMail(const OutgoingMail& mail, const MailTransport& transport, const std::atomic<bool>& abort)
{
    if (abort.load())
        return QStringLiteral("the service stopped before the mail could be sent");
    std::unique_ptr<CURL, void (*)(CURL*)> curl(curl_easy_init(), &curl_easy_cleanup);
    if (!curl)
        return QStringLiteral("libcurl could not start a transfer");
    const QByteArray url = serverUrl(mail.settings);
    const QByteArray sender = "<" + mail.settings.getMailSender().trimmed().toUtf8() + ">";
    CurlList recipients(nullptr, &curl_slist_free_all);
    for (const QString& address : mail.recipients)
        recipients.reset(curl_slist_append(recipients.release(), ("<" + address.toUtf8() + ">").constData()));
    configure(curl.get(), mail, transport, url, sender, recipients.get());
    const QByteArray user = mail.settings.getLoginUserName().toUtf8();
    const QByteArray password = mail.settings.getLoginPassword();
    if (mail.settings.getStmpAuthentication()) {
        curl_easy_setopt(curl.get(), CURLOPT_USERNAME, user.constData());
        curl_easy_setopt(curl.get(), CURLOPT_PASSWORD, password.constData());
    }

    Transfer transfer;
    transfer.message = mail.message;
    transfer.abort = &abort;
    char detail[CURL_ERROR_SIZE] = {};
    attachCallbacks(curl.get(), transfer, detail);

    const CURLcode code = curl_easy_perform(curl.get());
    if (code == CURLE_OK)
        return QString();
    if (code == CURLE_ABORTED_BY_CALLBACK)
        return QStringLiteral("the service stopped during the send");
    QString error = QString::fromUtf8(curl_easy_strerror(code));
    if (detail[0] && QString::fromUtf8(detail) != error)
        error += QStringLiteral(" (%1)").arg(QString::fromUtf8(detail).trimmed());
    const QByteArray said = transfer.lastRefusal.isEmpty() ? transfer.lastReply : transfer.lastRefusal;
    if (!said.isEmpty())
        error += QStringLiteral("; the server said: %1").arg(QString::fromUtf8(said));
    return error;
}

} // namespace

MailSender::MailSender(const MailTransport& transport, QObject* parent)
    : QObject(parent)
    , m_transport(transport)
{
    // Not thread-safe in every libcurl: done here, on the main thread, before any worker runs.
    curl_global_init(CURL_GLOBAL_DEFAULT);
    m_pool.setMaxThreadCount(2);
}

MailSender::~MailSender()
{
    blockSignals(true);   // whoever listened may be half destroyed by now
    Stop();
    curl_global_cleanup();
}

QString MailSender::Check(const EmailConfigAttribute& settings)
{
    static const QRegularExpression badHost(QStringLiteral("[\\s/@?#]"));
    const QString host = settings.getSmtpServerAddress().trimmed();
    if (host.isEmpty())
        return QStringLiteral("no SMTP server is set");
    if (host.contains(badHost))
        return QStringLiteral("'%1' is not a host name").arg(host);
    if (settings.getSmtpServerEncryptionType() > Smtps)
        return QStringLiteral("encryption kind %1 is not one of 0 (none), 1 (STARTTLS), 2 (SMTPS)")
            .arg(settings.getSmtpServerEncryptionType());
    if (settings.getStmpAuthentication() && settings.getLoginUserName().isEmpty())
        return QStringLiteral("login is on but no user name is set");
    if (settings.getMailSender().trimmed().isEmpty())
        return QStringLiteral("no sender address is set");
    if (const QString wrong = MailMessage::CheckAddress(settings.getMailSender().trimmed()); !wrong.isEmpty())
        return QStringLiteral("sender: %1").arg(wrong);
    const QStringList recipients = MailMessage::Recipients(settings.getMailRecipients());
    if (recipients.isEmpty())
        return QStringLiteral("no recipient is set");
    for (const QString& address : recipients) {
        if (const QString wrong = MailMessage::CheckAddress(address); !wrong.isEmpty())
            return QStringLiteral("recipients: %1").arg(wrong);
    }
    return QString();
}

quint64 MailSender::Send(const OutgoingMail& mail)
{
    if (m_waiting >= MaxWaiting || m_abort.load())
        return 0;
    ++m_waiting;
    const quint64 ticket = ++m_lastTicket;
    const MailTransport transport = m_transport;
    m_pool.start(QRunnable::create([this, ticket, mail, transport] {
        const QString error = sendMail(mail, transport, m_abort);
        QMetaObject::invokeMethod(this, [this, ticket, error] { onWorkerEnded(ticket, error); }, Qt::QueuedConnection);
    }));
    return ticket;
}

void MailSender::Stop()
{
    m_abort.store(true);
    m_pool.waitForDone();
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
}

void MailSender::onWorkerEnded(quint64 ticket, const QString& error)
{
    --m_waiting;
    emit ended(ticket, error);
}
