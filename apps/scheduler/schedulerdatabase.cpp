#include "schedulerdatabase.h"

#include "protocol.h"

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

#include <log4cpp/Category.hh>

#include <functional>

namespace {

void logFailure(const QSqlQuery& query, const char* where)
{
    Logger::GetFileLogHandle().error(
        QStringLiteral("Statement failed (%1) in the %2.")
            .arg(query.lastError().text(), QLatin1String(where))
            .toStdString());
}

bool exec(QSqlQuery& query, const char* where)
{
    if (query.exec())
        return true;
    logFailure(query, where);
    return false;
}

// A statement with the table names put in: $schemes, $tasks, $triggers, $journals.
QString sql(QString text)
{
    return text.replace(QLatin1String("$schemes"), QLatin1String(DatabaseSchema::SchemeTable))
        .replace(QLatin1String("$tasks"), QLatin1String(DatabaseSchema::TaskTable))
        .replace(QLatin1String("$triggers"), QLatin1String(DatabaseSchema::TriggerTable))
        .replace(QLatin1String("$journals"), QLatin1String(DatabaseSchema::JournalTable));
}

// A null QString binds as NULL: the service's own columns want the empty text.
QVariant text(const QString& value)
{
    return value.isNull() ? QVariant(QStringLiteral("")) : QVariant(value);
}

QVariant number(quint64 value)
{
    // SQLite integers are signed 64-bit: the bits travel unchanged.
    return QVariant(static_cast<qlonglong>(value));
}

quint64 unsignedOf(const QVariant& value)
{
    return static_cast<quint64>(value.toLongLong());
}

} // namespace

bool SchedulerDatabase::IsOpen() const
{
    return m_pdb && m_pdb->isOpen();
}

bool SchedulerDatabase::Transaction(const std::function<bool()>& work)
{
    if (!IsOpen())
        return false;
    if (!m_pdb->transaction())
        return false;
    if (work() && m_pdb->commit())
        return true;
    m_pdb->rollback();
    return false;
}

bool SchedulerDatabase::WritePlanRows(const SchedulerPlan& plan, bool insert)
{
    const SchemeAttribute scheme = plan.getSchemeAttribute();
    const TaskAttribute task = plan.getTaskAttribute();
    const TriggerAttribute trigger = plan.getTriggerAttribute();
    QSqlQuery query(*m_pdb);

    query.prepare(insert
        ? sql(QStringLiteral("INSERT INTO $schemes(plan_name,execution_state,status,latest_finish_time,"
                         "create_time,trigger_name,task_name,plan_uuid) VALUES(?,?,?,?,?,?,?,?)"))
        : sql(QStringLiteral("UPDATE $schemes SET plan_name=?,execution_state=?,status=?,latest_finish_time=?,"
                         "create_time=?,trigger_name=?,task_name=? WHERE plan_uuid=?")));
    for (const QVariant& v : {QVariant(plan.getPlanName()), QVariant(scheme.getExecutState()),
                              QVariant(scheme.getStatus()), QVariant(scheme.getLatestFinishTime()),
                              QVariant(scheme.getCreateTime()), QVariant(trigger.getTriggerName()),
                              QVariant(task.getTaskName()), QVariant(plan.getPlanUuid())})
        query.addBindValue(v);
    if (!exec(query, "WritePlanRows") || (!insert && query.numRowsAffected() != 1))
        return false;

    query.prepare(sql(QStringLiteral("INSERT OR REPLACE INTO $tasks(task_name,operation_register_name,"
                                 "operation_parameter) VALUES(?,?,?)")));
    query.addBindValue(task.getTaskName());
    query.addBindValue(task.getOperationRegisterName());
    query.addBindValue(task.getOperationParameter());
    if (!exec(query, "WritePlanRows"))
        return false;

    query.prepare(sql(QStringLiteral("INSERT OR REPLACE INTO $triggers(trigger_name,trigger_type,start_time,"
                                 "end_time,interval,duration,week_days,which_months,month_days,"
                                 "day_last_flag,trigger_end_flag) VALUES(?,?,?,?,?,?,?,?,?,?,?)")));
    query.addBindValue(trigger.getTriggerName());
    query.addBindValue(number(trigger.getTriggerType()));
    query.addBindValue(trigger.getStartTime());
    query.addBindValue(trigger.getEndTime());
    query.addBindValue(number(trigger.getInterval()));
    query.addBindValue(number(trigger.getDuration()));
    query.addBindValue(trigger.getWeekDays());
    query.addBindValue(trigger.getWhichMoths());
    query.addBindValue(trigger.getMonthDays());
    query.addBindValue(number(trigger.getDayLastFlag()));
    query.addBindValue(number(trigger.getTriggerEndFlag()));
    return exec(query, "WritePlanRows");
}

