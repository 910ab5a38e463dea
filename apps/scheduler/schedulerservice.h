#ifndef BACKUPFRAME_SCHEDULER_SCHEDULERSERVICE_H
#define BACKUPFRAME_SCHEDULER_SCHEDULERSERVICE_H

#include "mailsender.h"
#include "operationregistry.h"
#include "planstore.h"
#include "protocol.h"
#include "runcontroller.h"
#include "triggerscheduler.h"

#include <backupframe.h>

#include <QHash>
#include <QObject>
#include <QPair>

// What the service does with plans, runs, journals and e-mail settings, whoever asks:
// the plan store, the run queue and the trigger timer put together. Plans fire by
// themselves; occurrences missed while the service was down and runs it did not see
// finish are dealt with at Start. Main thread.
class SchedulerService : public QObject
{
    Q_OBJECT

public:
    // What happens to occurrences missed while the service was down (/TriggerFire/date_time_fire_type).
    enum MissedRule { IgnoreMissed = 0, JournalMissed = 1, CatchUpMissed = 2 };

    struct Settings {
        int missedRule = CatchUpMissed;
        int parallelRuns = 1;   // /Operation/operation_execute_type
        int journalKeepDays = 0;         // journals older than this are pruned after a run; 0: none
        int journalKeepPerPlan = 1000;   // a plan keeps its newest this many; 0: all
        QString emailFile;      // kept readable by its owner only: it holds the SMTP password
        MailTransport mail;
        QString dataDir;        // for the support bundle: its logs
        QString configFile;     // for the support bundle
    };

    SchedulerService(SchedulerDatabase& database, const Settings& settings, const Clock& clock,
                     QObject* parent = nullptr);

    // Loads the plans, journals the runs that were in progress when the service ended, applies
    // the missed-occurrence rule and arms the trigger timer. False when the database refuses.
    bool Start();
    // Interrupts every run (journaled), aborts the mails still going and stops firing.
    void Stop();
    bool Stopping() const { return m_stopping; }

    using ErrorNumber = SchedulerProtocol::ErrorNumber;
    // A refused task or trigger leaves in reason what is wrong and what is expected.
    ErrorNumber CreatePlan(const QString& name, const RequestNewOperationData& data, QString& planUuid,
                           QString* reason = nullptr);
    ErrorNumber EditPlan(const QString& planUuid, const SchedulerPlan& edit, QString* reason = nullptr);
    // Stores a whole plan as given (an import): its uuid (a new one when it has none), name, create
    // time, task and trigger; not its run state. PlanExists when the uuid is stored already.
    ErrorNumber AddPlan(const SchedulerPlan& given, QString& planUuid, QString* reason = nullptr);
    // A one-off run of an operation that is no stored plan: queued under a new uuid, journaled
    // under it and the given name like any run.
    ErrorNumber RunOnce(const QString& name, const TaskAttribute& task, QString& runUuid, QString* reason = nullptr);
    ErrorNumber CancelOnce(const QString& runUuid);
    // Deletes the journals of a one-off run that has ended.
    ErrorNumber DeleteOnce(const QString& runUuid, QString* reason = nullptr);
    // Reads every plan from the database again and re-arms the triggers; PlanBusy while runs go.
    ErrorNumber Reload();
    // Fires the plan's trigger now, as if it were due (a scheduled run).
    ErrorNumber FireNow(const QString& planUuid);
    // Computes the plan's next start again from its trigger.
    ErrorNumber UpdateNextStart(const QString& planUuid);
    // A stored plan, or a one-off run that is queued or running; null when neither.
    const SchedulerPlan* FindPlan(const QString& planUuid) const;
    ErrorNumber DeletePlan(const QString& planUuid);
    ErrorNumber RunNow(const QString& planUuid);
    ErrorNumber Cancel(const QString& planUuid);
    ErrorNumber LoadJournals(const QString& planUuid, QList<JournalAttribute>& journals);
    ErrorNumber DeleteJournals(const QStringList& journalUuids);
    ErrorNumber DeleteAllJournals();
    ErrorNumber UpdateEmail(const EmailConfigAttribute& settings);
    EmailConfigAttribute Email() const { return m_email; }
    // Queues a test mail with settings (the stored ones when null); 0 with the reason when it
    // cannot go, else the ticket that mailEnded names.
    quint64 SendTestMail(const EmailConfigAttribute* settings, QString& reason);

    const PlanStore& Store() const { return m_store; }
    bool IsBusy(const QString& planUuid) const { return m_runs.IsBusy(planUuid); }
    const OperationRegistry& Operations() const { return m_operations; }
    const Settings& Config() const { return m_settings; }

signals:
    // What agents are told of (see EventChannels), in the order it happens.
    void planChanged(const QString& planUuid);          // created, edited, or its run state changed
    void planDeleted(const QString& planUuid, const QString& planName);
    void plansReloaded();
    void runStarted(const QString& planUuid);
    void runProgressed(const QString& planUuid);
    void nextStartChanged(const QString& planUuid);
    void journalAdded(const JournalAttribute& journal);
    void journalsDeleted();
    void runFinished(const QString& planUuid, quint64 outcome);
    // A mail queued by SendTestMail went (error empty) or did not; to: its recipients.
    void mailEnded(quint64 ticket, const QString& error, const QString& to);

private:
    // NoError when the task names an operation with valid parameters and the trigger is valid;
    // else the refusal, and why in reason (when given).
    ErrorNumber CheckTask(const TaskAttribute& task, const TriggerAttribute& trigger, QString* reason) const;
    // Stores a checked new plan under uuid and name, arms it and tells; `how` for the log line.
    ErrorNumber StoreNew(SchedulerPlan plan, const QString& uuid, const QString& name, const char* how);
    void RecoverInterruptedRuns();
    void HandleMissed(const SchedulerPlan& plan, const QDateTime& now);
    // Arms the plan's next fire after `after` and shows it as the plan's next start;
    // announce: tell agents when the next start changed.
    void Reschedule(const QString& planUuid, const QDateTime& after, bool announce = true);
    void onDue(const QString& planUuid, const QDateTime& instant);
    void PruneJournals(const QString& planUuid);
    // One mail per finished run when the stored settings ask for it.
    void MailJournal(const JournalAttribute& journal);
    quint64 QueueMail(const EmailConfigAttribute& settings, const QString& subject, const QString& body,
                      QString& reason);
    void onMailEnded(quint64 ticket, const QString& error);
    void SecureEmailFile(bool create) const;

    PlanStore m_store;
    const Settings m_settings;
    const Clock& m_clock;
    OperationRegistry m_operations;
    RunController m_runs;
    TriggerScheduler m_triggers;
    EmailConfigReaderWriter m_email;
    MailSender m_mailer;
    bool m_stopping = false;
    QHash<quint64, QPair<QString, QString>> m_mails;   // ticket -> subject and recipients, for the log
};

#endif
