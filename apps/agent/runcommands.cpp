// The run subcommands: run (with --wait and --follow, fed by the scheduler's pushed events)
// and operations.
#include "agentcommands.h"

#include "agentoutput.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSocketNotifier>

#include <csignal>
#include <iostream>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

using namespace SchedulerProtocol;

namespace {

int g_interruptPipe[2] = {-1, -1};
volatile sig_atomic_t g_interrupts = 0;

void onInterrupt(int)
{
    // A second Ctrl-C while the first is being dealt with ends the agent at once.
    if (g_interrupts++ > 0)
        _exit(ExitLeftRunning);
    const char byte = 1;
    [[maybe_unused]] ssize_t n = ::write(g_interruptPipe[1], &byte, 1);
}

// Turns Ctrl-C into a flag that a waiting session checks (self-pipe: nothing else is safe
// in a handler); the default action comes back with its end.
class InterruptWatch
{
public:
    InterruptWatch(AgentSession& session, bool& pending)
        : m_pending(pending)
    {
        if (::socketpair(AF_UNIX, SOCK_STREAM, 0, g_interruptPipe) != 0)
            return;
        m_notifier.reset(new QSocketNotifier(g_interruptPipe[0], QSocketNotifier::Read));
        QObject::connect(m_notifier.get(), &QSocketNotifier::activated, [this, &session] {
            char byte = 0;
            [[maybe_unused]] ssize_t n = ::read(g_interruptPipe[0], &byte, 1);
            m_pending = true;
            session.Wake();
        });
        struct sigaction action = {};
        action.sa_handler = onInterrupt;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART;
        sigaction(SIGINT, &action, nullptr);
    }
    ~InterruptWatch()
    {
        ::signal(SIGINT, SIG_DFL);
        m_notifier.reset();
        for (int& fd : g_interruptPipe) {
            if (fd >= 0)
                ::close(fd);
            fd = -1;
        }
    }
private:
    std::unique_ptr<QSocketNotifier> m_notifier;
    bool& m_pending;
};

// How long a follow waits without any event before it checks that the scheduler is still there.
constexpr int kIdleCheckMs = 3000;

int exitCodeOf(const QString& result)
{
    switch (AgentOutput::ResultCodeOf(result)) {
    case Succeeded: return ExitOk;
    case Failed: return ExitRunFailed;
    default: return ExitRunStopped;
    }
}

} // namespace

// The session's channel, registered under this agent's name and pid.
int AgentCommands::SubscribeToEvents()
{
    if (m_session->Subscribe(QStringLiteral("backupframe-agent %1").arg(QCoreApplication::applicationPid())))
        return ExitOk;
    return NoAnswer(m_session->Error());
}

int AgentCommands::RunPlan()
{
    const bool wait = m_options.IsSet(QStringLiteral("wait"));
    const bool follow = m_options.IsSet(QStringLiteral("follow"));
    SchedulerPlan plan;
    if (const int code = ResolvePlan(m_options.Arguments().first(), plan))
        return code;
    const QString what = QStringLiteral("run plan '%1'").arg(plan.getPlanName());
    if (!wait && !follow)
        return ApplyPlanChange(ExecuteOperationType, plan, QByteArray(), what);
    // Watching for Ctrl-C from before the run is asked for: once it runs, Ctrl-C is never fatal.
    bool interrupted = false;
    InterruptWatch interrupts(*m_session, interrupted);
    // Subscribed before the run is asked for, so that none of its events can be missed.
    if (const int code = SubscribeToEvents())
        return code;
    SchedulerPlan state;
    if (const int code = RequestPlanChange(ExecuteOperationType, plan, QByteArray(), what, state))
        return code;
    return FollowRun(state, follow, interrupted);
}

