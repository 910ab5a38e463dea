// The service: "LoadSchedulers" of 1 000, 10 000 and 100 000 stored plans asked of the real
// backupframe-scheduler process by a CommunClientWork, against the bare socket floor (this
// program started again as a bare server that answers a request with as many bytes as the
// service's answer held). And DatabaseFunctionOperation::LoadTriggerAttributes over the same
// stores, against one joined query reading the same columns into the same records.
//
//   bench_service [--header]
//   bench_service --answer NAME BYTES     (the bare server)

#include "benchtable.h"

#include "schedulerdatabase.h"

#include <backupframe.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QLocalServer>
#include <QLocalSocket>
#include <QProcess>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTimer>
#include <QVariant>
#include <QtEndian>

#include <memory>

namespace {

qint64 lengthAt(const QByteArray& bytes)
{
    return bytes.size() < 8 ? -1 : qFromBigEndian<qint64>(bytes.constData());
}

class BenchDatabase : public SchedulerDatabase
{
public:
    bool StorePlans(int count)
    {
        QSqlDatabase& db = *m_pdb;
        db.transaction();
        const QDateTime base = QDateTime::currentDateTime().addDays(-30);
        for (int i = 0; i < count; ++i) {
            SchedulerPlan plan;
            const QString id = CommonTools::CreateUuid();
            plan.setPlanUuid(id);
            plan.setPlanName(QStringLiteral("plan %1").arg(i));
            plan.getObjectSchemeAttribute().setCreateTime(
                base.addSecs((count - i) / 5).toString(QStringLiteral("yyyy-MM-dd hh:mm:ss")));
            plan.getObjectTaskAttribute().setTaskName(CommonTools::GetJobName(id));
            plan.getObjectTaskAttribute().setOperationRegisterName(QStringLiteral("noop"));
            TriggerAttribute& trigger = plan.getObjectTriggerAttribute();
            trigger.setTriggerName(CommonTools::GetTriggerName(id));
            trigger.setTriggerType(1);
            trigger.setStartTime(base.toString(QStringLiteral("yyyy-MM-dd 02:00:00")));
            if (!InsertPlanRows(plan))
                return false;
        }
        return db.commit();
    }

