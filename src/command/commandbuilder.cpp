#include "command/commandbuilder.h"

#include "command/packageformat.h"
#include "command/requestcommand.h"
#include "command/resultcommand.h"

#include <QDataStream>
#include <QIODevice>
#include <new>

CommCommand* CommandBuilder::BuilderCommand(quint64 commandType)
{
    if (commandType < 100)
        return new (std::nothrow) CommCommand(commandType);
    if (commandType < 2000)
        return new (std::nothrow) RequestCommand(commandType);
    if (commandType < 3000)
        return new (std::nothrow) ResultCommand(commandType);
    if (commandType < 4000)
        return new (std::nothrow) ChannelCommand(commandType);
    if (commandType < 5000)
        return new (std::nothrow) ResultChannel(commandType);
    return new (std::nothrow) CustomCommand(commandType);
}

CommCommand* CommandBuilder::BytearrayToCommand(QByteArray bytes)
{
    QDataStream in(&bytes, QIODevice::ReadOnly);
    in.setVersion(PackageFormat::StreamVersion);

    qint64 totalLength = 0;
    in >> totalLength;   // not compared with the array: the framing has judged it already

    CommCommand probe(0);
    probe.ReadCommandType(in);
    CommCommand* command = BuilderCommand(probe.getCommandType());
    if (!command)
        return nullptr;
    command->Read(in);
    return command;
}

void CommandBuilder::CommandToBytearray(CommCommand* command, QByteArray& bytes)
{
    if (!command)
        return;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out.setVersion(PackageFormat::StreamVersion);
    out << qint64(0);   // placeholder: the length counts itself and everything after it
    command->WriteCommandType(out);
    command->Write(out);
    out.device()->seek(0);
    out << static_cast<qint64>(bytes.size());
}

void CommandBuilder::DataToBytearray(CommandObj* data, QByteArray& bytes)
{
    if (!data)
        return;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out.setVersion(PackageFormat::StreamVersion);
    data->Write(out);
}

void CommandBuilder::BytearrayToData(const QByteArray& bytes, CommandObj* data)
{
    if (!data)
        return;
    QByteArray copy(bytes);
    QDataStream in(&copy, QIODevice::ReadOnly);
    in.setVersion(PackageFormat::StreamVersion);
    data->Read(in);
}

void CommandBuilder::DestroyCommand(CommCommand* command)
{
    delete command;
}