QString SchedulerDatabase::LastError() const
{
    return m_pdb ? m_pdb->lastError().text() : QString();
}

QString SchedulerDatabase::OpenError(const QString& file)
{
    const QString connection = QStringLiteral("backupframe-open-check");
    QString error;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connection);
        db.setDatabaseName(file);
        if (!db.open()) {
            error = db.lastError().text();
        } else {
            QSqlQuery query(db);
            if (!query.exec(QStringLiteral("SELECT count(*) FROM sqlite_master")))
                error = query.lastError().text();
        }
    }
    QSqlDatabase::removeDatabase(connection);
    return error.isEmpty() ? QStringLiteral("it cannot be opened (see the log)") : error;
}

bool SchedulerDatabase::PrepareRunTable(QString& error)
{
    if (!IsOpen()) {
        error = QStringLiteral("the database is not open");
        return false;
    }
    QSqlQuery query(*m_pdb);
    bool ok = query.exec(QStringLiteral(
        "CREATE TABLE IF NOT EXISTS tb_plan_runs(plan_uuid VARCHAR(254) PRIMARY KEY NOT NULL,"
        "last_fire_time VARCHAR(32) NOT NULL DEFAULT '',run_start_time VARCHAR(32) NOT NULL DEFAULT '',"
        "last_start_time VARCHAR(32) NOT NULL DEFAULT '',last_end_time VARCHAR(32) NOT NULL DEFAULT '',"
        "error_message TEXT NOT NULL DEFAULT '',result_code INTEGER NOT NULL DEFAULT 0,"
        "trigger_flag INTEGER NOT NULL DEFAULT 0)"))
        && query.exec(QStringLiteral(
            "CREATE TABLE IF NOT EXISTS tb_once_runs(once_uuid VARCHAR(254) PRIMARY KEY NOT NULL,"
            "plan_name TEXT NOT NULL DEFAULT '',operation_name TEXT NOT NULL DEFAULT '',"
            "run_start_time VARCHAR(32) NOT NULL DEFAULT '')"));
    // A write that is rolled back: a read-only or damaged file is found now, not at the first request.
    if (ok && m_pdb->transaction()) {
        ok = query.exec(QStringLiteral("INSERT OR REPLACE INTO tb_plan_runs(plan_uuid) VALUES('')"));
        m_pdb->rollback();
    }
    if (!ok)
        error = query.lastError().text();
    return ok;
}

bool SchedulerDatabase::WriteRunRow(const QString& planUuid, const char* column, const QString& value)
{
    QSqlQuery query(*m_pdb);
    query.prepare(QStringLiteral("INSERT INTO tb_plan_runs(plan_uuid,%1) VALUES(?,?) "
                                 "ON CONFLICT(plan_uuid) DO UPDATE SET %1=excluded.%1")
                      .arg(QLatin1String(column)));
    query.addBindValue(planUuid);
    query.addBindValue(text(value));
    return exec(query, "WriteRunRow");
}

bool SchedulerDatabase::InsertPlan(const SchedulerPlan& plan, const QString& lastFireTime)
{
    return Transaction([&] {
        return WritePlanRows(plan, true) && WriteRunRow(plan.getPlanUuid(), "last_fire_time", lastFireTime);
    });
}

bool SchedulerDatabase::UpdatePlan(const SchedulerPlan& plan, const QString& lastFireTime)
{
    return Transaction([&] {
        return WritePlanRows(plan, false)
               && (lastFireTime.isEmpty() || WriteRunRow(plan.getPlanUuid(), "last_fire_time", lastFireTime));
    });
}

bool SchedulerDatabase::SetLastFireTime(const QString& planUuid, const QString& lastFireTime)
{
    return Transaction([&] { return WriteRunRow(planUuid, "last_fire_time", lastFireTime); });
}

