// The scheduler's answer to "LoadSchedulers" over 1 000, 10 000 and 100 000 stored plans:
// decoding the request, building the ordered list and encoding the answer, as the service
// does for every agent that lists the plans. Also times the service's start on that many
// plans. Targets: 10 000 plans under 50 ms, 100 000 under 1 s, time per plan flat.

#include "requesthandler.h"
#include "schedulerservice.h"

#include <backupframe.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QSqlQuery>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

// Stores count plans in one transaction: five to a second of creation time, so that ties
// in the listing order are common, and a daily trigger each.
class BenchDatabase : public SchedulerDatabase
{
public:
    bool StorePlans(int count)
    {
        QSqlDatabase& db = *m_pdb;
        db.transaction();
        QSqlQuery query(db);
        const QDateTime base = QDateTime::currentDateTime().addDays(-30);
        for (int i = 0; i < count; ++i) {
            SchedulerPlan plan;
            const QString id = CommonTools::CreateUuid();
            plan.setPlanUuid(id);
            plan.setPlanName(QStringLiteral("plan %1").arg(i));
            plan.getObjectSchemeAttribute().setCreateTime(base.addSecs((count - i) / 5).toString(QStringLiteral("yyyy-MM-dd hh:mm:ss")));
            plan.getObjectTaskAttribute().setTaskName(CommonTools::GetJobName(id));
            plan.getObjectTaskAttribute().setOperationRegisterName(QStringLiteral("noop"));
            TriggerAttribute& trigger = plan.getObjectTriggerAttribute();
            trigger.setTriggerName(CommonTools::GetTriggerName(id));
            trigger.setTriggerType(1);
            trigger.setStartTime(base.toString(QStringLiteral("yyyy-MM-dd 02:00:00")));
            if (!Insert(plan))
                return false;
        }
        return db.commit();
    }

private:
    bool Insert(const SchedulerPlan& plan)
    {
        // The service's own statements, inside the one outer transaction.
        return InsertPlanRows(plan);
    }
};

double medianMs(std::vector<double> samples)
{
    std::sort(samples.begin(), samples.end());
    return samples[samples.size() / 2];
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    std::printf("%-8s %14s %16s %14s\n", "plans", "listing ms", "us per plan", "start ms");
    for (const int count : {1000, 10000, 100000}) {
        QTemporaryDir dir;
        BenchDatabase database;
        QString error;
        if (!database.Init(dir.filePath(QStringLiteral("plans.db"))) || !database.PrepareRunTable(error)
            || !database.StorePlans(count)) {
            std::fprintf(stderr, "cannot store %d plans\n", count);
            return 1;
        }
        SchedulerService::Settings settings;
        settings.emailFile = dir.filePath(QStringLiteral("email.ini"));
        const Clock clock;
        SchedulerService service(database, settings, clock);
        QElapsedTimer startClock;
        startClock.start();
        if (!service.Start())
            return 1;
        const double startMs = startClock.nsecsElapsed() / 1e6;
        RequestHandler handler(service);

        RequestCommand request(LoadSchedulersType);
        QByteArray requestBytes;
        CommandBuilder::CommandToBytearray(&request, requestBytes);
        const int rounds = count >= 100000 ? 5 : 21;
        std::vector<double> samples;
        for (int round = 0; round < rounds; ++round) {
            QElapsedTimer timer;
            timer.start();
            CommCommand* decoded = CommandBuilder::BytearrayToCommand(requestBytes);
            ResultCommand result = handler.Answer(*dynamic_cast<RequestCommand*>(decoded));
            QByteArray answer;
            CommandBuilder::CommandToBytearray(&result, answer);
            CommandBuilder::DestroyCommand(decoded);
            samples.push_back(timer.nsecsElapsed() / 1e6);
        }
        const double ms = medianMs(samples);
        std::printf("%-8d %14.2f %16.3f %14.1f\n", count, ms, ms * 1000 / count, startMs);
        database.UnInit();
    }
    return 0;
}
