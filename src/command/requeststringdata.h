#ifndef BACKUPFRAME_REQUESTSTRINGDATA_H
#define BACKUPFRAME_REQUESTSTRINGDATA_H

#include "backupframe_global.h"
#include "command/commandobj.h"

#include <QByteArray>
#include <QString>

// Payload of one string value plus a remote user and password (raw bytes, never
// decoded here). Every field defaults to null and travels as the null marker.
class BACKUPFRAME_EXPORT RequestStringData : public CommandObj
{
public:
    RequestStringData();
    RequestStringData(const RequestStringData& other);
    RequestStringData& operator=(const RequestStringData& other);
    ~RequestStringData() override;

    void Read(QDataStream& in) override;
    void Write(QDataStream& out) override;

    QString getStringValue() const;
    void setStringValue(const QString& stringValue);
    QString getDstRemoteUser() const;
    void setDstRemoteUser(const QString& dstRemoteUser);
    QByteArray getDstRemotePwd() const;
    void setDstRemotePwd(const QByteArray& dstRemotePwd);

private:
    void formother(const RequestStringData& other);

    QString m_stringValue;
    QString m_dstRemoteUser;
    QByteArray m_dstRemotePwd;
};

#endif
