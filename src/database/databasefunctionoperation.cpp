#include "database/databasefunctionoperation.h"

#include "common/commontools.h"
#include "common/logging_p.h"
#include "database/databaseschema.h"
#include "model/triggerattribute.h"

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

#include <new>

namespace {
const char* const kDriverName = "QSQLITE";
using DatabaseSchema::JournalTable;
using DatabaseSchema::SchemeTable;
using DatabaseSchema::TaskTable;
using DatabaseSchema::TriggerTable;
} // namespace

QSqlDatabase* DatabaseFunctionOperation::m_pdb = nullptr;

DatabaseFunctionOperation::DatabaseFunctionOperation() = default;

DatabaseFunctionOperation::DatabaseFunctionOperation(const DatabaseFunctionOperation&) = default;

DatabaseFunctionOperation& DatabaseFunctionOperation::operator=(const DatabaseFunctionOperation&) = default;

DatabaseFunctionOperation::~DatabaseFunctionOperation() = default;

bool DatabaseFunctionOperation::Init(const QString& dbfile)
{
    if (dbfile.isEmpty()) {
        LibraryLog::Error(QStringLiteral("Into parameter dbfile is empty."));
        return false;
    }

    const bool existed = CommonTools::IsFileExist(dbfile);
    if (!existed && !CommonTools::MakeFileDir(dbfile)) {
        LibraryLog::Error(QStringLiteral("Create dbfile dir failed."));
        return false;
    }

    // A second Init replaces the connection. Dropping the old object without closing it
    // would leak it, and adding a database under the same name while it is still
    // referenced makes Qt cut it off under its owner; so release it as UnInit does.
    UnInit();

    m_pdb = new (std::nothrow) QSqlDatabase();
    if (!m_pdb)
        return false;
    *m_pdb = QSqlDatabase::addDatabase(QLatin1String(kDriverName),
                                       QLatin1String(QSqlDatabase::defaultConnection));
    m_pdb->setDatabaseName(dbfile);

    // After a failed open m_pdb stays set to a connection that is not open.
    if (!m_pdb->open()) {
        LibraryLog::Error(QStringLiteral("Open dbfile failed."));
        LibraryLog::Error(m_pdb->lastError().text());
        return false;
    }

    // Tables are made only together with a new file; an existing file keeps its schema.
    if (existed)
        return true;
    if (!CreateAllTables()) {
        LibraryLog::Error(QStringLiteral("Create dbfile all tables failed."));
        return false;
    }
    return true;
}

void DatabaseFunctionOperation::UnInit()
{
    if (!m_pdb)
        return;
    m_pdb->close();
    delete m_pdb;
    m_pdb = nullptr;
    // The deleted object was the last handle on the connection, so Qt can drop it
    // without cutting anyone off, and the next Init starts from a clean registry.
    QSqlDatabase::removeDatabase(QLatin1String(QSqlDatabase::defaultConnection));
}

bool DatabaseFunctionOperation::CreateAllTables()
{
    if (!m_pdb)
        return false;
    QSqlQuery query(*m_pdb);
    return CreateSchemeTable(query) && CreateTriggerTable(query) && CreateTaskTable(query)
           && CreateJournalTable(query);
}

bool DatabaseFunctionOperation::CreateSchemeTable(QSqlQuery& query)
{
    const QString sql = QStringLiteral(
        "CREATE TABLE %1(plan_uuid VARCHAR(254) PRIMARY KEY NOT NULL,plan_name VARCHAR(254),"
        "execution_state VARCHAR(254),status VARCHAR(254),latest_finish_time VARCHAR(254),"
        "create_time VARCHAR(254),trigger_name VARCHAR(254),task_name VARCHAR(254))");
    return query.exec(sql.arg(QLatin1String(SchemeTable)));
}

bool DatabaseFunctionOperation::CreateTaskTable(QSqlQuery& query)
{
    const QString sql = QStringLiteral(
        "CREATE TABLE %1(task_name VARCHAR(254) PRIMARY KEY NOT NULL,"
        "operation_register_name VARCHAR(254),operation_parameter VARCHAR(10240))");
    return query.exec(sql.arg(QLatin1String(TaskTable)));
}

