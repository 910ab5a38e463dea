#include "common/frameerrorcode.h"

quint64 FrameErrorCode::MakeCode(quint8 severity, quint8 group, quint8 flag, quint16 code,
                                 quint16 detail, quint8 reserved, quint16 extra)
{
    const quint8 head = static_cast<quint8>(((flag * 16 + (group & 15)) * 8) | (severity & 7));
    return static_cast<quint64>(head)
        | (static_cast<quint64>(code) << 8)
        | (static_cast<quint64>(detail) << 24)
        | (static_cast<quint64>(reserved) << 40)
        | (static_cast<quint64>(extra) << 48);
}

quint64 FrameErrorCode::MakeShortCode(quint8 severity, quint32 code, quint16 extra, quint32 flag,
                                      quint32 detail)
{
    return MakeCode(severity, 0, static_cast<quint8>(flag), static_cast<quint16>(code),
                    static_cast<quint16>(detail), 0, extra);
}

QString FrameErrorCode::SeverityText(qint8 severity)
{
    switch (severity) {
    case 0: case 1: case 2: case 3: return QStringLiteral("OK");
    case 4: return QStringLiteral("Warning");
    case 5: case 6: case 7: return QStringLiteral("Error");
    default: return QString();
    }
}

QString FrameErrorCode::SeverityTextOf(qint8 value)
{
    return SeverityText(static_cast<qint8>(value & 7));
}
