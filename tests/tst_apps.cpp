// End to end: a backupframe-scheduler process on a temporary data directory, driven by
// backupframe-agent processes; the database is checked directly, read-only.
#include "programpath.h"
#include "protocol.h"
#include "triggerschedule.h"

#include <backupframe.h>

#include <QCryptographicHash>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalServer>
#include <QLocalSocket>
#include <QProcess>
#include <QRandomGenerator>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtEndian>
#include <QtTest>

#include <algorithm>
#include <csignal>
#include <sys/stat.h>
#include <memory>

namespace {

// Under ThreadSanitizer the programs run several times slower: the waits for them stretch.
#if defined(__SANITIZE_THREAD__)
constexpr int kSlowdown = 5;
#else
constexpr int kSlowdown = 1;
#endif

using CommandPtr = std::unique_ptr<CommCommand, void (*)(CommCommand*)>;

struct AgentRun {
    int code = -1;          // -1: did not finish on its own
    QString out;
    QString err;
    qint64 elapsedMs = 0;
};

QString uniqueName()
{
    static int counter = 0;
    return QStringLiteral("tst_apps_%1_%2").arg(QCoreApplication::applicationPid()).arg(++counter);
}

// The same 64 bytes of noise on every run.
QByteArray randomBytes()
{
    quint32 words[16];
    QRandomGenerator(42).fillRange(words);
    return QByteArray(reinterpret_cast<const char*>(words), sizeof words);
}

// The values of the given keys as texts (numbers without a fraction, booleans as true/false).
QStringList values(const QJsonValue& object, const QStringList& keys)
{
    QStringList texts;
    for (const QString& key : keys)
        texts << object.toObject().value(key).toVariant().toString();
    return texts;
}

// Sends one framed request on a local socket of its own and returns the answer; no answer
// decodes as an envelope of type 0.
CommandPtr rawExchange(const QString& serverName, CommCommand& request)
{
    QLocalSocket socket;
    socket.connectToServer(serverName);
    QByteArray bytes;
    CommandBuilder::CommandToBytearray(&request, bytes);
    if (socket.waitForConnected(5000))
        socket.write(bytes);
    QByteArray reply;
    while ((reply.size() < 8 || reply.size() < qFromBigEndian<qint64>(reply.constData()))
           && socket.waitForReadyRead(5000))
        reply += socket.readAll();
    return CommandPtr(CommandBuilder::BytearrayToCommand(reply), &CommandBuilder::DestroyCommand);
}

// A channel of the test's own: subscribes on a local socket, then collects the pushed events.
class Subscriber
{
public:
    struct Event {
        quint64 type;
        QString planUuid;
        QByteArray payload;
    };

    bool Subscribe(const QString& serverName)
    {
        socket.connectToServer(serverName);
        if (!socket.waitForConnected(5000))
            return false;
        ChannelCommand channel(ChannelCommandType);
        channel.setRedistrarName(QStringLiteral("tst_apps"));
        QByteArray bytes;
        CommandBuilder::CommandToBytearray(&channel, bytes);
        socket.write(bytes);
        return QTest::qWaitFor([this] { return Read(), m_confirmed; }, 5000);
    }
    // Takes in what has arrived; false once the service closed the connection.
    bool Read()
    {
        m_buffer += socket.readAll();
        qint64 size = 0;
        while (m_buffer.size() >= 8 && m_buffer.size() >= (size = qFromBigEndian<qint64>(m_buffer.constData()))) {
            const CommandPtr command(CommandBuilder::BytearrayToCommand(m_buffer.left(size)), &CommandBuilder::DestroyCommand);
            m_buffer.remove(0, size);
            auto* channel = dynamic_cast<ResultChannel*>(command.get());
            if (channel && channel->getResultData().isEmpty())
                m_confirmed = true;
            if (!channel || channel->getResultData().isEmpty())
                continue;
            const CommandPtr inner(CommandBuilder::BytearrayToCommand(channel->getResultData()), &CommandBuilder::DestroyCommand);
            if (auto* event = dynamic_cast<RequestCommand*>(inner.get()))
                events.append({event->getCommandType(), event->getPlanUuid(), event->getRequestData()});
        }
        return socket.state() == QLocalSocket::ConnectedState;
    }
    bool HasEvent(quint64 type) const
    {
        return std::any_of(events.begin(), events.end(), [type](const Event& event) { return event.type == type; });
    }

    QLocalSocket socket;
    QList<Event> events;

private:
    QByteArray m_buffer;
    bool m_confirmed = false;
};

// Every file below root by its relative path, with the SHA-1 of its content.
QMap<QString, QByteArray> digests(const QString& root)
{
    QMap<QString, QByteArray> files;
    QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        QFile file(it.next());
        QCryptographicHash hash(QCryptographicHash::Sha1);
        if (file.open(QIODevice::ReadOnly) && hash.addData(&file))
            files.insert(QDir(root).relativeFilePath(file.fileName()), hash.result());
    }
    return files;
}

// Every file below root by its relative path, with its inode: a file written anew has another.
QMap<QString, quint64> inodes(const QString& root)
{
    QMap<QString, quint64> files;
    QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        struct stat status = {};
        if (::stat(QFile::encodeName(it.next()).constData(), &status) == 0)
            files.insert(QDir(root).relativeFilePath(it.filePath()), status.st_ino);
    }
    return files;
}

// The JSON objects of an agent's output, one per line.
QList<QJsonObject> jsonLines(const QString& out)
{
    QList<QJsonObject> objects;
    for (const QString& line : out.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
        objects << QJsonDocument::fromJson(line.toUtf8()).object();
    return objects;
}

QString agentPath() { return programPath("BACKUPFRAME_TEST_AGENT", AGENT_PATH); }
QString schedulerPath() { return programPath("BACKUPFRAME_TEST_SCHEDULER", SCHEDULER_PATH); }

bool writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

} // namespace

class tst_Apps : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void statusOfAnEmptyService();
    void newEditDeleteReachTheDatabase();
    void runCancelAndJournals();
    void emailSetKeepsTheOtherFields();
    void jsonForEveryCommand_data();
    void jsonForEveryCommand();
    void errorsChangeNothing_data();
    void errorsChangeNothing();
    void textOutput_data();
    void textOutput();
    void stoppedServiceGivesOneLine();
    void silentServiceTimesOut();
    void twoAgentsAtOnce();
    void secondServiceRefuses_data();
    void secondServiceRefuses();
    void garbagePayloadIsRejected_data();
    void garbagePayloadIsRejected();
    void everyNamedRequestIsServed_data();
    void everyNamedRequestIsServed();
    void plansTravelAsFilesAndOneOffRunsAreJournaled();
    void tcpTransport();
    void planFiresByItselfUntilItsEnd();
    void missedOccurrenceRunsOnceAfterRestart();
    void runCutShortIsJournaledAsInterrupted_data();
    void runCutShortIsJournaledAsInterrupted();
    void aLargeTreeIsBackedUpRestoredAndVerified();
    void subscribersAreToldOfARunInOrder();
    void aSubscriberThatDoesNotReadIsCutOff();
    void followShowsTheRunLive_data();
    void followShowsTheRunLive();
    void refusesToStart_data();
    void refusesToStart();

private:
    bool StartScheduler(QProcess& process, const QString& dataDir, const QStringList& extra = {});
    void StopScheduler(QProcess& process);
    void StartAgent(QProcess& agent, const QStringList& arguments);
    AgentRun Finish(QProcess& agent, const QElapsedTimer& clock, int waitMs = 30000 * kSlowdown);
    AgentRun Refused(const QString& dataDir, const QStringList& extra = {});
    AgentRun Agent(const QStringList& arguments);
    QJsonDocument AgentJson(const QStringList& arguments);
    QString NewPlan(const QStringList& arguments);
    QString NewPlanRaw(const QString& name, const QString& operation, const TriggerAttribute& trigger);
    QJsonObject PlanJson(const QString& key);
    QStringList Row(const QString& sql, const QString& bind = QString());
    int Count(const QString& table);

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_dataDir;
    QString m_serverName;
    QProcessEnvironment m_environment;
    QProcess m_scheduler;
};

void tst_Apps::initTestCase()
{
    for (const QString& program : {agentPath(), schedulerPath()}) {
        QVERIFY2(QFileInfo(program).isExecutable(), qPrintable(program));
        qInfo("using %s", qPrintable(program));
    }
}

void tst_Apps::init()
{
    m_dir.reset(new QTemporaryDir);
    QVERIFY(m_dir->isValid());
    m_dataDir = m_dir->filePath(QStringLiteral("data"));
    m_serverName = uniqueName();
    // The agent's own log and default configuration live under the data home: keep them here.
    m_environment = QProcessEnvironment::systemEnvironment();
    m_environment.insert(QStringLiteral("XDG_DATA_HOME"), m_dir->filePath(QStringLiteral("home")));
    QVERIFY2(StartScheduler(m_scheduler, m_dataDir), "the scheduler did not start serving");
}

void tst_Apps::cleanup()
{
    StopScheduler(m_scheduler);
    m_dir.reset();
}

bool tst_Apps::StartScheduler(QProcess& process, const QString& dataDir, const QStringList& extra)
{
    process.setProcessEnvironment(m_environment);
    process.start(schedulerPath(), QStringList{"--data-dir", dataDir, "--server-name", m_serverName} + extra);
    QByteArray output;
    (void)QTest::qWaitFor([&] {
        output += process.readAllStandardOutput();
        return output.contains("serving '") || process.state() == QProcess::NotRunning;
    }, 10000);
    return output.contains("serving '") && process.state() == QProcess::Running;
}

