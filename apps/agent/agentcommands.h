#ifndef BACKUPFRAME_AGENT_AGENTCOMMANDS_H
#define BACKUPFRAME_AGENT_AGENTCOMMANDS_H

#include "agentoptions.h"
#include "agentsession.h"

#include "protocol.h"

#include <backupframe.h>

#include <QByteArray>
#include <QJsonValue>
#include <QList>
#include <QString>
#include <QTextStream>

#include <functional>
#include <memory>

// The agent's exit codes.
enum AgentExit {
    ExitOk = 0,
    ExitUsage = 1,      // the command line is wrong
    ExitRefused = 2,    // the scheduler answered with an error (or the plan/journal is unknown)
    ExitNoAnswer = 3,   // no scheduler serves the endpoint, or no (usable) answer came in time
    ExitRunFailed = 4,  // run --wait: the run ended as Failed
    ExitRunStopped = 5, // run --wait: the run ended as Cancelled or Interrupted
    ExitLeftRunning = 130   // run --wait/--follow: Ctrl-C, and the run was left running
};

// Runs one subcommand: checks its arguments first, then talks to the scheduler through
// an AgentSession (opened on the first request) and prints the outcome on out, failures
// as one line on err. Main thread.
class AgentCommands
{
public:
    AgentCommands(const AgentOptions& options, const CommunAttribute& endpoint, QTextStream& out, QTextStream& err);
    ~AgentCommands();

    int Execute();

private:
    // A plan or journal that a PLAN or JOURNAL key may name, listed when the key is ambiguous.
    struct Candidate {
        QString uuid;
        QString name;
    };

    int Status();
    int Plans();
    int ShowPlan();
    int NewPlan();
    int EditPlan();
    int DeletePlan();
    int RunPlan();
    int CancelPlan();
    int Operations();
    int RunOnce();
    // Subscribes the open session to the scheduler's events; 0, or 3 after printing why not.
    int SubscribeToEvents();
    // Runs an operation once (no plan) and, with --wait or --follow, follows it to its journal.
    int StartOnce(const QString& operation, const QByteArray& parameter, const QString& name);
    int Backups();
    int Restore();
    int Verify();
    // What the plan has written (oldest first), and the one --from names or else the newest.
    int LoadBackups(const SchedulerPlan& plan, QList<QStringList>& backups);
    int ChooseBackup(const SchedulerPlan& plan, QStringList& chosen);
    int CancelOnce();
    int DeleteOnce();
    // A request about a one-off run named by the argument; prints "<done> <uuid>".
    int OnceRequest(quint64 type, const QString& verb, const QString& done);
    int ExportPlans();
    int ImportPlans();
    int SupportBundle();
    // Waits for the end of the run that state shows queued or started, live: with a progress line.
    // Ctrl-C reaches it through interrupted, which it clears when it has dealt with one.
    int FollowRun(const SchedulerPlan& state, bool live, bool& interrupted);
    // What Ctrl-C during FollowRun does: -1 to go on following (the run was asked to cancel),
    // or the exit code.
    int OnInterrupt(const SchedulerPlan& plan);
    // Whether the scheduler still answers and still sends the followed plan's events; when a new
    // connection had to be made, plan is read again, and when the run ended meanwhile, ended is its journal.
    int CheckFollowed(SchedulerPlan& plan, JournalAttribute& ended);
    int Journals();
    int DeleteJournals();
    int Email();
    int EmailShow();
    int EmailSet();
    int EmailTest();
    // The changes the e-mail options ask for, checked; 0 or the usage error's exit code.
    int EmailChanges(QList<std::function<void(EmailConfigAttribute&)>>& changes);

    // Opens the session on first use; 0, or 3 after printing why nobody answers.
    int OpenSession();
    int SayHello();
    // One request and its answer. 0 with the result data, or the exit code after
    // printing why (no answer: 3; an error result: 2, "cannot <what>: <reason>").
    // quiet: a refusal is returned (2) without a word.
    int Call(quint64 type, const QString& planUuid, const QString& planName, const QByteArray& payload,
             const QString& what, QByteArray* resultData = nullptr, bool quiet = false);
    template <typename Record>
    int Decode(const QByteArray& bytes, Record& record, const QString& what);
    int LoadPlans(QList<SchedulerPlan>& plans);
    int LoadJournals(const QString& planUuid, QList<JournalAttribute>& journals);
    int ResolvePlan(const QString& key, SchedulerPlan& plan);
    int ResolveJournals(const QStringList& keys, QStringList& uuids);
    int ApplyPlanChange(quint64 type, const SchedulerPlan& plan, const QByteArray& payload, const QString& what);
    int RequestPlanChange(quint64 type, const SchedulerPlan& plan, const QByteArray& payload, const QString& what,
                          SchedulerPlan& answered);
    void PrintPlanState(const SchedulerPlan& plan);

    int Usage(const QString& message);
    // A usage error listing up to five of the things the key names.
    int Ambiguous(const QString& key, const QString& what, const QList<Candidate>& matches);
    int NoAnswer(const QString& reason);
    int Fail(int code, const QString& message);
    void PrintJson(const QJsonValue& value);
    void PrintPlanLine(const SchedulerPlan& plan);

    const AgentOptions& m_options;
    CommunAttribute m_endpoint;
    QTextStream& m_out;
    QTextStream& m_err;
    std::unique_ptr<AgentSession> m_session;   // opened on the first request
    bool m_followingOnce = false;              // FollowRun follows a one-off run, not a stored plan
};

// Prints "backupframe-agent: <message>" on err (with the hint to --help for usage
// errors) and, for --json, {"error": message, "exitCode": code} on out; returns code.
int PrintError(QTextStream& out, QTextStream& err, bool json, int code, const QString& message);

template <typename Record>
int AgentCommands::Decode(const QByteArray& bytes, Record& record, const QString& what)
{
    if (SchedulerProtocol::DecodePayload(bytes, record))
        return ExitOk;
    return NoAnswer(QStringLiteral("its answer to %1 does not decode").arg(what));
}

#endif
