#include "schedulerservice.h"

#include "mailmessage.h"
#include "servicelog.h"
#include "triggerschedule.h"

#include <QFile>
#include <QFileInfo>
#include <QUuid>

using namespace SchedulerProtocol;

namespace {

// Missed occurrences counted for the journal of the "journal" rule; past this it says "at least".
constexpr int kMissedCountLimit = 1000;

QString timeText(const QDateTime& time)
{
    return time.toString(TriggerSchedule::TimeFormat);
}

QString planText(const SchedulerPlan& plan)
{
    return QStringLiteral("%1 %2").arg(plan.getPlanName(), plan.getPlanUuid());
}

} // namespace

SchedulerService::SchedulerService(SchedulerDatabase& database, const Settings& settings, const Clock& clock,
                                   QObject* parent)
    : QObject(parent)
    , m_store(database)
    , m_settings(settings)
    , m_clock(clock)
    , m_operations(OperationRegistry::WithBuiltIns())
    , m_runs(m_store, m_operations, settings.parallelRuns)
    , m_triggers(clock)
    , m_mailer(settings.mail)
{
    SecureEmailFile(false);
    m_email.Init(settings.emailFile);
    m_email.ReadConfig();
    connect(&m_triggers, &TriggerScheduler::due, this, &SchedulerService::onDue);
    connect(&m_runs, &RunController::runFinished, this, &SchedulerService::PruneJournals);
    connect(&m_runs, &RunController::runFinished, this, &SchedulerService::runFinished);
    connect(&m_runs, &RunController::planStateChanged, this, &SchedulerService::planChanged);
    connect(&m_runs, &RunController::runStarted, this, &SchedulerService::runStarted);
    connect(&m_runs, &RunController::runProgressed, this, &SchedulerService::runProgressed);
    connect(&m_runs, &RunController::journalAdded, this, &SchedulerService::journalAdded);
    connect(this, &SchedulerService::journalAdded, this, &SchedulerService::MailJournal);
    connect(&m_mailer, &MailSender::ended, this, &SchedulerService::onMailEnded);
}

bool SchedulerService::Start()
{
    if (!m_store.Load())
        return false;
    RecoverInterruptedRuns();
    const QDateTime now = m_clock.Now();
    // Copies of the order: starting a catch-up run changes the plans it points to.
    for (const SchedulerPlan* plan : std::vector<const SchedulerPlan*>(m_store.Ordered()))
        HandleMissed(*plan, now);
    for (const SchedulerPlan* plan : std::vector<const SchedulerPlan*>(m_store.Ordered()))
        Reschedule(plan->getPlanUuid(), now);
    ServiceLog::Info(QStringLiteral("Scheduler started: %1 plans, %2 of them scheduled.")
                         .arg(m_store.Count())
                         .arg(m_triggers.Count()));
    return true;
}

void SchedulerService::Stop()
{
    m_stopping = true;
    m_runs.Shutdown();
    m_mailer.Stop();   // a slow mail server must not hold up the stop
    ServiceLog::Info(QStringLiteral("Scheduler stopped."));
}

