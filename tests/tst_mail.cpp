// The scheduler's notification mails end to end: a backupframe-scheduler process mails a real
// SMTP server (tests/smtpserver.py on 127.0.0.1), set up and tested through backupframe-agent.
// The server reads each message back with Python's own e-mail parser.
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
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
const QString kKey = QStringLiteral(TESTS_DIR "/smtp-test-key.pem");

struct Outcome {
    int code = -1;   // -1: did not finish
    QString out;
    QString err;
};

// Waits with the event loop alive: a server of this process may have to act meanwhile.
Outcome finish(QProcess& process, int ms = 30000)
{
    (void)QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, ms);
    Outcome outcome;
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished(5000);
    } else if (process.exitStatus() == QProcess::NormalExit) {
        outcome.code = process.exitCode();
    }
    outcome.out = QString::fromUtf8(process.readAllStandardOutput());
    outcome.err = QString::fromUtf8(process.readAllStandardError());
    return outcome;
}

// tests/smtpserver.py: "plain", "starttls" or "auth" (STARTTLS and login as user/secret).
class SmtpServer
{
public:
    ~SmtpServer()
    {
        m_process.closeWriteChannel();   // its signal to stop
        if (!m_process.waitForFinished(5000))
            m_process.kill();
        m_process.waitForFinished(5000);
    }
    bool Start(const QString& dir, const QString& kind)
    {
        QStringList arguments{QStringLiteral(TESTS_DIR "/smtpserver.py"), "--dir", dir};
        if (kind != QLatin1String("plain"))
            arguments << "--tls-cert" << kCert << "--tls-key" << kKey;
        if (kind == QLatin1String("auth"))
            arguments << "--auth" << "user:secret";
        m_process.start(QStringLiteral(SMTP_PYTHON), arguments);
        QByteArray out;
        (void)QTest::qWaitFor([&] {
            out += m_process.readAllStandardOutput();
            return out.contains('\n') || m_process.state() == QProcess::NotRunning;
        }, 15000);
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
    void init();
    void cleanup();

    void runMails_data();
    void runMails();
    void testMail_data();
    void testMail();
    void refusedRunMailIsOneWarning();
    void unansweringServer_data();
    void unansweringServer();
    void badConfiguration_data();
    void badConfiguration();
    void settingsFileIsTheOwnersOnly_data();
    void settingsFileIsTheOwnersOnly();

private:
    // email: the [Email] lines of the service configuration; empty: the test CA, 30 s.
    bool StartScheduler(const QString& email = QString());
    void WriteConfig(const QString& email);
    Outcome Agent(const QStringList& arguments, const QByteArray& input = QByteArray(),
                  const QString& password = QString());
    void StartAgent(QProcess& agent, const QStringList& arguments, const QString& password = QString());
    QStringList MailSettings(quint16 port, const QString& kind) const;
    QJsonObject Mail(int number);
    int LogCount(const QString& text) const;

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_serverName;
    QString m_mailDir;
    QProcess m_scheduler;
};

void tst_Mail::init()
{
    static int counter = 0;
    m_dir.reset(new QTemporaryDir);
    QVERIFY(m_dir->isValid());
    m_serverName = QStringLiteral("tst_mail_%1_%2").arg(QCoreApplication::applicationPid()).arg(++counter);
    m_mailDir = m_dir->filePath(QStringLiteral("mails"));
    QVERIFY(QDir().mkpath(m_mailDir));
}

void tst_Mail::cleanup()
{
    if (m_scheduler.state() != QProcess::NotRunning) {
        m_scheduler.terminate();
        if (!m_scheduler.waitForFinished(10000))
            m_scheduler.kill();
        m_scheduler.waitForFinished(5000);
    }
    m_dir.reset();
}

void tst_Mail::WriteConfig(const QString& email)
{
    QFile file(m_dir->filePath(QStringLiteral("scheduler.ini")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("[Email]\n" + (email.isEmpty() ? QStringLiteral("ca_file=%1").arg(kCert) : email).toUtf8() + "\n");
}

bool tst_Mail::StartScheduler(const QString& email)
{
    WriteConfig(email);
    const QString config = m_dir->filePath(QStringLiteral("scheduler.ini"));
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_DATA_HOME"), m_dir->filePath(QStringLiteral("home")));
    m_scheduler.setProcessEnvironment(environment);
    m_scheduler.start(QStringLiteral(SCHEDULER_PATH), {"--data-dir", m_dir->filePath("data"), "--server-name",
                                                         m_serverName, "--config", config});
    QByteArray output;
    (void)QTest::qWaitFor([&] {
        output += m_scheduler.readAllStandardOutput();
        return output.contains("serving '") || m_scheduler.state() == QProcess::NotRunning;
    }, 10000);
    return m_scheduler.state() == QProcess::Running;
}

void tst_Mail::StartAgent(QProcess& agent, const QStringList& arguments, const QString& password)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_DATA_HOME"), m_dir->filePath(QStringLiteral("home")));
    environment.insert(QStringLiteral("BACKUPFRAME_SMTP_PASSWORD"), password);
    agent.setProcessEnvironment(environment);
    agent.start(QStringLiteral(AGENT_PATH), QStringList{"--server-name", m_serverName} + arguments);
}

Outcome tst_Mail::Agent(const QStringList& arguments, const QByteArray& input, const QString& password)
{
    QProcess agent;
    StartAgent(agent, arguments, password);
    agent.write(input);
    agent.closeWriteChannel();
    return finish(agent);
}

// The e-mail options for a server of the given kind; the password is left to the caller.
QStringList tst_Mail::MailSettings(quint16 port, const QString& kind) const
{
    return {"--enable", "1", "--smtp-server", "127.0.0.1", "--smtp-port", QString::number(port),
            "--encryption", kind == QLatin1String("plain") ? "0" : "1", "--auth", kind == QLatin1String("auth") ? "1" : "0",
            "--user", "user", "--sender", "backup@example.org", "--recipients", "ops@example.org; Boss@Example.org,\tlog@example.org"};
}

// The server's record of the number-th message it received.
QJsonObject tst_Mail::Mail(int number)
{
    const QString path = QDir(m_mailDir).filePath(QStringLiteral("%1.json").arg(number));
    if (!QTest::qWaitFor([&] { return QFile::exists(path); }, 30000))
        return QJsonObject();
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).object() : QJsonObject();
}

int tst_Mail::LogCount(const QString& text) const
{
    QFile log(m_dir->filePath(QStringLiteral("data/log/scheduler.log")));
    return log.open(QIODevice::ReadOnly) ? QString::fromUtf8(log.readAll()).count(text) : 0;
}

void tst_Mail::runMails_data()
{
    QTest::addColumn<QString>("server");
    QTest::addColumn<QString>("when");       // the option that asks for the mail
    QTest::addColumn<QString>("mailed");     // the plan whose run is mailed
    QTest::addColumn<QString>("other");      // a plan whose run is not
    QTest::addColumn<QString>("subject");    // as configured; empty: the default one
    QTest::addColumn<QStringList>("body");   // lines the body holds

    QTest::newRow("a succeeded run is mailed over plain SMTP with a non-ASCII plan name, a failed one is not")
        << "plain" << "--on-success" << "Sicherung Büro ✓" << "broken"
        << "Sicherung äöüßäöüßäöüßäöüßäöüßäöüßäöüß – bitte prüfen ✓"
        << QStringList{"The plan \"Sicherung Büro ✓\" ran: Succeeded.", "Result:    Succeeded", "Operation: noop"};
    QTest::newRow("a failed run is mailed over STARTTLS after a login, with its reason and solution")
        << "auth" << "--on-failure" << "broken" << "quick" << ""
        << QStringList{"The plan \"broken\" ran: Failed.", "Reason:    The operation was asked to fail.", "Solution:  "};
}

void tst_Mail::runMails()
{
    QFETCH(QString, server);
    QFETCH(QString, when);
    QFETCH(QString, mailed);
    QFETCH(QString, other);
    QFETCH(QString, subject);
    QFETCH(QStringList, body);
    SmtpServer smtp;
    QVERIFY2(smtp.Start(m_mailDir, server), "the SMTP server did not start");
    QVERIFY2(StartScheduler(), "the scheduler did not start");
    const Outcome set = Agent(QStringList{"email", "set", "--password-stdin", when, "1", "--subject", subject}
                                  + MailSettings(smtp.port, server), "secret\n");
    QVERIFY2(set.code == 0, qPrintable(set.err));
    const bool mailFailures = when == QLatin1String("--on-failure");
    for (const QString& plan : {other, mailed}) {
        const bool fails = plan == QLatin1String("broken");
        QCOMPARE(Agent({"new", plan, fails ? "fail" : "noop"}).code, 0);
        QCOMPARE(Agent({"run", "--wait", plan}).code, fails ? 4 : 0);
    }

    const QJsonObject mail = Mail(1);
    QVERIFY2(!mail.isEmpty(), "no mail arrived");
    QCOMPARE(mail["subject"].toString(), subject.isEmpty() ? QStringLiteral("backupframe: %1 %2")
                                                                 .arg(mailed, mailFailures ? "Failed" : "Succeeded")
                                                           : subject);
    QCOMPARE(mail["mail_from"].toString(), QStringLiteral("backup@example.org"));
    QCOMPARE(mail["rcpt_tos"].toArray(), QJsonArray({"ops@example.org", "Boss@Example.org", "log@example.org"}));
    QCOMPARE(mail["defects"].toArray(), QJsonArray());
    QCOMPARE(mail["bare_lf"].toBool(), false);
    QCOMPARE(mail["encoded_words_whole"].toBool(), true);
    QCOMPARE(mail["tls"].toBool(), server != QLatin1String("plain"));
    QCOMPARE(mail["authenticated"].toBool(), server == QLatin1String("auth"));
    QCOMPARE(mail["content_type"].toString() + " " + mail["charset"].toString(), QStringLiteral("text/plain utf-8"));
    const QJsonObject headers = mail["headers"].toObject();
    for (const char* name : {"Date", "From", "To", "Message-ID", "MIME-Version", "Content-Transfer-Encoding"})
        QVERIFY2(!headers[QLatin1String(name)].toString().isEmpty(), name);
    QVERIFY(QDateTime::fromString(headers["Date"].toString(), Qt::RFC2822Date).isValid());
    const QString text = mail["body"].toString().remove(QLatin1Char('\r'));
    for (const QString& line : body)
        QVERIFY2(text.contains(line), qPrintable(text));
    QTRY_COMPARE_WITH_TIMEOUT(LogCount(QStringLiteral("Mail sent: \"%1\" to ops@example.org, Boss@Example.org, "
                                                      "log@example.org.").arg(mail["subject"].toString())), 1, 10000);
    QCOMPARE(LogCount(QStringLiteral("Mail not sent")), 0);
    QVERIFY2(!QFile::exists(QDir(m_mailDir).filePath("2.json")), "the run that was not asked for was mailed");
}

void tst_Mail::testMail_data()
{
    QTest::addColumn<QString>("server");         // "none": a port nobody listens on
    QTest::addColumn<QString>("config");         // the [Email] lines; empty: the test CA
    QTest::addColumn<QStringList>("options");    // for this test only
    QTest::addColumn<QString>("password");       // BACKUPFRAME_SMTP_PASSWORD
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("said");           // in the agent's output

    QTest::newRow("a test mail with the stored settings reaches the server")
        << "auth" << "" << QStringList() << "" << 0
        << "Test mail sent to ops@example.org, Boss@Example.org, log@example.org.";
    QTest::newRow("options change the recipients and password for this test only")
        << "auth" << "" << QStringList{"--recipients", "other@example.org", "--password-env"} << "secret" << 0
        << "Test mail sent to other@example.org.";
    QTest::newRow("a refused login answers with the server's own reply")
        << "auth" << "" << QStringList{"--password-env"} << "wrong" << 2
        << "cannot send the test mail: the mail could not be sent: Login denied; the server said: 535 5.7.8";
    QTest::newRow("an absent server answers that nothing could be connected to")
        << "none" << "" << QStringList() << "" << 2 << "the mail could not be sent: Couldn't connect to server";
    QTest::newRow("an unknown encryption kind is refused before any connection")
        << "none" << "" << QStringList{"--encryption", "3"} << "" << 2
        << "encryption kind 3 is not one of 0 (none), 1 (STARTTLS), 2 (SMTPS)";
    QTest::newRow("a plain connection to a STARTTLS server is refused by it")
        << "auth" << "" << QStringList{"--encryption", "0", "--auth", "0"} << "" << 2 << "the server said: 530";
    QTest::newRow("a server certificate that no trusted CA signed is refused")
        << "auth" << "timeout_seconds=30" << QStringList() << "" << 2 << "the mail could not be sent: SSL peer certificate";
    QTest::newRow("with certificate checking off the same server is used")
        << "auth" << "verify_certificate=0" << QStringList() << "" << 0 << "Test mail sent to ";
}

void tst_Mail::testMail()
{
    QFETCH(QString, server);
    QFETCH(QString, config);
    QFETCH(QStringList, options);
    QFETCH(QString, password);
    QFETCH(int, exitCode);
    QFETCH(QString, said);
    SmtpServer smtp;
    quint16 port = 0;
    if (server == QLatin1String("none")) {
        QTcpServer closed;   // a port that was just free: nobody listens on it any more
        QVERIFY(closed.listen(QHostAddress::LocalHost));
        port = closed.serverPort();
    } else {
        QVERIFY2(smtp.Start(m_mailDir, server), "the SMTP server did not start");
        port = smtp.port;
    }
    QVERIFY2(StartScheduler(config), "the scheduler did not start");
    QCOMPARE(Agent(QStringList{"email", "set", "--password", "secret"} + MailSettings(port, "auth")).code, 0);

    const Outcome test = Agent(QStringList{"email", "test"} + options, QByteArray(), password);
    QCOMPARE(test.code, exitCode);
    QVERIFY2((test.out + test.err).contains(said), qPrintable(test.out + test.err));
    QCOMPARE(LogCount(QStringLiteral("Mail sent: ")), exitCode == 0 ? 1 : 0);
    if (exitCode == 0)
        QCOMPARE(Mail(1)["subject"].toString(), QStringLiteral("backupframe: test mail"));
    // The options were for the test only.
    QVERIFY(Agent({"email", "show"}).out.contains("ops@example.org"));
}

void tst_Mail::refusedRunMailIsOneWarning()
{
    SmtpServer smtp;
    QVERIFY2(smtp.Start(m_mailDir, "auth"), "the SMTP server did not start");
    QVERIFY2(StartScheduler(), "the scheduler did not start");
    QCOMPARE(Agent(QStringList{"email", "set", "--password-env", "--on-failure", "1"} + MailSettings(smtp.port, "auth"),
                   QByteArray(), "wrong").code, 0);
    QCOMPARE(Agent({"new", "broken", "fail"}).code, 0);
    QCOMPARE(Agent({"run", "--wait", "broken"}).code, 4);
    QTRY_COMPARE_WITH_TIMEOUT(LogCount(QStringLiteral("Mail not sent: \"backupframe: broken Failed\" to ops@example.org, "
                                                      "Boss@Example.org, log@example.org: Login denied; the server said: 535")),
                              1, 30000);
    QVERIFY(Agent({"journals", "broken"}).out.contains("Failed"));
}

void tst_Mail::unansweringServer_data()
{
    QTest::addColumn<QString>("config");
    QTest::addColumn<bool>("stop");
    QTest::addColumn<QString>("logged");

    QTest::newRow("a server that never answers costs the mail timeout and one warning")
        << "timeout_seconds=2" << false << "Timeout was reached";
    QTest::newRow("a stop cuts a send short instead of waiting out the server")
        << "timeout_seconds=600" << true << "the service stopped during the send";
}

void tst_Mail::unansweringServer()
{
    QFETCH(QString, config);
    QFETCH(bool, stop);
    QFETCH(QString, logged);
    QTcpServer silent;   // accepts and never says a word
    QList<QTcpSocket*> accepted;
    connect(&silent, &QTcpServer::newConnection, [&] { accepted << silent.nextPendingConnection(); });
    QVERIFY(silent.listen(QHostAddress::LocalHost));
    QVERIFY2(StartScheduler(config), "the scheduler did not start");
    QCOMPARE(Agent(QStringList{"email", "set"} + MailSettings(silent.serverPort(), "plain")).code, 0);

    QProcess test;
    QElapsedTimer clock;
    clock.start();
    StartAgent(test, {"email", "test"});
    QVERIFY(QTest::qWaitFor([&] { return !accepted.isEmpty(); }, 10000));
    const Outcome status = Agent({"--timeout", "1.5", "plans"});   // the service answers while the mail waits
    QCOMPARE(status.code, 0);
    if (stop) {
        m_scheduler.terminate();
        QVERIFY(QTest::qWaitFor([&] { return m_scheduler.state() == QProcess::NotRunning; }, 10000));
    }
    const Outcome tested = finish(test);
    QVERIFY2(clock.elapsed() < 15000, qPrintable(QString::number(clock.elapsed())));
    QVERIFY2(tested.code == 2, qPrintable(tested.err));   // answered even at a stop
    QTRY_COMPARE_WITH_TIMEOUT(LogCount(QStringLiteral("Mail not sent: \"backupframe: test mail\" to ops@example.org, "
                                                      "Boss@Example.org, log@example.org: ") + logged),
                              1, 10000);
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
    QCOMPARE(refused.code, 1);
    QVERIFY2(refused.err.contains(said), qPrintable(refused.err));
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
    const QString file = m_dir->filePath(QStringLiteral("data/email.ini"));
    QVERIFY(QDir().mkpath(m_dir->filePath(QStringLiteral("data"))));
    if (existing) {
        QFile old(file);
        QVERIFY(old.open(QIODevice::WriteOnly));
        QVERIFY(old.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadOther));
    }
    QVERIFY2(StartScheduler(), "the scheduler did not start");
    if (!existing)
        QCOMPARE(Agent({"email", "set", "--password", "secret"}).code, 0);
    struct stat status = {};
    QCOMPARE(::stat(QFile::encodeName(file).constData(), &status), 0);
    QCOMPARE(status.st_mode & 0777, 0600u);
}

QTEST_GUILESS_MAIN(tst_Mail)
#include "tst_mail.moc"