void tst_Apps::StopScheduler(QProcess& process)
{
    if (process.state() == QProcess::NotRunning)
        return;
    process.terminate();
    if (!process.waitForFinished(10000 * kSlowdown))
        process.kill();
    process.waitForFinished(5000);
}

void tst_Apps::StartAgent(QProcess& agent, const QStringList& arguments)
{
    agent.setProcessEnvironment(m_environment);
    // Slowed down, every answer may take the longest wait the agent allows any (the listing of a
    // large mirror: 60 s). A --timeout among the arguments comes later and wins.
    const QStringList slow = kSlowdown > 1 ? QStringList{"--timeout", QString::number(24 * kSlowdown)} : QStringList();
    agent.start(agentPath(), QStringList{"--server-name", m_serverName} + slow + arguments);
}

AgentRun tst_Apps::Finish(QProcess& agent, const QElapsedTimer& clock, int waitMs)
{
    AgentRun run;
    // Waiting with the event loop alive: a server of this process must be able to act meanwhile.
    (void)QTest::qWaitFor([&] { return agent.state() == QProcess::NotRunning; }, waitMs);
    run.elapsedMs = clock.elapsed();
    if (agent.state() != QProcess::NotRunning) {
        agent.kill();
        agent.waitForFinished(5000);
    } else if (agent.exitStatus() == QProcess::NormalExit) {
        run.code = agent.exitCode();
    }
    run.out = QString::fromUtf8(agent.readAllStandardOutput());
    run.err = QString::fromUtf8(agent.readAllStandardError());
    return run;
}

// A scheduler that must refuse to start: how it ended (-1 if it did not) and what it said.
AgentRun tst_Apps::Refused(const QString& dataDir, const QStringList& extra)
{
    QProcess scheduler;
    QElapsedTimer clock;
    clock.start();
    if (StartScheduler(scheduler, dataDir, extra))
        qWarning("the scheduler started serving");
    return Finish(scheduler, clock, 10000);
}

AgentRun tst_Apps::Agent(const QStringList& arguments)
{
    QProcess agent;
    QElapsedTimer clock;
    clock.start();
    StartAgent(agent, arguments);
    return Finish(agent, clock);
}

QJsonDocument tst_Apps::AgentJson(const QStringList& arguments)
{
    const AgentRun run = Agent(QStringList{"--json"} + arguments);
    if (run.code != 0)
        qWarning("agent %s: %d %s", qPrintable(arguments.join(' ')), run.code, qPrintable(run.err));
    return QJsonDocument::fromJson(run.out.toUtf8());
}

QString tst_Apps::NewPlan(const QStringList& arguments)
{
    const AgentRun run = Agent(QStringList{"new"} + arguments);
    if (run.code != 0)
        qWarning("agent new: %d %s", run.code, qPrintable(run.err));
    return run.out.trimmed();
}

// A plan whose trigger counts in seconds, which the agent's options (hours) cannot give.
QString tst_Apps::NewPlanRaw(const QString& name, const QString& operation, const TriggerAttribute& trigger)
{
    RequestNewOperationData data;
    data.getObjectTaskAttribute().setOperationRegisterName(operation);
    data.setTriggerAttribute(trigger);
    RequestCommand request(NewOperationType);
    request.setPlanName(name);
    request.setRequestData(SchedulerProtocol::EncodePayload(data));
    const CommandPtr answer = rawExchange(m_serverName, request);
    auto* result = dynamic_cast<ResultCommand*>(answer.get());
    return result && result->getUintResult() == 0 ? result->getPlanUuid() : QString();
}

// The plan of the given uuid or name.
QJsonObject tst_Apps::PlanJson(const QString& key)
{
    for (const QJsonValue& plan : AgentJson({"plans"}).array()) {
        if (values(plan, {"uuid", "name"}).contains(key))
            return plan.toObject();
    }
    return QJsonObject();
}

// The first row of a query on plans.db, opened read-only under a connection of its own.
QStringList tst_Apps::Row(const QString& sql, const QString& bind)
{
    const QString connection = uniqueName();
    QStringList row;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connection);
        db.setDatabaseName(QDir(m_dataDir).filePath(QStringLiteral("plans.db")));
        db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY"));
        if (db.open()) {
            QSqlQuery query(db);
            query.prepare(sql);
            if (!bind.isNull())
                query.addBindValue(bind);
            if (query.exec() && query.next()) {
                for (int i = 0; i < query.record().count(); ++i)
                    row.append(query.value(i).toString());
            }
        }
    }
    QSqlDatabase::removeDatabase(connection);
    return row;
}

int tst_Apps::Count(const QString& table)
{
    const QStringList row = Row(QStringLiteral("SELECT COUNT(*) FROM %1").arg(table));
    return row.isEmpty() ? -1 : row.first().toInt();
}

void tst_Apps::statusOfAnEmptyService()
{
    const QJsonObject status = AgentJson({"status"}).object();
    QCOMPARE(values(status, {"answers", "plans", "journals"}), (QStringList{"true", "0", "0"}));
    QVERIFY(status.value("roundTripMs").toDouble(-1) >= 0);

    const AgentRun text = Agent({"status"});
    QCOMPARE(text.code, 0);
    QVERIFY2(text.out.contains(QStringLiteral("'%1' answers").arg(m_serverName)), qPrintable(text.out));
    QVERIFY(text.err.isEmpty());
}

void tst_Apps::newEditDeleteReachTheDatabase()
{
    const QString uuid = NewPlan({"weekly", "noop", "--type", "3", "--start", "2031-02-03 04:05:06", "--end",
                                  "2032-01-01 00:00:00", "--interval", "2", "--duration", "1", "--week-days", "5, 1,3,5",
                                  "--months", "6,1,6", "--month-days", "15,1", "--last-day"});
    const QString triggerSql = QStringLiteral(
        "SELECT trigger_type,start_time,end_time,interval,duration,week_days,which_months,month_days,"
        "day_last_flag,trigger_end_flag FROM tb_triggers WHERE trigger_name=?");
    QCOMPARE(Row(QStringLiteral("SELECT plan_name FROM tb_schemes WHERE plan_uuid=?"), uuid), QStringList{"weekly"});
    QCOMPARE(Row(triggerSql, "trigger_" + uuid),
             (QStringList{"3", "2031-02-03 04:05:06", "2032-01-01 00:00:00", "7200", "3600", "1,3,5", "1,6", "1,15",
                          "1", "1"}));

    // By a uuid prefix without the brace; only the given fields change.
    QCOMPARE(Agent({"edit", uuid.mid(1, 6), "--name", "monthly", "--interval", "5", "--no-end", "--parameter", "x y"})
                 .code, 0);
    QCOMPARE(Row(triggerSql, "trigger_" + uuid),
             (QStringList{"3", "2031-02-03 04:05:06", "", "18000", "3600", "1,3,5", "1,6", "1,15", "1", "0"}));
    QCOMPARE(Row(QStringLiteral("SELECT s.plan_name,t.operation_register_name,t.operation_parameter FROM tb_schemes s "
                                "JOIN tb_tasks t ON s.task_name=t.task_name WHERE s.plan_uuid=?"), uuid),
             (QStringList{"monthly", "noop", "x y"}));

    const QJsonArray plans = AgentJson({"plans"}).array();
    QCOMPARE(plans.size(), 1);
    QCOMPARE(values(plans[0], {"uuid", "nextStartTime"}), (QStringList{uuid, "2031-06-01 04:05:06"}));

    QCOMPARE(Agent({"delete", "monthly"}).code, 0);
    for (const char* table : {"tb_schemes", "tb_tasks", "tb_triggers"})
        QCOMPARE(Count(table), 0);
    QCOMPARE(AgentJson({"plans"}).array().size(), 0);
}

