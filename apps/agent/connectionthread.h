#ifndef BACKUPFRAME_AGENT_CONNECTIONTHREAD_H
#define BACKUPFRAME_AGENT_CONNECTIONTHREAD_H

#include "agentclientmanager.h"

#include <backupframe.h>

#include <QString>
#include <QThread>

// An agent's connection worker on a thread of its own, fed by the agent's client manager:
// the manager's connect requests and encoded commands reach the worker queued. The owner
// connects the worker's signals (Worker()) before it asks the manager to connect.
class ConnectionThread
{
public:
    explicit ConnectionThread(const QString& name);
    ~ConnectionThread();

    // A new worker for the endpoint, started on the thread; false when the worker did not start.
    bool Start(AgentClientManager& manager, const CommunAttribute& endpoint);
    // The worker, or null before Start and after Stop; it lives on the thread.
    CommunClientWork* Worker() const { return m_worker; }
    // Ends the thread; the worker is uninitialised and deleted on it.
    void Stop();

private:
    QThread m_thread;
    CommunClientWork* m_worker = nullptr;
};

#endif
