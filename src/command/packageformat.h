#ifndef BACKUPFRAME_PACKAGEFORMAT_H
#define BACKUPFRAME_PACKAGEFORMAT_H

#include <QDataStream>

// How a command travels: a package opens with its total length as a big-endian qint64 that
// counts itself, then the qint64 command type, then the fields. Commands, payloads and the
// length field are all written with one QDataStream version.
namespace PackageFormat {
constexpr int StreamVersion = QDataStream::Qt_5_4;   // 16
constexpr int LengthFieldSize = 8;
}

#endif
