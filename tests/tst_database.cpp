#include <backupframe.h>

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

#include <log4cpp/Category.hh>
#include <log4cpp/OstreamAppender.hh>
#include <log4cpp/PatternLayout.hh>

#include <csignal>
#include <sstream>

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

    static bool exec(const QString& sql)
    {
        QSqlQuery query(*m_pdb);
        if (query.exec(sql))
            return true;
        qWarning("%s: %s", qPrintable(sql), qPrintable(query.lastError().text()));
        return false;
    }

    // name -> CREATE statement of every table in the open database
    static QMap<QString, QString> tables()
    {
        QMap<QString, QString> result;
        QSqlQuery query(*m_pdb);
        if (!query.exec(QStringLiteral("SELECT name, sql FROM sqlite_master WHERE type = 'table'")))
            return result;
        while (query.next())
            result.insert(query.value(0).toString(), query.value(1).toString());
        return result;
    }

    static bool insertPlan(const QString& uuid, const QString& triggerName)
    {
        return exec(QStringLiteral("INSERT INTO tb_schemes VALUES('%1','plan %1','Idle','Never','',"
                                   "'2024-01-01 00:00:00','%2','task_%1')").arg(uuid, triggerName));
    }

    // columns: the trigger row in table order, which is also the record's field order
    static bool insertTrigger(const QStringList& columns)
    {
        QSqlQuery query(*m_pdb);
        query.prepare(QStringLiteral("INSERT INTO tb_triggers VALUES(?,?,?,?,?,?,?,?,?,?,?)"));
        for (int i = 0; i < columns.size(); ++i) {
            const bool number = i == 1 || i == 4 || i == 5 || i == 9 || i == 10;
            query.addBindValue(number ? QVariant(columns.at(i).toLongLong()) : QVariant(columns.at(i)));
        }
        return query.exec();
    }
};

std::ostringstream g_log;
QStringList g_qtWarnings;
QtMessageHandler g_previousHandler = nullptr;

void collectWarnings(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    if (type == QtWarningMsg || type == QtCriticalMsg)
        g_qtWarnings << text;
    g_previousHandler(type, context, text);
}

// The lines logged since the last call, as "PRIORITY message".
QStringList takeLog()
{
    const QString text = QString::fromStdString(g_log.str());
    g_log.str(std::string());
    return text.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

// The digest of a regular file's bytes; empty for anything else (a pipe would block a reader).
QByteArray checksum(const QString& path)
{
    if (!QFileInfo(path).isFile())
        return QByteArray();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    return QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256).toHex();
}

bool writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

// Makes a database file with one foreign table through a connection of its own.
bool makeForeignDatabase(const QString& path)
{
    const QString name = QStringLiteral("foreign");
    bool ok = false;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        db.setDatabaseName(path);
        ok = db.open() && QSqlQuery(db).exec(QStringLiteral("CREATE TABLE notes(body TEXT)"));
        db.close();
    }
    QSqlDatabase::removeDatabase(name);
    return ok;
}

// While alive the process acts as an unprivileged user, so that file modes bind it.
class UnprivilegedScope
{
public:
    explicit UnprivilegedScope(bool wanted) : m_switched(wanted && geteuid() == 0 && seteuid(65534) == 0) {}
    ~UnprivilegedScope()
    {
        if (m_switched && seteuid(0) != 0)
            qFatal("could not regain root");
    }
    bool bound() const { return geteuid() != 0; }

private:
    bool m_switched;
};

// While alive no file may grow: every write fails as on a full disk.
class NoFileGrowthScope
{
public:
    NoFileGrowthScope()
    {
        m_previousSignal = std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_previous);
        struct rlimit none = m_previous;
        none.rlim_cur = 0;
        m_active = setrlimit(RLIMIT_FSIZE, &none) == 0;
    }
    ~NoFileGrowthScope()
    {
        setrlimit(RLIMIT_FSIZE, &m_previous);
        std::signal(SIGXFSZ, m_previousSignal);
    }
    bool active() const { return m_active; }

