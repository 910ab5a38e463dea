#ifndef BACKUPFRAME_FRAMEERRORCODE_H
#define BACKUPFRAME_FRAMEERRORCODE_H

#include "backupframe_global.h"

#include <QString>

// Packed 64-bit error codes, from the least significant bit:
// severity:3 group:4 flag:1 code:16 detail:16 reserved:8 extra:16.
class BACKUPFRAME_EXPORT FrameErrorCode
{
public:
    FrameErrorCode() = default;
    virtual ~FrameErrorCode() = default;

    static quint64 MakeCode(quint8 severity, quint8 group, quint8 flag, quint16 code, quint16 detail,
                            quint8 reserved, quint16 extra);
    // Note the argument order: severity, code, extra, flag, detail.
    static quint64 MakeShortCode(quint8 severity, quint32 code, quint16 extra, quint32 flag,
                                 quint32 detail);
    // "OK" for 0-3, "Warning" for 4, "Error" for 5-7, empty otherwise.
    static QString SeverityText(qint8 severity);
    static QString SeverityTextOf(qint8 value);
};

#endif
