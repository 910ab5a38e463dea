#include "agentclientmanager.h"

#include <QMutexLocker>

AgentClientManager::AgentClientManager(QObject* parent)
    : ClientCommunManager(parent)
{
}

void AgentClientManager::AttachDispatch(CommunProducerConsumerManager* dispatch)
{
    // The slot is a protected slot of the base class: connected by its signature.
    connect(dispatch, SIGNAL(dealQueuePackageCommand(SocketCommandPackage*)), this,
            SLOT(onDealQueuePackageCommand(SocketCommandPackage*)), Qt::QueuedConnection);
}

void AgentClientManager::SetConnectAttribute(const CommunAttribute& attribute)
{
    QMutexLocker locker(&m_mutex);
    m_communAttribute = attribute;
}

void AgentClientManager::DealRequestCommand(CommCommand* command)
{
    if (!command)
        return;
    QByteArray bytes;
    CommandBuilder::CommandToBytearray(command, bytes);
    emit requestBytes(bytes);
}