private:
    struct rlimit m_previous;
    void (*m_previousSignal)(int);
    bool m_active;
};

const QString kSchemeSql = QStringLiteral(
    "CREATE TABLE tb_schemes(plan_uuid VARCHAR(254) PRIMARY KEY NOT NULL,plan_name VARCHAR(254),"
    "execution_state VARCHAR(254),status VARCHAR(254),latest_finish_time VARCHAR(254),"
    "create_time VARCHAR(254),trigger_name VARCHAR(254),task_name VARCHAR(254))");
const QString kTaskSql = QStringLiteral(
    "CREATE TABLE tb_tasks(task_name VARCHAR(254) PRIMARY KEY NOT NULL,"
    "operation_register_name VARCHAR(254),operation_parameter VARCHAR(10240))");
const QString kTriggerSql = QStringLiteral(
    "CREATE TABLE tb_triggers(trigger_name VARCHAR(254) PRIMARY KEY NOT NULL,trigger_type INTEGER NOT NULL,"
    "start_time VARCHAR(254),end_time VARCHAR(254),interval INTEGER,duration INTEGER,"
    "week_days VARCHAR(254),which_months VARCHAR(254),month_days VARCHAR(254),"
    "day_last_flag INTEGER,trigger_end_flag INTEGER)");
const QString kJournalSql = QStringLiteral(
    "CREATE TABLE tb_Journals(journal_uuid VARCHAR(254) PRIMARY KEY NOT NULL,plan_uuid VARCHAR(254) NOT NULL,"
    "plan_name VARCHAR(254),task_name VARCHAR(254),start_time VARCHAR(254),end_time VARCHAR(254),"
    "record_time VARCHAR(254),time_consuming INTEGER,result VARCHAR(254),error_reason TEXT,solution TEXT)");

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

    void createsDirectoryFileAndTables();
    void existingFileKeepsItsSchema_data();
    void existingFileKeepsItsSchema();
    void badPathFails_data();
    void badPathFails();
    void failedTableCreationLeavesNoFile();
    void connectionLifecycle();
    void loadTriggerAttributes();
    void loadTriggerAttributesOnEmptyDatabase();
    void selectTrigger_data();
    void selectTrigger();
    void queriesWithoutConnectionFail();

private:
    QTemporaryDir m_dir;
    TestDatabase m_db;
};

void tst_Database::initTestCase()
{
    QVERIFY(m_dir.isValid());
    auto* layout = new log4cpp::PatternLayout();
    layout->setConversionPattern("%p %m%n");
    auto* appender = new log4cpp::OstreamAppender("capture", &g_log);
    appender->setLayout(layout);
    Logger::GetFileLogHandle().addAppender(appender);
    g_previousHandler = qInstallMessageHandler(collectWarnings);
}

void tst_Database::cleanupTestCase()
{
    qInstallMessageHandler(g_previousHandler);
    Logger::GetFileLogHandle().removeAllAppenders();
}

void tst_Database::init()
{
    takeLog();
    g_qtWarnings.clear();
}

void tst_Database::cleanup()
{
    m_db.UnInit();
    QCOMPARE(TestDatabase::connection(), nullptr);
    // Releasing the connection never cuts off a handle that is still in use.
    for (const QString& warning : qAsConst(g_qtWarnings))
        QVERIFY2(!warning.contains(QLatin1String("still in use"))
                     && !warning.contains(QLatin1String("duplicate connection")),
                 qPrintable(warning));
    QVERIFY(QSqlDatabase::connectionNames().isEmpty());
}

