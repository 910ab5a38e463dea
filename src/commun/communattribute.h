#ifndef BACKUPFRAME_COMMUNATTRIBUTE_H
#define BACKUPFRAME_COMMUNATTRIBUTE_H

#include "backupframe_global.h"
#include <QString>

class QDataStream;

// Names one end of the agent/scheduler connection: transport, server name or address, port.
class BACKUPFRAME_EXPORT CommunAttribute
{
public:
    // Transport kinds; 0 means "not set".
    enum CommProtocolType : quint64 {
        NoneProtocol = 0,
        LocalProtocol = 2,
        TcpProtocol = 3
    };

    CommunAttribute();
    CommunAttribute(const CommunAttribute& other);
    CommunAttribute& operator=(const CommunAttribute& other);
    virtual ~CommunAttribute();

    bool operator==(const CommunAttribute& other) const;
    bool operator!=(const CommunAttribute& other) const;

    quint64 getProtocolType() const;
    void setProtocolType(quint64 type);
    QString getDestSvrNameIp() const;
    void setDestSvrNameIp(const QString& nameOrIp);
    quint16 getDestPort() const;
    void setDestPort(quint16 port);

    // protocol type (qint64), server name or address (QString), port (qint16)
    void Write(QDataStream& out) const;
    void Read(QDataStream& in);

private:
    void formother(const CommunAttribute& other);

    quint64 m_protocolType;
    QString m_destSvrNameIp;
    quint16 m_destPort;
};

#endif
