// The scheduler's notification mails end to end: a backupframe-scheduler process mails a real
// SMTP server (tests/smtpserver.py on 127.0.0.1, which reads each message back with Python's
// own e-mail parser), set up and tested through backupframe-agent.
#include "mailsender.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>
#include <sys/stat.h>

namespace {

const QString kCert = QStringLiteral(TESTS_DIR "/smtp-test-cert.pem");
const QString kRecipients = QStringLiteral("ops@example.org, Boss@Example.org, log@example.org");

struct Outcome {
    int code = -1;   // -1: did not finish
    QString out;
};

// Waits with the event loop alive: a server of this process may have to act meanwhile.
Outcome finish(QProcess& process, int ms = 30000)
{
    Outcome outcome;
    if (QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, ms))
        outcome.code = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    process.kill();
    process.waitForFinished(5000);
    outcome.out = QString::fromUtf8(process.readAllStandardOutput() + process.readAllStandardError());
    return outcome;
}

// tests/smtpserver.py: "plain", or "auth": STARTTLS required and a login as user/secret.
class SmtpServer
{
public:
    ~SmtpServer()
    {
        m_process.closeWriteChannel();   // its signal to stop
        if (m_process.state() != QProcess::NotRunning)
            finish(m_process, 5000);
    }
    bool Start(const QString& dir, const QString& kind)
    {
        QStringList arguments{QStringLiteral(TESTS_DIR "/smtpserver.py"), "--dir", dir};
        if (kind == QLatin1String("auth"))
            arguments << "--tls-cert" << kCert << "--tls-key" << TESTS_DIR "/smtp-test-key.pem" << "--auth" << "user:secret";
        m_process.start(QStringLiteral(SMTP_PYTHON), arguments);
        QByteArray out;
        (void)QTest::qWaitFor([&] { return (out += m_process.readAllStandardOutput()).contains('\n'); }, 15000);
        port = out.startsWith("PORT ") ? out.mid(5).trimmed().toUShort() : 0;
        return port != 0;
    }
    quint16 port = 0;

private:
    QProcess m_process;
};

} // namespace

class tst_Mail : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        static int counter = 0;
        m_dir.reset(new QTemporaryDir);
        QVERIFY(m_dir->isValid() && QDir(m_dir->path()).mkpath("mails") && QDir(m_dir->path()).mkpath("data"));
        m_serverName = QStringLiteral("tst_mail_%1_%2").arg(QCoreApplication::applicationPid()).arg(++counter);
    }
    void cleanup()
    {
        m_scheduler.terminate();
        finish(m_scheduler, 10000);
        m_dir.reset();
    }
    void runMails_data();
    void runMails();
    void testMail_data();
    void testMail();
    void badConfiguration_data();
    void badConfiguration();
    void settingsFileIsTheOwnersOnly_data();
    void settingsFileIsTheOwnersOnly();
    void queueIsBoundedAndStopIsPrompt();

private:
    // email: the [Email] lines of the service configuration; empty: the test CA.
    bool StartScheduler(const QString& email = QString())
    {
        QFile config(m_dir->filePath(QStringLiteral("scheduler.ini")));
        if (!config.open(QIODevice::WriteOnly))
            return false;
        config.write("[Email]\n" + (email.isEmpty() ? QStringLiteral("ca_file=%1").arg(kCert) : email).toUtf8() + "\n");
        config.close();
        StartAgent(m_scheduler, {});   // the same environment
        m_scheduler.start(QStringLiteral(SCHEDULER_PATH), {"--data-dir", m_dir->filePath("data"), "--server-name",
                                                             m_serverName, "--config", config.fileName()});
        QByteArray output;
        (void)QTest::qWaitFor([&] {
            output += m_scheduler.readAllStandardOutput();
            return output.contains("serving '") || m_scheduler.state() == QProcess::NotRunning;
        }, 10000);
        return m_scheduler.state() == QProcess::Running;
    }
    // Without arguments: only sets the environment (for the scheduler too).
    void StartAgent(QProcess& agent, const QStringList& arguments, const QString& password = QString())
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("XDG_DATA_HOME"), m_dir->filePath(QStringLiteral("home")));
        environment.insert(QStringLiteral("BACKUPFRAME_SMTP_PASSWORD"), password);
        agent.setProcessEnvironment(environment);
        if (!arguments.isEmpty())
            agent.start(QStringLiteral(AGENT_PATH), QStringList{"--server-name", m_serverName} + arguments);
    }
    Outcome Agent(const QStringList& arguments, const QByteArray& input = QByteArray())
    {
        QProcess agent;
        StartAgent(agent, arguments);
        agent.write(input);
        agent.closeWriteChannel();
        return finish(agent);
    }
    // The e-mail options for a server of the given kind on port; the password is left to the caller.
    static QStringList MailSettings(quint16 port, const QString& kind)
    {
        const bool auth = kind == QLatin1String("auth");
        return {"--enable", "1", "--smtp-server", "127.0.0.1", "--smtp-port", QString::number(port), "--encryption",
                auth ? "1" : "0", "--auth", auth ? "1" : "0", "--user", "user", "--sender", "backup@example.org",
                "--recipients", "ops@example.org; Boss@Example.org,\tlog@example.org"};
    }
    // The server's record of the number-th message it received, or an empty one.
    QJsonObject Mail(int number) const
    {
        QFile file(m_dir->filePath(QStringLiteral("mails/%1.json").arg(number)));
        (void)QTest::qWaitFor([&] { return file.exists(); }, 30000);
        return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).object() : QJsonObject();
    }
    int LogCount(const QString& text) const
    {
        QFile log(m_dir->filePath(QStringLiteral("data/log/scheduler.log")));
        return log.open(QIODevice::ReadOnly) ? QString::fromUtf8(log.readAll()).count(text) : 0;
    }

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_serverName;
    QProcess m_scheduler;
};

