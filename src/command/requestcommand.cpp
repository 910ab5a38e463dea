#include "command/requestcommand.h"

#include <QDataStream>

RequestCommand::RequestCommand(quint64 commandType)
    : CommCommand(commandType)
    , m_clientUuid(QLatin1String(""))
{
}

RequestCommand::RequestCommand(const RequestCommand& other)
    : CommCommand(other)
{
    formother(other);
}

RequestCommand& RequestCommand::operator=(const RequestCommand& other)
{
    if (this == &other)
        return *this;
    CommCommand::operator=(other);
    formother(other);
    return *this;
}

RequestCommand::~RequestCommand()
{
    m_requestData.clear();
}

void RequestCommand::formother(const RequestCommand& other)
{
    m_clientUuid = other.m_clientUuid;
    m_requestData = other.m_requestData;
}

void RequestCommand::Write(QDataStream& out)
{
    CommCommand::Write(out);
    out << m_clientUuid << m_requestData;
}

void RequestCommand::Read(QDataStream& in)
{
    CommCommand::Read(in);
    in >> m_clientUuid >> m_requestData;
}

QString RequestCommand::getClientUuid() const { return m_clientUuid; }
void RequestCommand::setClientUuid(const QString& clientUuid) { m_clientUuid = clientUuid; }
QByteArray RequestCommand::getRequestData() const { return m_requestData; }
QByteArray& RequestCommand::getRfrnRequestData() { return m_requestData; }
void RequestCommand::setRequestData(const QByteArray& data) { m_requestData = data; }

ChannelCommand::ChannelCommand(quint64 commandType)
    : RequestCommand(commandType)
    , m_redistrarName(QLatin1String(""))
{
}

ChannelCommand::ChannelCommand(const ChannelCommand& other)
    : RequestCommand(other)
{
    formother(other);
}

ChannelCommand& ChannelCommand::operator=(const ChannelCommand& other)
{
    if (this == &other)
        return *this;
    RequestCommand::operator=(other);
    formother(other);
    return *this;
}

ChannelCommand::~ChannelCommand() = default;

void ChannelCommand::formother(const ChannelCommand& other)
{
    m_redistrarName = other.m_redistrarName;
}

void ChannelCommand::Write(QDataStream& out)
{
    RequestCommand::Write(out);
    out << m_redistrarName;
}

void ChannelCommand::Read(QDataStream& in)
{
    RequestCommand::Read(in);
    in >> m_redistrarName;
}

QString ChannelCommand::getRedistrarName() const { return m_redistrarName; }
void ChannelCommand::setRedistrarName(const QString& name) { m_redistrarName = name; }

CustomCommand::CustomCommand(quint64 commandType)
    : RequestCommand(commandType)
{
}

CustomCommand::CustomCommand(const CustomCommand& other) = default;

CustomCommand& CustomCommand::operator=(const CustomCommand& other)
{
    if (this != &other)
        RequestCommand::operator=(other);
    return *this;
}

CustomCommand::~CustomCommand() = default;

void CustomCommand::Write(QDataStream& out)
{
    RequestCommand::Write(out);
}

void CustomCommand::Read(QDataStream& in)
{
    RequestCommand::Read(in);
}