// Runs whose start (or, for a one-off run, whose request) was stored but whose end was not:
// the service ended during them. A run that had started is journaled Interrupted, a one-off
// run that still waited Skipped.
void SchedulerService::RecoverInterruptedRuns()
{
    const QString now = timeText(QDateTime::currentDateTime());
    const QString solution = RunController::SolutionFor(Interrupted);
    auto recover = [&](SchedulerPlan run, bool waited) {
        const QString started = run.getStartTime();
        const quint64 outcome = waited ? Skipped : Interrupted;
        const QString why = QStringLiteral("The scheduler service ended %1 (it was killed, crashed or the machine lost "
                                           "power).")
                                .arg(waited ? QStringLiteral("before the run could start") : QStringLiteral("during the run"));
        RunController::MarkEnded(run, outcome, why, now);
        const JournalAttribute journal =
            RunController::MakeJournal(run, outcome, waited ? now : started, now, 0, why, solution);
        if (!m_store.FinishRun(run, journal))
            ServiceLog::Error(QStringLiteral("Store an interrupted run of %1 failed in the RecoverInterruptedRuns.")
                                  .arg(run.getPlanUuid()));
        ServiceLog::Info(QStringLiteral("Run %1: %2 (%3).")
                             .arg(OutcomeText(outcome).toLower(), planText(run),
                                  waited ? QStringLiteral("it waited when the service ended")
                                         : QStringLiteral("started %1, the service ended during it").arg(started)));
    };
    for (const SchedulerPlan* stored : std::vector<const SchedulerPlan*>(m_store.Ordered())) {
        const PlanRunRow row = m_store.RunRow(stored->getPlanUuid());
        if (row.runStartTime.isEmpty() && stored->getSchemeAttribute().getStatus() != RunningState())
            continue;
        SchedulerPlan plan(*stored);
        plan.setStartTime(row.runStartTime);
        recover(plan, false);
    }
    QList<SchedulerPlan> onceRuns;
    if (m_store.Database().LoadOnceRuns(onceRuns)) {
        for (const SchedulerPlan& run : onceRuns)
            recover(run, run.getStartTime().isEmpty());
    }
}

// Occurrences between the last handled instant and now passed while the service was down.
void SchedulerService::HandleMissed(const SchedulerPlan& plan, const QDateTime& now)
{
    const QString uuid = plan.getPlanUuid();
    const QDateTime handled = QDateTime::fromString(m_store.RunRow(uuid).lastFireTime, TriggerSchedule::TimeFormat);
    if (!handled.isValid())
        return;   // nothing known: the schedule starts from now
    const TriggerAttribute trigger = plan.getTriggerAttribute();
    const QDateTime first = TriggerSchedule::NextFireTime(trigger, handled);
    if (!first.isValid() || first > now)
        return;
    int missed = 0;
    for (QDateTime at = first; at.isValid() && at <= now && missed < kMissedCountLimit;
         at = TriggerSchedule::NextFireTime(trigger, at))
        ++missed;
    const QString what = missed == 1 ? QStringLiteral("the occurrence at %1").arg(timeText(first))
                                     : QStringLiteral("%1%2 occurrences from %3")
                                           .arg(missed >= kMissedCountLimit ? QStringLiteral("at least ") : QString())
                                           .arg(missed)
                                           .arg(timeText(first));
    ServiceLog::Info(QStringLiteral("Plan missed %1 while the service was down: %2.").arg(what, planText(plan)));
    m_store.SetHandledUpTo(uuid, now);
    if (m_settings.missedRule == CatchUpMissed) {
        m_runs.Request(uuid, CatchUpRun);
    } else if (m_settings.missedRule == JournalMissed) {
        m_runs.RecordWithoutRun(
            uuid, Skipped, QStringLiteral("The scheduler service was not running at %1.").arg(what),
            QStringLiteral("Run the plan now if it is needed, and let the service start at login "
                           "(systemctl --user enable backupframe-scheduler) so that it misses nothing."));
    }
}

void SchedulerService::Reschedule(const QString& planUuid, const QDateTime& after, bool announce)
{
    const SchedulerPlan* stored = m_store.Find(planUuid);
    if (!stored)
        return;
    const QDateTime next = TriggerSchedule::NextFireTime(stored->getTriggerAttribute(), after);
    m_triggers.Schedule(planUuid, next);
    const QString text = next.isValid() ? timeText(next) : QString();
    if (text == stored->getNextStartTime())
        return;
    m_store.EditVolatile(planUuid, [&text](SchedulerPlan& plan) { plan.setNextStartTime(text); });
    if (announce)
        emit nextStartChanged(planUuid);
}

