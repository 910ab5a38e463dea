#ifndef BACKUPFRAME_REQUESTCOMMAND_H
#define BACKUPFRAME_REQUESTCOMMAND_H

#include "backupframe_global.h"
#include "command/commcommand.h"

#include <QByteArray>

// A request: the envelope plus the asking client and an opaque payload
// (a record serialised with CommandBuilder::DataToBytearray).
class BACKUPFRAME_EXPORT RequestCommand : public CommCommand
{
public:
    explicit RequestCommand(quint64 commandType);
    RequestCommand(const RequestCommand& other);
    RequestCommand& operator=(const RequestCommand& other);
    ~RequestCommand() override;

    void Read(QDataStream& in) override;
    void Write(QDataStream& out) override;

    QString getClientUuid() const;
    void setClientUuid(const QString& clientUuid);
    QByteArray getRequestData() const;
    QByteArray& getRfrnRequestData();
    void setRequestData(const QByteArray& data);

private:
    void formother(const RequestCommand& other);

    QString m_clientUuid;
    QByteArray m_requestData;
};

// A request that also names the registrar of a channel.
class BACKUPFRAME_EXPORT ChannelCommand : public RequestCommand
{
public:
    explicit ChannelCommand(quint64 commandType);
    ChannelCommand(const ChannelCommand& other);
    ChannelCommand& operator=(const ChannelCommand& other);
    ~ChannelCommand() override;

    void Read(QDataStream& in) override;
    void Write(QDataStream& out) override;

    QString getRedistrarName() const;
    void setRedistrarName(const QString& name);

private:
    void formother(const ChannelCommand& other);

    QString m_redistrarName;
};

// A request of the custom range (5000 and above); encoded exactly as RequestCommand.
class BACKUPFRAME_EXPORT CustomCommand : public RequestCommand
{
public:
    explicit CustomCommand(quint64 commandType);
    CustomCommand(const CustomCommand& other);
    CustomCommand& operator=(const CustomCommand& other);
    ~CustomCommand() override;

    void Read(QDataStream& in) override;
    void Write(QDataStream& out) override;
};

#endif