void tst_Database::createsDirectoryFileAndTables()
{
    const QString path = m_dir.filePath(QStringLiteral("new/sub dir/scheduler.db"));
    QVERIFY(m_db.Init(path));
    QVERIFY(QFileInfo(path).isFile());
    QVERIFY(TestDatabase::connection()->isOpen());

    const QMap<QString, QString> expected{{QStringLiteral("tb_schemes"), kSchemeSql},
                                          {QStringLiteral("tb_tasks"), kTaskSql},
                                          {QStringLiteral("tb_triggers"), kTriggerSql},
                                          {QStringLiteral("tb_Journals"), kJournalSql}};
    const QMap<QString, QString> actual = TestDatabase::tables();
    QCOMPARE(actual.keys(), expected.keys());
    for (const QString& table : expected.keys())
        QCOMPARE(actual.value(table), expected.value(table));
    QCOMPARE(takeLog(), QStringList());
}

void tst_Database::existingFileKeepsItsSchema_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QStringList>("tables");

    QTest::newRow("an empty file stays without tables") << "empty" << QStringList();
    QTest::newRow("a foreign database keeps its one table") << "foreign" << QStringList{"notes"};
    QTest::newRow("a file made by an earlier Init opens again")
        << "ours" << QStringList{"tb_Journals", "tb_schemes", "tb_tasks", "tb_triggers"};
}

void tst_Database::existingFileKeepsItsSchema()
{
    QFETCH(QString, kind);
    QFETCH(QStringList, tables);

    const QString path = m_dir.filePath(QStringLiteral("existing-%1.db").arg(kind));
    if (kind == QLatin1String("empty")) {
        QVERIFY(writeFile(path, QByteArray()));
    } else if (kind == QLatin1String("foreign")) {
        QVERIFY(makeForeignDatabase(path));
    } else {
        QVERIFY(m_db.Init(path));
        m_db.UnInit();
    }
    const QByteArray before = checksum(path);

    QVERIFY(m_db.Init(path));
    QStringList names = TestDatabase::tables().keys();
    names.sort();
    QCOMPARE(names, tables);
    m_db.UnInit();
    QCOMPARE(checksum(path), before);
    QCOMPARE(takeLog(), QStringList());
}

void tst_Database::badPathFails_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("message");   // the first logged line
    QTest::addColumn<QString>("reason");    // part of the second one, if any

    QTest::newRow("an empty path") << "empty" << "Into parameter dbfile is empty." << QString();
    QTest::newRow("a path below a regular file") << "underfile" << "Create dbfile dir failed." << QString();
    QTest::newRow("a bare name without a directory part") << "bare" << "Create dbfile dir failed." << QString();
    QTest::newRow("a directory where the file should be")
        << "directory" << "Open dbfile failed." << "unable to open database file";
    QTest::newRow("a named pipe where the file should be") << "fifo" << "Open dbfile failed." << "disk I/O error";
    QTest::newRow("a file of random bytes") << "garbage" << "Open dbfile failed." << "not a database";
    QTest::newRow("a database header followed by random bytes")
        << "header" << "Open dbfile failed." << "not a database";
    QTest::newRow("a database file this process may not write")
        << "readonly" << "Open dbfile failed." << "Permission denied";
}

