#ifndef BACKUPFRAME_COMMANDOBJ_H
#define BACKUPFRAME_COMMANDOBJ_H

#include "backupframe_global.h"

class QDataStream;

// Abstract base of every command and every payload record: each serialises
// itself to and from a QDataStream prepared by CommandBuilder.
class BACKUPFRAME_EXPORT CommandObj
{
public:
    CommandObj() = default;
    virtual void Read(QDataStream& in) = 0;
    virtual void Write(QDataStream& out) = 0;
    virtual ~CommandObj() = default;

protected:
    CommandObj(const CommandObj&) = default;
    CommandObj& operator=(const CommandObj&) = default;
};

#endif
