#ifndef BACKUPFRAME_AGENT_AGENTOUTPUT_H
#define BACKUPFRAME_AGENT_AGENTOUTPUT_H

#include <backupframe.h>

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

// Text for people (aligned tables, short ids, one-line summaries) and JSON for
// programs, built from the library's records. Pure functions; no I/O.
namespace AgentOutput {

// Rows of cells (a header is just the first row), columns separated by two blanks,
// each as wide as its widest cell; no trailing blanks. Cells are shown as given.
class Table
{
public:
    void AddRow(const QStringList& cells);
    QString Render() const;

private:
    QList<QStringList> m_rows;
};

// Uuids shown without braces, cut to the shortest length (8 at least) at which all of
// them stay distinct, so that each shown id also works as a PLAN or JOURNAL prefix.
QStringList ShortIds(const QStringList& uuids);
// Whether key is a prefix of the uuid, with or without its opening brace (any case),
// of 4 characters at least.
bool MatchesUuidPrefix(const QString& uuid, const QString& key);
QString TaskSummary(const TaskAttribute& task);
QString TriggerSummary(const TriggerAttribute& trigger);
// "task_{a1b2...}" shown as "task_a1b2c3d4"; other names unchanged.
QString ShortTaskName(const QString& taskName);

QJsonObject PlanToJson(const SchedulerPlan& plan);
QJsonObject JournalToJson(const JournalAttribute& journal);
QJsonObject EmailToJson(const EmailConfigAttribute& email);
// Label/value lines of the e-mail settings, labelled with the option names.
QString EmailText(const EmailConfigAttribute& email);

} // namespace AgentOutput

#endif
