#include <backupframe.h>

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <log4cpp/Category.hh>

#include <iostream>
#include <sstream>

#include <unistd.h>

class tst_Common : public QObject
{
    Q_OBJECT

private slots:
    void calculateProgress_data();
    void calculateProgress();
    void splitePath_data();
    void splitePath();
    void makeFileDir();
    void listText_data();
    void listText();
    void uuidAndNames();
    void socketErrorMsg_data();
    void socketErrorMsg();
    void passwordScrambling_data();
    void passwordScrambling();
    void errorCodes_data();
    void errorCodes();
    void severityText_data();
    void severityText();
    void loggerWritesFileAndConsole_data();
    void loggerWritesFileAndConsole();
    void loggerRefusesUncreatableDirectory();
    void loggerNamesIdeographsInGb18030_data();
    void loggerNamesIdeographsInGb18030();
    void loggerRollsInTheWorkingDirectory();
};

void tst_Common::calculateProgress_data()
{
    QTest::addColumn<quint64>("total");
    QTest::addColumn<quint64>("current");
    QTest::addColumn<float>("lastRatio");
    QTest::addColumn<bool>("shown");
    QTest::addColumn<int>("outTotal");
    QTest::addColumn<int>("outCurrent");

    // Outputs start at -1: a false result other than for total 0 leaves them alone.
    QTest::newRow("an empty job shows 0 of 100") << quint64(0) << quint64(5) << 0.0f << false << 100 << 0;
    QTest::newRow("a finished small job reads 100 %") << quint64(32767) << quint64(32767) << 0.5f << true << 32768 << 32768;
    QTest::newRow("2^40 bytes shift by 26")
        << (Q_UINT64_C(1) << 40) << (Q_UINT64_C(1) << 39) << 0.0f << true << 16385 << 8192;
    QTest::newRow("the largest total still fits")
        << Q_UINT64_C(0xFFFFFFFFFFFFFFFF) << Q_UINT64_C(0xFFFFFFFFFFFFFFFF) << 0.0f << true << 32768 << 32768;
    QTest::newRow("no progress since the last report")
        << quint64(1000) << quint64(500) << 500.0f / 1001.0f << false << -1 << -1;
    QTest::newRow("a finished job is not shown twice") << quint64(10) << quint64(10) << 1.0f << false << -1 << -1;
    QTest::newRow("exactly 32768 takes one shift") << quint64(32768) << quint64(2) << 0.0f << true << 16385 << 1;
}

void tst_Common::calculateProgress()
{
    QFETCH(quint64, total);
    QFETCH(quint64, current);
    QFETCH(float, lastRatio);
    QFETCH(bool, shown);
    QFETCH(int, outTotal);
    QFETCH(int, outCurrent);

    int t = -1;
    int c = -1;
    QCOMPARE(CommonTools::CalculateProgress(total, current, t, c, lastRatio), shown);
    QCOMPARE(t, outTotal);
    QCOMPARE(c, outCurrent);
}

void tst_Common::splitePath_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<QString>("dir");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("dealt");

    QTest::newRow("a file in a directory") << "/a/b.txt" << true << "/a/" << "b.txt" << "/a/b.txt/";
    QTest::newRow("a bare name") << "b.txt" << true << "" << "b.txt" << "b.txt/";
    QTest::newRow("a directory with its separator") << "/a/" << true << "/a/" << "" << "/a/";
    QTest::newRow("the root") << "/" << true << "/" << "" << "/";
    QTest::newRow("an empty path") << "" << false << "untouched" << "untouched" << "";
}

void tst_Common::splitePath()
{
    QFETCH(QString, path);
    QFETCH(bool, ok);
    QFETCH(QString, dir);
    QFETCH(QString, name);
    QFETCH(QString, dealt);

    QString outDir = QStringLiteral("untouched");
    QString outName = QStringLiteral("untouched");
    QCOMPARE(CommonTools::SplitePath(path, outDir, outName), ok);
    QCOMPARE(outDir, dir);
    QCOMPARE(outName, name);
    QCOMPARE(CommonTools::DealPath(path), dealt);
}

