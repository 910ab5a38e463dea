#include "commun/socketcommandpackage.h"

SocketCommandPackage::SocketCommandPackage()
    : m_packageKind(0)
    , m_socket(nullptr)
    , m_protocolType(0)
    , m_command(nullptr)
{
}

SocketCommandPackage::~SocketCommandPackage() = default;

quint64 SocketCommandPackage::getPackageKind() const
{
    return m_packageKind;
}

void SocketCommandPackage::setPackageKind(quint64 kind)
{
    m_packageKind = kind;
}

QIODevice* SocketCommandPackage::getSocket() const
{
    return m_socket;
}

void SocketCommandPackage::setSocket(QIODevice* psocket)
{
    m_socket = psocket;
}

quint64 SocketCommandPackage::getProtocolType() const
{
    return m_protocolType;
}

void SocketCommandPackage::setProtocolType(quint64 type)
{
    m_protocolType = type;
}

CommCommand* SocketCommandPackage::getCommand() const
{
    return m_command;
}

void SocketCommandPackage::setCommand(CommCommand* pcommand)
{
    m_command = pcommand;
}