void tst_Apps::runCancelAndJournals()
{
    NewPlan({"quick", "noop"});
    NewPlan({"broken", "fail", "disk is full"});
    NewPlan({"slow", "sleep", "60000"});

    // run --wait exits 0 only for a success: 4 for a failure, 5 for a cancelled run.
    const AgentRun succeeded = Agent({"run", "--wait", "quick"});
    QCOMPARE(succeeded.code, 0);
    QVERIFY(succeeded.out.endsWith("quick  Succeeded\n"));
    const AgentRun failed = Agent({"run", "--wait", "broken"});
    QCOMPARE(failed.code, 4);
    QVERIFY(failed.out.endsWith("broken  Failed: disk is full\n"));
    QProcess waiter;
    QElapsedTimer clock;
    clock.start();
    StartAgent(waiter, {"run", "--wait", "slow"});
    QTRY_VERIFY_WITH_TIMEOUT(PlanJson("slow").value("isRunning").toBool(), 10000);

    const AgentRun again = Agent({"run", "slow"});
    QCOMPARE(again.code, 2);
    QCOMPARE(again.err, QStringLiteral("backupframe-agent: cannot run plan 'slow': plan is already running\n"));
    QCOMPARE(AgentJson({"status"}).object().value("running").toInt(), 1);

    QVERIFY(Agent({"cancel", "slow"}).out.endsWith("slow  Cancelled\n"));
    const AgentRun cancelled = Finish(waiter, clock);
    QCOMPARE(cancelled.code, 5);
    QVERIFY(cancelled.out.endsWith("slow  Cancelled\n"));

    const QJsonArray journals = AgentJson({"journals"}).array();
    QStringList results;
    for (const QJsonValue& journal : journals)
        results << values(journal, {"planName", "result"}).join('=');
    QCOMPARE(results, (QStringList{"quick=Succeeded", "broken=Failed", "slow=Cancelled"}));
    const QJsonArray ofBroken = AgentJson({"journals", "broken"}).array();
    QCOMPARE(ofBroken.size(), 1);
    // A journal spells its result and error as a plan does.
    QCOMPARE(values(ofBroken[0], {"resultCode", "errorMessage"}), (QStringList{"1", "disk is full"}));
    QCOMPARE(values(PlanJson("broken"), {"resultCode", "errorMessage"}),
             (QStringList{"1", "disk is full"}));
    QCOMPARE(Count("tb_Journals"), 3);

    const AgentRun table = Agent({"journals"});
    QCOMPARE(table.out.count(QLatin1Char('\n')), 4);   // header and three rows
    QVERIFY(table.out.startsWith("ID  "));

    // One journal by a uuid prefix without the brace.
    const QString first = journals[0].toObject().value("uuid").toString();
    const AgentRun one = Agent({"journal-delete", first.mid(1, 8)});
    QCOMPARE(one.code, 0);
    QCOMPARE(one.out, QStringLiteral("deleted 1 journal\n"));
    QCOMPARE(Count("tb_Journals"), 2);
    QVERIFY(Row(QStringLiteral("SELECT journal_uuid FROM tb_Journals WHERE journal_uuid=?"), first).isEmpty());
    // Journals outlive their plan, and --all removes them too.
    QCOMPARE(Agent({"delete", "broken"}).code, 0);
    QCOMPARE(AgentJson({"journals"}).array().size(), 2);
    QCOMPARE(Agent({"journal-delete", "--all"}).code, 0);
    QCOMPARE(Count("tb_Journals"), 0);
}

void tst_Apps::emailSetKeepsTheOtherFields()
{
    QCOMPARE(Agent({"email", "set", "--recipients", "ops@example.org", "--smtp-server", "smtp.example.org",
                    "--smtp-port", "587", "--password", "s3cret", "--auth", "1"}).code, 0);
    QCOMPARE(Agent({"email", "set", "--subject", "Backup report", "--on-failure", "1"}).code, 0);
    QCOMPARE(values(AgentJson({"email", "show"}).object(), {"recipients", "smtpServer", "smtpPort", "auth", "passwordSet",
                                                            "subject", "onFailure", "onSuccess", "enable"}),
             (QStringList{"ops@example.org", "smtp.example.org", "587", "1", "true", "Backup report", "1", "0", "0"}));

    // The password reaches the settings file scrambled, and is never printed.
    const QString file = QDir(m_dataDir).filePath(QStringLiteral("email.ini"));
    QFile raw(file);
    QVERIFY(raw.open(QIODevice::ReadOnly));
    QVERIFY(!raw.readAll().contains("s3cret"));
    EmailConfigReaderWriter settings;
    settings.Init(file);
    settings.ReadConfig();
    QCOMPARE(settings.getLoginPassword(), QByteArray("s3cret"));
    QVERIFY(!Agent({"email", "show"}).out.contains("s3cret"));
}

void tst_Apps::jsonForEveryCommand_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("key");   // a key of the object; empty: an array

    // status, plans, run, journals and email show are read as JSON by the other tests.
    QTest::newRow("new") << QStringList{"new", "other", "noop"} << "uuid";
    QTest::newRow("edit") << QStringList{"edit", "busy", "--type", "2"} << "trigger";
    QTest::newRow("delete") << QStringList{"delete", "busy"} << "deleted";
    QTest::newRow("journal-delete") << QStringList{"journal-delete", "--all"} << "deleted";
    QTest::newRow("email set") << QStringList{"email", "set", "--sender", "me@example.org"} << "sender";
    QTest::newRow("show") << QStringList{"show", "busy"} << "bytesProcessed";
    QTest::newRow("operations") << QStringList{"operations"} << "";
}

void tst_Apps::jsonForEveryCommand()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, key);
    NewPlan({"busy", "sleep", "60000"});

    const AgentRun run = Agent(QStringList{"--json"} + arguments);
    QCOMPARE(run.code, 0);
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(run.out.toUtf8(), &error);
    QVERIFY2(error.error == QJsonParseError::NoError, qPrintable(run.out));
    QVERIFY2(key.isEmpty() ? document.isArray() : document.object().contains(key), qPrintable(run.out));
}

void tst_Apps::errorsChangeNothing_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("code");   // 1: a usage error, followed by the hint to --help
    QTest::addColumn<QString>("message");

    QTest::newRow("no command at all") << QStringList{} << 1 << "no command given";
    QTest::newRow("an unknown command") << QStringList{"frobnicate"} << 1 << "unknown command 'frobnicate'";
    QTest::newRow("waiting and following at once")
        << QStringList{"run", "x", "--wait", "--follow"} << 1 << "--wait and --follow do not go together";
    QTest::newRow("waiting and following a restore at once, told before looking for the plan")
        << QStringList{"restore", "x", "--to", "/tmp", "--wait", "--follow"} << 1 << "--wait and --follow do not go together";
    QTest::newRow("an unknown Ctrl-C choice")
        << QStringList{"run", "x", "--follow", "--on-interrupt", "quit"} << 1 << "--on-interrupt wants ask, cancel or leave";
    QTest::newRow("a Ctrl-C choice for a run not waited for")
        << QStringList{"once", "noop", "--on-interrupt", "cancel"} << 1 << "--on-interrupt goes with --wait or --follow";
    QTest::newRow("an option of another command")
        << QStringList{"plans", "--all"} << 1 << "option --all does not apply to 'plans'";
    QTest::newRow("a start time in another format") << QStringList{"new", "a", "noop", "--start", "03.02.2031"} << 1
                                                    << "--start wants a time";
    QTest::newRow("an end before the start")
        << QStringList{"new", "a", "noop", "--start", "2031-01-02 00:00:00", "--end", "2031-01-01 00:00:00"} << 1
        << "--end is before --start";
    QTest::newRow("a flag that is neither 0 nor 1")
        << QStringList{"email", "set", "--enable", "2"} << 1 << "--enable wants 0 or 1";
    QTest::newRow("journal-delete without anything to delete")
        << QStringList{"journal-delete"} << 1 << "give journal uuids or --all";
    QTest::newRow("an end before the stored start")
        << QStringList{"edit", "solo", "--end", "2031-01-01 00:00:00"} << 1
        << "--end 2031-01-01 00:00:00 is before the plan's start 2031-01-02 00:00:00";
    QTest::newRow("help for an unknown command") << QStringList{"help", "frobnicate"} << 1 << "no help for 'frobnicate'";
    QTest::newRow("journal uuids and --all together")
        << QStringList{"journal-delete", "abcd", "--all"} << 1 << "journal uuids or --all";
    QTest::newRow("TCP without its switch in the configuration")
        << QStringList{"--tcp", "--config", "/nonexistent/agent.ini", "status"} << 1 << "tcp_server_code=88";
    QTest::newRow("a name that two plans share, listed")
        << QStringList{"delete", "twin"} << 1 << "'twin' names 2 plans; give more of the uuid:\n  {";
    QTest::newRow("an unknown plan") << QStringList{"run", "nosuch"} << 2
                                     << "plan not found: no plan has the uuid, uuid prefix or name 'nosuch'";
    QTest::newRow("a new plan with an unknown operation, told the operations there are")
        << QStringList{"new", "x", "nosuch"} << 2
        << "cannot create plan 'x': unknown operation: 'nosuch' is not an operation; the operations are copy, fail";
    QTest::newRow("a copy without its folders, told what a copy wants")
        << QStringList{"new", "x", "copy", "source=/a"} << 2
        << "parameter is not valid: copy wants source=FOLDER and destination=FOLDER lines";
    QTest::newRow("an edit to an unknown operation") << QStringList{"edit", "solo", "--operation", "nosuch"} << 2
                                                     << "cannot edit plan 'solo': unknown operation";
    QTest::newRow("a cancel of an idle plan")
        << QStringList{"cancel", "solo"} << 2 << "cannot cancel plan 'solo': plan is not running";
    QTest::newRow("an unknown journal") << QStringList{"journal-delete", "ffffffff-0000"} << 2 << "journal not found";
}

void tst_Apps::errorsChangeNothing()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, code);
    QFETCH(QString, message);
    NewPlan({"twin", "noop"});
    NewPlan({"twin", "noop"});
    NewPlan({"solo", "noop", "--start", "2031-01-02 00:00:00"});

    const AgentRun run = Agent(arguments);
    QCOMPARE(run.code, code);
    QVERIFY(run.out.isEmpty());
    QVERIFY2(run.err.startsWith("backupframe-agent: ") && run.err.contains(message), qPrintable(run.err));
    QCOMPARE(run.err.contains("--help"), code == 1);
    // With --json the same error also comes as an object on stdout.
    const AgentRun json = Agent(QStringList{"--json"} + arguments);
    QCOMPARE(json.code, code);
    QCOMPARE(json.err, run.err);
    const QJsonObject error = QJsonDocument::fromJson(json.out.toUtf8()).object();
    QVERIFY2(error.value("error").toString().contains(message), qPrintable(json.out));
    QCOMPARE(error.value("exitCode").toInt(), code);
    QCOMPARE(Count("tb_schemes"), 3);
    QCOMPARE(Row(QStringLiteral("SELECT t.operation_register_name FROM tb_schemes s JOIN tb_tasks t "
                                "ON s.task_name=t.task_name WHERE s.plan_name='solo'")),
             QStringList{"noop"});
}