void tst_Mail::runMails_data()
{
    QTest::addColumn<QString>("server");
    QTest::addColumn<QByteArray>("password");   // the line given on standard input
    QTest::addColumn<QString>("when");          // the option that asks for the mail
    QTest::addColumn<QString>("mailed");        // the plan whose run is mailed (after one that is not)
    QTest::addColumn<QString>("subject");       // as configured; empty: the default one
    QTest::addColumn<QStringList>("body");      // lines the body holds; empty: no mail arrives
    QTest::addColumn<QString>("logged");

    const QString failed = QStringLiteral("backupframe: broken Failed");
    QTest::newRow("a succeeded run is mailed over plain SMTP with a non-ASCII plan name and long subject")
        << "plain" << QByteArray("unused\n") << "--on-success" << "Sicherung Büro ✓"
        << "Sicherung äöüßäöüßäöüßäöüßäöüßäöüßäöüß – bitte prüfen ✓"
        << QStringList{"The plan \"Sicherung Büro ✓\" ran: Succeeded.", "Result:    Succeeded", "Operation: noop"}
        << "Mail sent: \"Sicherung äöüßäöüßäöüßäöüßäöüßäöüßäöüß – bitte prüfen ✓\" to " + kRecipients + ".";
    QTest::newRow("a failed run is mailed over STARTTLS after a login, with its reason and solution")
        << "auth" << QByteArray("secret\n") << "--on-failure" << "broken" << ""
        << QStringList{"The plan \"broken\" ran: Failed.", "Reason:    The operation was asked to fail.", "Solution:  "}
        << "Mail sent: \"" + failed + "\" to " + kRecipients + ".";
    QTest::newRow("a refused login costs one warning with the server's reply, and the run keeps its journal")
        << "auth" << QByteArray("wrong\n") << "--on-failure" << "broken" << "" << QStringList()
        << "Mail not sent: \"" + failed + "\" to " + kRecipients + ": Login denied; the server said: 535 5.7.8";
}

void tst_Mail::runMails()
{
    QFETCH(QString, server);
    QFETCH(QByteArray, password);
    QFETCH(QString, when);
    QFETCH(QString, mailed);
    QFETCH(QString, subject);
    QFETCH(QStringList, body);
    QFETCH(QString, logged);
    SmtpServer smtp;
    QVERIFY2(smtp.Start(m_dir->filePath("mails"), server), "the SMTP server did not start");
    QVERIFY2(StartScheduler(), "the scheduler did not start");
    QCOMPARE(Agent(QStringList{"email", "set", "--password-stdin", when, "1", "--subject", subject}
                       + MailSettings(smtp.port, server), password).code, 0);
    const bool failures = when == QLatin1String("--on-failure");
    for (const QString& plan : {failures ? QStringLiteral("quick") : QStringLiteral("broken"), mailed}) {
        QCOMPARE(Agent({"new", plan, plan == QLatin1String("broken") ? "fail" : "noop"}).code, 0);
        QCOMPARE(Agent({"run", "--wait", plan}).code, plan == QLatin1String("broken") ? 4 : 0);
    }
    QTRY_COMPARE_WITH_TIMEOUT(LogCount(logged), 1, 30000);
    QCOMPARE(LogCount(QStringLiteral("Mail ")), 1);   // the run that was not asked for got none
    if (body.isEmpty())
        return;
    const QJsonObject mail = Mail(1);
    const QJsonObject expected{
        {"subject", subject.isEmpty() ? QStringLiteral("backupframe: %1 %2").arg(mailed, failures ? "Failed" : "Succeeded")
                                      : subject},
        {"mail_from", "backup@example.org"}, {"rcpt_tos", QJsonArray{"ops@example.org", "Boss@Example.org", "log@example.org"}},
        {"content_type", "text/plain"}, {"charset", "utf-8"}, {"missing", QJsonArray()}, {"defects", QJsonArray()},
        {"bare_lf", false}, {"encoded_words_whole", true}, {"tls", server == "auth"}, {"authenticated", server == "auth"}};
    for (auto it = expected.begin(); it != expected.end(); ++it)
        QVERIFY2(mail[it.key()] == it.value(), qPrintable(it.key() + ": " + QJsonDocument(mail).toJson()));
    for (const QString& line : body)
        QVERIFY2(mail["body"].toString().contains(line), qPrintable(mail["body"].toString()));
}

