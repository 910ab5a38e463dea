#include "communtestsupport.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Reaches the protected members the way a host's own database class does.
class TestDatabase : public DatabaseFunctionOperation
{
public:
    using DatabaseFunctionOperation::SelectTrigger;

    static QSqlDatabase* connection() { return m_pdb; }
    static bool exec(const QString& sql) { return QSqlQuery(*m_pdb).exec(sql); }

    // The first column of every row the statement gives.
    static QStringList select(const QString& sql)
    {
        QStringList result;
        QSqlQuery query(*m_pdb);
        query.exec(sql);
        while (query.next())
            result.append(query.value(0).toString());
        return result;
    }

    static bool insertPlan(const QString& uuid, const QString& triggerName)
    {
        return exec(QStringLiteral("INSERT INTO tb_schemes VALUES('%1','plan %1','Idle','Never','',"
                                   "'2024-01-01 00:00:00','%2','task_%1')").arg(uuid, triggerName));
    }

    // c: the trigger row in table order, which is also the record's field order
    static bool insertTrigger(const QStringList& c)
    {
        return exec(QStringLiteral("INSERT INTO tb_triggers VALUES('%1',%2,'%3','%4',%5,%6,'%7','%8','%9',%10,%11)")
                        .arg(c[0], c[1], c[2], c[3], c[4], c[5], c[6], c[7], c[8]).arg(c[9], c[10]));
    }
};

const QStringList kSchema{
    "CREATE TABLE tb_Journals(journal_uuid VARCHAR(254) PRIMARY KEY NOT NULL,plan_uuid VARCHAR(254) NOT NULL,"
    "plan_name VARCHAR(254),task_name VARCHAR(254),start_time VARCHAR(254),end_time VARCHAR(254),"
    "record_time VARCHAR(254),time_consuming INTEGER,result VARCHAR(254),error_reason TEXT,solution TEXT)",
    "CREATE TABLE tb_schemes(plan_uuid VARCHAR(254) PRIMARY KEY NOT NULL,plan_name VARCHAR(254),"
    "execution_state VARCHAR(254),status VARCHAR(254),latest_finish_time VARCHAR(254),"
    "create_time VARCHAR(254),trigger_name VARCHAR(254),task_name VARCHAR(254))",
    "CREATE TABLE tb_tasks(task_name VARCHAR(254) PRIMARY KEY NOT NULL,"
    "operation_register_name VARCHAR(254),operation_parameter VARCHAR(10240))",
    "CREATE TABLE tb_triggers(trigger_name VARCHAR(254) PRIMARY KEY NOT NULL,trigger_type INTEGER NOT NULL,"
    "start_time VARCHAR(254),end_time VARCHAR(254),interval INTEGER,duration INTEGER,"
    "week_days VARCHAR(254),which_months VARCHAR(254),month_days VARCHAR(254),"
    "day_last_flag INTEGER,trigger_end_flag INTEGER)"};

QStringList g_qtWarnings;
QtMessageHandler g_previousHandler = nullptr;

void collectWarnings(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    if (type == QtWarningMsg || type == QtCriticalMsg)
        g_qtWarnings << text;
    g_previousHandler(type, context, text);
}

// The digest of a regular file's bytes; empty for anything else.
QByteArray checksum(const QString& path)
{
    QFile file(path);
    return QFileInfo(path).isFile() && file.open(QIODevice::ReadOnly)
               ? QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256).toHex() : QByteArray();
}

bool writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

// Every field in declared order, so a mismatch shows which one differs.
QStringList fields(const TriggerAttribute& t)
{
    return {t.getTriggerName(), QString::number(t.getTriggerType()), t.getStartTime(), t.getEndTime(),
            QString::number(t.getInterval()), QString::number(t.getDuration()), t.getWeekDays(),
            t.getWhichMoths(), t.getMonthDays(), QString::number(t.getDayLastFlag()),
            QString::number(t.getTriggerEndFlag())};
}

} // namespace

class tst_Database : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();

    void initOnWhatThePathHolds_data();
    void initOnWhatThePathHolds();
    void failedTableCreationKeepsTheFile();
    void repeatedInitReleasesTheEarlierConnection();
    void triggerQueries();