void SchedulerService::onDue(const QString& planUuid, const QDateTime& instant)
{
    const SchedulerPlan* plan = m_store.Find(planUuid);
    if (!plan)
        return;
    ServiceLog::Info(QStringLiteral("Plan fired: %1 (due at %2).").arg(planText(*plan), timeText(instant)));
    if (!m_store.SetHandledUpTo(planUuid, instant))
        ServiceLog::Error(QStringLiteral("Store the fire time of %1 failed in the onDue.").arg(planUuid));
    if (m_runs.IsBusy(planUuid)) {
        m_runs.RecordWithoutRun(
            planUuid, Skipped, QStringLiteral("The plan was still running when it was due at %1.").arg(timeText(instant)),
            QStringLiteral("Leave more time between the plan's starts, or find out why its runs take this long."));
    } else if (m_runs.Request(planUuid, ScheduledRun) != NoError) {
        ServiceLog::Warn(QStringLiteral("Plan %1 could not run at %2: its operation is not registered.")
                             .arg(planText(*plan), timeText(instant)));
    }
    const QDateTime now = m_clock.Now();
    Reschedule(planUuid, now > instant ? now : instant);
}

void SchedulerService::PruneJournals(const QString& planUuid)
{
    const QDateTime now = m_clock.Now();
    const QString before = m_settings.journalKeepDays > 0
        ? timeText(now.addDays(-m_settings.journalKeepDays)) : QString();
    int pruned = 0;
    if (!m_store.Database().PruneJournals(planUuid, m_settings.journalKeepPerPlan, before, pruned))
        ServiceLog::Error(QStringLiteral("Prune the journals of %1 failed in the PruneJournals.").arg(planUuid));
    else if (pruned > 0) {
        ServiceLog::Info(QStringLiteral("Journals pruned: %1 of plan %2.").arg(pruned).arg(planUuid));
        emit journalsDeleted();
    }
}

SchedulerService::ErrorNumber SchedulerService::CheckTask(const TaskAttribute& task,
                                                          const TriggerAttribute& trigger, QString* reason) const
{
    QString why;
    ErrorNumber error = NoError;
    if (!m_operations.Contains(task.getOperationRegisterName())) {
        why = QStringLiteral("'%1' is not an operation; the operations are %2.")
                  .arg(task.getOperationRegisterName(), m_operations.Names().join(QStringLiteral(", ")));
        error = UnknownOperation;
    } else if (!m_operations.Validate(task, why)) {
        error = BadParameter;
    } else if (!TriggerSchedule::Validate(trigger, why)) {
        error = InvalidTrigger;
    }
    if (reason)
        *reason = why;
    return error;
}

SchedulerService::ErrorNumber SchedulerService::CreatePlan(const QString& name, const RequestNewOperationData& data,
                                                           QString& planUuid, QString* reason)
{
    if (const ErrorNumber error = CheckTask(data.getTaskAttribute(), data.getTriggerAttribute(), reason))
        return error;
    planUuid = CommonTools::CreateUuid();
    return StoreNew(SchedulerPlan(data), planUuid, name, "created");
}

SchedulerService::ErrorNumber SchedulerService::StoreNew(SchedulerPlan plan, const QString& uuid, const QString& name,
                                                         const char* how)
{
    plan.setPlanUuid(uuid);
    plan.setPlanName(name);
    plan.getObjectTaskAttribute().setTaskName(CommonTools::GetJobName(uuid));
    plan.getObjectTriggerAttribute().setTriggerName(CommonTools::GetTriggerName(uuid));
    const QDateTime now = m_clock.Now();
    if (!m_store.Insert(plan, now))
        return StorageFailed;
    ServiceLog::Info(QStringLiteral("Plan %1: %2 (%3).")
                         .arg(QLatin1String(how), planText(plan), plan.getTaskAttribute().getOperationRegisterName()));
    Reschedule(uuid, now, false);
    emit planChanged(uuid);
    return NoError;
}

