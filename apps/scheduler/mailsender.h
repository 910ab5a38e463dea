#ifndef BACKUPFRAME_SCHEDULER_MAILSENDER_H
#define BACKUPFRAME_SCHEDULER_MAILSENDER_H

#include <backupframe.h>

#include <QByteArray>
#include <QObject>
#include <QStringList>
#include <QThreadPool>

#include <atomic>

// How the service reaches mail servers: the /Email/ keys of the service configuration.
struct MailTransport {
    int timeoutSeconds = 30;        // for the connection and for the whole send
    QString caFile;                 // CA bundle the server's certificate is checked with; empty: the system's
    bool verifyCertificate = true;
};

// One mail ready to go: the settings of the server it goes through and its whole text.
struct OutgoingMail {
    EmailConfigAttribute settings;
    QStringList recipients;
    QByteArray message;
};

// Sends mails through libcurl's SMTP on a thread pool of its own, so that a slow or absent
// server never holds up the main thread; the end of each send comes back queued (`ended`).
// At most MaxWaiting mails wait or travel at once. Lives on the main thread.
class MailSender : public QObject
{
    Q_OBJECT

public:
    static constexpr int MaxWaiting = 100;
    // The encryption kinds of the settings.
    enum Encryption : quint64 { PlainSmtp = 0, StartTls = 1, Smtps = 2 };

    explicit MailSender(const MailTransport& transport, QObject* parent = nullptr);
    ~MailSender() override;

    // Empty when the settings can send; else what is missing or wrong.
    static QString Check(const EmailConfigAttribute& settings);
    // Queues mail; 0 when MaxWaiting mails are already waiting (nothing queued), else the ticket
    // that its `ended` carries.
    quint64 Send(const OutgoingMail& mail);
    // Aborts the sends in flight (within about a second) and those still waiting, and delivers
    // their `ended` before it returns. Nothing is sent afterwards.
    void Stop();

signals:
    // error: empty when the server took the mail, else libcurl's error and the server's last reply.
    void ended(quint64 ticket, const QString& error);

private:
    void onWorkerEnded(quint64 ticket, const QString& error);

    const MailTransport m_transport;
    QThreadPool m_pool;
    std::atomic<bool> m_abort{false};   // read by the workers' progress callbacks
    int m_waiting = 0;                  // queued or in flight; main thread only
    quint64 m_lastTicket = 0;
};

#endif
