#include <backupframe.h>

#include <QDataStream>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

namespace {

// The twelve fields as texts, so that a mismatch shows which one differs.
QStringList fields(const EmailConfigAttribute& c)
{
    return {QString::number(c.getEnableEmailNotification()), c.getMailRecipients(), c.getSmtpServerAddress(),
            QString::number(c.getSmtpServerPort()), QString::number(c.getSmtpServerEncryptionType()),
            QString::number(c.getStmpAuthentication()), c.getLoginUserName(), c.getLoginPassword().toHex(),
            c.getMailSender(), c.getMailSubject(), QString::number(c.getOperationSuccessful()),
            QString::number(c.getOperationFailure())};
}

// Small numbers only: the file keeps 32 bits on reading.
EmailConfigAttribute sampleConfig()
{
    EmailConfigAttribute config;
    config.setEnableEmailNotification(1);
    config.setMailRecipients(QStringLiteral("a@x.org;b@x.org"));
    config.setSmtpServerAddress(QStringLiteral("smtp.x.org"));
    config.setSmtpServerPort(25);
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

QString readerValues()
{
    return QStringList{ConfigReader::getAgentLocalServerName(), ConfigReader::getSchedulerLocalServerName(),
                       QString::number(ConfigReader::getTcpServerPort()), QString::number(ConfigReader::getTcpServerCode()),
                       QString::number(ConfigReader::getDateTimeFireType()),
                       QString::number(ConfigReader::getOperationExecuteType())}
        .join(QLatin1Char('|'));
}

} // namespace

class tst_Config : public QObject
{
    Q_OBJECT

private slots:
    void reader_data();
    void reader();
    void attributeBytes();
    void emailFile_data();
    void emailFile();
    void emailNumbersAndAbsentKeys_data();
    void emailNumbersAndAbsentKeys();
    void emailTextIsEscapedAlikeInBothQts_data();
    void emailTextIsEscapedAlikeInBothQts();
    void emailMissingOrUnwritableFile();

private:
    // A fresh file name per call: QSettings caches files by name within the process.
    QString freshPath() { return m_dir.filePath(QStringLiteral("settings_%1.ini").arg(++m_counter)); }
    QString writeFile(const QByteArray& content)
    {
        const QString path = freshPath();
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
            qFatal("cannot write %s", qPrintable(path));
        return path;
    }

    QTemporaryDir m_dir;
    int m_counter = 0;
};

void tst_Config::reader_data()
{
    QTest::addColumn<QByteArray>("content");   // null: no file at all, unlike an empty one
    QTest::addColumn<QString>("values");       // agent|scheduler|port|code|fire type|execute type
    QTest::newRow("a missing file gives the defaults") << QByteArray() << "AgentLocalServer|SchedulerLocalServer|6060|0|2|1";
    QTest::newRow("an empty file gives empty names and zeros, not the defaults") << QByteArray("") << "||0|0|0|0";
    QTest::newRow("every key is read from its own section")
        << QByteArray("[Network]\nagent_local_server_name=A\nscheduler_local_server_name=S\n"
                      "tcp_server_port=7000\ntcp_server_code=88\n"
                      "[TriggerFire]\ndate_time_fire_type=5\n[Operation]\noperation_execute_type=7\n")
        << "A|S|7000|88|5|7";
    QTest::newRow("keys in the wrong section are absent")
        << QByteArray("[Network]\ndate_time_fire_type=5\n[Operation]\ntcp_server_port=7000\n") << "||0|0|0|0";
    QTest::newRow("a port of 70000 keeps its low 16 bits") << QByteArray("[Network]\ntcp_server_port=70000\n") << "||4464|0|0|0";
    QTest::newRow("texts that are no numbers read as 0")
        << QByteArray("[Network]\ntcp_server_port=http\n[TriggerFire]\ndate_time_fire_type=-1\n") << "||0|0|0|0";
}

void tst_Config::reader()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, values);
    QVERIFY(ConfigReader::IniReader(writeFile("[Network]\ntcp_server_port=1\ntcp_server_code=1\n")));
    QVERIFY(ConfigReader::IniReader(content.isNull() ? m_dir.filePath(QStringLiteral("absent.ini")) : writeFile(content)));
    QCOMPARE(readerValues(), values);
    // An empty path is refused and keeps what was read.
    QVERIFY(!ConfigReader::IniReader(QString()));
    QCOMPARE(readerValues(), values);
}