void tst_Common::makeFileDir()
{
    QTemporaryDir temp;
    const QString file = temp.filePath(QStringLiteral("x/y/z/plans.db"));
    QVERIFY(CommonTools::MakeFileDir(file));
    QVERIFY(CommonTools::MakeFileDir(file));   // the directory exists by now
    QVERIFY(!CommonTools::MakeFileDir(QStringLiteral("bare.db")));   // no directory part
    QVERIFY(!CommonTools::IsFileExist(file));
    QVERIFY(QFile(file).open(QIODevice::WriteOnly));
    QVERIFY(CommonTools::IsFileExist(file));
    QVERIFY(!CommonTools::IsFileExist(temp.path()));   // a directory is no file
    QCOMPARE(CommonTools::DirFiles(temp.filePath(QStringLiteral("x/y/z"))), QStringList{QStringLiteral("plans.db")});
    QVERIFY(CommonTools::DirFiles(temp.filePath(QStringLiteral("missing"))).isEmpty());
    // An empty path lists the working directory; a sub-directory is no file.
    QVERIFY(QDir().mkpath(temp.filePath(QStringLiteral("x/y/z/sub"))));
    const QString cwd = QDir::currentPath();
    QVERIFY(QDir::setCurrent(temp.filePath(QStringLiteral("x/y/z"))));
    const QStringList here = CommonTools::DirFiles(QString());
    QVERIFY(QDir::setCurrent(cwd));
    QCOMPARE(here, QStringList{QStringLiteral("plans.db")});
}

void tst_Common::listText_data()
{
    QTest::addColumn<QList<quint64>>("list");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("parsed");
    QTest::addColumn<QList<quint64>>("appended");

    QTest::newRow("three numbers") << QList<quint64>{1, 2, 3} << "1,2,3" << "1,2,3" << QList<quint64>{1, 2, 3};
    QTest::newRow("all 64 bits are written, 32 read")
        << QList<quint64>{5000000000ULL} << "5000000000" << "5000000000" << QList<quint64>{0};
    QTest::newRow("empty parts are dropped") << QList<quint64>{} << "" << "1,,2," << QList<quint64>{1, 2};
    QTest::newRow("a word reads as 0") << QList<quint64>{} << "" << "7,x" << QList<quint64>{7, 0};
    QTest::newRow("the largest 32-bit value survives")
        << QList<quint64>{4294967295ULL} << "4294967295" << "4294967295" << QList<quint64>{4294967295ULL};
}

void tst_Common::listText()
{
    QFETCH(QList<quint64>, list);
    QFETCH(QString, text);
    QFETCH(QString, parsed);
    QFETCH(QList<quint64>, appended);

    QString out = QStringLiteral("old");
    CommonTools::ListToString(list, out);
    QCOMPARE(out, text);

    QList<quint64> target{99};
    CommonTools::StringToList(parsed, target);
    QCOMPARE(target, QList<quint64>{99} + appended);
}

void tst_Common::uuidAndNames()
{
    const QString uuid = CommonTools::CreateUuid();
    const QRegularExpression form(QStringLiteral("^\\{[0-9a-f]{8}-([0-9a-f]{4}-){3}[0-9a-f]{12}\\}$"));
    QVERIFY2(form.match(uuid).hasMatch(), qPrintable(uuid));
    QVERIFY(uuid != CommonTools::CreateUuid());
    QCOMPARE(CommonTools::GetJobName(QStringLiteral("%1x")), QStringLiteral("task_%1x"));
    QCOMPARE(CommonTools::GetTriggerName(uuid), QStringLiteral("trigger_") + uuid);
}

void tst_Common::socketErrorMsg_data()
{
    QTest::addColumn<int>("error");
    QTest::addColumn<QString>("text");

    QTest::newRow("unknown error") << -1 << "An unidentified error occurred.";
    QTest::newRow("refused") << 0 << "The connection was refused by the peer (or timed out).";
    QTest::newRow("temporary error")
        << 22 << "A temporary error occurred (e.g., operation would block and socket is non-blocking).";
    QTest::newRow("a value beyond the table") << 99 << "The socket occurred other unknown error[99].";
    QTest::newRow("a negative value beyond the table") << -5 << "The socket occurred other unknown error[-5].";
}

void tst_Common::socketErrorMsg()
{
    QFETCH(int, error);
    QFETCH(QString, text);
    QCOMPARE(CommonTools::SocketErrorMsg(static_cast<QAbstractSocket::SocketError>(error)), text);
}