private:
    QTemporaryDir m_dir;
    TestDatabase m_db;
    communtest::LogCapture m_log;   // "PRIORITY message" lines
};

void tst_Database::initTestCase()
{
    QVERIFY(m_dir.isValid());
    g_previousHandler = qInstallMessageHandler(collectWarnings);
}

void tst_Database::cleanupTestCase()
{
    qInstallMessageHandler(g_previousHandler);
}

void tst_Database::init()
{
    m_log.clear();
    g_qtWarnings.clear();
}

void tst_Database::cleanup()
{
    m_db.UnInit();
    QCOMPARE(TestDatabase::connection(), nullptr);
    QVERIFY(QSqlDatabase::connectionNames().isEmpty());
    // Releasing the connection never cuts off a handle that is still in use.
    QCOMPARE(g_qtWarnings.filter(QRegularExpression("still in use|duplicate connection")), QStringList());
}

void tst_Database::initOnWhatThePathHolds_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("message");   // the first logged line; empty: Init succeeds and logs nothing
    QTest::addColumn<QString>("reason");    // part of the second one, if any
    QTest::addColumn<bool>("tables");       // after a successful Init: the four tables can be read
    QTest::addColumn<bool>("writes");       // and a row can be written
    QTest::newRow("a database made in new directories reopens with the four tables")
        << "new" << "" << QString() << true << true;
    QTest::newRow("an existing empty file opens and stays without tables")
        << "emptyfile" << "" << QString() << false << false;
    QTest::newRow("an empty path") << "empty" << "Into parameter dbfile is empty." << QString() << false << false;
    QTest::newRow("a path below a regular file")
        << "underfile" << "Create dbfile dir failed." << QString() << false << false;
    QTest::newRow("a directory where the file should be")
        << "directory" << "Open dbfile failed." << "unable to open database file" << false << false;
    QTest::newRow("a named pipe where the file should be")
        << "fifo" << "Open dbfile failed." << "disk I/O error" << false << false;
    // SQLite reads an existing file only at the first statement, and silently opens one
    // it may not write read-only: the first read or the first write fails instead of Init.
    QTest::newRow("a file of garbage bytes opens and fails at the first read")
        << "garbage" << "" << QString() << false << false;
    QTest::newRow("a database file this process may not write opens and fails at the first write")
        << "readonly" << "" << QString() << true << false;
}

