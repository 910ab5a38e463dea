#ifndef BACKUPFRAME_APPS_PROTOCOL_H
#define BACKUPFRAME_APPS_PROTOCOL_H

// What the reference scheduler and agent agree on beyond the library itself:
// the result type, the result codes and strict payload decoding.

#include <backupframe.h>

#include <QByteArray>
#include <QDataStream>
#include <QString>

namespace SchedulerProtocol {

// Every answer of the scheduler is a ResultCommand of this type.
constexpr quint64 ResultType = 2000;

// A request of the reference programs beyond the library's named ones: the registered
// operations. Answered with a QstringListData of "name<TAB>what its parameter holds" entries.
constexpr quint64 LoadOperationsType = 150;
// What a copy or zip plan (the envelope's plan uuid) has written, answered with a QstringListData
// of "kind<TAB>path<TAB>bytes<TAB>files<TAB>time" entries, kind "mirror" or "archive", oldest first.
constexpr quint64 LoadBackupsType = 151;
// The first request of a TCP client: its request data a RequestStringData holding the service's
// TCP secret. Before it, nothing else is served on that connection.
constexpr quint64 HelloType = 152;

// The error number inside a result code; 0 is success.
enum ErrorNumber : quint32 {
    NoError = 0,
    UnknownCommand = 1,     // a command type the scheduler does not serve
    BadPayload = 2,         // the request data does not decode as the type's record
    PlanNotFound = 3,       // no stored plan has the uuid named by the request
    StorageFailed = 4,      // the database refused the change; nothing was stored
    PlanBusy = 5,           // the plan is already running
    PlanNotRunning = 6,     // a cancel for a plan that is not running
    UnknownOperation = 7,   // the plan's task names no registered operation
    SettingsFailed = 8,     // the e-mail settings file could not be written
    InvalidTrigger = 9,     // the trigger is not one the scheduler can fire
    BadParameter = 10,      // the operation's parameter block is not valid for it
    MailFailed = 11,        // the test mail could not be sent (the reason says why)
    PlanExists = 12,        // an import names a plan uuid that is stored already
    NotSupported = 13,      // a custom command: this scheduler serves none
    WriteFailed = 14,       // a file the request asked for could not be written
    Unauthorized = 15       // a TCP client that has not proven the TCP secret
};

// How a run ended: a plan's result code, and the text of its status and of its journal's result.
enum RunOutcome : quint64 {
    Succeeded = 0,
    Failed = 1,
    Cancelled = 2,      // cancelled by a user
    Interrupted = 3,    // the service stopped or died during the run
    Skipped = 4         // a due occurrence did not run (journal only)
};

// Why a run started: a plan's trigger flag.
enum RunReason : quint64 {
    ManualRun = 0,      // an agent asked for it
    ScheduledRun = 1,   // the trigger fired
    CatchUpRun = 2      // an occurrence was missed while the service was down
};

// "Succeeded", "Failed", "Cancelled", "Interrupted", "Skipped".
QString OutcomeText(quint64 outcome);

// A plan's state texts while a run waits in the queue (execut state) and while it runs
// (status and execut state).
inline QString QueuedState() { return QStringLiteral("Queued"); }
inline QString RunningState() { return QStringLiteral("Running"); }

// 0 for NoError, otherwise a packed error code of severity "Error" (5) carrying the number.
quint64 ResultCode(ErrorNumber number);
// The error number inside a result code (0 for success).
quint32 ErrorNumberOf(quint64 resultCode);
// "ok", "unknown command", "bad payload", ...
QString ErrorText(quint64 resultCode);

// Decodes a payload strictly: the whole array must be consumed without a stream error.
// CommandBuilder::BytearrayToData is lenient on purpose; a service must not be.
template <typename Record>
bool DecodePayload(const QByteArray& bytes, Record& record)
{
    if (bytes.isEmpty())
        return false;
    QByteArray copy(bytes);
    QDataStream in(&copy, QIODevice::ReadOnly);
    in.setVersion(PackageFormat::StreamVersion);
    record.Read(in);
    return in.status() == QDataStream::Ok && in.atEnd();
}

// Events pushed to a subscribed channel travel as the result data of a ResultChannel: an
// encoded RequestCommand of the event's type, naming the plan and carrying the event's payload.
// A ResultChannel without result data confirms the subscription.
QByteArray EncodeEvent(quint64 type, const QString& planUuid, const QString& planName, const QByteArray& payload);

// A refusal's reason, as the result data of an error answer: a RequestStringData.
QByteArray ReasonPayload(const QString& reason);
// The reason an error answer carries, or an empty text.
QString ReasonOf(const QByteArray& resultData);

template <typename Record>
QByteArray EncodePayload(Record& record)
{
    QByteArray bytes;
    CommandBuilder::DataToBytearray(&record, bytes);
    return bytes;
}

} // namespace SchedulerProtocol

#endif