void tst_Apps::textOutput_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("expected");   // a part of stdout

    const QString longName = QString(60, QLatin1Char('L'));
    QTest::newRow("--version prints the project version") << QStringList{"--version"} << "backupframe-agent 0.1.0\n";
    QTest::newRow("help of one command gives its usage and options")
        << QStringList{"help", "run"} << "Usage: backupframe-agent [global options] run PLAN [--wait|--follow]\n";
    QTest::newRow("operations lists each with what its parameter holds")
        << QStringList{"operations"} << "\nsleep    milliseconds to wait";
    QTest::newRow("an escape sequence and a newline in a name are shown escaped")
        << QStringList{"plans"} << "esc\\x1b[31m\\nx  ";
    QTest::newRow("a long name is cut to 40 characters") << QStringList{"plans"} << longName.left(39) + "\u2026  ";
    QTest::newRow("show gives the schedule in words")
        << QStringList{"show", longName} << "once, from 2031-01-02 00:00:00, every 2h";
    QTest::newRow("show gives the whole name") << QStringList{"show", longName} << longName + "\n";
    QTest::newRow("JSON keeps control characters as they are")
        << QStringList{"--json", "plans"} << "\"esc\\u001b[31m\\nx\"";
}

void tst_Apps::textOutput()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, expected);
    NewPlan({"esc\x1b[31m\nx", "noop"});
    NewPlan({QString(60, QLatin1Char('L')), "noop", "--start", "2031-01-02 00:00:00", "--interval", "2"});

    const AgentRun run = Agent(arguments);
    QCOMPARE(run.code, 0);
    QVERIFY2(run.out.contains(expected), qPrintable(run.out));
}

void tst_Apps::stoppedServiceGivesOneLine()
{
    StopScheduler(m_scheduler);
    const QString line = QStringLiteral("backupframe-agent: no scheduler answers on '%1' "
                                        "(nothing serves it; is the scheduler running?)\n").arg(m_serverName);
    for (const QStringList& arguments : {QStringList{"status"}, QStringList{"plans"}, QStringList{"run", "x"}}) {
        const AgentRun run = Agent(QStringList{"--timeout", "3"} + arguments);
        QCOMPARE(run.code, 3);
        QCOMPARE(run.err, line);
        QVERIFY(run.out.isEmpty());
        QVERIFY2(run.elapsedMs < 10000, qPrintable(QString::number(run.elapsedMs)));
    }
}

void tst_Apps::silentServiceTimesOut()
{
    // Accepts connections and never answers.
    QLocalServer silent;
    const QString name = uniqueName();
    QVERIFY(silent.listen(name));
    const AgentRun run = Agent({"--server-name", name, "--timeout", "1", "plans"});
    QCOMPARE(run.code, 3);
    QCOMPARE(run.err, QStringLiteral("backupframe-agent: no answer within 1 s; the request may still have been carried "
                                     "out: check with 'backupframe-agent plans'\n"));
    QVERIFY2(run.elapsedMs >= 1000 && run.elapsedMs < 8000, qPrintable(QString::number(run.elapsedMs)));
}

void tst_Apps::twoAgentsAtOnce()
{
    QProcess left;
    QProcess right;
    QElapsedTimer clock;
    clock.start();
    StartAgent(left, {"new", "left", "noop"});
    StartAgent(right, {"new", "right", "sleep", "5"});
    QCOMPARE(Finish(left, clock).code, 0);
    QCOMPARE(Finish(right, clock).code, 0);

    QStringList names;
    for (const QJsonValue& plan : AgentJson({"plans"}).array())
        names << plan.toObject().value("name").toString();
    names.sort();
    QCOMPARE(names, (QStringList{"left", "right"}));
}

void tst_Apps::secondServiceRefuses_data()
{
    QTest::addColumn<bool>("sameDataDir");
    QTest::addColumn<QString>("message");

    QTest::newRow("the same server name on another data directory") << false << "already serves";
    QTest::newRow("the same data directory under another name") << true << "already uses the data directory";
}

void tst_Apps::secondServiceRefuses()
{
    QFETCH(bool, sameDataDir);
    QFETCH(QString, message);
    const AgentRun second = Refused(sameDataDir ? m_dataDir : m_dir->filePath(QStringLiteral("other")),
                                    sameDataDir ? QStringList{"--server-name", uniqueName()} : QStringList{});
    QCOMPARE(second.code, 2);
    QVERIFY2(second.err.contains(message) && second.err.count('\n') == 1, qPrintable(second.err));
    if (sameDataDir)   // names the process that holds it
        QVERIFY2(second.err.contains(QStringLiteral("(pid %1 ").arg(m_scheduler.processId())), qPrintable(second.err));
    QCOMPARE(Agent({"status"}).code, 0);
}

void tst_Apps::garbagePayloadIsRejected_data()
{
    QTest::addColumn<quint64>("type");
    QTest::addColumn<QByteArray>("payload");

    RequestNewOperationData data;
    data.getObjectTaskAttribute().setOperationRegisterName(QStringLiteral("noop"));
    const QByteArray valid = SchedulerProtocol::EncodePayload(data);
    QTest::newRow("random bytes as a new plan") << quint64(NewOperationType) << randomBytes();
    QTest::newRow("a new plan cut short by one byte") << quint64(NewOperationType) << valid.left(valid.size() - 1);
    QTest::newRow("a new plan with one byte too many") << quint64(NewOperationType) << valid + QByteArray(1, '\0');
    QTest::newRow("a new plan without any payload") << quint64(NewOperationType) << QByteArray();
    QTest::newRow("random bytes as an edit") << quint64(EditOperationType) << randomBytes();
    QTest::newRow("random bytes as e-mail settings") << quint64(EmailConfigUpdateType) << randomBytes();
    QTest::newRow("random bytes as a journal list") << quint64(DeleteSelectJournalType) << randomBytes();
    QTest::newRow("random bytes as an import") << quint64(AddOperationType) << randomBytes();
    QTest::newRow("random bytes as a one-off run") << quint64(SingleOperationNewType) << randomBytes();
    QTest::newRow("random bytes as a bundle path") << quint64(MinizipType) << randomBytes();
}

void tst_Apps::garbagePayloadIsRejected()
{
    QFETCH(quint64, type);
    QFETCH(QByteArray, payload);
    const QString uuid = NewPlan({"target", "noop"});
    QCOMPARE(Agent({"run", "--wait", uuid}).code, 0);
    const QStringList before = Row(QStringLiteral("SELECT * FROM tb_schemes"));

    RequestCommand request(type);
    request.setPlanUuid(uuid);
    request.setPlanName(QStringLiteral("garbage"));
    request.setRequestData(payload);
    const CommandPtr answer = rawExchange(m_serverName, request);
    auto* result = dynamic_cast<ResultCommand*>(answer.get());
    QVERIFY2(result, "no answer");
    QCOMPARE(result->getSendCommandType(), type);
    QCOMPARE(SchedulerProtocol::ErrorNumberOf(result->getUintResult()), quint32(SchedulerProtocol::BadPayload));

    QCOMPARE(Count("tb_schemes"), 1);
    QCOMPARE(Row(QStringLiteral("SELECT * FROM tb_schemes")), before);
    QCOMPARE(Count("tb_Journals"), 1);
    QVERIFY(!QFile::exists(QDir(m_dataDir).filePath(QStringLiteral("email.ini"))));
    QCOMPARE(Agent({"status"}).code, 0);
}