SchedulerService::ErrorNumber SchedulerService::AddPlan(const SchedulerPlan& given, QString& planUuid, QString* reason)
{
    QString why;
    const QString uuid = given.getPlanUuid().isEmpty() ? CommonTools::CreateUuid() : given.getPlanUuid();
    ErrorNumber error = NoError;
    if (QUuid(uuid).isNull() || QUuid(uuid).toString() != uuid.toLower()) {
        why = QStringLiteral("'%1' is not a uuid in braces.").arg(uuid);
        error = BadPayload;
    } else if (const SchedulerPlan* stored = FindPlan(uuid)) {
        why = QStringLiteral("The plan '%1' has the uuid %2 already.").arg(stored->getPlanName(), uuid);
        error = PlanExists;
    } else {
        error = CheckTask(given.getTaskAttribute(), given.getTriggerAttribute(), &why);
    }
    if (reason)
        *reason = why;
    if (error != NoError)
        return error;
    RequestNewOperationData data;
    data.setTaskAttribute(given.getTaskAttribute());
    data.setTriggerAttribute(given.getTriggerAttribute());
    const QString created = given.getSchemeAttribute().getCreateTime();
    data.setCreateTime(QDateTime::fromString(created, TriggerSchedule::TimeFormat).isValid()
                           ? created : timeText(QDateTime::currentDateTime()));
    planUuid = uuid;
    return StoreNew(SchedulerPlan(data), uuid, given.getPlanName(), "imported");
}

SchedulerService::ErrorNumber SchedulerService::RunOnce(const QString& name, const TaskAttribute& task,
                                                        QString& runUuid, QString* reason)
{
    if (const ErrorNumber error = CheckTask(task, TriggerAttribute(), reason))
        return error;
    RequestNewOperationData data;
    data.setTaskAttribute(task);
    data.setCreateTime(timeText(QDateTime::currentDateTime()));
    SchedulerPlan plan(data);
    runUuid = CommonTools::CreateUuid();
    plan.setPlanUuid(runUuid);
    plan.setPlanName(name.isEmpty() ? QStringLiteral("once: %1").arg(task.getOperationRegisterName()) : name);
    plan.getObjectTaskAttribute().setTaskName(CommonTools::GetJobName(runUuid));
    return m_runs.RequestOnce(plan);
}

SchedulerService::ErrorNumber SchedulerService::CancelOnce(const QString& runUuid)
{
    if (m_store.Contains(runUuid))
        return PlanNotFound;   // a stored plan is cancelled with CancelOperation
    return m_runs.Cancel(runUuid);
}

SchedulerService::ErrorNumber SchedulerService::DeleteOnce(const QString& runUuid, QString* reason)
{
    QString why;
    ErrorNumber error = NoError;
    QList<JournalAttribute> journals;
    if (m_store.Contains(runUuid)) {
        why = QStringLiteral("%1 is a stored plan, not a one-off run.").arg(runUuid);
        error = PlanNotFound;
    } else if (m_runs.IsBusy(runUuid)) {
        why = QStringLiteral("The one-off run %1 has not ended: cancel it first.").arg(runUuid);
        error = PlanBusy;
    } else if (!m_store.Database().LoadJournals(runUuid, journals)) {
        error = StorageFailed;
    } else if (journals.isEmpty()) {
        why = QStringLiteral("No one-off run has the uuid %1.").arg(runUuid);
        error = PlanNotFound;
    }
    if (reason)
        *reason = why;
    if (error != NoError)
        return error;
    QStringList uuids;
    for (const JournalAttribute& journal : journals)
        uuids << journal.getJournalUuid();
    return DeleteJournals(uuids);
}

SchedulerService::ErrorNumber SchedulerService::Reload()
{
    if (m_runs.RunningCount() > 0 || m_runs.QueuedCount() > 0)
        return PlanBusy;
    QStringList before;
    for (const SchedulerPlan* plan : m_store.Ordered())
        before << plan->getPlanUuid();
    if (!m_store.Load())
        return StorageFailed;
    for (const QString& uuid : qAsConst(before)) {
        if (!m_store.Contains(uuid))
            m_triggers.Remove(uuid);
    }
    const QDateTime now = m_clock.Now();
    for (const SchedulerPlan* plan : std::vector<const SchedulerPlan*>(m_store.Ordered()))
        Reschedule(plan->getPlanUuid(), now, false);
    ServiceLog::Info(QStringLiteral("Plans reloaded: %1 plans, %2 of them scheduled.")
                         .arg(m_store.Count())
                         .arg(m_triggers.Count()));
    emit plansReloaded();
    return NoError;
}

