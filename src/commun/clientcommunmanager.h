#ifndef BACKUPFRAME_CLIENTCOMMUNMANAGER_H
#define BACKUPFRAME_CLIENTCOMMUNMANAGER_H

#include "backupframe_global.h"
#include "commun/communattribute.h"
#include "commun/socketcommandpackage.h"

#include <QMutex>
#include <QObject>
#include <QString>

class CommCommand;

// The client side's front door: any thread queues a command with RequestCommunCommand;
// the announced package reaches onDealQueuePackageCommand on this object's thread and
// its command goes to the host's DealRequestCommand. The host derives the concrete
// manager and connects the dispatch manager's signal to onDealQueuePackageCommand.
class BACKUPFRAME_EXPORT ClientCommunManager : public QObject
{
    Q_OBJECT

public:
    explicit ClientCommunManager(QObject* parent = nullptr);
    ~ClientCommunManager() override;

    // Stamps the trace flag and queues the command (local or TCP by its own endpoint).
    // On success the queue owns the command; a command without a transport is refused.
    static bool RequestCommunCommand(CommCommand* pcommand);

    void ClientConnectServer(const CommunAttribute& attribute);
    void ClientConnectServer(quint64 protocolType, QString nameorip, quint16 port);

    // Called by ClientConnectServer before toConnectServer is emitted.
    virtual void SetConnectAttribute(const CommunAttribute& attribute) = 0;
    // Sends a queued command. The caller destroys the command when this returns.
    virtual void DealRequestCommand(CommCommand* pcommand) = 0;

signals:
    void toConnectServer();

protected slots:
    void onDealQueuePackageCommand(SocketCommandPackage* ppackage);

protected:
    // For the host's use; the library reads neither.
    CommunAttribute m_communAttribute;
    QMutex m_mutex;
};

#endif