void tst_Common::passwordScrambling_data()
{
    QTest::addColumn<QByteArray>("plain");
    QTest::addColumn<QByteArray>("scrambled");

    QTest::newRow("zero and A") << QByteArray("\x00\x41", 2) << QByteArray("\xff\xbe", 2);
    QTest::newRow("high bytes") << QByteArray("\xff\x80\x7f") << QByteArray("\x00\x7f\x80", 3);
    QTest::newRow("empty") << QByteArray() << QByteArray();
}

void tst_Common::passwordScrambling()
{
    QFETCH(QByteArray, plain);
    QFETCH(QByteArray, scrambled);

    QByteArray out("junk");
    QVERIFY(CommonTools::EncryptPassword(plain, out));
    QCOMPARE(out, scrambled);
    QByteArray back("junk");
    QVERIFY(CommonTools::DecryptPassword(out, back));
    QCOMPARE(back, plain);
    // In and out may be the same array.
    QVERIFY(CommonTools::EncryptPassword(back, back));
    QCOMPARE(back, scrambled);
}

void tst_Common::errorCodes_data()
{
    QTest::addColumn<quint64>("code");
    QTest::addColumn<quint64>("expected");

    QTest::newRow("the short form's own example")
        << FrameErrorCode::MakeShortCode(5, 0x1234, 0xBEEF, 1, 0x0042) << Q_UINT64_C(0xBEEF000042123485);
    QTest::newRow("severity keeps three bits") << FrameErrorCode::MakeCode(9, 0, 0, 0, 0, 0, 0) << quint64(1);
    QTest::newRow("group keeps four bits") << FrameErrorCode::MakeCode(0, 17, 0, 0, 0, 0, 0) << quint64(8);
    QTest::newRow("flag keeps one bit") << FrameErrorCode::MakeCode(0, 0, 3, 0, 0, 0, 0) << quint64(0x80);
    QTest::newRow("every field at its place")
        << FrameErrorCode::MakeCode(7, 15, 1, 0xAAAA, 0xBBBB, 0xCC, 0xDDDD) << Q_UINT64_C(0xDDDDCCBBBBAAAAFF);
    QTest::newRow("short form truncates wide arguments")
        << FrameErrorCode::MakeShortCode(4, 0x12345678, 1, 2, 0x9ABCDEF0) << Q_UINT64_C(0x000100DEF0567804);
}

void tst_Common::errorCodes()
{
    QFETCH(quint64, code);
    QFETCH(quint64, expected);
    QCOMPARE(QString::number(code, 16), QString::number(expected, 16));
}

void tst_Common::severityText_data()
{
    QTest::addColumn<int>("value");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("textOf");

    QTest::newRow("3") << 3 << "OK" << "OK";
    QTest::newRow("4") << 4 << "Warning" << "Warning";
    QTest::newRow("7") << 7 << "Error" << "Error";
    QTest::newRow("8 has no word but its low bits do") << 8 << "" << "OK";
    QTest::newRow("negative") << -1 << "" << "Error";
}

void tst_Common::severityText()
{
    QFETCH(int, value);
    QFETCH(QString, text);
    QFETCH(QString, textOf);
    QCOMPARE(FrameErrorCode::SeverityText(static_cast<qint8>(value)), text);
    QCOMPARE(FrameErrorCode::SeverityTextOf(static_cast<qint8>(value)), textOf);
}

void tst_Common::loggerWritesFileAndConsole_data()
{
    QTest::addColumn<QString>("baseName");   // the base directory inside a fresh one
    QTest::addColumn<QString>("suffix");     // appended to the base directory as given

    QTest::newRow("trailing slashes are dropped") << "base" << "///";
    QTest::newRow("a base directory holding %1 is taken as text") << "a%1b" << "";
    QTest::newRow("a base directory holding %2 is taken as text") << "a%2b" << "/";
}

