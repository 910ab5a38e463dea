#ifndef BACKUPFRAME_RESULTCOMMAND_H
#define BACKUPFRAME_RESULTCOMMAND_H

#include "backupframe_global.h"
#include "command/commcommand.h"

#include <QByteArray>

class ChannelCommand;

// The answer to a request: which request type it answers, an unsigned result
// (1 until somebody sets it) and an opaque payload.
class BACKUPFRAME_EXPORT ResultCommand : public CommCommand
{
public:
    explicit ResultCommand(quint64 commandType);
    ResultCommand(const ResultCommand& other);
    ResultCommand& operator=(const ResultCommand& other);
    ~ResultCommand() override;

    void Read(QDataStream& in) override;
    void Write(QDataStream& out) override;

    // Copies the request's envelope and records its type as the send command type.
    void GetRequestCommandInfo(const CommCommand& request);

    quint64 getSendCommandType() const;
    void setSendCommandType(quint64 type);
    quint64 getUintResult() const;
    void setUintResult(quint64 result);
    QByteArray getResultData() const;
    QByteArray& getRfrnResultData();
    void setResultData(const QByteArray& data);

private:
    void formother(const ResultCommand& other);

    quint64 m_sendCommandType;
    quint64 m_uintResult;
    QByteArray m_resultData;
};

// The answer to a channel command: a result that also carries the registrar name.
class BACKUPFRAME_EXPORT ResultChannel : public ResultCommand
{
public:
    explicit ResultChannel(quint64 commandType);
    ResultChannel(const ResultChannel& other);
    ResultChannel& operator=(const ResultChannel& other);
    ~ResultChannel() override;

    void Read(QDataStream& in) override;
    void Write(QDataStream& out) override;

    // GetRequestCommandInfo plus the registrar name; a null channel is ignored.
    void GetChannelCommandInfo(ChannelCommand* channel);

    QString getRedistrarName() const;
    void setRedistrarName(const QString& name);

private:
    void formother(const ResultChannel& other);

    QString m_redistrarName;
};

#endif