void tst_Apps::everyNamedRequestIsServed_data()
{
    QTest::addColumn<quint64>("type");
    QTest::addColumn<QByteArray>("payload");   // for Minizip: made by the test, in its folder
    QTest::addColumn<bool>("aboutThePlan");    // the envelope names the stored plan
    QTest::addColumn<int>("error");
    QTest::addColumn<QString>("answer");       // the record the answer's data decodes as, or the reason's start

    RequestNewOperationData task;
    task.getObjectTaskAttribute().setOperationRegisterName(QStringLiteral("noop"));
    const QByteArray newPlan = SchedulerProtocol::EncodePayload(task);
    SchedulerPlanData imported;
    imported.getRfrnSchedulerPlan().setPlanName(QStringLiteral("imported"));
    imported.getRfrnSchedulerPlan().setTaskAttribute(task.getTaskAttribute());
    QstringListData noJournals;
    RequestEmailConfigUpdateData email;
    const QByteArray none;
    using P = SchedulerProtocol::ErrorNumber;

    QTest::newRow("RequestCommand, a ping") << quint64(RequestCommandType) << none << false << 0 << "";
    QTest::newRow("LoadSchedulers") << quint64(LoadSchedulersType) << none << false << 0 << "plans";
    QTest::newRow("LoadJournals") << quint64(LoadJournalsType) << none << true << 0 << "journals";
    QTest::newRow("FlushSchedulers reloads the plans") << quint64(FlushSchedulersType) << none << false << 0 << "plans";
    QTest::newRow("FlushJournals") << quint64(FlushJournalsType) << none << false << 0 << "journals";
    QTest::newRow("NewOperation") << quint64(NewOperationType) << newPlan << false << 0 << "plan";
    QTest::newRow("ExecuteOperation") << quint64(ExecuteOperationType) << none << true << 0 << "plan";
    QTest::newRow("CancelOperation of an idle plan") << quint64(CancelOperationType) << none << true
                                                     << int(P::PlanNotRunning) << "";
    QTest::newRow("DeleteOperatio") << quint64(DeleteOperationType) << none << true << 0 << "";
    SchedulerPlanData edit;
    edit.getRfrnSchedulerPlan().setTaskAttribute(task.getTaskAttribute());
    QTest::newRow("EditOperation") << quint64(EditOperationType) << SchedulerProtocol::EncodePayload(edit) << true << 0
                                   << "plan";
    QTest::newRow("AddOperation of a new plan") << quint64(AddOperationType)
                                                << SchedulerProtocol::EncodePayload(imported) << false << 0 << "plan";
    QTest::newRow("TriggerExecute fires the plan now") << quint64(TriggerExecuteType) << none << true << 0 << "trigger";
    QTest::newRow("TriggerUpdateInfo") << quint64(TriggerUpdateInfoType) << none << true << 0 << "trigger";
    QTest::newRow("DeleteSelectJournal") << quint64(DeleteSelectJournalType)
                                         << SchedulerProtocol::EncodePayload(noJournals) << false << 0 << "";
    QTest::newRow("DeleteAllJournal") << quint64(DeleteAllJournalType) << none << false << 0 << "";
    QTest::newRow("EmailConfigUpdate") << quint64(EmailConfigUpdateType)
                                       << SchedulerProtocol::EncodePayload(email) << false << 0 << "";
    QTest::newRow("LoadEmailConfig") << quint64(LoadEmailConfigType) << none << false << 0 << "email";
    QTest::newRow("Minizip writes a support bundle") << quint64(MinizipType) << none << false << 0 << "text";
    QTest::newRow("SingleOperationNew") << quint64(SingleOperationNewType) << newPlan << false << 0 << "plan";
    QTest::newRow("SingleOperationCancel of no run") << quint64(SingleOperationCancelType) << none << false
                                                     << int(P::PlanNotRunning) << "";
    QTest::newRow("SingleOperationDelete of a stored plan") << quint64(SingleOperationDeleteType) << none << true
                                                            << int(P::PlanNotFound) << "reason: ";
    QTest::newRow("SingleFlushScheduler") << quint64(SingleFlushSchedulerType) << none << true << 0 << "plan";
    QTest::newRow("the operations") << quint64(SchedulerProtocol::LoadOperationsType) << none << false << 0 << "list";
    QTest::newRow("a custom command") << quint64(CustomCommandType) << none << false << int(P::NotSupported)
                                      << "reason: This scheduler serves no custom command (type 5000).";
}

void tst_Apps::everyNamedRequestIsServed()
{
    QFETCH(quint64, type);
    QFETCH(QByteArray, payload);
    QFETCH(bool, aboutThePlan);
    QFETCH(int, error);
    QFETCH(QString, answer);
    const QString uuid = NewPlan({"stored", "noop", "--start", "2031-01-02 00:00:00"});
    QCOMPARE(Agent({"run", "--wait", uuid}).code, 0);
    if (type == MinizipType) {
        RequestMinizipData bundle;
        bundle.setSavePath(m_dir->filePath(QStringLiteral("bundle.zip")));
        payload = SchedulerProtocol::EncodePayload(bundle);
    }

    const CommandPtr command(CommandBuilder::BuilderCommand(type), &CommandBuilder::DestroyCommand);
    auto* request = dynamic_cast<RequestCommand*>(command.get());
    QVERIFY(request);
    request->setPlanUuid(aboutThePlan ? uuid : QString());
    request->setRequestData(payload);
    const CommandPtr reply = rawExchange(m_serverName, *request);
    auto* result = dynamic_cast<ResultCommand*>(reply.get());
    QVERIFY2(result, "no answer");
    QCOMPARE(result->getSendCommandType(), type);
    QCOMPARE(SchedulerProtocol::ErrorNumberOf(result->getUintResult()), quint32(error));
    const QByteArray data = result->getResultData();
    auto decodes = [&data](auto record) { return SchedulerProtocol::DecodePayload(data, record); };
    if (answer == QLatin1String("plans"))
        QVERIFY(decodes(ResultLoadSchedulersData()));
    else if (answer == QLatin1String("journals"))
        QVERIFY(decodes(ResultLoadJournalsData()));
    else if (answer == QLatin1String("plan"))
        QVERIFY(decodes(SchedulerPlanData()));
    else if (answer == QLatin1String("email"))
        QVERIFY(decodes(RequestEmailConfigUpdateData()));
    else if (answer == QLatin1String("list"))
        QVERIFY(decodes(QstringListData()));
    else if (answer.startsWith(QLatin1String("reason: ")))
        QVERIFY2(SchedulerProtocol::ReasonOf(data).startsWith(answer.mid(8)), qPrintable(SchedulerProtocol::ReasonOf(data)));
    else if (answer.isEmpty())
        QVERIFY(data.isEmpty());
    RequestTriggerExecuteInfoData trigger;
    if (answer == QLatin1String("trigger")) {
        QVERIFY(SchedulerProtocol::DecodePayload(data, trigger));
        QCOMPARE(trigger.getNextStartTime(), QStringLiteral("2031-01-02 00:00:00"));
    } else if (answer == QLatin1String("text")) {
        QCOMPARE(SchedulerProtocol::ReasonOf(data), m_dir->filePath(QStringLiteral("bundle.zip")));
        QCOMPARE(QProcess::execute(QStringLiteral("unzip"), {"-tqq", m_dir->filePath(QStringLiteral("bundle.zip"))}), 0);
    }
    QCOMPARE(Agent({"status"}).code, 0);
}

void tst_Apps::plansTravelAsFilesAndOneOffRunsAreJournaled()
{
    const QString uuid = NewPlan({"nightly", "noop", "--type", "1", "--start", "2031-01-02 03:04:05", "--interval", "2"});
    const QString exported = m_dir->filePath(QStringLiteral("plans.json"));
    QCOMPARE(Agent({"export", exported}).code, 0);
    // Importing over the plan is refused; after its deletion it comes back as it was.
    const AgentRun again = Agent({"import", exported});
    QCOMPARE(again.code, 2);
    QVERIFY2(again.err.contains("not imported 'nightly': a plan with that uuid exists"), qPrintable(again.err));
    const QJsonObject before = PlanJson(uuid);
    QCOMPARE(Agent({"delete", uuid}).code, 0);
    QCOMPARE(Agent({"import", exported}).out, QStringLiteral("imported %1  nightly\n").arg(uuid));
    QJsonObject after = PlanJson(uuid);
    QCOMPARE(after.value("trigger"), before.value("trigger"));
    QCOMPARE(values(after, {"createTime", "nextStartTime"}), values(before, {"createTime", "nextStartTime"}));

    // One-off runs: journaled under their own uuid and name, exit codes as for run --wait.
    QCOMPARE(Agent({"once", "noop", "--name", "just once", "--wait"}).code, 0);
    const AgentRun failed = Agent({"once", "fail", "the disk is gone", "--wait"});
    QCOMPARE(failed.code, 4);
    QVERIFY2(failed.out.startsWith("once: fail: Failed after "), qPrintable(failed.out));
    const QString running = Agent({"once", "sleep", "60000"}).out.trimmed();
    QCOMPARE(Agent({"once-delete", running}).code, 2);   // not before it has ended
    QCOMPARE(Agent({"once-cancel", running}).code, 0);
    QStringList results;
    for (const QJsonValue& journal : AgentJson({"journals"}).array())
        results << values(journal, {"planName", "result"}).join('=');
    QCOMPARE(results, (QStringList{"just once=Succeeded", "once: fail=Failed", "once: sleep=Cancelled"}));
    QCOMPARE(Agent({"once-delete", running}).code, 0);
    QCOMPARE(AgentJson({"journals"}).array().size(), 2);
    QCOMPARE(Count("tb_schemes"), 1);

    // The support bundle has the logs and the e-mail settings, but not the password.
    QCOMPARE(Agent({"email", "set", "--user", "me", "--password", "s3cret-word"}).code, 0);
    const QString bundle = m_dir->filePath(QStringLiteral("support.zip"));
    QVERIFY(Agent({"support-bundle", bundle}).out.startsWith("wrote " + bundle));
    QProcess list;
    list.start(QStringLiteral("unzip"), {"-p", bundle});
    QVERIFY(list.waitForFinished(10000));
    const QByteArray content = list.readAllStandardOutput();
    QVERIFY(content.contains("Run finished: just once") && content.contains("user: me"));
    QVERIFY(!content.contains("s3cret-word"));
    QCOMPARE(Agent({"support-bundle", bundle}).code, 2);   // an existing file is left alone
}