SchedulerService::ErrorNumber SchedulerService::FireNow(const QString& planUuid)
{
    const SchedulerPlan* plan = m_store.Find(planUuid);
    if (!plan)
        return PlanNotFound;
    ServiceLog::Info(QStringLiteral("Plan fired: %1 (asked by an agent).").arg(planText(*plan)));
    return m_runs.Request(planUuid, ScheduledRun);
}

SchedulerService::ErrorNumber SchedulerService::UpdateNextStart(const QString& planUuid)
{
    if (!m_store.Contains(planUuid))
        return PlanNotFound;
    Reschedule(planUuid, m_clock.Now());
    return NoError;
}

const SchedulerPlan* SchedulerService::FindPlan(const QString& planUuid) const
{
    const SchedulerPlan* plan = m_store.Find(planUuid);
    return plan ? plan : m_runs.FindOnce(planUuid);
}

SchedulerService::ErrorNumber SchedulerService::EditPlan(const QString& planUuid, const SchedulerPlan& edit,
                                                         QString* reason)
{
    const SchedulerPlan* stored = m_store.Find(planUuid);
    if (!stored)
        return PlanNotFound;
    if (const ErrorNumber error = CheckTask(edit.getTaskAttribute(), edit.getTriggerAttribute(), reason))
        return error;
    SchedulerPlan plan(*stored);
    TaskAttribute task = edit.getTaskAttribute();
    TriggerAttribute trigger = edit.getTriggerAttribute();
    task.setTaskName(plan.getTaskAttribute().getTaskName());
    trigger.setTriggerName(plan.getTriggerAttribute().getTriggerName());
    const bool triggerChanged = trigger != plan.getTriggerAttribute();
    plan.setTaskAttribute(task);
    plan.setTriggerAttribute(trigger);
    if (!edit.getPlanName().isEmpty())
        plan.setPlanName(edit.getPlanName());
    // A new schedule starts now: occurrences it would have had before the edit were not missed.
    const QDateTime now = m_clock.Now();
    if (!m_store.Update(plan, triggerChanged ? now : QDateTime()))
        return StorageFailed;
    ServiceLog::Info(QStringLiteral("Plan edited: %1.").arg(planText(plan)));
    Reschedule(planUuid, now, false);
    emit planChanged(planUuid);
    return NoError;
}

SchedulerService::ErrorNumber SchedulerService::DeletePlan(const QString& planUuid)
{
    const SchedulerPlan* stored = m_store.Find(planUuid);
    if (!stored)
        return PlanNotFound;
    const QString text = planText(*stored);
    const QString name = stored->getPlanName();
    m_runs.Cancel(planUuid);   // a run in progress still ends with its journal
    if (!m_store.Remove(planUuid))
        return StorageFailed;
    m_triggers.Remove(planUuid);
    ServiceLog::Info(QStringLiteral("Plan deleted: %1.").arg(text));
    emit planDeleted(planUuid, name);
    return NoError;
}

SchedulerService::ErrorNumber SchedulerService::RunNow(const QString& planUuid)
{
    return m_runs.Request(planUuid, ManualRun);
}

SchedulerService::ErrorNumber SchedulerService::Cancel(const QString& planUuid)
{
    if (!m_store.Contains(planUuid))
        return PlanNotFound;
    return m_runs.Cancel(planUuid);
}

SchedulerService::ErrorNumber SchedulerService::LoadJournals(const QString& planUuid,
                                                             QList<JournalAttribute>& journals)
{
    return m_store.Database().LoadJournals(planUuid, journals) ? NoError : StorageFailed;
}

SchedulerService::ErrorNumber SchedulerService::DeleteJournals(const QStringList& journalUuids)
{
    int deleted = 0;
    if (!m_store.Database().DeleteJournals(journalUuids, deleted))
        return StorageFailed;
    if (deleted > 0)
        emit journalsDeleted();
    return NoError;
}