bool DatabaseFunctionOperation::CreateTriggerTable(QSqlQuery& query)
{
    const QString sql = QStringLiteral(
        "CREATE TABLE %1(trigger_name VARCHAR(254) PRIMARY KEY NOT NULL,trigger_type INTEGER NOT NULL,"
        "start_time VARCHAR(254),end_time VARCHAR(254),interval INTEGER,duration INTEGER,"
        "week_days VARCHAR(254),which_months VARCHAR(254),month_days VARCHAR(254),"
        "day_last_flag INTEGER,trigger_end_flag INTEGER)");
    return query.exec(sql.arg(QLatin1String(TriggerTable)));
}

bool DatabaseFunctionOperation::CreateJournalTable(QSqlQuery& query)
{
    const QString sql = QStringLiteral(
        "CREATE TABLE %1(journal_uuid VARCHAR(254) PRIMARY KEY NOT NULL,plan_uuid VARCHAR(254) NOT NULL,"
        "plan_name VARCHAR(254),task_name VARCHAR(254),start_time VARCHAR(254),end_time VARCHAR(254),"
        "record_time VARCHAR(254),time_consuming INTEGER,result VARCHAR(254),error_reason TEXT,"
        "solution TEXT)");
    return query.exec(sql.arg(QLatin1String(JournalTable)));
}

bool DatabaseFunctionOperation::LoadTriggerAttributes(QHash<QString, TriggerAttribute*>& triggers)
{
    if (!m_pdb)
        return false;
    const QString sql =
        QStringLiteral("SELECT %1.plan_uuid, %2.trigger_name FROM %1, %2 WHERE %1.trigger_name = %2.trigger_name")
            .arg(QLatin1String(SchemeTable), QLatin1String(TriggerTable));
    QSqlQuery query(*m_pdb);
    query.setForwardOnly(true);
    if (!query.exec(sql))
        return false;

    while (query.next()) {
        TriggerAttribute* trigger = new (std::nothrow) TriggerAttribute();
        if (!trigger)
            return false;
        const QString planUuid = query.value(QStringLiteral("plan_uuid")).toString();
        trigger->setTriggerName(query.value(QStringLiteral("trigger_name")).toString());
        quint64 found = 0;
        if (SelectTrigger(trigger->getTriggerName(), *trigger, found))
            triggers.insert(planUuid, trigger);   // a pointer already under that key is the caller's
        else
            delete trigger;
    }
    return true;
}

bool DatabaseFunctionOperation::SelectTrigger(const QString& triggerName, TriggerAttribute& trigger,
                                              quint64& found)
{
    found = 0;
    if (triggerName.isEmpty() || !m_pdb)
        return false;

    // The name is pasted between quotes: framework-made names never hold a quote, and one
    // that does only makes the statement fail.
    const QString sql =
        QStringLiteral("SELECT %1.trigger_type, %1.start_time, %1.end_time, %1.interval, %1.duration, "
                       "%1.week_days, %1.which_months, %1.month_days, %1.day_last_flag, "
                       "%1.trigger_end_flag FROM %1 WHERE %1.trigger_name='%2'")
            .arg(QLatin1String(TriggerTable), triggerName);
    QSqlQuery query(*m_pdb);
    query.setForwardOnly(true);
    if (!query.exec(sql))
        return false;

    // Numbers are read as 32-bit values: anything stored above 4294967295 keeps its low 32 bits.
    const auto number = [&query](const char* column) {
        return static_cast<quint64>(query.value(QLatin1String(column)).toUInt());
    };
    const auto text = [&query](const char* column) {
        return query.value(QLatin1String(column)).toString();
    };
    while (query.next()) {
        found = 1;
        trigger.setTriggerType(number("trigger_type"));
        trigger.setStartTime(text("start_time"));
        trigger.setEndTime(text("end_time"));
        trigger.setInterval(number("interval"));
        trigger.setDuration(number("duration"));
        trigger.setWeekDays(text("week_days"));
        trigger.setWhichMoths(text("which_months"));
        trigger.setMonthDays(text("month_days"));
        trigger.setDayLastFlag(number("day_last_flag"));
        trigger.setTriggerEndFlag(number("trigger_end_flag"));
    }
    return true;
}