int AgentCommands::FollowRun(const SchedulerPlan& state, bool live, bool& interrupted)
{
    const bool json = m_options.Json();
    const bool terminal = ::isatty(STDOUT_FILENO) && !json;
    const QString uuid = state.getPlanUuid();
    const QString name = AgentOutput::Escaped(state.getPlanName());
    SchedulerPlan last = state;
    QElapsedTimer clock;
    clock.start();
    bool lineOpen = false;   // a progress line on a terminal, rewritten in place
    quint64 shownDone = 0;
    quint64 shownTotal = 0;
    auto endLine = [&] {
        if (lineOpen)
            m_out << "\n";
        lineOpen = false;
    };
    auto event = [&](const char* kind, QJsonObject object) {
        object.insert(QStringLiteral("event"), QLatin1String(kind));
        object.insert(QStringLiteral("planUuid"), uuid);
        m_out << QJsonDocument(object).toJson(QJsonDocument::Compact) << "\n";   // one line per event
        m_out.flush();
    };

    AgentSession::Event pushed;
    for (;;) {
        const AgentSession::Wait wait = m_session->NextEvent(pushed, [&] { return interrupted; }, kIdleCheckMs);
        if (wait == AgentSession::Wait::Lost) {
            endLine();
            return NoAnswer(m_session->Error() + QStringLiteral("; the run may go on in the scheduler"));
        }
        if (wait == AgentSession::Wait::Stopped) {
            interrupted = false;
            endLine();
            const int code = OnInterrupt(last);
            if (code >= 0)
                return code;
            continue;
        }
        if (wait == AgentSession::Wait::Idle) {
            // Nothing for a while: make sure the scheduler is still there and still tells us.
            JournalAttribute ended;
            if (const int code = CheckFollowed(last, ended))
                return code;
            if (ended.getJournalUuid().isEmpty())
                continue;
            pushed.type = FlushJournalsType;
            pushed.planUuid = uuid;
            ResultLoadJournalsData data;
            data.getObjectJournalAttrList().append(new JournalAttribute(ended));
            pushed.payload = EncodePayload(data);
        }
        if (pushed.planUuid != uuid)
            continue;
        if (pushed.type == TriggerExecuteType) {
            clock.restart();
            if (live && json)
                event("started", QJsonObject{{QStringLiteral("planName"), pushed.planName}});
        } else if (pushed.type == SingleFlushSchedulerType) {
            SchedulerPlanData data;
            if (!DecodePayload(pushed.payload, data))
                continue;
            last = data.getRfrnSchedulerPlan();
            // The end state counts too: the last progress may have been passed over by a busy service.
            if (!live || last.getTotalBytesToCopy() == 0)
                continue;
            const quint64 done = last.getBytesProcessed();
            const quint64 total = last.getTotalBytesToCopy();
            if (done == shownDone && total == shownTotal)
                continue;   // nothing new to show (the run's last report repeats the total)
            shownDone = done;
            shownTotal = total;
            if (json) {
                event("progress", QJsonObject{
                    {QStringLiteral("bytesProcessed"), static_cast<double>(done)},
                    {QStringLiteral("totalBytesToCopy"), static_cast<double>(total)},
                    {QStringLiteral("percent"), total ? static_cast<int>(qMin(done, total) * 100 / total) : 0},
                    {QStringLiteral("bytesPerSecond"),
                     clock.elapsed() > 0 ? static_cast<double>(done) * 1000.0 / clock.elapsed() : 0.0},
                    {QStringLiteral("elapsedMs"), static_cast<double>(clock.elapsed())}});
                continue;
            }
            const QString line = name + QStringLiteral(": ") + AgentOutput::ProgressText(done, total, clock.elapsed());
            if (terminal) {
                m_out << "\r" << line << "\x1b[K";
                lineOpen = true;
            } else {
                m_out << line << "\n";
            }
            m_out.flush();
        } else if (pushed.type == FlushJournalsType) {
            ResultLoadJournalsData data;
            if (!DecodePayload(pushed.payload, data) || data.getJournalAttrList().isEmpty())
                continue;
            const JournalAttribute journal = *data.getJournalAttrList().first();
            if (journal.getResult() == OutcomeText(Skipped))
                continue;   // an occurrence that was due meanwhile, not this run's end
            endLine();
            if (!live && !m_followingOnce) {
                PrintPlanState(last);
            } else if (json) {
                event("finished", QJsonObject{{QStringLiteral("journal"), AgentOutput::JournalToJson(journal)}});
            } else {
                m_out << name << ": " << journal.getResult() << " after " << journal.getTimeConsuming() << " ms";
                if (!journal.getErrorReason().isEmpty())
                    m_out << ": " << AgentOutput::Escaped(journal.getErrorReason());
                m_out << "\n";
                if (!journal.getSolution().isEmpty())
                    m_out << "  what to do: " << AgentOutput::Escaped(journal.getSolution()) << "\n";
            }
            return exitCodeOf(journal.getResult());
        }
    }
}

