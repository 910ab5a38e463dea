#include <backupframe.h>

#include <QDataStream>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

namespace {

QByteArray hex(const char* text)
{
    return QByteArray::fromHex(QByteArray(text).replace(' ', ""));
}

// The twelve fields as text, so that a mismatch names the field.
QStringList dump(const EmailConfigAttribute& config)
{
    return {
        QStringLiteral("enable=%1").arg(config.getEnableEmailNotification()),
        QStringLiteral("recipients=%1").arg(config.getMailRecipients()),
        QStringLiteral("address=%1").arg(config.getSmtpServerAddress()),
        QStringLiteral("port=%1").arg(config.getSmtpServerPort()),
        QStringLiteral("encryption=%1").arg(config.getSmtpServerEncryptionType()),
        QStringLiteral("authentication=%1").arg(config.getStmpAuthentication()),
        QStringLiteral("user=%1").arg(config.getLoginUserName()),
        QStringLiteral("password=%1").arg(QString::fromLatin1(config.getLoginPassword().toHex())),
        QStringLiteral("sender=%1").arg(config.getMailSender()),
        QStringLiteral("subject=%1").arg(config.getMailSubject()),
        QStringLiteral("success=%1").arg(config.getOperationSuccessful()),
        QStringLiteral("failure=%1").arg(config.getOperationFailure()),
    };
}

// Small numbers only: the file keeps 32 bits on reading.
EmailConfigAttribute sampleConfig()
{
    EmailConfigAttribute config;
    config.setEnableEmailNotification(1);
    config.setMailRecipients(QStringLiteral("a@x.org;b@x.org"));
    config.setSmtpServerAddress(QStringLiteral("smtp.x.org"));
    config.setSmtpServerPort(465);
    config.setSmtpServerEncryptionType(2);
    config.setStmpAuthentication(1);
    config.setLoginUserName(QStringLiteral("backup user"));
    config.setLoginPassword(QByteArray("s3cret"));
    config.setMailSender(QStringLiteral("backup@x.org"));
    config.setMailSubject(QStringLiteral("Backup \u00e9t\u00e9, done"));
    config.setOperationSuccessful(4294967295u);
    config.setOperationFailure(1);
    return config;
}

} // namespace

class tst_Config : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void readerEmptyPathKeepsValues();
    void readerMissingFileGivesDefaults();
    void readerExistingFile_data();
    void readerExistingFile();

    void attributeBytes();
    void emailInitRejectsEmptyPath();
    void emailWriteLayout();
    void emailRoundTrip();
    void emailPasswordIsScrambled_data();
    void emailPasswordIsScrambled();
    void emailNumbers_data();
    void emailNumbers();
    void emailWideValuesReadAsZero();
    void emailMissingFileKeepsValues();
    void emailPartialFile();
    void emailUnwritableFileIsIgnored();
    void emailCopiesKeepPath();

private:
    // A fresh file name per call: QSettings caches files by name within the process.
    QString freshPath(const QString& stem = QStringLiteral("settings"));
    QString writeFile(const QByteArray& content);

    std::unique_ptr<QTemporaryDir> m_dir;
    int m_counter = 0;
};

void tst_Config::init()
{
    m_dir.reset(new QTemporaryDir);
    QVERIFY(m_dir->isValid());
}

QString tst_Config::freshPath(const QString& stem)
{
    return m_dir->filePath(QStringLiteral("%1_%2.ini").arg(stem).arg(++m_counter));
}

QString tst_Config::writeFile(const QByteArray& content)
{
    const QString path = freshPath();
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(path));
    return path;
}

void tst_Config::readerEmptyPathKeepsValues()
{
    QVERIFY(ConfigReader::IniReader(writeFile("[Network]\ntcp_server_port=1234\nagent_local_server_name=Mine\n")));
    QVERIFY(!ConfigReader::IniReader(QString()));
    QCOMPARE(ConfigReader::getTcpServerPort(), (unsigned short)1234);
    QCOMPARE(ConfigReader::getAgentLocalServerName(), QStringLiteral("Mine"));
}

void tst_Config::readerMissingFileGivesDefaults()
{
    QVERIFY(ConfigReader::IniReader(m_dir->filePath(QStringLiteral("absent.ini"))));
    QCOMPARE(ConfigReader::getAgentLocalServerName(), QStringLiteral("AgentLocalServer"));
    QCOMPARE(ConfigReader::getSchedulerLocalServerName(), QStringLiteral("SchedulerLocalServer"));
    QCOMPARE(ConfigReader::getTcpServerPort(), (unsigned short)6060);
    QCOMPARE(ConfigReader::getTcpServerCode(), (unsigned short)0);
    QCOMPARE(ConfigReader::getDateTimeFireType(), 2u);
    QCOMPARE(ConfigReader::getOperationExecuteType(), 1u);
}