void tst_Database::badPathFails()
{
    QFETCH(QString, kind);
    QFETCH(QString, message);
    QFETCH(QString, reason);

    QRandomGenerator random(20240101);
    QByteArray noise(8192, '\0');
    random.fillRange(reinterpret_cast<quint32*>(noise.data()), noise.size() / 4);

    QString path = m_dir.filePath(kind + QStringLiteral(".db"));
    if (kind == QLatin1String("empty")) {
        path.clear();
    } else if (kind == QLatin1String("underfile")) {
        QVERIFY(writeFile(m_dir.filePath(QStringLiteral("plain.txt")), "x"));
        path = m_dir.filePath(QStringLiteral("plain.txt/sub/scheduler.db"));
    } else if (kind == QLatin1String("bare")) {
        path = QStringLiteral("bare-%1.db").arg(QCoreApplication::applicationPid());
    } else if (kind == QLatin1String("directory")) {
        QVERIFY(QDir().mkpath(path));
    } else if (kind == QLatin1String("fifo")) {
        QCOMPARE(mkfifo(QFile::encodeName(path).constData(), 0644), 0);
    } else if (kind == QLatin1String("garbage")) {
        QVERIFY(!noise.startsWith("SQLite format 3"));
        QVERIFY(writeFile(path, noise));
    } else if (kind == QLatin1String("header")) {
        noise.replace(0, 16, QByteArray("SQLite format 3\0", 16));
        QVERIFY(writeFile(path, noise));
    } else if (kind == QLatin1String("readonly")) {
        QVERIFY(makeForeignDatabase(path));
        QVERIFY(QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::ReadGroup
                                                | QFileDevice::ReadOther));
        QVERIFY(QFile::setPermissions(m_dir.path(), QFileDevice::ReadOwner | QFileDevice::WriteOwner
                                                        | QFileDevice::ExeOwner | QFileDevice::ReadGroup
                                                        | QFileDevice::ExeGroup | QFileDevice::ReadOther
                                                        | QFileDevice::ExeOther));
    }
    const QByteArray before = checksum(path);
    const QStringList siblingsBefore = QDir(m_dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot);

    bool ok = true;
    {
        const bool readOnly = kind == QLatin1String("readonly");
        UnprivilegedScope unprivileged(readOnly);
        if (readOnly && !unprivileged.bound())
            QSKIP("cannot drop root rights here, and root may write any file");
        ok = m_db.Init(path);
    }
    QVERIFY(!ok);
    QVERIFY(!TestDatabase::connection() || !TestDatabase::connection()->isOpen());

    const QStringList log = takeLog();
    QVERIFY2(!log.isEmpty(), "nothing was logged");
    QCOMPARE(log.first(), QStringLiteral("ERROR ") + message);
    if (reason.isNull()) {
        QCOMPARE(log.size(), 1);
    } else {
        // the reason the driver or the file system gave follows on its own line
        QCOMPARE(log.size(), 2);
        QVERIFY2(log.at(1).startsWith(QLatin1String("ERROR ")) && log.at(1).size() > 6, qPrintable(log.at(1)));
        QVERIFY2(log.at(1).contains(reason), qPrintable(log.at(1)));
    }

    m_db.UnInit();
    // Nothing was written: the file is unchanged and no journal or other file appeared.
    QCOMPARE(checksum(path), before);
    QCOMPARE(QDir(m_dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), siblingsBefore);
    if (kind == QLatin1String("directory"))
        QVERIFY(QDir(path).isEmpty());
    if (kind == QLatin1String("bare"))
        QVERIFY(!QFile::exists(path));
}

void tst_Database::failedTableCreationLeavesNoFile()
{
    const QString path = m_dir.filePath(QStringLiteral("full/scheduler.db"));
    bool ok = true;
    {
        NoFileGrowthScope diskFull;
        if (!diskFull.active())
            QSKIP("cannot limit the file size here");
        ok = m_db.Init(path);
    }
    QVERIFY(!ok);
    QCOMPARE(takeLog(), QStringList{QStringLiteral("ERROR Create dbfile all tables failed.")});
    QVERIFY(!QFile::exists(path));
    QVERIFY(QDir(m_dir.filePath(QStringLiteral("full"))).isEmpty());

    // With room again the same path starts afresh.
    m_db.UnInit();
    QVERIFY(m_db.Init(path));
    QCOMPARE(TestDatabase::tables().size(), 4);
}

