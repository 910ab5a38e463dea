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
    SettingsFailed = 8      // the e-mail settings file could not be written
};

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
    in.setVersion(16);
    record.Read(in);
    return in.status() == QDataStream::Ok && in.atEnd();
}

template <typename Record>
QByteArray EncodePayload(Record& record)
{
    QByteArray bytes;
    CommandBuilder::DataToBytearray(&record, bytes);
    return bytes;
}

} // namespace SchedulerProtocol

#endif
