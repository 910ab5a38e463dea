#include "agentcommands.h"

#include "agentoutput.h"
#include "tcpsecret.h"

#include <QStandardPaths>

#include <QElapsedTimer>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

int PrintError(QTextStream& out, QTextStream& err, bool json, int code, const QString& message)
{
    if (json) {
        const QJsonObject error{{QStringLiteral("error"), message}, {QStringLiteral("exitCode"), code}};
        out << QJsonDocument(error).toJson(QJsonDocument::Indented);
    }
    out.flush();
    err << "backupframe-agent: " << message << "\n";
    if (code == ExitUsage)
        err << "Try 'backupframe-agent --help' for more information.\n";
    err.flush();
    return code;
}

AgentCommands::AgentCommands(const AgentOptions& options, const CommunAttribute& endpoint, QTextStream& out,
                             QTextStream& err)
    : m_options(options)
    , m_endpoint(endpoint)
    , m_out(out)
    , m_err(err)
{
}

AgentCommands::~AgentCommands() = default;

int AgentCommands::Execute()
{
    using Handler = int (AgentCommands::*)();
    const QList<QPair<QString, Handler>> handlers{
        {QStringLiteral("status"), &AgentCommands::Status},
        {QStringLiteral("plans"), &AgentCommands::Plans},
        {QStringLiteral("show"), &AgentCommands::ShowPlan},
        {QStringLiteral("new"), &AgentCommands::NewPlan},
        {QStringLiteral("edit"), &AgentCommands::EditPlan},
        {QStringLiteral("delete"), &AgentCommands::DeletePlan},
        {QStringLiteral("run"), &AgentCommands::RunPlan},
        {QStringLiteral("cancel"), &AgentCommands::CancelPlan},
        {QStringLiteral("operations"), &AgentCommands::Operations},
        {QStringLiteral("once"), &AgentCommands::RunOnce},
        {QStringLiteral("backups"), &AgentCommands::Backups},
        {QStringLiteral("restore"), &AgentCommands::Restore},
        {QStringLiteral("verify"), &AgentCommands::Verify},
        {QStringLiteral("once-cancel"), &AgentCommands::CancelOnce},
        {QStringLiteral("once-delete"), &AgentCommands::DeleteOnce},
        {QStringLiteral("export"), &AgentCommands::ExportPlans},
        {QStringLiteral("import"), &AgentCommands::ImportPlans},
        {QStringLiteral("support-bundle"), &AgentCommands::SupportBundle},
        {QStringLiteral("journals"), &AgentCommands::Journals},
        {QStringLiteral("journal-delete"), &AgentCommands::DeleteJournals},
        {QStringLiteral("email"), &AgentCommands::Email}};
    for (const auto& handler : handlers) {
        if (handler.first == m_options.Command()) {
            const int code = (this->*handler.second)();
            m_out.flush();
            m_session.reset();
            return code;
        }
    }
    return Usage(QStringLiteral("unknown command '%1'").arg(m_options.Command()));
}

int AgentCommands::OpenSession()
{
    if (m_session)
        return ExitOk;
    m_session.reset(new AgentSession(m_endpoint, m_options.TimeoutMs()));
    if (m_session->Open())
        return m_endpoint.getProtocolType() == CommunAttribute::TcpProtocol ? SayHello() : ExitOk;
    const QString reason = m_session->Error();
    m_session.reset();
    return NoAnswer(reason);
}

// Over TCP the scheduler serves nothing before it has seen its secret.
int AgentCommands::SayHello()
{
    const QString path = m_options.IsSet(QStringLiteral("secret-file"))
        ? m_options.Value(QStringLiteral("secret-file"))
        : QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation)
              + QStringLiteral("/backupframe/backupframe-scheduler/") + TcpSecret::FileName();
    QByteArray secret;
    QString error;
    if (!TcpSecret::Read(path, secret, error)) {
        m_session.reset();
        return Fail(ExitUsage, error + QStringLiteral(" (give --secret-file)"));
    }
    RequestStringData hello;
    hello.setStringValue(QString::fromLatin1(secret));
    return Call(SchedulerProtocol::HelloType, QString(), QString(), SchedulerProtocol::EncodePayload(hello),
                QStringLiteral("connect over TCP"));
}

int AgentCommands::Call(quint64 type, const QString& planUuid, const QString& planName, const QByteArray& payload,
                        const QString& what, QByteArray* resultData, bool quiet)
{
    if (const int code = OpenSession())
        return code;
    ResultCommand answer(SchedulerProtocol::ResultType);
    if (!m_session->Call(type, planUuid, planName, payload, answer)) {
        if (m_session->AnswerTimedOut())   // the request was sent: it may have been carried out
            return Fail(ExitNoAnswer, QStringLiteral("%1; the request may still have been carried out: "
                                                     "check with 'backupframe-agent plans'").arg(m_session->Error()));
        return NoAnswer(m_session->Error());
    }
    if (answer.getUintResult() != 0 && quiet)
        return ExitRefused;
    if (answer.getUintResult() != 0) {
        const QString reason = SchedulerProtocol::ReasonOf(answer.getResultData());
        return Fail(ExitRefused, QStringLiteral("cannot %1: %2%3")
                                     .arg(what, SchedulerProtocol::ErrorText(answer.getUintResult()),
                                          reason.isEmpty() ? QString() : QStringLiteral(": ") + reason));
    }
    if (resultData)
        *resultData = answer.getResultData();
    return ExitOk;
}