void tst_Database::connectionLifecycle()
{
    const QString first = m_dir.filePath(QStringLiteral("first.db"));
    const QString second = m_dir.filePath(QStringLiteral("second.db"));

    QVERIFY(m_db.Init(first));
    QVERIFY(TestDatabase::insertPlan(QStringLiteral("{p1}"), QStringLiteral("trigger_1")));

    // A second Init without UnInit moves the shared connection to the new file.
    QVERIFY(m_db.Init(second));
    QCOMPARE(TestDatabase::connection()->databaseName(), second);
    QCOMPARE(QSqlDatabase::connectionNames(), QStringList{QLatin1String(QSqlDatabase::defaultConnection)});
    {
        QSqlQuery count(*TestDatabase::connection());
        QVERIFY(count.exec(QStringLiteral("SELECT count(*) FROM tb_schemes")) && count.next());
        QCOMPARE(count.value(0).toInt(), 0);
    }

    // UnInit twice is harmless, from any instance.
    m_db.UnInit();
    TestDatabase().UnInit();
    QCOMPARE(TestDatabase::connection(), nullptr);
    QVERIFY(QSqlDatabase::connectionNames().isEmpty());

    // Init after UnInit reopens the first file with its row.
    QVERIFY(m_db.Init(first));
    QSqlQuery rows(*TestDatabase::connection());
    QVERIFY(rows.exec(QStringLiteral("SELECT plan_uuid FROM tb_schemes")) && rows.next());
    QCOMPARE(rows.value(0).toString(), QStringLiteral("{p1}"));
    QVERIFY(!rows.next());
    rows.finish();
    QCOMPARE(takeLog(), QStringList());
}

void tst_Database::loadTriggerAttributes()
{
    QVERIFY(m_db.Init(m_dir.filePath(QStringLiteral("load.db"))));
    const QStringList a{"trigger_a", "3", "2024-01-02 03:04:05", "2024-12-31 23:59:59", "3600", "86400",
                        "1,3,5", "1,6,12", "1,15,31", "1", "1"};
    const QStringList b{"trigger_b", "4294967295", "", "", "4294967296", "4294967297", "", "", "", "0", "0"};
    QVERIFY(TestDatabase::exec(QStringLiteral("BEGIN")));
    QVERIFY(TestDatabase::insertTrigger(a));
    QVERIFY(TestDatabase::insertTrigger(b));
    QVERIFY(TestDatabase::insertTrigger({"trigger_unused", "1", "s", "e", "1", "1", "w", "m", "d", "1", "1"}));
    QVERIFY(TestDatabase::insertPlan(QStringLiteral("{plan-a}"), QStringLiteral("trigger_a")));
    QVERIFY(TestDatabase::insertPlan(QStringLiteral("{plan-b}"), QStringLiteral("trigger_b")));
    QVERIFY(TestDatabase::insertPlan(QStringLiteral("{plan-shares-a}"), QStringLiteral("trigger_a")));
    QVERIFY(TestDatabase::insertPlan(QStringLiteral("{plan-orphan}"), QStringLiteral("trigger_missing")));
    QVERIFY(TestDatabase::exec(QStringLiteral("COMMIT")));

    // Entries the caller already holds stay.
    QHash<QString, TriggerAttribute*> triggers;
    TriggerAttribute* earlier = new TriggerAttribute();
    triggers.insert(QStringLiteral("{held-before}"), earlier);
    QVERIFY(m_db.LoadTriggerAttributes(triggers));

    QStringList keys = triggers.keys();
    keys.sort();
    QCOMPARE(keys, (QStringList{"{held-before}", "{plan-a}", "{plan-b}", "{plan-shares-a}"}));
    QVERIFY(triggers.value(QStringLiteral("{held-before}")) == earlier);
    QCOMPARE(fields(*triggers.value(QStringLiteral("{plan-a}"))), a);
    QCOMPARE(fields(*triggers.value(QStringLiteral("{plan-shares-a}"))), a);
    QVERIFY(triggers.value(QStringLiteral("{plan-shares-a}")) != triggers.value(QStringLiteral("{plan-a}")));
    // The numbers come back as 32-bit values: 2^32 reads as 0, 2^32 + 1 as 1.
    QStringList bRead = b;
    bRead[4] = QStringLiteral("0");
    bRead[5] = QStringLiteral("1");
    QCOMPARE(fields(*triggers.value(QStringLiteral("{plan-b}"))), bRead);

    qDeleteAll(triggers);
}