bool SchedulerDatabase::StartRun(const SchedulerPlan& plan, const QString& runStartTime)
{
    return Transaction([&] {
        return WritePlanRows(plan, false) && WriteRunRow(plan.getPlanUuid(), "run_start_time", runStartTime);
    });
}

bool SchedulerDatabase::FinishRun(const SchedulerPlan& plan, const JournalAttribute& journal)
{
    // A plan deleted during its run leaves only the journal.
    return Transaction([&] {
        QSqlQuery query(*m_pdb);
        query.prepare(sql(QStringLiteral("SELECT 1 FROM $schemes WHERE plan_uuid=?")));
        query.addBindValue(plan.getPlanUuid());
        if (!exec(query, "FinishRun"))
            return false;
        const bool stored = query.next();
        query.finish();
        if (!stored) {
            query.prepare(QStringLiteral("DELETE FROM tb_once_runs WHERE once_uuid=?"));
            query.addBindValue(plan.getPlanUuid());
            if (!exec(query, "FinishRun"))
                return false;
        }
        return (!stored || (WritePlanRows(plan, false) && WriteLastRun(plan))) && WriteJournal(journal);
    });
}

bool SchedulerDatabase::StartOnce(const SchedulerPlan& run)
{
    return Transaction([&] {
        QSqlQuery query(*m_pdb);
        query.prepare(QStringLiteral(
            "INSERT OR REPLACE INTO tb_once_runs(once_uuid,plan_name,operation_name,run_start_time) VALUES(?,?,?,?)"));
        for (const QVariant& v : {QVariant(run.getPlanUuid()), text(run.getPlanName()),
                                  text(run.getTaskAttribute().getOperationRegisterName()), text(run.getStartTime())})
            query.addBindValue(v);
        return exec(query, "StartOnce");
    });
}

bool SchedulerDatabase::LoadOnceRuns(QList<SchedulerPlan>& runs)
{
    if (!IsOpen())
        return false;
    QSqlQuery query(*m_pdb);
    query.setForwardOnly(true);
    if (!query.exec(QStringLiteral("SELECT once_uuid,plan_name,operation_name,run_start_time FROM tb_once_runs "
                                   "ORDER BY run_start_time"))) {
        logFailure(query, "LoadOnceRuns");
        return false;
    }
    while (query.next()) {
        SchedulerPlan run;
        run.setPlanUuid(query.value(0).toString());
        run.setPlanName(query.value(1).toString());
        run.getObjectTaskAttribute().setOperationRegisterName(query.value(2).toString());
        run.setStartTime(query.value(3).toString());
        runs.append(run);
    }
    return true;
}

// The last run as the plan shows it, kept so that a restart shows it too; no run is in progress.
bool SchedulerDatabase::WriteLastRun(const SchedulerPlan& plan)
{
    QSqlQuery query(*m_pdb);
    query.prepare(QStringLiteral(
        "INSERT INTO tb_plan_runs(plan_uuid,run_start_time,last_start_time,last_end_time,error_message,result_code,"
        "trigger_flag) VALUES(?,'',?,?,?,?,?) ON CONFLICT(plan_uuid) DO UPDATE SET run_start_time='',"
        "last_start_time=excluded.last_start_time,last_end_time=excluded.last_end_time,"
        "error_message=excluded.error_message,result_code=excluded.result_code,trigger_flag=excluded.trigger_flag"));
    for (const QVariant& v : {QVariant(plan.getPlanUuid()), text(plan.getStartTime()), text(plan.getEndTime()),
                              text(plan.getErrorMessage()), number(plan.getResultCode()),
                              number(plan.getTriggerFlag())})
        query.addBindValue(v);
    return exec(query, "WriteLastRun");
}

bool SchedulerDatabase::LoadRunRows(QHash<QString, PlanRunRow>& rows)
{
    if (!IsOpen())
        return false;
    QSqlQuery query(*m_pdb);
    query.setForwardOnly(true);
    if (!query.exec(QStringLiteral("SELECT plan_uuid,last_fire_time,run_start_time FROM tb_plan_runs"))) {
        logFailure(query, "LoadRunRows");
        return false;
    }
    while (query.next())
        rows.insert(query.value(0).toString(), PlanRunRow{query.value(1).toString(), query.value(2).toString()});
    return true;
}