void tst_Apps::tcpTransport()
{
    QTcpServer probe;   // a port that is free right now
    QVERIFY(probe.listen(QHostAddress::LocalHost));
    const quint16 port = probe.serverPort();
    probe.close();
    const QString config = m_dir->filePath(QStringLiteral("tcp.ini"));
    QVERIFY(writeFile(config, QStringLiteral("[Network]\ntcp_server_code=88\ntcp_server_port=%1\n").arg(port).toUtf8()));

    StopScheduler(m_scheduler);
    QVERIFY(StartScheduler(m_scheduler, m_dataDir, {"--config", config, "--tcp"}));
    // The secret is its owner's alone; with it the agent is served over TCP.
    const QString secret = QDir(m_dataDir).filePath(QStringLiteral("tcp.secret"));
    QCOMPARE(QFileInfo(secret).permissions() & 0x0777, QFileDevice::ReadUser | QFileDevice::WriteUser);
    const QStringList tcp{"--tcp", "--config", config, "--secret-file", secret};
    // A proven client may send more than a stranger may (a plan of about 100 KiB).
    const AgentRun created = Agent(tcp + QStringList{"new", "remote", "noop", QString(100 * 1024, 'p')});
    QCOMPARE(created.code, 0);
    const QJsonArray plans = AgentJson({"plans"}).array();   // over the local socket
    QCOMPARE(plans.size(), 1);
    QCOMPARE(plans[0].toObject().value("uuid").toString(), created.out.trimmed());

    // Without the secret nothing is served, and the connection is closed.
    const QString wrong = m_dir->filePath(QStringLiteral("wrong.secret"));
    QVERIFY(writeFile(wrong, QByteArray(64, 'a')));
    const AgentRun refused = Agent({"--tcp", "--config", config, "--secret-file", wrong, "plans"});
    QCOMPARE(refused.code, 2);
    QVERIFY2(refused.err.contains("the TCP secret is missing or wrong"), qPrintable(refused.err));
    QTcpSocket raw;
    raw.connectToHost(QHostAddress::LocalHost, port);
    QVERIFY(raw.waitForConnected(5000));
    RequestCommand load(LoadSchedulersType);
    QByteArray bytes;
    CommandBuilder::CommandToBytearray(&load, bytes);
    raw.write(bytes);
    QVERIFY(QTest::qWaitFor([&] { return raw.state() == QAbstractSocket::UnconnectedState; }, 5000));
    const CommandPtr answer(CommandBuilder::BytearrayToCommand(raw.readAll()), &CommandBuilder::DestroyCommand);
    auto* result = dynamic_cast<ResultCommand*>(answer.get());
    QVERIFY(result && result->getResultData().size() > 0);
    QCOMPARE(SchedulerProtocol::ErrorNumberOf(result->getUintResult()), quint32(SchedulerProtocol::Unauthorized));

    // A stranger that declares more than a Hello needs is cut off unread.
    QTcpSocket stranger;
    stranger.connectToHost(QHostAddress::LocalHost, port);
    QVERIFY(stranger.waitForConnected(5000));
    stranger.write(QByteArray::fromHex("0000000000100000") + QByteArray(128 * 1024, 'x'));
    QVERIFY(QTest::qWaitFor([&] { return stranger.state() == QAbstractSocket::UnconnectedState; }, 5000));
    QCOMPARE(stranger.readAll(), QByteArray());
}

void tst_Apps::planFiresByItselfUntilItsEnd()
{
    // Once, two seconds from now, then every second until one second later: two runs.
    const QDateTime start = QDateTime::currentDateTime().addSecs(2);
    TriggerAttribute trigger;
    trigger.setStartTime(start.toString(TriggerSchedule::TimeFormat));
    trigger.setInterval(1);
    trigger.setEndTime(start.addSecs(1).toString(TriggerSchedule::TimeFormat));
    trigger.setTriggerEndFlag(1);
    const QString uuid = NewPlanRaw(QStringLiteral("ticker"), QStringLiteral("noop"), trigger);
    QVERIFY(!uuid.isEmpty());
    QCOMPARE(PlanJson(uuid).value("nextStartTime").toString(), trigger.getStartTime());

    QTRY_COMPARE_WITH_TIMEOUT(Count("tb_Journals"), 2, 20000);
    QTRY_COMPARE_WITH_TIMEOUT(PlanJson(uuid).value("isRunning").toBool(), false, 5000);
    const QJsonObject plan = PlanJson(uuid);
    QCOMPARE(values(plan, {"status", "nextStartTime", "triggerFlag"}), (QStringList{"Succeeded", "", "1"}));

    QFile log(QDir(m_dataDir).filePath(QStringLiteral("log/scheduler.log")));
    QVERIFY(log.open(QIODevice::ReadOnly));
    const QByteArray lines = log.readAll();
    for (const char* line : {"Plan created: ticker", "Plan fired: ticker", "Run started: ticker",
                             "Run finished: ticker"})
        QVERIFY2(lines.contains(line), line);
    QCOMPARE(lines.count("Plan fired: ticker"), 2);
}

void tst_Apps::missedOccurrenceRunsOnceAfterRestart()
{
    const QDateTime start = QDateTime::currentDateTime().addSecs(3);
    TriggerAttribute trigger;
    trigger.setTriggerType(TriggerSchedule::Daily);
    trigger.setStartTime(start.toString(TriggerSchedule::TimeFormat));
    const QString uuid = NewPlanRaw(QStringLiteral("evening"), QStringLiteral("noop"), trigger);
    QVERIFY(!uuid.isEmpty());
    StopScheduler(m_scheduler);
    QVERIFY(QTest::qWaitFor([&] { return QDateTime::currentDateTime() > start.addSecs(1); }, 10000));

    QVERIFY(StartScheduler(m_scheduler, m_dataDir));
    QTRY_COMPARE_WITH_TIMEOUT(Count("tb_Journals"), 1, 10000);
    QTRY_COMPARE_WITH_TIMEOUT(PlanJson(uuid).value("status").toString(), QStringLiteral("Succeeded"), 5000);
    const QJsonObject plan = PlanJson(uuid);
    QCOMPARE(plan.value("triggerFlag").toInt(), int(SchedulerProtocol::CatchUpRun));
    QCOMPARE(plan.value("nextStartTime").toString(), start.addDays(1).toString(TriggerSchedule::TimeFormat));
}

void tst_Apps::runCutShortIsJournaledAsInterrupted_data()
{
    QTest::addColumn<bool>("kill");
    QTest::addColumn<QString>("reason");

    QTest::newRow("killed: found at the next start") << true << "ended during the run";
    QTest::newRow("stopped: journaled at the stop") << false << "was stopped during the run";
}

void tst_Apps::runCutShortIsJournaledAsInterrupted()
{
    QFETCH(bool, kill);
    QFETCH(QString, reason);
    // Two runs at a time: the plan's and a one-off run beside it.
    const QString config = m_dir->filePath(QStringLiteral("two.ini"));
    QVERIFY(writeFile(config, "[Operation]\noperation_execute_type=2\n"));
    const QStringList two{"--config", config};
    StopScheduler(m_scheduler);
    QVERIFY(StartScheduler(m_scheduler, m_dataDir, two));
    NewPlan({"long", "sleep", "600000"});
    // A follower learns how the run ended: told at the stop, or asking after the restart.
    QProcess follower;
    QElapsedTimer clock;
    clock.start();
    StartAgent(follower, {"run", "long", "--wait"});
    QTRY_VERIFY_WITH_TIMEOUT(PlanJson("long").value("isRunning").toBool(), 10000);
    // One-off runs are stored too: one that runs, and one that waits behind the two.
    const QString once = Agent({"once", "sleep", "600000", "--name", "long once"}).out.trimmed();
    QTRY_VERIFY_WITH_TIMEOUT(!Row("SELECT run_start_time FROM tb_once_runs").value(0).isEmpty(), 10000);
    const QString waiting = Agent({"once", "noop", "--name", "waiting once"}).out.trimmed();
    QCOMPARE(Count("tb_once_runs"), 2);
    if (kill) {
        m_scheduler.kill();
        QVERIFY(m_scheduler.waitForFinished(10000));
    } else {
        StopScheduler(m_scheduler);
    }
    // The lock of a killed service is taken over.
    QVERIFY(StartScheduler(m_scheduler, m_dataDir, two));
    const AgentRun followed = Finish(follower, clock);
    QCOMPARE(followed.code, 5);
    QVERIFY2(followed.out.contains("  long  Interrupted: ") && followed.out.contains(reason), qPrintable(followed.out));

    const QJsonArray journals = AgentJson({"journals", "long"}).array();
    QCOMPARE(journals.size(), 1);
    const QJsonObject journal = journals[0].toObject();
    QCOMPARE(values(journal, {"result", "taskName"}), (QStringList{"Interrupted", "sleep"}));
    QVERIFY2(journal.value("errorMessage").toString().contains(reason), qPrintable(journal.value("errorMessage").toString()));
    QVERIFY(journal.value("solution").toString().contains("run the plan again"));
    // The plan shows the run as it ended, also when that was stored before the restart.
    const QJsonObject plan = AgentJson({"plans"}).array()[0].toObject();
    QCOMPARE(values(plan, {"status", "isRunning", "resultCode"}), (QStringList{"Interrupted", "false", "3"}));
    QVERIFY2(plan.value("errorMessage").toString().contains(reason), qPrintable(plan.value("errorMessage").toString()));
    QVERIFY(!plan.value("startTime").toString().isEmpty() && !plan.value("endTime").toString().isEmpty());

    const QJsonArray onceJournals = AgentJson({"journals", once}).array();
    QCOMPARE(onceJournals.size(), 1);
    QCOMPARE(values(onceJournals[0].toObject(), {"planName", "result", "taskName"}),
             (QStringList{"long once", "Interrupted", "sleep"}));
    QVERIFY(onceJournals[0].toObject().value("errorMessage").toString().contains(reason));
    const QJsonArray waitingJournals = AgentJson({"journals", waiting}).array();
    QCOMPARE(waitingJournals.size(), 1);
    QCOMPARE(values(waitingJournals[0].toObject(), {"planName", "result"}), (QStringList{"waiting once", "Skipped"}));
    QVERIFY(waitingJournals[0].toObject().value("errorMessage").toString().contains("before the run could start"));
    QCOMPARE(Count("tb_once_runs"), 0);
}