void tst_Database::loadTriggerAttributesOnEmptyDatabase()
{
    QVERIFY(m_db.Init(m_dir.filePath(QStringLiteral("empty.db"))));
    QHash<QString, TriggerAttribute*> triggers;
    QVERIFY(m_db.LoadTriggerAttributes(triggers));
    QVERIFY(triggers.isEmpty());

    // A file without the tables (an existing empty file) makes the join fail.
    m_db.UnInit();
    const QString bare = m_dir.filePath(QStringLiteral("no-tables.db"));
    QVERIFY(writeFile(bare, QByteArray()));
    QVERIFY(m_db.Init(bare));
    QVERIFY(!m_db.LoadTriggerAttributes(triggers));
    QVERIFY(triggers.isEmpty());
}

void tst_Database::selectTrigger_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("result");
    QTest::addColumn<quint64>("found");
    QTest::addColumn<bool>("changed");

    QTest::newRow("a stored name is read") << "trigger_x" << true << quint64(1) << true;
    QTest::newRow("an unknown name is no error") << "trigger_unknown" << true << quint64(0) << false;
    QTest::newRow("an empty name is refused") << "" << false << quint64(0) << false;
    QTest::newRow("a name with a quote breaks the statement") << "trigger_o'x" << false << quint64(0) << false;
    QTest::newRow("a name carrying a second statement runs neither")
        << "x'; DROP TABLE tb_triggers; --" << false << quint64(0) << false;
    QTest::newRow("a name that only differs in case is another name") << "TRIGGER_X" << true << quint64(0) << false;
}

void tst_Database::selectTrigger()
{
    QFETCH(QString, name);
    QFETCH(bool, result);
    QFETCH(quint64, found);
    QFETCH(bool, changed);

    static int databases = 0;
    QVERIFY(m_db.Init(m_dir.filePath(QStringLiteral("select-%1.db").arg(++databases))));
    const QStringList stored{"trigger_x", "7", "s", "e", "60", "120", "0,6", "2", "28", "1", "0"};
    QVERIFY(TestDatabase::insertTrigger(stored));

    // Only a found row changes the record, and never its name.
    TriggerAttribute record;
    record.setTriggerName(QStringLiteral("kept name"));
    QStringList expected = changed ? stored : fields(record);
    expected[0] = QStringLiteral("kept name");
    quint64 flag = 7;
    QCOMPARE(TestDatabase::SelectTrigger(name, record, flag), result);
    QCOMPARE(flag, found);
    QCOMPARE(fields(record), expected);
    QCOMPARE(TestDatabase::tables().size(), 4);
}

void tst_Database::queriesWithoutConnectionFail()
{
    QHash<QString, TriggerAttribute*> triggers;
    TriggerAttribute record;
    quint64 found = 5;
    QVERIFY(!m_db.LoadTriggerAttributes(triggers));
    QVERIFY(!TestDatabase::SelectTrigger(QStringLiteral("trigger_x"), record, found));
    QCOMPARE(found, quint64(0));

    // After a failed open the connection object exists but is closed: queries fail too.
    const QString garbage = m_dir.filePath(QStringLiteral("noise.db"));
    QVERIFY(writeFile(garbage, QByteArray(4096, 'z')));
    QVERIFY(!m_db.Init(garbage));
    QVERIFY(TestDatabase::connection());
    QVERIFY(!m_db.LoadTriggerAttributes(triggers));
    found = 5;
    QVERIFY(!TestDatabase::SelectTrigger(QStringLiteral("trigger_x"), record, found));
    QCOMPARE(found, quint64(0));
    QVERIFY(triggers.isEmpty());
}

QTEST_APPLESS_MAIN(tst_Database)
#include "tst_database.moc"