bool SchedulerDatabase::DeletePlan(const SchedulerPlan& plan)
{
    return Transaction([&] {
        QSqlQuery query(*m_pdb);
        const QList<QPair<QString, QString>> rows{
            {sql(QStringLiteral("DELETE FROM $schemes WHERE plan_uuid=?")), plan.getPlanUuid()},
            {sql(QStringLiteral("DELETE FROM $tasks WHERE task_name=?")), plan.getTaskAttribute().getTaskName()},
            {sql(QStringLiteral("DELETE FROM $triggers WHERE trigger_name=?")),
             plan.getTriggerAttribute().getTriggerName()},
            {QStringLiteral("DELETE FROM tb_plan_runs WHERE plan_uuid=?"), plan.getPlanUuid()}};
        for (const auto& row : rows) {
            query.prepare(row.first);
            query.addBindValue(row.second);
            if (!exec(query, "DeletePlan"))
                return false;
        }
        return true;
    });
}

bool SchedulerDatabase::LoadPlans(QList<SchedulerPlan>& plans)
{
    if (!IsOpen())
        return false;
    QSqlQuery query(*m_pdb);
    query.setForwardOnly(true);
    query.prepare(sql(QStringLiteral(
        "SELECT s.plan_uuid,s.plan_name,s.execution_state,s.status,s.latest_finish_time,s.create_time,"
        "t.task_name,t.operation_register_name,t.operation_parameter,"
        "g.trigger_name,g.trigger_type,g.start_time,g.end_time,g.interval,g.duration,g.week_days,"
        "g.which_months,g.month_days,g.day_last_flag,g.trigger_end_flag,"
        "r.last_start_time,r.last_end_time,r.error_message,r.result_code,r.trigger_flag "
        "FROM $schemes s JOIN $tasks t ON s.task_name=t.task_name "
        "JOIN $triggers g ON s.trigger_name=g.trigger_name LEFT JOIN tb_plan_runs r ON r.plan_uuid=s.plan_uuid "
        "ORDER BY s.create_time,s.rowid")));
    if (!exec(query, "LoadPlans"))
        return false;
    while (query.next()) {
        SchedulerPlan plan;
        plan.setPlanUuid(query.value(0).toString());
        plan.setPlanName(query.value(1).toString());
        SchemeAttribute& scheme = plan.getObjectSchemeAttribute();
        scheme.setExecutState(query.value(2).toString());
        scheme.setStatus(query.value(3).toString());
        scheme.setLatestFinishTime(query.value(4).toString());
        scheme.setCreateTime(query.value(5).toString());
        TaskAttribute& task = plan.getObjectTaskAttribute();
        task.setTaskName(query.value(6).toString());
        task.setOperationRegisterName(query.value(7).toString());
        task.setOperationParameter(query.value(8).toByteArray());
        TriggerAttribute& trigger = plan.getObjectTriggerAttribute();
        trigger.setTriggerName(query.value(9).toString());
        trigger.setTriggerType(unsignedOf(query.value(10)));
        trigger.setStartTime(query.value(11).toString());
        trigger.setEndTime(query.value(12).toString());
        trigger.setInterval(unsignedOf(query.value(13)));
        trigger.setDuration(unsignedOf(query.value(14)));
        trigger.setWeekDays(query.value(15).toString());
        trigger.setWhichMoths(query.value(16).toString());
        trigger.setMonthDays(query.value(17).toString());
        trigger.setDayLastFlag(unsignedOf(query.value(18)));
        trigger.setTriggerEndFlag(unsignedOf(query.value(19)));
        // The last run (a row may be missing: then no run is known).
        plan.setStartTime(query.value(20).toString());
        plan.setEndTime(query.value(21).toString());
        plan.setErrorMessage(query.value(22).toString());
        const quint64 result = unsignedOf(query.value(23));
        plan.setResultCode(result);
        plan.setWasError(result == SchedulerProtocol::Failed || result == SchedulerProtocol::Interrupted);
        plan.setWasCancelled(result == SchedulerProtocol::Cancelled);
        plan.setTriggerFlag(unsignedOf(query.value(24)));
        plans.append(plan);
    }
    return true;
}

bool SchedulerDatabase::InsertJournal(const JournalAttribute& journal)
{
    return Transaction([&] { return WriteJournal(journal); });
}