void tst_Config::attributeBytes()
{
    EmailConfigAttribute config;
    config.setEnableEmailNotification(1);
    config.setSmtpServerPort(0xFFFE);
    config.setLoginPassword(QByteArray("\x9e", 1));
    config.setOperationFailure(Q_UINT64_C(0x8000000000000000));
    // enable, recipients and server (empty, not null), the 16-bit port, encryption, authentication,
    // login name, the password unscrambled, sender, subject, mail on success, mail on failure
    const QByteArray expected = QByteArray::fromHex(
        "0000000000000001  00000000 00000000  FFFE  0000000000000000 0000000000000000"
        "00000000  00000001 9E  00000000 00000000  0000000000000000 8000000000000000");
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out.setVersion(QDataStream::Qt_5_4);
    config.Write(out);
    QCOMPARE(bytes.toHex(' '), expected.toHex(' '));

    EmailConfigAttribute back = sampleConfig();
    QDataStream in(expected);
    in.setVersion(QDataStream::Qt_5_4);
    back.Read(in);
    QCOMPARE(fields(back), fields(config));
}

void tst_Config::emailFile_data()
{
    QTest::addColumn<QByteArray>("password");
    QTest::newRow("a password with bytes that INI files escape") << QByteArray("a=b;c\n\"[x]\\ \t#", 15);
    QTest::newRow("a password of zero, high and all-ones bytes") << QByteArray("\x00\x41\x80\xff\x7f", 5);
    QTest::newRow("an empty password") << QByteArray("");
}

void tst_Config::emailFile()
{
    QFETCH(QByteArray, password);
    const QString path = freshPath();
    EmailConfigReaderWriter writer;
    QVERIFY(writer.Init(path));
    writer.SetConfigAttribute(sampleConfig());
    writer.setLoginPassword(password);
    // All 64 bits are written, but only the low 32 come back.
    writer.setStmpAuthentication(Q_UINT64_C(0x8000000000000001));
    writer.WriteConfig();

    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly | QIODevice::Text));
    const QString text = QString::fromUtf8(file.readAll());
    const QStringList lines = text.split(QLatin1Char('\n'));
    for (const char* line : {"[EmailConfig]", "enable_email_notification=1", "mail_recipients=\"a@x.org;b@x.org\"",
                             "[ServerConfig]", "smtp_server_address=smtp.x.org", "smtp_server_port=25",
                             "smtp_server_encryption_type=2", "stmp_authentication=9223372036854775809",
                             "login_use_name=backup user", "[MimeEmail]", "mail_sender=backup@x.org",
                             "[AdditionalSetting]", "operation_successful=4294967295", "operation_failure=1"})
        QVERIFY2(lines.contains(QLatin1String(line)), qPrintable(QStringLiteral("missing %1 in:\n%2").arg(line, text)));
    const QSettings settings(path, QSettings::IniFormat);
    QCOMPARE(settings.value(QStringLiteral("MimeEmail/mail_subject")).toString(), sampleConfig().getMailSubject());
    QCOMPARE(settings.allKeys().size(), 12);   // the ten above, the subject and the password
    // The file holds the password with every byte complemented, as a byte array.
    QVERIFY2(text.contains(QStringLiteral("login_password=@ByteArray(")), qPrintable(text));
    QByteArray complemented(password);
    for (char& byte : complemented)
        byte = static_cast<char>(~static_cast<unsigned char>(byte));
    QCOMPARE(settings.value(QStringLiteral("ServerConfig/login_password")).toByteArray(), complemented);

    // Copies keep the path, which an empty one does not replace.
    EmailConfigReaderWriter copy(writer), reader;
    reader = copy;
    QVERIFY(!reader.Init(QString()));
    reader.SetConfigAttribute(EmailConfigAttribute());
    reader.setLoginPassword(QByteArray("previous"));
    reader.ReadConfig();
    EmailConfigAttribute expected = sampleConfig();
    expected.setLoginPassword(password);
    expected.setStmpAuthentication(1);
    QCOMPARE(fields(reader), fields(expected));
}

