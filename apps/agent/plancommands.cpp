// The plan subcommands: plans, show, new, edit, delete, cancel.
#include "agentcommands.h"

#include "agentoutput.h"
#include "triggeroptions.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>

namespace {

QString shownStatus(const SchedulerPlan& plan)
{
    if (plan.getIsRunning())
        return SchedulerProtocol::RunningState();
    if (plan.getSchemeAttribute().getExecutState() == SchedulerProtocol::QueuedState())
        return SchedulerProtocol::QueuedState();
    return plan.getSchemeAttribute().getStatus();
}

// Why the trigger's end (when it has one) lies before its start, naming the option
// that was given; empty when it does not.
QString endBeforeStart(const TriggerAttribute& trigger, bool startGiven)
{
    if (!trigger.getTriggerEndFlag() || trigger.getStartTime().isEmpty())
        return QString();
    const QString format = TimeText::Format();
    if (QDateTime::fromString(trigger.getEndTime(), format) >= QDateTime::fromString(trigger.getStartTime(), format))
        return QString();
    if (startGiven)
        return QStringLiteral("--start %1 is after the plan's end %2; give --end or --no-end too")
            .arg(trigger.getStartTime(), trigger.getEndTime());
    return QStringLiteral("--end %1 is before the plan's start %2; give --start too")
        .arg(trigger.getEndTime(), trigger.getStartTime());
}

} // namespace

int AgentCommands::Plans()
{
    QList<SchedulerPlan> plans;
    if (const int code = LoadPlans(plans))
        return code;
    if (m_options.Json()) {
        QJsonArray array;
        for (const SchedulerPlan& plan : plans)
            array.append(AgentOutput::PlanToJson(plan));
        PrintJson(array);
        return ExitOk;
    }
    if (plans.isEmpty()) {
        m_out << "No plans.\n";
        return ExitOk;
    }
    QStringList uuids;
    for (const SchedulerPlan& plan : plans)
        uuids.append(plan.getPlanUuid());
    const QStringList ids = AgentOutput::ShortIds(uuids);
    AgentOutput::Table table;
    table.AddRow({QStringLiteral("ID"), QStringLiteral("NAME"), QStringLiteral("TASK"), QStringLiteral("TRIGGER"),
                  QStringLiteral("STATUS"), QStringLiteral("CREATED"), QStringLiteral("NEXT START")});
    for (int i = 0; i < plans.size(); ++i) {
        const SchedulerPlan& plan = plans[i];
        table.AddRow({ids[i], AgentOutput::Cell(plan.getPlanName()),
                      AgentOutput::Cell(AgentOutput::TaskSummary(plan.getTaskAttribute())),
                      AgentOutput::TriggerSummary(plan.getTriggerAttribute()), shownStatus(plan),
                      plan.getSchemeAttribute().getCreateTime(), plan.getNextStartTime()});
    }
    m_out << table.Render();
    return ExitOk;
}

int AgentCommands::NewPlan()
{
    const QStringList arguments = m_options.Arguments();
    if (arguments[0].trimmed().isEmpty() || arguments[1].trimmed().isEmpty())
        return Usage(QStringLiteral("'new' wants a plan name and an operation"));
    TriggerOptions trigger;
    QString error;
    if (!trigger.Parse(m_options, error))
        return Usage(error);

    RequestNewOperationData data;
    data.getObjectTaskAttribute().setOperationRegisterName(arguments[1]);
    if (arguments.size() > 2)
        data.getObjectTaskAttribute().setOperationParameter(arguments[2].toUtf8());
    trigger.FillNew(data);

    const QString what = QStringLiteral("create plan '%1'").arg(arguments[0]);
    QByteArray bytes;
    if (const int code = Call(NewOperationType, QString(), arguments[0], SchedulerProtocol::EncodePayload(data),
                              what, &bytes))
        return code;
    SchedulerPlanData stored;
    if (const int code = Decode(bytes, stored, what))
        return code;
    if (m_options.Json())
        PrintJson(AgentOutput::PlanToJson(stored.getRfrnSchedulerPlan()));
    else
        m_out << stored.getRfrnSchedulerPlan().getPlanUuid() << "\n";
    return ExitOk;
}

int AgentCommands::EditPlan()
{
    TriggerOptions trigger;
    QString error;
    if (!trigger.Parse(m_options, error))
        return Usage(error);
    const QString nameOption = QStringLiteral("name");
    const QString operationOption = QStringLiteral("operation");
    const QString parameterOption = QStringLiteral("parameter");
    if (!trigger.Any() && !m_options.IsSet(nameOption) && !m_options.IsSet(operationOption)
        && !m_options.IsSet(parameterOption))
        return Usage(QStringLiteral("nothing to change: give --name, --operation, --parameter or trigger options"));
    if ((m_options.IsSet(nameOption) && m_options.Value(nameOption).trimmed().isEmpty())
        || (m_options.IsSet(operationOption) && m_options.Value(operationOption).trimmed().isEmpty()))
        return Usage(QStringLiteral("--name and --operation want a text"));

    SchedulerPlan plan;
    if (const int code = ResolvePlan(m_options.Arguments().first(), plan))
        return code;
    const QString what = QStringLiteral("edit plan '%1'").arg(plan.getPlanName());
    if (m_options.IsSet(nameOption))
        plan.setPlanName(m_options.Value(nameOption));
    if (m_options.IsSet(operationOption))
        plan.getObjectTaskAttribute().setOperationRegisterName(m_options.Value(operationOption));
    if (m_options.IsSet(parameterOption))
        plan.getObjectTaskAttribute().setOperationParameter(m_options.Value(parameterOption).toUtf8());
    trigger.ApplyTo(plan.getObjectTriggerAttribute());
    // Only one side given: the other is the stored one, which the service would refuse silently.
    const bool startGiven = m_options.IsSet(QStringLiteral("start"));
    const QString order = endBeforeStart(plan.getTriggerAttribute(), startGiven);
    if ((startGiven || m_options.IsSet(QStringLiteral("end"))) && !order.isEmpty())
        return Usage(order);

    SchedulerPlanData data;
    data.setSchedulerPlan(plan);
    return ApplyPlanChange(EditOperationType, plan, SchedulerProtocol::EncodePayload(data), what);
}