// A few hundred small files and three large ones, 300 MiB in all: copied with monotonic progress
// while the service answers, copied again only where changed, cancelled mid-file, zipped.
void tst_Apps::aLargeTreeIsBackedUpRestoredAndVerified()
{
    if (kSlowdown > 1)
        QSKIP("300 MiB through the instrumented service outlast every wait here; tst_operations runs these jobs' threads");
    const QString source = m_dir->filePath(QStringLiteral("source"));
    const QString mirror = m_dir->filePath(QStringLiteral("mirror"));
    const QString archives = m_dir->filePath(QStringLiteral("archives"));
    QVERIFY(QDir().mkpath(mirror) && QDir().mkpath(archives));
    QRandomGenerator random(7);
    double total = 0;
    for (int i = 0; i < 300; ++i) {
        QByteArray small(4 * (256 + random.bounded(2048)), Qt::Uninitialized);
        random.fillRange(reinterpret_cast<quint32*>(small.data()), small.size() / 4);
        QVERIFY(QDir().mkpath(QStringLiteral("%1/d%2").arg(source).arg(i % 10)));
        QVERIFY(writeFile(QStringLiteral("%1/d%2/f%3").arg(source).arg(i % 10).arg(i), small));
        total += small.size();
    }
    QByteArray big;
    for (int line = 0; big.size() < 100 * 1024 * 1024; ++line)
        big += QByteArray::number(line).rightJustified(12, '0') + " of a large file that compresses well\n";
    const QStringList bigFiles{"a.big", "d3/b.big", "d7/c.big"};
    for (const QString& name : bigFiles)
        QVERIFY(writeFile(source + '/' + name, big));
    total += 3.0 * big.size();
    const QString plan = NewPlan({"mirror", "copy", QStringLiteral("source=%1;destination=%2").arg(source, mirror)});

    // Runs the plan with --follow --json until a progress event is past atLeast bytes.
    QByteArray seen;
    auto followUntil = [&](QProcess& agent, double atLeast) {
        seen.clear();
        StartAgent(agent, {"--json", "run", plan, "--follow"});
        return QTest::qWaitFor([&] {
            seen += agent.readAllStandardOutput();
            const QList<QJsonObject> events = jsonLines(QString::fromUtf8(seen.left(seen.lastIndexOf('\n'))));
            return !events.isEmpty() && events.last().value("bytesProcessed").toDouble() > atLeast;
        }, 60000);
    };
    QProcess agent;
    QElapsedTimer clock;
    clock.start();
    QVERIFY(followUntil(agent, 0));
    const QJsonObject status = AgentJson({"status"}).object();
    QCOMPARE(values(status, {"answers", "running"}), (QStringList{"true", "1"}));
    qInfo("a status request during the copy took %d ms", status.value("roundTripMs").toInt());
    AgentRun run = Finish(agent, clock, 120000);
    QCOMPARE(run.code, 0);
    double done = 0;
    for (const QJsonObject& event : jsonLines(QString::fromUtf8(seen) + run.out)) {
        if (event.value("event") == QLatin1String("progress")) {
            QVERIFY(event.value("bytesProcessed").toDouble() >= done);
            done = event.value("bytesProcessed").toDouble();
        }
    }
    QCOMPARE(done, total);
    QCOMPARE(digests(mirror), digests(source));

    // Again after one small file changed: only that file is written anew.
    const QMap<QString, quint64> before = inodes(mirror);
    QVERIFY(writeFile(source + "/d4/f4", "changed"));
    QCOMPARE(Agent({"run", "--wait", plan}).code, 0);
    const QMap<QString, quint64> after = inodes(mirror);
    QCOMPARE(after.keys(), before.keys());
    for (const QString& file : before.keys())
        QVERIFY2((after[file] != before[file]) == (file == "d4/f4"), qPrintable(file));

    // Cancelled while a large file is being written anew: gone within a second, nothing half-written.
    for (const QString& name : bigFiles) {
        QFile file(source + '/' + name);
        QVERIFY(file.open(QIODevice::ReadWrite)
                && file.setFileTime(QDateTime::currentDateTime().addDays(-1), QFileDevice::FileModificationTime));
    }
    clock.restart();
    QVERIFY(followUntil(agent, 16 * 1024 * 1024));
    QElapsedTimer cancelling;
    cancelling.start();
    QCOMPARE(Agent({"cancel", plan}).code, 0);
    qInfo("the cancel was answered, the run having ended, after %lld ms", cancelling.elapsed());
    QVERIFY(cancelling.elapsed() < 5000);
    run = Finish(agent, clock);
    QCOMPARE(run.code, 5);
    QCOMPARE(jsonLines(run.out).last().value("journal").toObject().value("result").toString(), QStringLiteral("Cancelled"));
    QCOMPARE(digests(mirror), digests(source));   // the old copies, whole, and no temporary file

    // The zip of the same tree passes unzip's test and unpacks to the same files.
    const QString zipPlan = NewPlan({"My Photos/2026", "zip", QStringLiteral("source=%1;destination=%2").arg(source, archives)});
    QCOMPARE(Agent({"run", "--wait", zipPlan}).code, 0);
    const QStringList written = QDir(archives).entryList(QDir::Files | QDir::Hidden);
    QCOMPARE(written.size(), 1);
    const QString pattern = QStringLiteral("^My_Photos_2026-%1-\\d{8}-\\d{6}\\.zip$").arg(zipPlan.mid(1, 8));
    QVERIFY2(QRegularExpression(pattern).match(written.first()).hasMatch(), qPrintable(written.first()));
    const QString archive = QDir(archives).filePath(written.first());
    QCOMPARE(QProcess::execute(QStringLiteral("unzip"), {"-tqq", archive}), 0);
    const QString unpacked = m_dir->filePath(QStringLiteral("unpacked"));
    QCOMPARE(QProcess::execute(QStringLiteral("unzip"), {"-qq", archive, "-d", unpacked}), 0);
    QCOMPARE(digests(unpacked), digests(source));

    // What the plans wrote comes back: the mirror whole, one folder of the archive alone.
    QCOMPARE(values(AgentJson({"backups", zipPlan}).array().first(), {"kind", "path"}), (QStringList{"archive", archive}));
    const QString whole = m_dir->filePath(QStringLiteral("restored/whole"));
    QCOMPARE(Agent({"restore", plan, "--to", whole, "--wait"}).code, 0);
    QCOMPARE(digests(whole), digests(source));
    const QString part = m_dir->filePath(QStringLiteral("restored/part"));
    QCOMPARE(Agent({"restore", zipPlan, "--path", "d3", "--to", part, "--wait"}).code, 0);
    QMap<QString, QByteArray> d3 = digests(source);
    for (const QString& file : d3.keys())
        if (!file.startsWith("d3/"))
            d3.remove(file);
    QCOMPARE(digests(part), d3);
    // A file that is there is kept, unless told.
    QVERIFY(writeFile(part + "/d3/f3", "mine"));
    QCOMPARE(Agent({"restore", zipPlan, "--path", "d3/f3", "--to", part, "--wait"}).code, 0);
    QCOMPARE(digests(part).value("d3/f3"), QCryptographicHash::hash("mine", QCryptographicHash::Sha1));
    QCOMPARE(Agent({"restore", zipPlan, "--path", "d3/f3", "--to", part, "--overwrite", "--wait"}).code, 0);
    QCOMPARE(digests(part), d3);

    // A mirror file changed behind the plan's back is found, by name and what differs.
    QFile changed(mirror + "/d5/f5");
    const QDateTime time = QFileInfo(changed).lastModified();
    QVERIFY(changed.open(QIODevice::ReadWrite) && changed.write("X") == 1);
    changed.close();
    QVERIFY(changed.open(QIODevice::ReadWrite) && changed.setFileTime(time, QFileDevice::FileModificationTime));
    changed.close();
    const AgentRun verified = Agent({"verify", plan, "--wait"});
    QCOMPARE(verified.code, 4);
    QVERIFY2(verified.out.contains("d5/f5 (different in content"), qPrintable(verified.out));
    QCOMPARE(Agent({"verify", zipPlan, "--wait"}).code, 0);
}