void tst_Common::loggerWritesFileAndConsole()
{
    QFETCH(QString, baseName);
    QFETCH(QString, suffix);
    QTemporaryDir temp;
    QVERIFY(temp.isValid());
    QVERIFY(QDir(temp.path()).mkdir(baseName));
    const QString base = temp.filePath(baseName);
    const QString cwd = QDir::currentPath();

    std::ostringstream captured;
    std::streambuf* previous = std::cout.rdbuf(captured.rdbuf());
    const bool ok = Logger::Initialize(base + suffix, QStringLiteral("log/"), QStringLiteral("frame.log"));
    Logger::GetFileLogHandle().error("Send data failed in the SendBlockData.");
    Logger::GetFileLogHandle().warn("Receive data return empty in the ReadBlockBytes.");
    Logger::UnInitialize();
    std::cout.rdbuf(previous);

    QVERIFY(ok);
    QCOMPARE(QDir::currentPath(), cwd);
    // Nothing is made beside the base directory.
    QCOMPARE(QDir(temp.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList{baseName});
    QFile file(QDir(base).filePath(QStringLiteral("log/frame.log")));
    QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(file.fileName()));
    // Time stamp to the millisecond, level and a number in angle brackets stand before each message.
    QStringList lines = QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    const QRegularExpression prefix(QStringLiteral("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d,\\d{3} (\\[\\w+\\]) <\\d+> "));
    lines.replaceInStrings(prefix, QStringLiteral("\\1 "));
    QCOMPARE(lines, (QStringList{"[ERROR] Send data failed in the SendBlockData.",
                                 "[WARN] Receive data return empty in the ReadBlockBytes."}));

    const QString console = QString::fromStdString(captured.str());
    QVERIFY2(console.contains(QStringLiteral("[ERROR]")) && console.contains(QStringLiteral("SendBlockData.")),
             qPrintable(console));
}

void tst_Common::loggerRefusesUncreatableDirectory()
{
    QTemporaryDir temp;
    QVERIFY(QFile(temp.filePath(QStringLiteral("log"))).open(QIODevice::WriteOnly));   // a file, not a directory
    QVERIFY(!Logger::Initialize(temp.path(), QStringLiteral("log"), QStringLiteral("x.log")));
}

void tst_Common::loggerNamesIdeographsInGb18030_data()
{
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<QByteArray>("onDisk");   // the name's bytes in the log directory

    QTest::newRow("a name of plain ASCII keeps its bytes") << "plain.log" << QByteArray("plain.log");
    QTest::newRow("a name holding ideographs is written in GB18030, in Qt 5 and Qt 6 alike")
        << QString::fromUtf8("\xe5\xa4\x87\xe4\xbb\xbd.log") << QByteArray("\xb1\xb8\xb7\xdd.log");
}

void tst_Common::loggerNamesIdeographsInGb18030()
{
    QFETCH(QString, fileName);
    QFETCH(QByteArray, onDisk);
    QTemporaryDir temp;
    QVERIFY(temp.isValid());

    std::ostringstream discarded;
    std::streambuf* previous = std::cout.rdbuf(discarded.rdbuf());
    const bool ok = Logger::Initialize(temp.path(), QStringLiteral("log"), fileName);
    if (ok)
        Logger::GetFileLogHandle().error("named");
    Logger::UnInitialize();
    std::cout.rdbuf(previous);

    QVERIFY(ok);
    const QByteArray path = QFile::encodeName(temp.path()) + "/log/" + onDisk;
    QVERIFY2(::access(path.constData(), F_OK) == 0, path.constData());
}

void tst_Common::loggerRollsInTheWorkingDirectory()
{
    // A host that keeps its base directory as working directory gets its log rolled there;
    // backups are numbered with two digits because up to ten are kept.
    QTemporaryDir temp;
    QVERIFY(temp.isValid());
    const QString cwd = QDir::currentPath();
    QVERIFY(QDir::setCurrent(temp.path()));

    std::ostringstream discarded;
    std::streambuf* previous = std::cout.rdbuf(discarded.rdbuf());
    QVERIFY(Logger::Initialize(temp.path(), QStringLiteral("log"), QStringLiteral("service.log")));
    const std::string line(1000, 'x');
    for (int i = 0; i < 11 * 1024; ++i)   // a little over 10 MiB
        Logger::GetFileLogHandle().warn(line);
    Logger::UnInitialize();
    std::cout.rdbuf(previous);
    QDir::setCurrent(cwd);

    const QFileInfo current(temp.filePath(QStringLiteral("log/service.log")));
    const QFileInfo backup(temp.filePath(QStringLiteral("log/service.log.01")));
    QVERIFY(current.exists());
    QVERIFY2(backup.exists(), "the log did not roll");
    QVERIFY(backup.size() <= 10 * 1024 * 1024 + 2048);
    QVERIFY(current.size() < backup.size());
}

QTEST_APPLESS_MAIN(tst_Common)
#include "tst_common.moc"
