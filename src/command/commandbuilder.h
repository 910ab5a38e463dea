#ifndef BACKUPFRAME_COMMANDBUILDER_H
#define BACKUPFRAME_COMMANDBUILDER_H

#include "backupframe_global.h"

#include <QByteArray>

class CommandObj;
class CommCommand;

// Creates commands by type number, converts commands and payload records to and
// from byte arrays (QDataStream version 16, big-endian) and destroys commands.
// Every pointer it returns belongs to the caller.
class BACKUPFRAME_EXPORT CommandBuilder
{
public:
    CommandBuilder() = default;
    CommandBuilder(const CommandBuilder&) = default;
    CommandBuilder& operator=(const CommandBuilder&) = default;
    virtual ~CommandBuilder() = default;

    static CommCommand* BuilderCommand(quint64 commandType);
    // Never null but for allocation failure; a short array yields a type-0 CommCommand.
    static CommCommand* BytearrayToCommand(QByteArray bytes);
    // Writes [qint64 total length][qint64 type][fields] from the array's first byte.
    static void CommandToBytearray(CommCommand* command, QByteArray& bytes);
    static void DataToBytearray(CommandObj* data, QByteArray& bytes);
    static void BytearrayToData(const QByteArray& bytes, CommandObj* data);
    static void DestroyCommand(CommCommand* command);
};

#endif