void tst_Config::readerExistingFile_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("agent");
    QTest::addColumn<QString>("scheduler");
    QTest::addColumn<int>("port");
    QTest::addColumn<int>("code");
    QTest::addColumn<uint>("fireType");
    QTest::addColumn<uint>("executeType");

    QTest::newRow("an empty file gives empty names and zeros, not the defaults")
        << QByteArray() << QString() << QString() << 0 << 0 << 0u << 0u;
    QTest::newRow("every key is read from its own section")
        << QByteArray("[Network]\nagent_local_server_name=A\nscheduler_local_server_name=S\n"
                      "tcp_server_port=7000\ntcp_server_code=88\n"
                      "[TriggerFire]\ndate_time_fire_type=5\n[Operation]\noperation_execute_type=7\n")
        << "A" << "S" << 7000 << 88 << 5u << 7u;
    QTest::newRow("keys in the wrong section are absent")
        << QByteArray("[Network]\ndate_time_fire_type=5\n[Operation]\ntcp_server_port=7000\n")
        << QString() << QString() << 0 << 0 << 0u << 0u;
    QTest::newRow("a port of 70000 keeps its low 16 bits")
        << QByteArray("[Network]\ntcp_server_port=70000\n") << QString() << QString() << 4464 << 0 << 0u << 0u;
    QTest::newRow("a code of 88 reads as 88")
        << QByteArray("[Network]\ntcp_server_code=88\n") << QString() << QString() << 0 << 88 << 0u << 0u;
    QTest::newRow("a code of 87 reads as 87")
        << QByteArray("[Network]\ntcp_server_code=87\n") << QString() << QString() << 0 << 87 << 0u << 0u;
    QTest::newRow("a code of 89 reads as 89")
        << QByteArray("[Network]\ntcp_server_code=89\n") << QString() << QString() << 0 << 89 << 0u << 0u;
    QTest::newRow("texts that are no numbers read as 0")
        << QByteArray("[Network]\ntcp_server_port=http\n[TriggerFire]\ndate_time_fire_type=-1\n")
        << QString() << QString() << 0 << 0 << 0u << 0u;
}

void tst_Config::readerExistingFile()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, agent);
    QFETCH(QString, scheduler);
    QFETCH(int, port);
    QFETCH(int, code);
    QFETCH(uint, fireType);
    QFETCH(uint, executeType);

    QVERIFY(ConfigReader::IniReader(m_dir->filePath(QStringLiteral("absent.ini"))));
    QVERIFY(ConfigReader::IniReader(writeFile(content)));
    QCOMPARE(ConfigReader::getAgentLocalServerName(), agent);
    QCOMPARE(ConfigReader::getSchedulerLocalServerName(), scheduler);
    QCOMPARE(int(ConfigReader::getTcpServerPort()), port);
    QCOMPARE(int(ConfigReader::getTcpServerCode()), code);
    QCOMPARE(ConfigReader::getDateTimeFireType(), fireType);
    QCOMPARE(ConfigReader::getOperationExecuteType(), executeType);
}

void tst_Config::attributeBytes()
{
    EmailConfigAttribute config;
    config.setEnableEmailNotification(1);
    config.setSmtpServerPort(0xFFFE);
    config.setLoginPassword(QByteArray("\x9e", 1));
    config.setOperationFailure(Q_UINT64_C(0x8000000000000000));
    const QByteArray expected = hex(
        "0000000000000001"      // enable notification
        "00000000 00000000"     // recipients, server address: empty, not null
        "FFFE"                  // port, 16 bits
        "0000000000000000"      // encryption type
        "0000000000000000"      // authentication
        "00000000"              // login name
        "00000001 9E"           // password, carried unscrambled
        "00000000 00000000"     // sender, subject
        "0000000000000000"      // mail on success
        "8000000000000000");    // mail on failure
    QByteArray bytes;
    {
        QDataStream out(&bytes, QIODevice::WriteOnly);
        out.setVersion(QDataStream::Qt_5_4);
        config.Write(out);
    }
    QCOMPARE(bytes, expected);

    EmailConfigAttribute back = sampleConfig();
    QDataStream in(expected);
    in.setVersion(QDataStream::Qt_5_4);
    back.Read(in);
    QCOMPARE(dump(back), dump(config));
    QCOMPARE(back.getOperationFailure(), Q_UINT64_C(0x8000000000000000));
}