// Init makes directories, file and tables only for a missing file and opens an existing one
// unchanged; what it cannot open it reports, writing nothing.
void tst_Database::initOnWhatThePathHolds()
{
    QFETCH(QString, kind);
    QFETCH(QString, message);
    QFETCH(QString, reason);
    QFETCH(bool, tables);
    QFETCH(bool, writes);
    QString path = m_dir.filePath(kind + QStringLiteral(".db"));
    if (kind == QLatin1String("empty")) {
        path.clear();
    } else if (kind == QLatin1String("new") || kind == QLatin1String("readonly")) {
        if (kind == QLatin1String("new"))
            path = m_dir.filePath(QStringLiteral("new/sub dir/scheduler.db"));
        QVERIFY(m_db.Init(path));
        m_db.UnInit();
        if (kind == QLatin1String("readonly"))
            QVERIFY(QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::ReadGroup | QFileDevice::ReadOther));
    } else if (kind == QLatin1String("emptyfile")) {
        QVERIFY(writeFile(path, QByteArray()));
    } else if (kind == QLatin1String("underfile")) {
        QVERIFY(writeFile(m_dir.filePath(QStringLiteral("plain.txt")), "x"));
        path = m_dir.filePath(QStringLiteral("plain.txt/sub/scheduler.db"));
    } else if (kind == QLatin1String("directory")) {
        QVERIFY(QDir().mkpath(path));
    } else if (kind == QLatin1String("fifo")) {
        QCOMPARE(mkfifo(QFile::encodeName(path).constData(), 0644), 0);
    } else if (kind == QLatin1String("garbage")) {
        QVERIFY(writeFile(path, QByteArray(4096, 'z')));
    }
    const QByteArray before = checksum(path);
    const QStringList siblingsBefore = QDir(m_dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot);

    // Root may write any file: the read-only case runs as an unprivileged user.
    const bool dropRoot = kind == QLatin1String("readonly") && geteuid() == 0;
    if (dropRoot) {
        // (the group bits bind too: the process keeps root's group)
        QVERIFY(QFile::setPermissions(m_dir.path(), QFile::permissions(m_dir.path()) | QFileDevice::ExeGroup
                                                        | QFileDevice::ExeOther));
        if (seteuid(65534) != 0)
            QSKIP("cannot drop root rights here");
    }
    const bool ok = m_db.Init(path);
    if (dropRoot && seteuid(0) != 0)
        qFatal("could not regain root");
    QCOMPARE(ok, message.isEmpty());
    if (ok) {
        QHash<QString, TriggerAttribute*> triggers;
        QCOMPARE(m_db.LoadTriggerAttributes(triggers), tables);   // the query needs our tables
        QCOMPARE(TestDatabase::select(QStringLiteral("SELECT sql FROM sqlite_master WHERE type = 'table' ORDER BY name")),
                 tables ? kSchema : QStringList());
        // The row is rolled back: the file keeps its bytes.
        QVERIFY(TestDatabase::connection()->transaction());
        QCOMPARE(TestDatabase::insertPlan(QStringLiteral("{p}"), QStringLiteral("trigger_p")), writes);
        QVERIFY(TestDatabase::connection()->rollback());
    } else {
        QVERIFY(!TestDatabase::connection() || !TestDatabase::connection()->isOpen());
    }
    // The reason the driver or the file system gave follows on a line of its own.
    const QStringList log = m_log.lines();
    QCOMPARE(log.value(0), message.isEmpty() ? QString() : QStringLiteral("ERROR ") + message);
    QCOMPARE(log.size(), message.isEmpty() ? 0 : reason.isNull() ? 1 : 2);
    QVERIFY2(reason.isNull() || (log.at(1).startsWith(QLatin1String("ERROR ")) && log.at(1).contains(reason)),
             qPrintable(log.join('\n')));

    // Nothing was written: the file is unchanged and no journal or other file appeared.
    m_db.UnInit();
    QCOMPARE(checksum(path), before);
    QCOMPARE(QDir(m_dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), siblingsBefore);
    QVERIFY(kind != QLatin1String("directory") || QDir(path).isEmpty());
}

void tst_Database::failedTableCreationKeepsTheFile()
{
    // While the limit holds no file may grow, as on a full disk.
    struct rlimit previous;
    getrlimit(RLIMIT_FSIZE, &previous);
    struct rlimit none = previous;
    none.rlim_cur = 0;
    const auto previousSignal = std::signal(SIGXFSZ, SIG_IGN);
    const bool limited = setrlimit(RLIMIT_FSIZE, &none) == 0;
    const QString path = m_dir.filePath(QStringLiteral("full/scheduler.db"));
    const bool ok = m_db.Init(path);
    setrlimit(RLIMIT_FSIZE, &previous);
    std::signal(SIGXFSZ, previousSignal);
    if (!limited)
        QSKIP("cannot limit the file size here");
    QVERIFY(!ok);
    QCOMPARE(m_log.lines(), QStringList{QStringLiteral("ERROR Create dbfile all tables failed.")});
    QVERIFY(TestDatabase::connection() && TestDatabase::connection()->isOpen());
    QVERIFY(QFileInfo(path).isFile());
    // With room again the file counts as existing: it opens, and stays without tables.
    QVERIFY(m_db.Init(path));
    QCOMPARE(TestDatabase::select(QStringLiteral("SELECT name FROM sqlite_master")), QStringList());
}