bool SchedulerDatabase::WriteJournal(const JournalAttribute& journal)
{
    QSqlQuery query(*m_pdb);
    query.prepare(sql(QStringLiteral(
        "INSERT INTO $journals(journal_uuid,plan_uuid,plan_name,task_name,start_time,end_time,"
        "record_time,time_consuming,result,error_reason,solution) VALUES(?,?,?,?,?,?,?,?,?,?,?)")));
    for (const QVariant& v : {QVariant(journal.getJournalUuid()), QVariant(journal.getPlanUuid()),
                              QVariant(journal.getPlanName()), QVariant(journal.getTaskName()),
                              QVariant(journal.getStartTime()), QVariant(journal.getEndTime()),
                              QVariant(journal.getCreateTime()), number(journal.getTimeConsuming()),
                              QVariant(journal.getResult()), QVariant(journal.getErrorReason()),
                              QVariant(journal.getSolution())})
        query.addBindValue(v);
    return exec(query, "InsertJournal");
}

bool SchedulerDatabase::LoadJournals(const QString& planUuid, QList<JournalAttribute>& journals)
{
    if (!IsOpen())
        return false;
    QSqlQuery query(*m_pdb);
    query.setForwardOnly(true);
    QString statement = sql(QStringLiteral(
        "SELECT journal_uuid,plan_uuid,plan_name,task_name,start_time,end_time,record_time,"
        "time_consuming,result,error_reason,solution FROM $journals"));
    if (!planUuid.isEmpty())
        statement += QStringLiteral(" WHERE plan_uuid=?");
    query.prepare(statement + QStringLiteral(" ORDER BY record_time,rowid"));
    if (!planUuid.isEmpty())
        query.addBindValue(planUuid);
    if (!exec(query, "LoadJournals"))
        return false;
    while (query.next()) {
        JournalAttribute journal;
        journal.setJournalUuid(query.value(0).toString());
        journal.setPlanUuid(query.value(1).toString());
        journal.setPlanName(query.value(2).toString());
        journal.setTaskName(query.value(3).toString());
        journal.setStartTime(query.value(4).toString());
        journal.setEndTime(query.value(5).toString());
        journal.setCreateTime(query.value(6).toString());
        journal.setTimeConsuming(unsignedOf(query.value(7)));
        journal.setResult(query.value(8).toString());
        journal.setErrorReason(query.value(9).toString());
        journal.setSolution(query.value(10).toString());
        journals.append(journal);
    }
    return true;
}

bool SchedulerDatabase::DeleteJournals(const QStringList& journalUuids, int& deleted)
{
    deleted = 0;
    return Transaction([&] {
        QSqlQuery query(*m_pdb);
        query.prepare(sql(QStringLiteral("DELETE FROM $journals WHERE journal_uuid=?")));
        for (const QString& uuid : journalUuids) {
            query.addBindValue(uuid);
            if (!exec(query, "DeleteJournals"))
                return false;
            deleted += query.numRowsAffected();
        }
        return true;
    });
}

bool SchedulerDatabase::PruneJournals(const QString& planUuid, int keepCount, const QString& before, int& pruned)
{
    pruned = 0;
    return Transaction([&] {
        QSqlQuery query(*m_pdb);
        if (keepCount > 0) {
            query.prepare(sql(QStringLiteral(
                "DELETE FROM $journals WHERE plan_uuid=? AND rowid NOT IN (SELECT rowid FROM $journals "
                "WHERE plan_uuid=? ORDER BY record_time DESC,rowid DESC LIMIT ?)")));
            query.addBindValue(planUuid);
            query.addBindValue(planUuid);
            query.addBindValue(keepCount);
            if (!exec(query, "PruneJournals"))
                return false;
            pruned += query.numRowsAffected();
        }
        if (!before.isEmpty()) {
            query.prepare(sql(QStringLiteral("DELETE FROM $journals WHERE plan_uuid=? AND record_time<?")));
            query.addBindValue(planUuid);
            query.addBindValue(before);
            if (!exec(query, "PruneJournals"))
                return false;
            pruned += query.numRowsAffected();
        }
        return true;
    });
}

bool SchedulerDatabase::DeleteAllJournals(int& deleted)
{
    deleted = 0;
    return Transaction([&] {
        QSqlQuery query(*m_pdb);
        if (!query.exec(sql(QStringLiteral("DELETE FROM $journals")))) {
            logFailure(query, "DeleteAllJournals");
            return false;
        }
        deleted = query.numRowsAffected();
        return true;
    });
}