    // The baseline of LoadTriggerAttributes: one query, the same records.
    int LoadJoined(QHash<QString, TriggerAttribute*>& triggers)
    {
        QSqlQuery query(*m_pdb);
        query.setForwardOnly(true);
        query.exec(QStringLiteral(
            "SELECT s.plan_uuid, t.trigger_name, t.trigger_type, t.start_time, t.end_time, t.interval, t.duration, "
            "t.week_days, t.which_months, t.month_days, t.day_last_flag, t.trigger_end_flag "
            "FROM tb_schemes s, tb_triggers t WHERE s.trigger_name = t.trigger_name"));
        while (query.next()) {
            auto* trigger = new TriggerAttribute;
            trigger->setTriggerName(query.value(1).toString());
            trigger->setTriggerType(query.value(2).toULongLong());
            trigger->setStartTime(query.value(3).toString());
            trigger->setEndTime(query.value(4).toString());
            trigger->setInterval(query.value(5).toULongLong());
            trigger->setDuration(query.value(6).toULongLong());
            trigger->setWeekDays(query.value(7).toString());
            trigger->setWhichMoths(query.value(8).toString());
            trigger->setMonthDays(query.value(9).toString());
            trigger->setDayLastFlag(query.value(10).toULongLong());
            trigger->setTriggerEndFlag(query.value(11).toULongLong());
            triggers.insert(query.value(0).toString(), trigger);
        }
        return triggers.size();
    }
};

int serveAnswer(const QString& name, int bytes)
{
    QByteArray answer(bytes, 'a');
    qToBigEndian<qint64>(bytes, answer.data());
    QLocalServer server;
    QLocalServer::removeServer(name);
    if (!server.listen(name))
        return 2;
    QObject::connect(&server, &QLocalServer::newConnection, [&] {
        QLocalSocket* socket = server.nextPendingConnection();
        auto buffer = std::make_shared<QByteArray>();
        QObject::connect(socket, &QLocalSocket::readyRead, socket, [socket, buffer, &answer] {
            buffer->append(socket->readAll());
            const qint64 length = lengthAt(*buffer);
            if (length >= 8 && buffer->size() >= length) {
                buffer->remove(0, int(length));
                socket->write(answer);
            }
        });
        QObject::connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
    });
    std::printf("ready\n");
    std::fflush(stdout);
    return QCoreApplication::exec();
}

bool startAndWait(QProcess& process, const QString& program, const QStringList& args, const QByteArray& line)
{
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(program, args);
    if (!process.waitForStarted(10000))
        return false;
    QByteArray seen;
    while (!seen.contains(line)) {
        if (!process.waitForReadyRead(120000))
            return false;
        seen += process.readAll();
    }
    return true;
}

void stop(QProcess& process)
{
    process.terminate();
    if (!process.waitForFinished(30000)) {
        process.kill();
        process.waitForFinished(10000);
    }
}

// Round trips of one request over a library client; the answer's size in answerBytes.
std::vector<double> libraryAsk(const QString& name, int runs, int& answerBytes)
{
    CommunClientWork work;
    work.Init();
    CommunAttribute attribute;
    attribute.setProtocolType(CommunAttribute::LocalProtocol);
    attribute.setDestSvrNameIp(name);
    work.SetCommunAttribute(attribute);
    QEventLoop loop;
    QObject::connect(&work, &CommunClientWork::hostConnected, &loop, &QEventLoop::quit);
    QMetaObject::invokeMethod(&work, "onreconnectServer", Qt::QueuedConnection);
    QTimer::singleShot(10000, &loop, &QEventLoop::quit);
    loop.exec();

    RequestCommand request(LoadSchedulersType);
    request.CreateTraceFlag();
    QByteArray bytes;
    CommandBuilder::CommandToBytearray(&request, bytes);
    QObject::connect(&work, &CommunClientWork::returnResult, &loop, [&](QByteArray answer) {
        answerBytes = int(lengthAt(answer));
        loop.quit();
    });
    std::vector<double> samples;
    for (int run = 0; run < runs; ++run) {
        QElapsedTimer timer;
        timer.start();
        QMetaObject::invokeMethod(&work, "onRequestData", Qt::DirectConnection, Q_ARG(QByteArray, bytes));
        loop.exec();
        samples.push_back(timer.nsecsElapsed() / 1e9);
    }
    return samples;
}

std::vector<double> bareAsk(const QString& name, int runs)
{
    QLocalSocket socket;
    socket.connectToServer(name);
    socket.waitForConnected(10000);
    QByteArray request(64, 'r');
    qToBigEndian<qint64>(request.size(), request.data());
    QEventLoop loop;
    QByteArray buffer;
    QObject::connect(&socket, &QLocalSocket::readyRead, &loop, [&] {
        buffer.append(socket.readAll());
        const qint64 length = lengthAt(buffer);
        if (length >= 8 && buffer.size() >= length) {
            buffer.clear();
            loop.quit();
        }
    });
    std::vector<double> samples;
    for (int run = 0; run < runs; ++run) {
        QElapsedTimer timer;
        timer.start();
        socket.write(request);
        loop.exec();
        samples.push_back(timer.nsecsElapsed() / 1e9);
    }
    return samples;
}

void benchStore(int count)
{
    QTemporaryDir dir;
    {
        BenchDatabase database;
        QString error;
        if (!database.Init(dir.filePath(QStringLiteral("plans.db"))) || !database.PrepareRunTable(error)
            || !database.StorePlans(count)) {
            std::fprintf(stderr, "service: cannot store %d plans\n", count);
            return;
        }
        const int runs = count >= 100000 ? 3 : 7;
        std::vector<double> lib;
        std::vector<double> bare;
        for (int run = 0; run < runs; ++run) {
            QHash<QString, TriggerAttribute*> triggers;
            lib.push_back(BenchTable::seconds([&] { database.LoadTriggerAttributes(triggers); }));
            qDeleteAll(triggers);
            QHash<QString, TriggerAttribute*> joined;
            bare.push_back(BenchTable::seconds([&] { database.LoadJoined(joined); }));
            qDeleteAll(joined);
        }
        BenchTable::row("LoadTriggerAttributes " + std::to_string(count) + " plans", BenchTable::median(lib) * 1e3,
                        BenchTable::median(bare) * 1e3, "ms");
        database.UnInit();
    }

    const QString name = QStringLiteral("bench-service-%1-%2").arg(QCoreApplication::applicationPid()).arg(count);
    QProcess scheduler;
    if (!startAndWait(scheduler, QStringLiteral(BACKUPFRAME_SCHEDULER_PATH),
                      {QStringLiteral("--data-dir"), dir.path(), QStringLiteral("--server-name"), name}, "serving")) {
        std::fprintf(stderr, "service: the scheduler did not start on %d plans\n", count);
        return;
    }
    const int runs = count >= 100000 ? 5 : 9;
    int answerBytes = 0;
    libraryAsk(name, 1, answerBytes);   // warm-up
    const std::vector<double> lib = libraryAsk(name, runs, answerBytes);
    stop(scheduler);

    QProcess bareServer;
    const QString bareName = name + QStringLiteral("-bare");
    if (!startAndWait(bareServer, QCoreApplication::applicationFilePath(),
                      {QStringLiteral("--answer"), bareName, QString::number(answerBytes)}, "ready")) {
        std::fprintf(stderr, "service: the bare server did not start\n");
        return;
    }
    bareAsk(bareName, 1);
    const std::vector<double> bare = bareAsk(bareName, runs);
    bareServer.kill();
    bareServer.waitForFinished(10000);
    BenchTable::row("service LoadSchedulers " + std::to_string(count) + " plans (" +
                        std::to_string(answerBytes / 1024) + " KiB)",
                    BenchTable::median(lib) * 1e3, BenchTable::median(bare) * 1e3, "ms");
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() == 4 && args.at(1) == QLatin1String("--answer"))
        return serveAnswer(args.at(2), args.at(3).toInt());
    if (args.contains(QStringLiteral("--header")))
        BenchTable::header();
    for (const int count : {1000, 10000, 100000})
        benchStore(count);
    return 0;
}