int AgentCommands::DeletePlan()
{
    SchedulerPlan plan;
    if (const int code = ResolvePlan(m_options.Arguments().first(), plan))
        return code;
    const QString what = QStringLiteral("delete plan '%1'").arg(plan.getPlanName());
    if (const int code = Call(DeleteOperationType, plan.getPlanUuid(), plan.getPlanName(), QByteArray(), what))
        return code;
    if (m_options.Json())
        PrintJson(QJsonObject{{QStringLiteral("deleted"), plan.getPlanUuid()},
                              {QStringLiteral("name"), plan.getPlanName()}});
    else
        m_out << "deleted " << plan.getPlanUuid() << "  " << plan.getPlanName() << "\n";
    return ExitOk;
}

int AgentCommands::ShowPlan()
{
    SchedulerPlan plan;
    if (const int code = ResolvePlan(m_options.Arguments().first(), plan))
        return code;
    if (m_options.Json()) {
        PrintJson(AgentOutput::PlanToJson(plan));
        return ExitOk;
    }
    const TaskAttribute task = plan.getTaskAttribute();
    const QString progress = plan.getTotalBytesToCopy() > 0
        ? QStringLiteral("%1 of %2 bytes").arg(plan.getBytesProcessed()).arg(plan.getTotalBytesToCopy())
        : QStringLiteral("%1 bytes").arg(plan.getBytesProcessed());
    const QList<QStringList> rows{
        {QStringLiteral("uuid"), plan.getPlanUuid()},
        {QStringLiteral("name"), plan.getPlanName()},
        {QStringLiteral("operation"), task.getOperationRegisterName()},
        {QStringLiteral("parameter"), QString::fromUtf8(task.getOperationParameter())},
        {QStringLiteral("schedule"), AgentOutput::TriggerSummary(plan.getTriggerAttribute())},
        {QStringLiteral("next start"), plan.getNextStartTime()},
        {QStringLiteral("status"), shownStatus(plan)},
        {QStringLiteral("last start"), plan.getStartTime()},
        {QStringLiteral("last end"), plan.getEndTime()},
        {QStringLiteral("error"), plan.getErrorMessage()},
        {QStringLiteral("progress"), progress}};
    AgentOutput::Table table;
    for (const QStringList& row : rows)
        table.AddRow(row);
    m_out << table.Render();
    return ExitOk;
}

int AgentCommands::CancelPlan()
{
    SchedulerPlan plan;
    if (const int code = ResolvePlan(m_options.Arguments().first(), plan))
        return code;
    return ApplyPlanChange(CancelOperationType, plan, QByteArray(),
                           QStringLiteral("cancel plan '%1'").arg(plan.getPlanName()));
}

// Sends a request about one plan whose answer is the plan as stored afterwards, and shows it.
int AgentCommands::ApplyPlanChange(quint64 type, const SchedulerPlan& plan, const QByteArray& payload,
                                   const QString& what)
{
    SchedulerPlan answered;
    if (const int code = RequestPlanChange(type, plan, payload, what, answered))
        return code;
    PrintPlanState(answered);
    return ExitOk;
}

// Sends a request about one plan whose answer is the plan as stored afterwards.
int AgentCommands::RequestPlanChange(quint64 type, const SchedulerPlan& plan, const QByteArray& payload,
                                     const QString& what, SchedulerPlan& answered)
{
    QByteArray bytes;
    if (const int code = Call(type, plan.getPlanUuid(), plan.getPlanName(), payload, what, &bytes))
        return code;
    SchedulerPlanData stored;
    if (const int code = Decode(bytes, stored, what))
        return code;
    answered = stored.getRfrnSchedulerPlan();
    return ExitOk;
}

void AgentCommands::PrintPlanState(const SchedulerPlan& plan)
{
    if (m_options.Json())
        PrintJson(AgentOutput::PlanToJson(plan));
    else
        PrintPlanLine(plan);
}

// "<uuid>  <name>  <status>[: <error message>]"
void AgentCommands::PrintPlanLine(const SchedulerPlan& plan)
{
    m_out << plan.getPlanUuid() << "  " << AgentOutput::Escaped(plan.getPlanName()) << "  " << shownStatus(plan);
    if (!plan.getIsRunning() && plan.getWasError() && !plan.getErrorMessage().isEmpty())
        m_out << ": " << AgentOutput::Escaped(plan.getErrorMessage());
    m_out << "\n";
}
