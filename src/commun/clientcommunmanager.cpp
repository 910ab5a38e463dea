#include "commun/clientcommunmanager.h"

#include "command/commandbuilder.h"
#include "command/commcommand.h"
#include "common/logging_p.h"
#include "commun/communproducerconsumermanager.h"

#include <QIODevice>

ClientCommunManager::ClientCommunManager(QObject* parent)
    : QObject(parent)
{
}

ClientCommunManager::~ClientCommunManager() = default;

bool ClientCommunManager::RequestCommunCommand(CommCommand* pcommand)
{
    if (!pcommand)
        return false;
    pcommand->CreateTraceFlag();
    const quint64 protocolType = pcommand->getObjectCommunAttribute().getProtocolType();
    quint64 packageKind = 0;
    if (protocolType == CommunAttribute::LocalProtocol)
        packageKind = SocketCommandPackage::LocalRequestPackage;
    else if (protocolType == CommunAttribute::TcpProtocol)
        packageKind = SocketCommandPackage::TcpRequestPackage;
    else
        return false;
    return CommunProducerConsumerManager::RequestCommunCommand(pcommand, nullptr, protocolType, packageKind);
}

void ClientCommunManager::ClientConnectServer(const CommunAttribute& attribute)
{
    SetConnectAttribute(attribute);
    emit toConnectServer();
}

void ClientCommunManager::ClientConnectServer(quint64 protocolType, QString nameorip, quint16 port)
{
    CommunAttribute attribute;
    attribute.setProtocolType(protocolType);
    attribute.setDestSvrNameIp(nameorip);
    attribute.setDestPort(port);
    ClientConnectServer(attribute);
}

void ClientCommunManager::onDealQueuePackageCommand(SocketCommandPackage* ppackage)
{
    if (!ppackage) {
        LibraryLog::Error(QStringLiteral("The client request SocketCommandPackage pointer is null."));
        return;
    }
    const quint64 kind = ppackage->getPackageKind();
    if (kind != SocketCommandPackage::LocalRequestPackage && kind != SocketCommandPackage::TcpRequestPackage)
        return;   // not a client request: left to whoever else listens
    QIODevice* psocket = ppackage->getSocket();
    CommCommand* pcommand = ppackage->getCommand();
    delete ppackage;
    if (psocket) {
        LibraryLog::Warn(QStringLiteral("The client request SocketCommandPackage's socket pointer is not null."));
        delete psocket;
    }
    DealRequestCommand(pcommand);
    CommandBuilder::DestroyCommand(pcommand);
}