void tst_Mail::testMail_data()
{
    QTest::addColumn<QString>("server");         // "none": a port nobody listens on; "silent": one that never answers
    QTest::addColumn<QString>("config");         // the [Email] lines; empty: the test CA
    QTest::addColumn<QStringList>("options");    // for this test only
    QTest::addColumn<QString>("password");       // BACKUPFRAME_SMTP_PASSWORD
    QTest::addColumn<bool>("stop");              // the service is stopped while the agent waits
    QTest::addColumn<QString>("said");           // by the agent, and in the log after "to RECIPIENTS"; exit 0 for "."

    const QStringList none;
    QTest::newRow("a test mail with the stored settings reaches the server")
        << "auth" << "" << none << "" << false << ".";
    QTest::newRow("options change the recipients and password for this test only")
        << "auth" << "" << QStringList{"--recipients", "other@example.org", "--password-env"} << "secret" << false << ".";
    QTest::newRow("a refused login answers with the server's own reply")
        << "auth" << "" << QStringList{"--password-env"} << "wrong" << false
        << ": Login denied; the server said: 535 5.7.8 Authentication credentials invalid";
    QTest::newRow("an absent server answers that nothing could be connected to")
        << "none" << "" << none << "" << false << ": Couldn't connect to server";
    QTest::newRow("a plain connection to a STARTTLS server is refused by it")
        << "auth" << "" << QStringList{"--encryption", "0", "--auth", "0"} << "" << false << ": Failed sending data to the peer";
    QTest::newRow("a server certificate that no trusted CA signed is refused")
        << "auth" << "timeout_seconds=30" << none << "" << false << ": SSL peer certificate or SSH remote key was not OK";
    QTest::newRow("with certificate checking off the same server is used")
        << "auth" << "verify_certificate=0" << none << "" << false << ".";
    QTest::newRow("a server that never answers costs the mail timeout, and the service answers meanwhile")
        << "silent" << "timeout_seconds=2" << QStringList{"--encryption", "0"} << "" << false << ": Timeout was reached";
    QTest::newRow("a stop cuts a send short instead of waiting out the server, and the agent is answered")
        << "silent" << "timeout_seconds=600" << QStringList{"--encryption", "0"} << "" << true
        << ": the service stopped during the send";
    QTest::newRow("an unknown encryption kind is refused before any connection, without a log line")
        << "none" << "" << QStringList{"--encryption", "3"} << "" << false
        << "encryption kind 3 is not one of 0 (none), 1 (STARTTLS), 2 (SMTPS)";
}

void tst_Mail::testMail()
{
    QFETCH(QString, server);
    QFETCH(QString, config);
    QFETCH(QStringList, options);
    QFETCH(QString, password);
    QFETCH(bool, stop);
    QFETCH(QString, said);
    SmtpServer smtp;
    QTcpServer other;   // "none": its port once closed; "silent": accepts and never says a word
    QList<QTcpSocket*> accepted;
    connect(&other, &QTcpServer::newConnection, [&] { accepted << other.nextPendingConnection(); });
    QVERIFY(server == QLatin1String("auth") ? smtp.Start(m_dir->filePath("mails"), server)
                                            : other.listen(QHostAddress::LocalHost));
    const quint16 port = server == QLatin1String("auth") ? smtp.port : other.serverPort();
    if (server == QLatin1String("none"))
        other.close();
    QVERIFY2(StartScheduler(config), "the scheduler did not start");
    QCOMPARE(Agent(QStringList{"email", "set", "--password", "secret"} + MailSettings(port, "auth")).code, 0);

    QProcess test;
    QElapsedTimer clock;
    clock.start();
    StartAgent(test, QStringList{"email", "test"} + options, password);
    if (server == QLatin1String("silent")) {
        QVERIFY(QTest::qWaitFor([&] { return !accepted.isEmpty(); }, 10000));
        QCOMPARE(Agent({"--timeout", "1.5", "plans"}).code, 0);
    }
    if (stop)
        m_scheduler.terminate();
    const Outcome tested = finish(test);
    QVERIFY2(clock.elapsed() < 15000, "a stop or a silent server held the answer up");
    const bool sent = said == QLatin1String(".");
    const QString to = options.contains("--recipients") ? QStringLiteral("other@example.org") : kRecipients;
    QVERIFY2(tested.code == (sent ? 0 : 2) && tested.out.contains(sent ? "Test mail sent to " + to + "." : said),
             qPrintable(tested.out));
    const QString logged = QStringLiteral("Mail %1: \"backupframe: test mail\" to %2%3").arg(sent ? "sent" : "not sent", to, said);
    QTRY_COMPARE_WITH_TIMEOUT(LogCount(QStringLiteral("Mail ")), said.startsWith("encryption") ? 0 : 1, 10000);
    QVERIFY2(said.startsWith("encryption") || LogCount(logged) == 1, qPrintable(logged));
    if (sent)
        QCOMPARE(Mail(1)["subject"].toString(), QStringLiteral("backupframe: test mail"));
    if (!stop)   // the options were for the test only
        QVERIFY(Agent({"email", "show"}).out.contains("ops@example.org"));
}

