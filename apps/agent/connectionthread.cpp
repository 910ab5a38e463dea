#include "connectionthread.h"

#include <QMetaObject>

ConnectionThread::ConnectionThread(const QString& name)
{
    m_thread.setObjectName(name);
}

ConnectionThread::~ConnectionThread()
{
    Stop();
}

bool ConnectionThread::Start(AgentClientManager& manager, const CommunAttribute& endpoint)
{
    m_worker = new CommunClientWork;
    m_worker->moveToThread(&m_thread);
    CommunClientWork* worker = m_worker;
    // Runs on the worker's thread once its event loop has ended, then the worker goes.
    QObject::connect(&m_thread, &QThread::finished, worker, [worker] { worker->UnInit(); }, Qt::DirectConnection);
    QObject::connect(&m_thread, &QThread::finished, worker, &QObject::deleteLater);
    QObject::connect(&manager, &ClientCommunManager::toConnectServer, worker, &CommunClientWork::onreconnectServer,
                     Qt::QueuedConnection);
    QObject::connect(&manager, SIGNAL(requestBytes(QByteArray)), worker, SLOT(onRequestData(QByteArray)),
                     Qt::QueuedConnection);
    m_thread.start();

    bool started = false;
    QMetaObject::invokeMethod(worker, [worker, endpoint, &started] {
        worker->SetCommunAttribute(endpoint);
        started = worker->Init();
    }, Qt::BlockingQueuedConnection);
    return started;
}

void ConnectionThread::Stop()
{
    if (m_thread.isRunning()) {
        m_thread.quit();
        m_thread.wait();
    }
    m_worker = nullptr;
}
