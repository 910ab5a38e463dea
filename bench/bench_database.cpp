// Times DatabaseFunctionOperation::LoadTriggerAttributes for 1 000 and 10 000 stored plans
// and prints the cost per plan; the two figures should be about equal (linear growth).

#include <backupframe.h>

#include <QElapsedTimer>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QVariant>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

class BenchDatabase : public DatabaseFunctionOperation
{
public:
    // Stores count plans, each with its own trigger row, in one transaction.
    static bool storePlans(int count)
    {
        QSqlDatabase& db = *m_pdb;
        if (!db.transaction())
            return false;
        QSqlQuery scheme(db);
        QSqlQuery trigger(db);
        if (!scheme.prepare(QStringLiteral("INSERT INTO tb_schemes VALUES(?,?,?,?,?,?,?,?)"))
            || !trigger.prepare(QStringLiteral("INSERT INTO tb_triggers VALUES(?,?,?,?,?,?,?,?,?,?,?)")))
            return false;
        for (int i = 0; i < count; ++i) {
            const QString id = CommonTools::CreateUuid();
            const QString triggerName = CommonTools::GetTriggerName(id);
            scheme.addBindValue(id);
            scheme.addBindValue(QStringLiteral("plan %1").arg(i));
            scheme.addBindValue(QStringLiteral("Idle"));
            scheme.addBindValue(QStringLiteral("Never"));
            scheme.addBindValue(QString());
            scheme.addBindValue(QStringLiteral("2024-01-01 00:00:00"));
            scheme.addBindValue(triggerName);
            scheme.addBindValue(CommonTools::GetJobName(id));
            trigger.addBindValue(triggerName);
            trigger.addBindValue(i % 5);
            trigger.addBindValue(QStringLiteral("2024-01-01 08:00:00"));
            trigger.addBindValue(QStringLiteral("2025-01-01 08:00:00"));
            trigger.addBindValue(3600);
            trigger.addBindValue(86400);
            trigger.addBindValue(QStringLiteral("1,2,3,4,5"));
            trigger.addBindValue(QStringLiteral("1,2,3,4,5,6,7,8,9,10,11,12"));
            trigger.addBindValue(QStringLiteral("1,15"));
            trigger.addBindValue(0);
            trigger.addBindValue(1);
            if (!scheme.exec() || !trigger.exec()) {
                std::fprintf(stderr, "insert failed: %s %s\n", qPrintable(scheme.lastError().text()),
                             qPrintable(trigger.lastError().text()));
                return false;
            }
        }
        return db.commit();
    }
};

// Best of several runs, in microseconds; -1 on failure.
double timeLoad(BenchDatabase& db, int expected)
{
    std::vector<double> runs;
    for (int run = 0; run < 5; ++run) {
        QHash<QString, TriggerAttribute*> triggers;
        triggers.reserve(expected);
        QElapsedTimer timer;
        timer.start();
        const bool ok = db.LoadTriggerAttributes(triggers);
        const double micros = timer.nsecsElapsed() / 1000.0;
        const int loaded = triggers.size();
        qDeleteAll(triggers);
        if (!ok || loaded != expected)
            return -1;
        runs.push_back(micros);
    }
    return *std::min_element(runs.begin(), runs.end());
}

} // namespace

int main()
{
    QTemporaryDir dir;
    if (!dir.isValid())
        return 1;

    double perPlan[2] = {0, 0};
    const int counts[2] = {1000, 10000};
    for (int i = 0; i < 2; ++i) {
        BenchDatabase db;
        const QString file = dir.filePath(QStringLiteral("bench-%1.db").arg(counts[i]));
        if (!db.Init(file) || !BenchDatabase::storePlans(counts[i])) {
            std::fprintf(stderr, "could not prepare %d plans\n", counts[i]);
            return 1;
        }
        const double micros = timeLoad(db, counts[i]);
        db.UnInit();
        if (micros < 0) {
            std::fprintf(stderr, "LoadTriggerAttributes failed for %d plans\n", counts[i]);
            return 1;
        }
        perPlan[i] = micros / counts[i];
        std::printf("LoadTriggerAttributes %6d plans: %9.1f ms total, %6.2f us per plan (best of 5)\n",
                    counts[i], micros / 1000.0, perPlan[i]);
    }
    std::printf("per-plan cost 10000 / 1000: %.2f (1.00 is linear)\n", perPlan[1] / perPlan[0]);
    return 0;
}