int AgentCommands::CheckFollowed(SchedulerPlan& plan, JournalAttribute& ended)
{
    const QString planUuid = plan.getPlanUuid();
    const int connects = m_session->Connects();
    QByteArray bytes;
    if (const int code = Call(LoadOperationsType, QString(), QString(), QByteArray(),
                              QStringLiteral("reach the scheduler"), &bytes))
        return code;
    if (m_session->Connects() == connects)
        return ExitOk;
    // A new connection: the scheduler may have restarted, and the subscription went with the old one.
    if (const int code = SubscribeToEvents())
        return code;
    if (m_followingOnce) {
        QByteArray state;
        if (Call(SingleFlushSchedulerType, planUuid, QString(), QByteArray(), QString(), &state, true) == ExitOk)
            return ExitOk;   // still queued or running
    } else if (const int code = ResolvePlan(planUuid, plan)) {
        return code;
    } else if (plan.getIsRunning() || plan.getSchemeAttribute().getExecutState() == QueuedState()) {
        return ExitOk;
    }
    // The run ended while nobody told us: its journal is the plan's newest one that is not a skip.
    QList<JournalAttribute> journals;
    if (const int code = LoadJournals(planUuid, journals))
        return code;
    for (int i = journals.size() - 1; i >= 0 && ended.getJournalUuid().isEmpty(); --i) {
        if (journals[i].getResult() != OutcomeText(Skipped))
            ended = journals[i];
    }
    if (m_followingOnce && ended.getJournalUuid().isEmpty())
        return Fail(ExitRunStopped, QStringLiteral("the scheduler restarted, and the one-off run did not outlive it"));
    return ExitOk;
}

int AgentCommands::OnInterrupt(const SchedulerPlan& plan)
{
    QString choice = m_options.Value(QStringLiteral("on-interrupt"));
    if (choice.isEmpty() || choice == QLatin1String("ask")) {
        choice = QStringLiteral("leave");
        if (::isatty(STDIN_FILENO)) {
            m_err << "Cancel the run of '" << AgentOutput::Escaped(plan.getPlanName()) << "'? [y/N] ";
            m_err.flush();
            std::string answer;
            if (std::getline(std::cin, answer) && (answer == "y" || answer == "Y" || answer == "yes"))
                choice = QStringLiteral("cancel");
        }
    }
    if (choice == QLatin1String("leave")) {
        m_err << "backupframe-agent: left '" << AgentOutput::Escaped(plan.getPlanName())
              << "' running; 'backupframe-agent show " << plan.getPlanUuid() << "' tells how far it is\n";
        return ExitLeftRunning;
    }
    // Answered once the run has ended; its journal then arrives as an event.
    const int code = Call(m_followingOnce ? SingleOperationCancelType : CancelOperationType, plan.getPlanUuid(),
                          plan.getPlanName(), QByteArray(), QStringLiteral("cancel '%1'").arg(plan.getPlanName()));
    g_interrupts = 0;
    return code == ExitOk || code == ExitRefused ? -1 : code;
}