void tst_Config::emailInitRejectsEmptyPath()
{
    const QString path = freshPath();
    EmailConfigReaderWriter writer;
    QVERIFY(writer.Init(path));
    QVERIFY(!writer.Init(QString()));
    writer.WriteConfig();
    QVERIFY2(QFile::exists(path), "an empty path replaced the remembered one");

    EmailConfigReaderWriter unset;
    unset.SetConfigAttribute(sampleConfig());
    unset.WriteConfig();
    unset.ReadConfig();
    QCOMPARE(dump(unset), dump(sampleConfig()));
}

void tst_Config::emailWriteLayout()
{
    const QString path = freshPath();
    EmailConfigReaderWriter writer;
    QVERIFY(writer.Init(path));
    EmailConfigAttribute config = sampleConfig();
    config.setSmtpServerPort(25);
    writer.SetConfigAttribute(config);
    writer.WriteConfig();

    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly | QIODevice::Text));
    const QString text = QString::fromUtf8(file.readAll());
    const QStringList expectedLines = {
        "[EmailConfig]", "enable_email_notification=1", "mail_recipients=\"a@x.org;b@x.org\"",
        "[ServerConfig]", "smtp_server_address=smtp.x.org", "smtp_server_port=25",
        "smtp_server_encryption_type=2", "stmp_authentication=1", "login_use_name=backup user",
        "[MimeEmail]", "mail_sender=backup@x.org",
        "[AdditionalSetting]", "operation_successful=4294967295", "operation_failure=1",
    };
    const QStringList lines = text.split(QLatin1Char('\n'));
    for (const QString& line : expectedLines)
        QVERIFY2(lines.contains(line), qPrintable(QStringLiteral("missing line %1 in:\n%2").arg(line, text)));
    QVERIFY2(text.contains(QStringLiteral("login_password=@ByteArray(")), qPrintable(text));

    const QSettings settings(path, QSettings::IniFormat);
    QCOMPARE(settings.value(QStringLiteral("MimeEmail/mail_subject")).toString(), config.getMailSubject());
    QCOMPARE(settings.allKeys().size(), 12);
}

void tst_Config::emailRoundTrip()
{
    const QString path = freshPath();
    EmailConfigReaderWriter writer;
    QVERIFY(writer.Init(path));
    writer.SetConfigAttribute(sampleConfig());
    writer.WriteConfig();

    EmailConfigReaderWriter reader;
    QVERIFY(reader.Init(path));
    reader.ReadConfig();
    QCOMPARE(dump(reader), dump(sampleConfig()));
}

void tst_Config::emailPasswordIsScrambled_data()
{
    QTest::addColumn<QByteArray>("password");
    QTest::newRow("a plain word") << QByteArray("s3cret");
    QTest::newRow("bytes that INI files escape") << QByteArray("a=b;c\n\"[x]\\ \t#", 15);
    QTest::newRow("zero, high and all-ones bytes") << QByteArray("\x00\x41\x80\xff\x7f", 5);
    QTest::newRow("an empty password") << QByteArray("");
}

void tst_Config::emailPasswordIsScrambled()
{
    QFETCH(QByteArray, password);
    const QString path = freshPath();
    EmailConfigReaderWriter writer;
    QVERIFY(writer.Init(path));
    writer.setLoginPassword(password);
    writer.WriteConfig();

    QByteArray complemented(password);
    for (char& byte : complemented)
        byte = static_cast<char>(~static_cast<unsigned char>(byte));
    const QSettings settings(path, QSettings::IniFormat);
    QCOMPARE(settings.value(QStringLiteral("ServerConfig/login_password")).toByteArray(), complemented);

    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray raw = file.readAll();
    if (password.size() >= 4)
        QVERIFY2(!raw.contains(password), raw.constData());

    EmailConfigReaderWriter reader;
    QVERIFY(reader.Init(path));
    reader.setLoginPassword(QByteArray("previous"));
    reader.ReadConfig();
    QCOMPARE(reader.getLoginPassword(), password);
}

