#include "protocol.h"

namespace SchedulerProtocol {

quint64 ResultCode(ErrorNumber number)
{
    if (number == NoError)
        return 0;
    return FrameErrorCode::MakeShortCode(5, number, 0, 0, 0);
}

quint32 ErrorNumberOf(quint64 resultCode)
{
    return static_cast<quint32>((resultCode >> 8) & 0xFFFF);
}

QString ErrorText(quint64 resultCode)
{
    if (resultCode == 0)
        return QStringLiteral("ok");
    switch (ErrorNumberOf(resultCode)) {
    case UnknownCommand: return QStringLiteral("unknown command");
    case BadPayload: return QStringLiteral("bad payload");
    case PlanNotFound: return QStringLiteral("plan not found");
    case StorageFailed: return QStringLiteral("storage failed");
    case PlanBusy: return QStringLiteral("plan is already running");
    case PlanNotRunning: return QStringLiteral("plan is not running");
    case UnknownOperation: return QStringLiteral("unknown operation");
    case SettingsFailed: return QStringLiteral("settings could not be saved");
    case InvalidTrigger: return QStringLiteral("the trigger is not valid");
    case BadParameter: return QStringLiteral("the operation's parameter is not valid");
    case MailFailed: return QStringLiteral("the mail could not be sent");
    case PlanExists: return QStringLiteral("a plan with that uuid exists");
    case NotSupported: return QStringLiteral("not supported");
    case WriteFailed: return QStringLiteral("the file could not be written");
    case Unauthorized: return QStringLiteral("the TCP secret is missing or wrong");
    default: return QStringLiteral("error 0x%1").arg(resultCode, 0, 16);
    }
}

QString OutcomeText(quint64 outcome)
{
    switch (outcome) {
    case Succeeded: return QStringLiteral("Succeeded");
    case Failed: return QStringLiteral("Failed");
    case Cancelled: return QStringLiteral("Cancelled");
    case Interrupted: return QStringLiteral("Interrupted");
    case Skipped: return QStringLiteral("Skipped");
    default: return QStringLiteral("Unknown");
    }
}

QByteArray EncodeEvent(quint64 type, const QString& planUuid, const QString& planName, const QByteArray& payload)
{
    RequestCommand event(type);
    event.setPlanUuid(planUuid);
    event.setPlanName(planName);
    event.setRequestData(payload);
    QByteArray bytes;
    CommandBuilder::CommandToBytearray(&event, bytes);
    return bytes;
}

QByteArray ReasonPayload(const QString& reason)
{
    RequestStringData data;
    data.setStringValue(reason);
    return EncodePayload(data);
}

QString ReasonOf(const QByteArray& resultData)
{
    RequestStringData data;
    return DecodePayload(resultData, data) ? data.getStringValue() : QString();
}

} // namespace SchedulerProtocol