int AgentCommands::LoadPlans(QList<SchedulerPlan>& plans)
{
    const QString what = QStringLiteral("list the plans");
    QByteArray bytes;
    if (const int code = Call(LoadSchedulersType, QString(), QString(), QByteArray(), what, &bytes))
        return code;
    ResultLoadSchedulersData data;
    if (const int code = Decode(bytes, data, what))
        return code;
    for (const SchedulerPlan* plan : data.getActionPlansList())
        plans.append(*plan);
    return ExitOk;
}

int AgentCommands::LoadJournals(const QString& planUuid, QList<JournalAttribute>& journals)
{
    const QString what = QStringLiteral("list the journals");
    QByteArray bytes;
    if (const int code = Call(LoadJournalsType, planUuid, QString(), QByteArray(), what, &bytes))
        return code;
    ResultLoadJournalsData data;
    if (const int code = Decode(bytes, data, what))
        return code;
    for (const JournalAttribute* journal : data.getJournalAttrList())
        journals.append(*journal);
    return ExitOk;
}

int AgentCommands::ResolvePlan(const QString& key, SchedulerPlan& plan)
{
    QList<SchedulerPlan> plans;
    if (const int code = LoadPlans(plans))
        return code;
    QList<Candidate> byName;
    QList<Candidate> byPrefix;
    QHash<QString, SchedulerPlan> byUuid;
    for (const SchedulerPlan& candidate : plans) {
        if (candidate.getPlanUuid().compare(key, Qt::CaseInsensitive) == 0) {
            plan = candidate;
            return ExitOk;
        }
        const Candidate shown{candidate.getPlanUuid(), candidate.getPlanName()};
        byUuid.insert(shown.uuid, candidate);
        if (shown.name == key)
            byName.append(shown);
        if (AgentOutput::MatchesUuidPrefix(shown.uuid, key))
            byPrefix.append(shown);
    }
    const QList<Candidate>& matches = byName.isEmpty() ? byPrefix : byName;
    if (matches.isEmpty())
        return Fail(ExitRefused, QStringLiteral("plan not found: no plan has the uuid, uuid prefix or name '%1'").arg(key));
    if (matches.size() > 1)
        return Ambiguous(key, QStringLiteral("plans"), matches);
    plan = byUuid.value(matches.first().uuid);
    return ExitOk;
}

int AgentCommands::Ambiguous(const QString& key, const QString& what, const QList<Candidate>& matches)
{
    constexpr int kShown = 5;
    QString message = QStringLiteral("'%1' names %2 %3; give more of the uuid:")
                          .arg(key, QString::number(matches.size()), what);
    for (int i = 0; i < matches.size() && i < kShown; ++i)
        message += QStringLiteral("\n  %1  %2").arg(matches[i].uuid, AgentOutput::Cell(matches[i].name));
    if (matches.size() > kShown)
        message += QStringLiteral("\n  and %1 more").arg(matches.size() - kShown);
    return Usage(message);
}

int AgentCommands::Usage(const QString& message)
{
    return Fail(ExitUsage, message);
}

int AgentCommands::NoAnswer(const QString& reason)
{
    const bool tcp = m_endpoint.getProtocolType() == CommunAttribute::TcpProtocol;
    const QString where = tcp ? QStringLiteral("%1:%2").arg(m_endpoint.getDestSvrNameIp()).arg(m_endpoint.getDestPort())
                              : QStringLiteral("'%1'").arg(m_endpoint.getDestSvrNameIp());
    return Fail(ExitNoAnswer, QStringLiteral("no scheduler answers on %1 (%2)").arg(where, reason));
}

int AgentCommands::Fail(int code, const QString& message)
{
    return PrintError(m_out, m_err, m_options.Json(), code, message);
}

void AgentCommands::PrintJson(const QJsonValue& value)
{
    const QJsonDocument document = value.isArray() ? QJsonDocument(value.toArray()) : QJsonDocument(value.toObject());
    m_out << document.toJson(QJsonDocument::Indented);
}

int AgentCommands::Status()
{
    if (const int code = OpenSession())
        return code;
    QElapsedTimer clock;
    clock.start();
    QList<SchedulerPlan> plans;
    if (const int code = LoadPlans(plans))
        return code;
    const double roundTripMs = clock.nsecsElapsed() / 1e6;
    QList<JournalAttribute> journals;
    if (const int code = LoadJournals(QString(), journals))
        return code;
    const auto running = std::count_if(plans.begin(), plans.end(), [](const SchedulerPlan& plan) {
        return plan.getIsRunning();
    });
    if (m_options.Json()) {
        PrintJson(QJsonObject{{QStringLiteral("endpoint"), m_session->EndpointText()},
                              {QStringLiteral("answers"), true},
                              {QStringLiteral("roundTripMs"), roundTripMs},
                              {QStringLiteral("plans"), plans.size()},
                              {QStringLiteral("running"), static_cast<int>(running)},
                              {QStringLiteral("journals"), journals.size()}});
        return ExitOk;
    }
    AgentOutput::Table table;
    table.AddRow({QStringLiteral("scheduler"), QStringLiteral("'%1' answers").arg(m_session->EndpointText())});
    table.AddRow({QStringLiteral("round trip"), QStringLiteral("%1 ms").arg(roundTripMs, 0, 'f', 1)});
    table.AddRow({QStringLiteral("plans"), QStringLiteral("%1 (%2 running)").arg(plans.size()).arg(running)});
    table.AddRow({QStringLiteral("journals"), QString::number(journals.size())});
    m_out << table.Render();
    return ExitOk;
}
