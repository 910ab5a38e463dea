#ifndef BACKUPFRAME_AGENT_TRIGGEROPTIONS_H
#define BACKUPFRAME_AGENT_TRIGGEROPTIONS_H

#include <backupframe.h>

#include <QHash>
#include <QString>

class AgentOptions;

// The trigger options of "new" and "edit", checked and normalised, then turned into
// trigger fields the way the schedule dialog does it (SchedulerDialogData, hours to
// seconds, through RequestNewOperationData::GetDialogTrigger).
class TriggerOptions
{
public:
    // False with a message when a value is malformed or two options contradict.
    bool Parse(const AgentOptions& options, QString& error);
    bool Any() const { return !m_given.isEmpty(); }

    // A new plan: every trigger field from the options (absent ones empty or 0);
    // the end flag is set when --end is given.
    void FillNew(RequestNewOperationData& data) const;
    // An existing plan: only the fields named by the options change.
    void ApplyTo(TriggerAttribute& trigger) const;

private:
    bool ParseValues(const AgentOptions& options, QString& error);
    bool Given(const char* name) const;
    QString Text(const char* name) const;
    SchedulerDialogData Dialog() const;

    QHash<QString, QString> m_given;   // option name -> checked, normalised text
};

#endif