SchedulerService::ErrorNumber SchedulerService::DeleteAllJournals()
{
    int deleted = 0;
    if (!m_store.Database().DeleteAllJournals(deleted))
        return StorageFailed;
    if (deleted > 0)
        emit journalsDeleted();
    return NoError;
}

SchedulerService::ErrorNumber SchedulerService::UpdateEmail(const EmailConfigAttribute& settings)
{
    // The settings writer reports nothing: find out beforehand whether the file can be written.
    const QFileInfo file(m_settings.emailFile);
    const bool writable = file.exists() ? file.isWritable() : QFileInfo(file.absolutePath()).isWritable();
    if (!writable)
        return SettingsFailed;
    SecureEmailFile(true);
    m_email.SetConfigAttribute(settings);
    m_email.WriteConfig();
    SecureEmailFile(false);
    return NoError;
}

// The settings hold the SMTP password: the file is its owner's alone, from its creation on.
void SchedulerService::SecureEmailFile(bool create) const
{
    QFile file(m_settings.emailFile);
    if (m_settings.emailFile.isEmpty() || (!create && !file.exists()))
        return;
    if (!file.exists() && file.open(QIODevice::WriteOnly))
        file.close();
    if (!file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner))
        ServiceLog::Warn(QStringLiteral("The e-mail settings file %1 could not be made readable by its owner only.")
                             .arg(m_settings.emailFile));
}

void SchedulerService::MailJournal(const JournalAttribute& journal)
{
    const QString result = journal.getResult();
    const bool wanted = result == OutcomeText(Succeeded) ? m_email.getOperationSuccessful() != 0
        : result == OutcomeText(Failed) || result == OutcomeText(Interrupted) ? m_email.getOperationFailure() != 0
                                                                              : false;
    if (!m_email.getEnableEmailNotification() || !wanted)
        return;
    QString reason;
    const QString subject = MailMessage::RunSubject(journal, m_email.getMailSubject());
    if (!QueueMail(m_email, subject, MailMessage::RunBody(journal), reason))
        ServiceLog::Warn(QStringLiteral("Mail not sent: \"%1\" to %2: %3.")
                             .arg(subject, m_email.getMailRecipients().simplified(), reason));
}

quint64 SchedulerService::SendTestMail(const EmailConfigAttribute* settings, QString& reason)
{
    const EmailConfigAttribute& chosen = settings ? *settings : m_email;
    return QueueMail(chosen, MailMessage::TestSubject(chosen.getMailSubject()), MailMessage::TestBody(chosen), reason);
}

quint64 SchedulerService::QueueMail(const EmailConfigAttribute& settings, const QString& subject,
                                    const QString& body, QString& reason)
{
    reason = MailSender::Check(settings);
    if (!reason.isEmpty())
        return 0;
    OutgoingMail mail{settings, MailMessage::Recipients(settings.getMailRecipients()), QByteArray()};
    mail.message = MailMessage::Compose(settings.getMailSender().trimmed(), mail.recipients, subject, body,
                                        QDateTime::currentDateTime());
    const quint64 ticket = m_mailer.Send(mail);
    if (ticket == 0) {
        reason = m_stopping ? QStringLiteral("the service is stopping")
                            : QStringLiteral("%1 mails are already waiting to be sent").arg(MailSender::MaxWaiting);
        return 0;
    }
    m_mails.insert(ticket, qMakePair(subject, mail.recipients.join(QLatin1String(", "))));
    return ticket;
}

void SchedulerService::onMailEnded(quint64 ticket, const QString& error)
{
    const QPair<QString, QString> mail = m_mails.take(ticket);
    if (error.isEmpty())
        ServiceLog::Info(QStringLiteral("Mail sent: \"%1\" to %2.").arg(mail.first, mail.second));
    else
        ServiceLog::Warn(QStringLiteral("Mail not sent: \"%1\" to %2: %3.").arg(mail.first, mail.second, error));
    emit mailEnded(ticket, error, mail.second);
}
