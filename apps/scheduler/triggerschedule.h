#ifndef BACKUPFRAME_SCHEDULER_TRIGGERSCHEDULE_H
#define BACKUPFRAME_SCHEDULER_TRIGGERSCHEDULE_H

#include <backupframe.h>   // TriggerAttribute (apps/ code includes the library's umbrella header)
#include <QDateTime>
#include <QString>

// When a plan's trigger fires. The trigger type codes are the contract between the agents and the service.
namespace TriggerSchedule {

enum Type : quint64 { Once = 0, Daily = 1, Weekly = 2, Monthly = 3 };

// The text form of every time in a trigger: local wall-clock time.
extern const QString TimeFormat;   // "yyyy-MM-dd hh:mm:ss"

// The first instant strictly after `after` at which the trigger fires; an invalid QDateTime
// when it never fires again (no valid start time, unknown type, schedule ended, no matching day).
QDateTime NextFireTime(const TriggerAttribute& trigger, const QDateTime& after);

// Whether the service can fire this trigger; false with a one-sentence reason naming the bad field.
// A trigger with an empty start time is valid: the plan runs only when asked.
bool Validate(const TriggerAttribute& trigger, QString& reason);

}

#endif
