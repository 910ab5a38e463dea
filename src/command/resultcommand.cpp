#include "command/resultcommand.h"

#include "command/requestcommand.h"

#include <QDataStream>

ResultCommand::ResultCommand(quint64 commandType)
    : CommCommand(commandType)
    , m_sendCommandType(0)
    , m_uintResult(1)
{
}

ResultCommand::ResultCommand(const ResultCommand& other)
    : CommCommand(other)
{
    formother(other);
}

ResultCommand& ResultCommand::operator=(const ResultCommand& other)
{
    if (this == &other)
        return *this;
    CommCommand::operator=(other);
    formother(other);
    return *this;
}

ResultCommand::~ResultCommand()
{
    m_resultData.clear();
}

void ResultCommand::formother(const ResultCommand& other)
{
    m_sendCommandType = other.m_sendCommandType;
    m_uintResult = other.m_uintResult;
    m_resultData = other.m_resultData;
}

void ResultCommand::Write(QDataStream& out)
{
    CommCommand::Write(out);
    out << static_cast<qint64>(m_sendCommandType) << static_cast<qint64>(m_uintResult)
        << m_resultData;
}

void ResultCommand::Read(QDataStream& in)
{
    qint64 sendCommandType = 0;
    qint64 uintResult = 0;
    CommCommand::Read(in);
    in >> sendCommandType >> uintResult >> m_resultData;
    m_sendCommandType = static_cast<quint64>(sendCommandType);
    m_uintResult = static_cast<quint64>(uintResult);
}

void ResultCommand::GetRequestCommandInfo(const CommCommand& request)
{
    setCommunAttribute(request.getCommunAttribute());
    setPlanUuid(request.getPlanUuid());
    setTraceFlag(request.getTraceFlag());
    setPlanName(request.getPlanName());
    setTriggerFlag(request.getTriggerFlag());
    setTriggerType(request.getTriggerType());
    setShowMsgFlag(request.getShowMsgFlag());
    m_sendCommandType = request.getCommandType();
}

quint64 ResultCommand::getSendCommandType() const { return m_sendCommandType; }
void ResultCommand::setSendCommandType(quint64 type) { m_sendCommandType = type; }
quint64 ResultCommand::getUintResult() const { return m_uintResult; }
void ResultCommand::setUintResult(quint64 result) { m_uintResult = result; }
QByteArray ResultCommand::getResultData() const { return m_resultData; }
QByteArray& ResultCommand::getRfrnResultData() { return m_resultData; }
void ResultCommand::setResultData(const QByteArray& data) { m_resultData = data; }

ResultChannel::ResultChannel(quint64 commandType)
    : ResultCommand(commandType)
    , m_redistrarName(QLatin1String(""))
{
}

ResultChannel::ResultChannel(const ResultChannel& other)
    : ResultCommand(other)
{
    formother(other);
}

ResultChannel& ResultChannel::operator=(const ResultChannel& other)
{
    if (this == &other)
        return *this;
    ResultCommand::operator=(other);
    formother(other);
    return *this;
}

ResultChannel::~ResultChannel() = default;

void ResultChannel::formother(const ResultChannel& other)
{
    m_redistrarName = other.m_redistrarName;
}

void ResultChannel::Write(QDataStream& out)
{
    ResultCommand::Write(out);
    out << m_redistrarName;
}

void ResultChannel::Read(QDataStream& in)
{
    ResultCommand::Read(in);
    in >> m_redistrarName;
}

void ResultChannel::GetChannelCommandInfo(ChannelCommand* channel)
{
    if (!channel)
        return;
    GetRequestCommandInfo(*channel);
    m_redistrarName = channel->getRedistrarName();
}

QString ResultChannel::getRedistrarName() const { return m_redistrarName; }
void ResultChannel::setRedistrarName(const QString& name) { m_redistrarName = name; }