// Hosts call Init and UnInit again and again in one process: neither a repeated Init nor
// one after UnInit may leave a stale connection behind or cut off a handle still held.
void tst_Database::repeatedInitReleasesTheEarlierConnection()
{
    QHash<QString, TriggerAttribute*> triggers;
    QVERIFY2(!m_db.LoadTriggerAttributes(triggers), "a query without a connection succeeded");
    const QString first = m_dir.filePath(QStringLiteral("first.db"));
    const QString second = m_dir.filePath(QStringLiteral("second.db"));
    QVERIFY(m_db.Init(first));
    QVERIFY(TestDatabase::insertPlan(QStringLiteral("{p1}"), QStringLiteral("trigger_1")));
    // A second Init without UnInit moves the shared connection to the new file.
    QVERIFY(m_db.Init(second));
    QCOMPARE(TestDatabase::connection()->databaseName(), second);
    QCOMPARE(QSqlDatabase::connectionNames(), QStringList{QLatin1String(QSqlDatabase::defaultConnection)});

    // UnInit twice is harmless, from any instance, and leaves no connection registered.
    m_db.UnInit();
    TestDatabase().UnInit();
    QCOMPARE(TestDatabase::connection(), nullptr);
    QCOMPARE(QSqlDatabase::connectionNames(), QStringList());

    // Init after UnInit reopens the first file with its row.
    QVERIFY(m_db.Init(first));
    QCOMPARE(TestDatabase::select(QStringLiteral("SELECT plan_uuid FROM tb_schemes")), QStringList{"{p1}"});
    QCOMPARE(m_log.lines(), QStringList());
    QCOMPARE(g_qtWarnings, QStringList());
}

void tst_Database::triggerQueries()
{
    QVERIFY(m_db.Init(m_dir.filePath(QStringLiteral("load.db"))));
    const QStringList a{"trigger_a", "3", "2024-01-02 03:04:05", "2024-12-31 23:59:59", "3600", "86400",
                        "1,3,5", "1,6,12", "1,15,31", "1", "1"};
    const QStringList b{"trigger_b", "4294967295", "", "", "4294967296", "4294967297", "", "", "", "0", "0"};
    QVERIFY(TestDatabase::insertTrigger(a) && TestDatabase::insertTrigger(b));
    QVERIFY(TestDatabase::insertPlan(QStringLiteral("{plan-a}"), QStringLiteral("trigger_a")));
    QVERIFY(TestDatabase::insertPlan(QStringLiteral("{plan-b}"), QStringLiteral("trigger_b")));
    QVERIFY(TestDatabase::insertPlan(QStringLiteral("{plan-shares-a}"), QStringLiteral("trigger_a")));
    QVERIFY(TestDatabase::insertPlan(QStringLiteral("{plan-orphan}"), QStringLiteral("trigger_missing")));

    // One record of its own per plan whose trigger row exists.
    QHash<QString, TriggerAttribute*> triggers;
    QVERIFY(m_db.LoadTriggerAttributes(triggers));
    QStringList keys = triggers.keys();
    keys.sort();
    QCOMPARE(keys, (QStringList{"{plan-a}", "{plan-b}", "{plan-shares-a}"}));
    QCOMPARE(fields(*triggers.value(QStringLiteral("{plan-a}"))), a);
    QCOMPARE(fields(*triggers.value(QStringLiteral("{plan-shares-a}"))), a);
    QVERIFY(triggers.value(QStringLiteral("{plan-shares-a}")) != triggers.value(QStringLiteral("{plan-a}")));
    // The numbers come back as 32-bit values: 2^32 reads as 0, 2^32 + 1 as 1.
    QCOMPARE(fields(*triggers.value(QStringLiteral("{plan-b}"))),
             (QStringList{"trigger_b", "4294967295", "", "", "0", "1", "", "", "", "0", "0"}));
    qDeleteAll(triggers);

    // SelectTrigger: an unknown name is no error, an empty one is refused; only a found row
    // changes the record, and never its name.
    TriggerAttribute record;
    quint64 found = 7;
    QVERIFY(TestDatabase::SelectTrigger(QStringLiteral("trigger_unknown"), record, found));
    QCOMPARE(found, quint64(0));
    found = 7;
    QVERIFY(!TestDatabase::SelectTrigger(QString(), record, found));
    QCOMPARE(found, quint64(0));
    QCOMPARE(fields(record), fields(TriggerAttribute()));
    QVERIFY(TestDatabase::SelectTrigger(QStringLiteral("trigger_a"), record, found));
    QCOMPARE(found, quint64(1));
    QStringList expected = a;
    expected[0].clear();
    QCOMPARE(fields(record), expected);
}

QTEST_APPLESS_MAIN(tst_Database)
#include "tst_database.moc"
