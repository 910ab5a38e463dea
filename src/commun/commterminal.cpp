#include "commun/commterminal.h"

#include "command/commandbuilder.h"
#include "command/requestcommand.h"
#include "command/resultcommand.h"

#include <QMetaType>
#include <QMutexLocker>

#include <new>

CommTerminal::CommTerminal(QObject* parent)
    : QObject(parent)
    , m_socket(nullptr)
    , m_channelCommand(nullptr)
{
    // So that channelSendCommand can cross threads.
    qRegisterMetaType<SocketCommandPackage*>("SocketCommandPackage*");
    qRegisterMetaType<ResultCommand*>("ResultCommand*");
}

CommTerminal::~CommTerminal()
{
    CleanSocketCommand();
}

void CommTerminal::SocketCommandInfo(QIODevice* psocket, ChannelCommand* pchannel)
{
    QMutexLocker locker(&m_mutex);
    m_socket = psocket;
    if (!pchannel)
        return;
    if (m_channelCommand)
        m_channelCommand->setTraceFlag(pchannel->getTraceFlag());
    else
        m_channelCommand = new ChannelCommand(*pchannel);
}

bool CommTerminal::SendData(const QByteArray& bytes)
{
    QMutexLocker locker(&m_mutex);
    if (!m_socket)
        return false;
    CommCommand* pcommand = CommandBuilder::BuilderCommand(ResultChannelType);
    auto* presult = dynamic_cast<ResultChannel*>(pcommand);
    if (!presult) {
        CommandBuilder::DestroyCommand(pcommand);
        return false;
    }
    presult->GetChannelCommandInfo(m_channelCommand);
    presult->setResultData(bytes);
    auto* ppackage = new (std::nothrow) SocketCommandPackage;
    if (!ppackage) {
        CommandBuilder::DestroyCommand(presult);
        return false;
    }
    ppackage->setPackageKind(SocketCommandPackage::ResultPackage);
    ppackage->setSocket(m_socket);
    if (m_channelCommand)
        ppackage->setProtocolType(m_channelCommand->getObjectCommunAttribute().getProtocolType());
    emit channelSendCommand(ppackage, presult);
    return true;
}

void CommTerminal::CleanSocketCommand()
{
    QMutexLocker locker(&m_mutex);
    m_socket = nullptr;
    delete m_channelCommand;
    m_channelCommand = nullptr;
}

void CommTerminal::setLastTime(const QDateTime& time)
{
    m_lastTime = time;
}

QDateTime CommTerminal::getLastTime()
{
    return m_lastTime;
}
