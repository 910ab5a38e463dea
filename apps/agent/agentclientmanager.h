#ifndef BACKUPFRAME_AGENT_AGENTCLIENTMANAGER_H
#define BACKUPFRAME_AGENT_AGENTCLIENTMANAGER_H

#include <backupframe.h>

#include <QByteArray>
#include <QObject>

// The agent's client manager: takes the commands that the dispatch queue announces,
// encodes them and hands the bytes to the connection worker through requestBytes.
// Lives on the main thread; the worker listens on its own thread (queued).
class AgentClientManager : public ClientCommunManager
{
    Q_OBJECT

public:
    explicit AgentClientManager(QObject* parent = nullptr);

    // Feeds this manager from the process's dispatch queue, queued to this object's thread.
    void AttachDispatch(CommunProducerConsumerManager* dispatch);

    // Keeps the endpoint in the base class's member, for whoever asks later.
    void SetConnectAttribute(const CommunAttribute& attribute) override;
    // The command is destroyed by the caller as soon as this returns: only its bytes leave.
    void DealRequestCommand(CommCommand* command) override;

signals:
    void requestBytes(QByteArray bytes);
};

#endif