void tst_Mail::badConfiguration_data()
{
    QTest::addColumn<QString>("config");
    QTest::addColumn<QString>("said");
    QTest::newRow("a zero timeout is refused") << "timeout_seconds=0" << "Email/timeout_seconds = '0' is not a number from 1 to 600";
    QTest::newRow("a timeout above ten minutes is refused") << "timeout_seconds=601" << "is not a number from 1 to 600";
    QTest::newRow("certificate checking is 0 or 1") << "verify_certificate=2" << "Email/verify_certificate = '2' is not a number from 0 to 1";
    QTest::newRow("a CA file that is not there is refused") << "ca_file=nosuch.pem" << "nosuch.pem' is not a readable file";
}

void tst_Mail::badConfiguration()
{
    QFETCH(QString, config);
    QFETCH(QString, said);
    QVERIFY(!StartScheduler(config));
    const Outcome refused = finish(m_scheduler, 10000);
    QVERIFY2(refused.code == 1 && refused.out.contains(said), qPrintable(refused.out));
}

void tst_Mail::settingsFileIsTheOwnersOnly_data()
{
    QTest::addColumn<bool>("existing");
    QTest::newRow("an existing file readable by all is made the owner's at start") << true;
    QTest::newRow("a new file is created readable by its owner only") << false;
}

void tst_Mail::settingsFileIsTheOwnersOnly()
{
    QFETCH(bool, existing);
    QFile file(m_dir->filePath(QStringLiteral("data/email.ini")));
    if (existing)
        QVERIFY(file.open(QIODevice::WriteOnly) && file.setPermissions(file.permissions() | QFileDevice::ReadOther));
    QVERIFY2(StartScheduler(), "the scheduler did not start");
    if (!existing)
        QCOMPARE(Agent({"email", "set", "--password", "secret"}).code, 0);
    struct stat status = {};
    QCOMPARE(::stat(QFile::encodeName(file.fileName()).constData(), &status), 0);
    QCOMPARE(status.st_mode & 0777, 0600u);
}

// In-process: a hundred mails stuck on a silent server; the next is refused, and a stop ends all at once.
void tst_Mail::queueIsBoundedAndStopIsPrompt()
{
    QTcpServer silent;
    QVERIFY(silent.listen(QHostAddress::LocalHost));
    MailSender sender(MailTransport{600, QString(), true});
    QSignalSpy ended(&sender, &MailSender::ended);
    OutgoingMail mail{{}, {"ops@example.org"}, "Subject: x\r\n\r\nx\r\n"};
    mail.settings.setSmtpServerAddress("127.0.0.1");
    mail.settings.setSmtpServerPort(silent.serverPort());
    mail.settings.setMailSender("backup@example.org");
    for (int i = 0; i < MailSender::MaxWaiting; ++i)
        QVERIFY(sender.Send(mail) != 0);
    QCOMPARE(sender.Send(mail), quint64(0));
    QVERIFY(QTest::qWaitFor([&] { return silent.hasPendingConnections(); }, 10000));
    QElapsedTimer clock;
    clock.start();
    sender.Stop();
    QVERIFY2(clock.elapsed() < 5000, qPrintable(QString::number(clock.elapsed())));
    QCOMPARE(ended.count(), MailSender::MaxWaiting);
    QVERIFY(ended.first().at(1).toString().startsWith("the service stopped"));
}

QTEST_GUILESS_MAIN(tst_Mail)
#include "tst_mail.moc"