void tst_Apps::subscribersAreToldOfARunInOrder()
{
    const QString source = m_dir->filePath(QStringLiteral("source"));
    const QString destination = m_dir->filePath(QStringLiteral("destination"));
    QVERIFY(QDir().mkpath(source) && QDir().mkpath(destination));
    QVERIFY(writeFile(source + QStringLiteral("/big.bin"), QByteArray(64 * 1024 * 1024, 'x')));
    Subscriber reader, leaver;
    QVERIFY(reader.Subscribe(m_serverName));
    QVERIFY(leaver.Subscribe(m_serverName));

    const QString uuid = NewPlan({"mirror", "copy", QStringLiteral("source=%1;destination=%2").arg(source, destination)});
    QProcess run;
    QElapsedTimer clock;
    clock.start();
    StartAgent(run, {"run", "--wait", "mirror"});
    // One subscriber goes in the middle of the run: the run and the other one do not notice.
    QVERIFY(QTest::qWaitFor([&] { return leaver.Read(), leaver.HasEvent(TriggerExecuteType); }, 10000));
    leaver.socket.abort();
    QCOMPARE(Finish(run, clock).code, 0);
    QCOMPARE(Agent({"edit", "mirror", "--name", "mirrored"}).code, 0);
    QCOMPARE(Agent({"delete", "mirrored"}).code, 0);
    QVERIFY(QTest::qWaitFor([&] { return reader.Read(), reader.HasEvent(FlushSchedulersType); }, 10000));

    QList<quint64> order;
    quint64 done = 0;
    SchedulerPlan last;
    for (const Subscriber::Event& event : qAsConst(reader.events)) {
        QCOMPARE(event.planUuid, uuid);
        if (order.isEmpty() || order.last() != event.type)
            order << event.type;
        SchedulerPlanData data;
        if (event.type != SingleFlushSchedulerType || !SchedulerProtocol::DecodePayload(event.payload, data))
            continue;
        last = data.getRfrnSchedulerPlan();
        QVERIFY2(last.getBytesProcessed() >= done || !last.getIsRunning(), "progress went back");
        done = last.getIsRunning() ? last.getBytesProcessed() : 0;
    }
    // created, started (state, then the trigger info), progress and the end state, the journal,
    // edited, deleted.
    QCOMPARE(order, (QList<quint64>{SingleFlushSchedulerType, TriggerExecuteType, SingleFlushSchedulerType,
                                    FlushJournalsType, SingleFlushSchedulerType, FlushSchedulersType}));
    QVERIFY(std::count_if(reader.events.begin(), reader.events.end(), [](const Subscriber::Event& event) {
                return event.type == SingleFlushSchedulerType;
            }) > 4);
    QCOMPARE(last.getPlanName(), QStringLiteral("mirrored"));
    ResultLoadJournalsData journal;
    const auto ended = std::find_if(reader.events.begin(), reader.events.end(),
                                    [](const Subscriber::Event& event) { return event.type == FlushJournalsType; });
    QVERIFY(SchedulerProtocol::DecodePayload(ended->payload, journal));
    QCOMPARE(journal.getJournalAttrList().first()->getResult(), QStringLiteral("Succeeded"));
    QCOMPARE(AgentJson({"status"}).object().value("answers").toBool(), true);
}

void tst_Apps::aSubscriberThatDoesNotReadIsCutOff()
{
    Subscriber stalled;
    QVERIFY(stalled.Subscribe(m_serverName));
    // From here on the socket's buffer holds 64 bytes: the rest waits in the service.
    stalled.socket.setReadBufferSize(64);
    const QString name(100000, QLatin1Char('n'));
    const QString uuid = NewPlan({"n", "noop"});
    // Each edit is one event of some 400 kB (the name travels twice, in UTF-16).
    for (int i = 0; i < 12; ++i)
        QCOMPARE(Agent({"edit", uuid, "--name", name + QString::number(i % 2)}).code, 0);
    stalled.socket.setReadBufferSize(0);
    // The service gave up on it: what it had sent, then the end of the connection.
    QVERIFY(QTest::qWaitFor([&] { return !stalled.Read(); }, 10000));
    QVERIFY(stalled.events.size() < 12);
    QFile log(QDir(m_dataDir).filePath(QStringLiteral("log/scheduler.log")));
    QVERIFY(log.open(QIODevice::ReadOnly));
    QVERIFY(log.readAll().contains("Channel cut off: its agent left"));
    QCOMPARE(AgentJson({"status"}).object().value("plans").toInt(), 1);
}

void tst_Apps::followShowsTheRunLive_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QString>("interrupt");   // on the first progress: "" nothing, else SIGINT with this choice
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("ending");      // the last line (--json: the journal's result)

    QTest::newRow("a copy, with a line per progress and the journal")
        << "copy" << QStringList{} << "" << 0 << "mirror: Succeeded after ";
    QTest::newRow("a copy as JSON, one object per event") << "copy" << QStringList{"--json"} << "" << 0 << "Succeeded";
    QTest::newRow("a failure, with what to do") << "fail" << QStringList{} << "" << 4 << "  what to do: ";
    QTest::newRow("Ctrl-C that cancels") << "sleep" << QStringList{"--on-interrupt", "cancel"} << "cancel" << 5
                                         << "mirror: Cancelled after ";
    QTest::newRow("Ctrl-C that leaves the run going") << "sleep" << QStringList{"--on-interrupt", "leave"} << "leave"
                                                      << 130 << "";
}

void tst_Apps::followShowsTheRunLive()
{
    QFETCH(QString, operation);
    QFETCH(QStringList, options);
    QFETCH(QString, interrupt);
    QFETCH(int, code);
    QFETCH(QString, ending);
    const QString source = m_dir->filePath(QStringLiteral("source"));
    QVERIFY(QDir().mkpath(source) && QDir().mkpath(m_dir->filePath(QStringLiteral("destination"))));
    QVERIFY(writeFile(source + QStringLiteral("/big.bin"), QByteArray(32 * 1024 * 1024, 'x')));
    const QString parameter = operation == QLatin1String("copy")
        ? QStringLiteral("source=%1;destination=%2").arg(source, m_dir->filePath(QStringLiteral("destination")))
        : operation == QLatin1String("sleep") ? QStringLiteral("60000") : QStringLiteral("the disk is gone");
    NewPlan({"mirror", operation, parameter});

    QProcess follow;
    QElapsedTimer clock;
    clock.start();
    StartAgent(follow, options + QStringList{"run", "mirror", "--follow"});
    if (!interrupt.isEmpty()) {
        QTRY_VERIFY_WITH_TIMEOUT(PlanJson("mirror").value("isRunning").toBool(), 10000);
        ::kill(static_cast<pid_t>(follow.processId()), SIGINT);
    }
    const AgentRun run = Finish(follow, clock);
    QCOMPARE(run.code, code);
    const QStringList lines = run.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    if (options.contains("--json")) {
        const QList<QJsonObject> events = jsonLines(run.out);
        QCOMPARE(events.first().value("event").toString(), QStringLiteral("started"));
        QCOMPARE(events.last().value("event").toString(), QStringLiteral("finished"));
        QCOMPARE(events.last().value("journal").toObject().value("result").toString(), ending);
        double done = 0;
        for (const QJsonObject& event : events.mid(1, events.size() - 2)) {
            QCOMPARE(event.value("event").toString(), QStringLiteral("progress"));
            QVERIFY(event.value("bytesProcessed").toDouble() >= done);
            done = event.value("bytesProcessed").toDouble();
        }
        QCOMPARE(done, 32.0 * 1024 * 1024);
    } else if (!ending.isEmpty()) {
        QVERIFY2(std::any_of(lines.begin(), lines.end(), [&](const QString& line) { return line.startsWith(ending); }),
                 qPrintable(run.out));
    }
    if (operation == QLatin1String("copy") && options.isEmpty()) {
        // Progress a busy service passed over is not shown; the last, all done, always is.
        const QRegularExpression progress(QStringLiteral("^mirror: [0-9.]+ (B|KiB|MiB) of 32.0 MiB \\(\\d+%\\), "));
        QVERIFY2(progress.match(lines.first()).hasMatch(), qPrintable(lines.first()));
        QVERIFY2(lines[lines.size() - 2].startsWith("mirror: 32.0 MiB of 32.0 MiB (100%), "), qPrintable(run.out));
    }
    if (interrupt == QLatin1String("leave")) {
        QVERIFY2(run.err.contains("left 'mirror' running"), qPrintable(run.err));
        QCOMPARE(PlanJson("mirror").value("isRunning").toBool(), true);
    }
}

void tst_Apps::refusesToStart_data()
{
    QTest::addColumn<QString>("config");        // scheduler.ini in the data directory
    QTest::addColumn<bool>("databaseIsAFolder");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("message");

    QTest::newRow("a port that does not fit 16 bits") << "[Network]\ntcp_server_port=70000\n" << false << 1
                                                      << "tcp_server_port = '70000' is not a number from 1 to 65535";
    QTest::newRow("a fire type that is no number") << "[TriggerFire]\ndate_time_fire_type=often\n" << false << 1
                                                   << "date_time_fire_type = 'often' is not a number from 0 to 2";
    QTest::newRow("no run at a time") << "[Operation]\noperation_execute_type=0\n" << false << 1
                                      << "operation_execute_type = '0' is not a number from 1 to 16";
    QTest::newRow("a database that cannot be opened") << QString() << true << 3 << "cannot use the database";
}

void tst_Apps::refusesToStart()
{
    QFETCH(QString, config);
    QFETCH(bool, databaseIsAFolder);
    QFETCH(int, code);
    QFETCH(QString, message);
    StopScheduler(m_scheduler);
    const QString dataDir = m_dir->filePath(QStringLiteral("refused"));
    QVERIFY(QDir().mkpath(dataDir));
    if (databaseIsAFolder)
        QVERIFY(QDir().mkpath(QDir(dataDir).filePath(QStringLiteral("plans.db"))));
    QVERIFY(writeFile(QDir(dataDir).filePath(QStringLiteral("scheduler.ini")), config.toUtf8()));

    const AgentRun refused = Refused(dataDir);
    QCOMPARE(refused.code, code);
    const QString& error = refused.err;
    QVERIFY2(error.startsWith("backupframe-scheduler: ") && error.contains(message) && error.count('\n') == 1,
             qPrintable(error));
    if (databaseIsAFolder)
        QVERIFY2(error.contains(QDir(dataDir).filePath(QStringLiteral("plans.db"))), qPrintable(error));
}

QTEST_GUILESS_MAIN(tst_Apps)
#include "tst_apps.moc"