int AgentCommands::RunOnce()
{
    const QStringList arguments = m_options.Arguments();
    return StartOnce(arguments[0], arguments.value(1).toUtf8(), m_options.Value(QStringLiteral("name")));
}

int AgentCommands::StartOnce(const QString& operation, const QByteArray& parameter, const QString& name)
{
    const bool wait = m_options.IsSet(QStringLiteral("wait"));
    const bool follow = m_options.IsSet(QStringLiteral("follow"));
    RequestNewOperationData data;
    data.getObjectTaskAttribute().setOperationRegisterName(operation);
    data.getObjectTaskAttribute().setOperationParameter(parameter);
    const QString what = QStringLiteral("run '%1' once").arg(operation);
    bool interrupted = false;
    std::unique_ptr<InterruptWatch> interrupts;
    if (wait || follow) {
        if (const int code = OpenSession())
            return code;
        interrupts.reset(new InterruptWatch(*m_session, interrupted));
        if (const int code = SubscribeToEvents())
            return code;
    }
    QByteArray bytes;
    if (const int code = Call(SingleOperationNewType, QString(), name, EncodePayload(data), what, &bytes))
        return code;
    SchedulerPlanData started;
    if (const int code = Decode(bytes, started, what))
        return code;
    const SchedulerPlan& run = started.getRfrnSchedulerPlan();
    if (!wait && !follow) {
        if (m_options.Json())
            PrintJson(AgentOutput::PlanToJson(run));
        else
            m_out << run.getPlanUuid() << "\n";
        return ExitOk;
    }
    if (!m_options.Json()) {
        m_err << "backupframe-agent: one-off run " << run.getPlanUuid() << " ('"
              << AgentOutput::Escaped(run.getPlanName()) << "')\n";
        m_err.flush();
    }
    m_followingOnce = true;
    return FollowRun(run, follow, interrupted);
}

// A one-off run's uuid as given, braces added when left out.
static QString runUuid(const QString& key)
{
    return key.startsWith(QLatin1Char('{')) ? key : QLatin1Char('{') + key + QLatin1Char('}');
}

int AgentCommands::CancelOnce()
{
    return OnceRequest(SingleOperationCancelType, QStringLiteral("cancel"), QStringLiteral("cancelled"));
}

int AgentCommands::DeleteOnce()
{
    return OnceRequest(SingleOperationDeleteType, QStringLiteral("delete"), QStringLiteral("deleted"));
}

int AgentCommands::OnceRequest(quint64 type, const QString& verb, const QString& done)
{
    const QString uuid = runUuid(m_options.Arguments().first());
    if (const int code = Call(type, uuid, QString(), QByteArray(), QStringLiteral("%1 the one-off run %2").arg(verb, uuid)))
        return code;
    if (m_options.Json())
        PrintJson(QJsonObject{{done, uuid}});
    else
        m_out << done << " " << uuid << "\n";
    return ExitOk;
}

int AgentCommands::Operations()
{
    const QString what = QStringLiteral("list the operations");
    QByteArray bytes;
    if (const int code = Call(LoadOperationsType, QString(), QString(), QByteArray(), what, &bytes))
        return code;
    QstringListData data;
    if (const int code = Decode(bytes, data, what))
        return code;
    QJsonArray array;
    AgentOutput::Table table;
    table.AddRow({QStringLiteral("NAME"), QStringLiteral("PARAMETER")});
    for (const QString& entry : data.getQstringList()) {
        const QString name = entry.section(QLatin1Char('\t'), 0, 0);
        const QString parameter = entry.section(QLatin1Char('\t'), 1);
        array.append(QJsonObject{{QStringLiteral("name"), name}, {QStringLiteral("parameter"), parameter}});
        table.AddRow({name, parameter});
    }
    if (m_options.Json())
        PrintJson(array);
    else
        m_out << table.Render();
    return ExitOk;
}
