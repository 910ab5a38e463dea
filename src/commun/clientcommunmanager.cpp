#include "commun/clientcommunmanager.h"

#include "command/commandbuilder.h"
#include "command/commcommand.h"
#include "common/logger.h"
#include "commun/communproducerconsumermanager.h"

#include <QIODevice>

#include <log4cpp/Category.hh>

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
        Logger::GetFileLogHandle().error(
            QString("The client request SocketCommandPackage pointer is null.").toStdString());
        return;
    }
    const quint64 kind = ppackage->getPackageKind();
    if (kind != SocketCommandPackage::LocalRequestPackage && kind != SocketCommandPackage::TcpRequestPackage)
        return;   // not a client request: left to whoever else listens
    QIODevice* psocket = ppackage->getSocket();
    CommCommand* pcommand = ppackage->getCommand();
    delete ppackage;
    if (psocket) {
        Logger::GetFileLogHandle().warn(
            QString("The client request SocketCommandPackage's socket pointer is not null.").toStdString());
        delete psocket;
    }
    DealRequestCommand(pcommand);
    CommandBuilder::DestroyCommand(pcommand);
}