void tst_Config::emailNumbers_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<quint64>("enable");
    QTest::addColumn<int>("port");

    QTest::newRow("the largest 32-bit value is kept")
        << QByteArray("[EmailConfig]\nenable_email_notification=4294967295\n") << quint64(4294967295u) << 0;
    QTest::newRow("one above 32 bits reads as 0, not as its low bits")
        << QByteArray("[EmailConfig]\nenable_email_notification=4294967297\n") << quint64(0) << 0;
    QTest::newRow("a negative number reads as 0")
        << QByteArray("[EmailConfig]\nenable_email_notification=-1\n") << quint64(0) << 0;
    QTest::newRow("a port of 65536 reads as 0")
        << QByteArray("[ServerConfig]\nsmtp_server_port=65536\n") << quint64(0) << 0;
    QTest::newRow("a port of 70000 keeps its low 16 bits")
        << QByteArray("[ServerConfig]\nsmtp_server_port=70000\n") << quint64(0) << 4464;
}

void tst_Config::emailNumbers()
{
    QFETCH(QByteArray, content);
    QFETCH(quint64, enable);
    QFETCH(int, port);
    EmailConfigReaderWriter reader;
    QVERIFY(reader.Init(writeFile(content)));
    reader.SetConfigAttribute(sampleConfig());
    reader.ReadConfig();
    QCOMPARE(reader.getEnableEmailNotification(), enable);
    QCOMPARE(int(reader.getSmtpServerPort()), port);
}

void tst_Config::emailWideValuesReadAsZero()
{
    // All 64 bits are written, but only 32-bit values come back.
    const QString path = freshPath();
    EmailConfigReaderWriter writer;
    QVERIFY(writer.Init(path));
    writer.setSmtpServerEncryptionType(Q_UINT64_C(0x8000000000000001));
    writer.setStmpAuthentication(Q_UINT64_C(5000000000));
    writer.setOperationFailure(4294967295u);
    writer.WriteConfig();
    const QSettings settings(path, QSettings::IniFormat);
    QCOMPARE(settings.value(QStringLiteral("ServerConfig/smtp_server_encryption_type")).toString(),
             QStringLiteral("9223372036854775809"));

    EmailConfigReaderWriter reader;
    QVERIFY(reader.Init(path));
    reader.ReadConfig();
    QCOMPARE(reader.getSmtpServerEncryptionType(), quint64(0));
    QCOMPARE(reader.getStmpAuthentication(), quint64(0));
    QCOMPARE(reader.getOperationFailure(), quint64(4294967295u));
}

void tst_Config::emailMissingFileKeepsValues()
{
    EmailConfigReaderWriter reader;
    QVERIFY(reader.Init(m_dir->filePath(QStringLiteral("absent.ini"))));
    reader.SetConfigAttribute(sampleConfig());
    reader.ReadConfig();
    QCOMPARE(dump(reader), dump(sampleConfig()));
    QVERIFY(!QFile::exists(m_dir->filePath(QStringLiteral("absent.ini"))));
}

void tst_Config::emailPartialFile()
{
    EmailConfigReaderWriter reader;
    QVERIFY(reader.Init(writeFile("[MimeEmail]\nmail_subject=Only this\n")));
    reader.SetConfigAttribute(sampleConfig());
    reader.ReadConfig();
    EmailConfigAttribute expected;
    expected.setMailSubject(QStringLiteral("Only this"));
    QCOMPARE(dump(reader), dump(expected));
}

void tst_Config::emailUnwritableFileIsIgnored()
{
    // The parent "directory" is a regular file, so nothing can be created below it.
    const QString blocker = writeFile("not a directory");
    const QString path = blocker + QStringLiteral("/email.ini");
    EmailConfigReaderWriter writer;
    QVERIFY(writer.Init(path));
    writer.SetConfigAttribute(sampleConfig());
    writer.WriteConfig();
    QVERIFY(!QFile::exists(path));
    writer.ReadConfig();
    QCOMPARE(dump(writer), dump(sampleConfig()));
}

void tst_Config::emailCopiesKeepPath()
{
    const QString path = freshPath();
    EmailConfigReaderWriter original;
    QVERIFY(original.Init(path));
    original.SetConfigAttribute(sampleConfig());

    EmailConfigReaderWriter assigned;
    assigned = original;
    assigned.WriteConfig();
    QVERIFY2(QFile::exists(path), "assignment lost the path");

    EmailConfigReaderWriter copied(original);
    copied.SetConfigAttribute(EmailConfigAttribute());
    copied.ReadConfig();
    QCOMPARE(dump(copied), dump(sampleConfig()));
}

QTEST_APPLESS_MAIN(tst_Config)
#include "tst_config.moc"
