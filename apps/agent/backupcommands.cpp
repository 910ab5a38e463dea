// The subcommands about what plans have written: backups, restore, verify. Restore and verify
// are one-off runs of the scheduler's restore and verify operations.
#include "agentcommands.h"

#include "agentoutput.h"
#include "operationparameters.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>

using namespace SchedulerProtocol;

namespace {

// Reading a large mirror's listing takes the scheduler a while.
constexpr int kListingTimeoutMs = 60000;

// The keys of a copy or zip plan's parameter.
const QStringList kPlanKeys{"source", "destination", "exclude", "keep", "verify"};

QByteArray parameterBlock(const QList<QPair<QString, QString>>& pairs)
{
    QStringList lines;
    for (const auto& pair : pairs) {
        if (!pair.second.isEmpty())
            lines << pair.first + QLatin1Char('=') + pair.second;
    }
    return lines.join(QLatin1Char('\n')).toUtf8();
}

} // namespace

int AgentCommands::LoadBackups(const SchedulerPlan& plan, QList<QStringList>& backups)
{
    if (const int code = OpenSession())
        return code;
    m_session->SetTimeoutMs(qMax(m_options.TimeoutMs(), kListingTimeoutMs));
    QByteArray bytes;
    const QString what = QStringLiteral("list the backups of '%1'").arg(plan.getPlanName());
    if (const int code = Call(LoadBackupsType, plan.getPlanUuid(), plan.getPlanName(), QByteArray(), what, &bytes))
        return code;
    m_session->SetTimeoutMs(m_options.TimeoutMs());
    QstringListData data;
    if (const int code = Decode(bytes, data, what))
        return code;
    for (const QString& entry : data.getQstringList())
        backups << entry.split(QLatin1Char('\t'));
    return ExitOk;
}

int AgentCommands::ChooseBackup(const SchedulerPlan& plan, QStringList& chosen)
{
    QList<QStringList> backups;
    if (const int code = LoadBackups(plan, backups))
        return code;
    const QString from = m_options.Value(QStringLiteral("from"));
    for (const QStringList& backup : backups) {
        if (from.isEmpty() || backup.value(1) == from || QFileInfo(backup.value(1)).fileName() == from)
            chosen = backup;   // without --from: the last, the newest
    }
    if (!chosen.isEmpty())
        return ExitOk;
    if (!from.isEmpty())
        return Fail(ExitRefused, QStringLiteral("'%1' has written no archive '%2' (see 'backupframe-agent backups %1')")
                                     .arg(plan.getPlanName(), from));
    return Fail(ExitRefused, QStringLiteral("'%1' has written no backup yet").arg(plan.getPlanName()));
}

int AgentCommands::Backups()
{
    SchedulerPlan plan;
    if (const int code = ResolvePlan(m_options.Arguments().first(), plan))
        return code;
    QList<QStringList> backups;
    if (const int code = LoadBackups(plan, backups))
        return code;
    QJsonArray array;
    AgentOutput::Table table;
    table.AddRow({QStringLiteral("KIND"), QStringLiteral("PATH"), QStringLiteral("SIZE"), QStringLiteral("FILES"),
                  QStringLiteral("TIME")});
    for (const QStringList& backup : backups) {
        array.append(QJsonObject{{QStringLiteral("kind"), backup.value(0)},
                                 {QStringLiteral("path"), backup.value(1)},
                                 {QStringLiteral("bytes"), backup.value(2).toDouble()},
                                 {QStringLiteral("files"), backup.value(3).toDouble()},
                                 {QStringLiteral("time"), backup.value(4)}});
        table.AddRow({backup.value(0), backup.value(1), AgentOutput::ByteSize(backup.value(2).toULongLong()),
                      backup.value(3), backup.value(4)});
    }
    if (m_options.Json())
        PrintJson(array);
    else if (backups.isEmpty())
        m_out << "No backups.\n";
    else
        m_out << table.Render();
    return ExitOk;
}

int AgentCommands::Restore()
{
    const QString to = m_options.Value(QStringLiteral("to"));
    if (to.isEmpty())
        return Usage(QStringLiteral("restore wants --to FOLDER, the folder to restore into"));
    const QString path = QDir::cleanPath(m_options.Value(QStringLiteral("path")));
    if (m_options.IsSet(QStringLiteral("path"))
        && (QDir::isAbsolutePath(path) || path == QLatin1String("..") || path.startsWith(QLatin1String("../"))))
        return Usage(QStringLiteral("--path wants a path inside the backup, such as photos/2026"));
    SchedulerPlan plan;
    if (const int code = ResolvePlan(m_options.Arguments().first(), plan))
        return code;
    QStringList backup;
    if (const int code = ChooseBackup(plan, backup))
        return code;
    const QByteArray parameter = parameterBlock({{QStringLiteral("source"), backup.value(1)},
                                                 {QStringLiteral("destination"), QFileInfo(to).absoluteFilePath()},
                                                 {QStringLiteral("path"), m_options.IsSet(QStringLiteral("path")) ? path : QString()},
                                                 {QStringLiteral("overwrite"),
                                                  m_options.IsSet(QStringLiteral("overwrite")) ? QStringLiteral("1") : QString()}});
    return StartOnce(QStringLiteral("restore"), parameter, QStringLiteral("restore of %1").arg(plan.getPlanName()));
}

int AgentCommands::Verify()
{
    SchedulerPlan plan;
    if (const int code = ResolvePlan(m_options.Arguments().first(), plan))
        return code;
    OperationParameters parameters;
    QString reason;
    if (!parameters.Parse(plan.getTaskAttribute().getOperationParameter(), kPlanKeys, reason))
        return Fail(ExitRefused, QStringLiteral("cannot read the parameter of '%1': %2").arg(plan.getPlanName(), reason));
    QStringList backup;
    if (const int code = ChooseBackup(plan, backup))
        return code;
    const QByteArray parameter = parameterBlock({{QStringLiteral("backup"), backup.value(1)},
                                                 {QStringLiteral("source"), parameters.Value(QStringLiteral("source"))},
                                                 {QStringLiteral("exclude"), parameters.Value(QStringLiteral("exclude"))}});
    return StartOnce(QStringLiteral("verify"), parameter, QStringLiteral("verify of %1").arg(plan.getPlanName()));
}