void tst_Config::emailNumbersAndAbsentKeys_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<quint64>("enable");
    QTest::addColumn<int>("port");
    const auto enable = [](const char* text) { return QByteArray("[EmailConfig]\nenable_email_notification=") + text; };
    const auto port = [](const char* text) { return QByteArray("[ServerConfig]\nsmtp_server_port=") + text; };
    QTest::newRow("the largest 32-bit value is kept") << enable("4294967295") << quint64(4294967295u) << 0;
    // Above 4294967295 the 32-bit conversion keeps the low bits: 2^32 + 1 reads as 1, not 0.
    QTest::newRow("one above 32 bits keeps its low bits") << enable("4294967297") << quint64(1) << 0;
    QTest::newRow("a negative number reads as 0") << enable("-1") << quint64(0) << 0;
    QTest::newRow("a word reads as 0") << enable("yes") << quint64(0) << 0;
    QTest::newRow("a port of 70000 keeps its low 16 bits") << port("70000") << quint64(0) << 4464;
}

// Every key the file lacks reads as 0 or "", replacing what the record held.
void tst_Config::emailNumbersAndAbsentKeys()
{
    QFETCH(QByteArray, content);
    QFETCH(quint64, enable);
    QFETCH(int, port);
    EmailConfigReaderWriter reader;
    QVERIFY(reader.Init(writeFile(content)));
    reader.SetConfigAttribute(sampleConfig());
    reader.ReadConfig();
    EmailConfigAttribute expected;
    expected.setEnableEmailNotification(enable);
    expected.setSmtpServerPort(quint16(port));
    QCOMPARE(fields(reader), fields(expected));
}

void tst_Config::emailTextIsEscapedAlikeInBothQts_data()
{
    QTest::addColumn<QString>("subject");
    QTest::addColumn<QByteArray>("line");   // as a Qt 5 build writes it

    QTest::newRow("accents become lower-case hex escapes, quoted for the comma")
        << QStringLiteral("Backup \u00e9t\u00e9, done") << QByteArray("mail_subject=\"Backup \\xe9t\\xe9, done\"");
    QTest::newRow("hex digits right behind an escape are escaped too, until another character")
        << QStringLiteral("\u5907" "1aZ2") << QByteArray("mail_subject=\\x5907\\x31\\x61Z2");
    QTest::newRow("a character beyond 16 bits is two escaped UTF-16 units")
        << QStringLiteral("a\U0001F600b") << QByteArray("mail_subject=a\\xd83d\\xde00\\x62");
    QTest::newRow("plain ASCII is left as it is") << QStringLiteral("daily") << QByteArray("mail_subject=daily");
}

// email.ini holds the same bytes whichever Qt wrote it, so a Qt 5 build reads back a Qt 6 build's.
void tst_Config::emailTextIsEscapedAlikeInBothQts()
{
    QFETCH(QString, subject);
    QFETCH(QByteArray, line);
    const QString path = freshPath();
    EmailConfigReaderWriter writer;
    QVERIFY(writer.Init(path));
    EmailConfigAttribute config = sampleConfig();
    config.setMailSubject(subject);
    writer.SetConfigAttribute(config);
    writer.WriteConfig();

    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray bytes = file.readAll();
    QVERIFY2(bytes.split('\n').contains(line), bytes.constData());
    EmailConfigReaderWriter reader;
    QVERIFY(reader.Init(path));
    reader.ReadConfig();
    QCOMPARE(reader.getMailSubject(), subject);
}

// Nothing can be created below a regular file: writing fails quietly, and reading the
// missing file keeps the values held.
void tst_Config::emailMissingOrUnwritableFile()
{
    const QString path = writeFile("not a directory") + QStringLiteral("/email.ini");
    EmailConfigReaderWriter reader;
    QVERIFY(reader.Init(path));
    reader.SetConfigAttribute(sampleConfig());
    reader.WriteConfig();
    QVERIFY(!QFile::exists(path));
    reader.ReadConfig();
    QCOMPARE(fields(reader), fields(sampleConfig()));
}

QTEST_APPLESS_MAIN(tst_Config)
#include "tst_config.moc"
