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

// The widest a cell of a list table (plans, journals) may be: longer texts end in "…".
constexpr int kCellWidth = 40;

// Control characters shown as escapes: "\n", "\r", "\t", other C0/C1 controls and
// DEL as "\xNN", invisible format characters (e.g. bidi overrides) as "\uNNNN".
QString Escaped(const QString& text);
// The text cut to width characters, the last being "…", when it is longer.
QString Elided(const QString& text, int width = kCellWidth);
// A cell of a list table: escaped, then elided.
QString Cell(const QString& text);

// Rows of cells (a header is just the first row), columns separated by two blanks,
// each as wide as its widest cell; no trailing blanks. Cells are shown escaped.
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
// The numeric code of a journal's result text, as a plan's resultCode counts it
// (0 Succeeded, 1 Failed, 2 Cancelled, 3 Interrupted); -1 for any other text.
int ResultCodeOf(const QString& result);
QString TriggerSummary(const TriggerAttribute& trigger);
// "task_{a1b2...}" shown as "task_a1b2c3d4"; other names unchanged.
QString ShortTaskName(const QString& taskName);

// "512 B", "12.0 KiB", "1.5 MiB", "2.3 GiB".
QString ByteSize(quint64 bytes);
// "12.0 MiB of 300.0 MiB (4%), 45.2 MiB/s, 0:03": a run's progress after elapsedMs.
QString ProgressText(quint64 done, quint64 total, qint64 elapsedMs);

QJsonObject PlanToJson(const SchedulerPlan& plan);
// A plan as PlanToJson wrote it: uuid, name, create time, task (operation, parameter) and trigger;
// false with the reason when a field is missing or of the wrong kind.
bool PlanFromJson(const QJsonObject& json, SchedulerPlan& plan, QString& error);
QJsonObject JournalToJson(const JournalAttribute& journal);
QJsonObject EmailToJson(const EmailConfigAttribute& email);
// Label/value lines of the e-mail settings, labelled with the option names.
QString EmailText(const EmailConfigAttribute& email);

} // namespace AgentOutput

#endif
