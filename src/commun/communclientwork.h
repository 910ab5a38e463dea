#ifndef BACKUPFRAME_COMMUNCLIENTWORK_H
#define BACKUPFRAME_COMMUNCLIENTWORK_H

#include "backupframe_global.h"
#include "commun/communattribute.h"
#include "commun/communobject.h"

#include <QByteArray>
#include <QList>
#include <QLocalSocket>
#include <QMutex>
#include <QString>

#include <atomic>

class QTcpSocket;
class SocketSinkData;

// The connecting end: (re)connects to the endpoint of a CommunAttribute, sends the
// packages handed to onRequestData and emits every reply package as returnResult.
// Lives on one thread; its sockets are its children. Call Init on that thread.
// The endpoint, first-result, send and receive locks are never taken inside one another
// by the worker; a receiver of firstConnected runs under the first-result lock.
class BACKUPFRAME_EXPORT CommunClientWork : public CommunObject
{
    Q_OBJECT

public:
    explicit CommunClientWork(QObject* parent = nullptr);
    ~CommunClientWork() override;

    bool Init();
    void UnInit();
    // Stores the endpoint and arms firstConnected; does not connect.
    void SetCommunAttribute(const CommunAttribute& attribute);

signals:
    void firstConnected(quint64 commtype, QString nameorip, quint16 port, bool bflag);
    void hostConnected(quint64 commtype, QString nameorip, quint16 port, bool bflag);
    void returnResult(QByteArray blocks);

public slots:
    // Starts a connection and returns at once; the outcome arrives as hostConnected.
    void onreconnectServer();

private slots:
    void onconnected();
    void onreadyRead();
    void onbytesWritten(qint64 bytes);
    void onRequestData(QByteArray bytes);
    void onLocalError(QLocalSocket::LocalSocketError socketError);
    void onTcpError(QAbstractSocket::SocketError socketError);
    void onreadyReadBytes(QIODevice* psocket, QByteArray bytes);

private:
    void cltdisconnected();
    void CleanRecvData();
    void CleanSendList();
    bool CreateSocket();
    bool SendRequestData(const QByteArray& bytes);
    void ReportConnection(bool bflag);

    QIODevice* m_currentSocket;
    QLocalSocket* m_localSocket;
    QTcpSocket* m_tcpSocket;
    // Armed with the endpoint under the endpoint lock; tested and cleared, with the
    // emission of firstConnected, under the first-result lock.
    std::atomic<bool> m_firstResult;
    QMutex m_firstMutex;
    CommunAttribute m_communAttribute;
    QMutex m_attributeMutex;
    QList<SocketSinkData*> m_sendList;
    QMutex m_sendMutex;
    SocketSinkData* m_recvSink;
    QMutex m_recvMutex;
};

#endif
