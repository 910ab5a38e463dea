#ifndef BACKUPFRAME_EMAILCONFIGATTRIBUTE_H
#define BACKUPFRAME_EMAILCONFIGATTRIBUTE_H

#include "backupframe_global.h"

#include <QByteArray>
#include <QString>

class QDataStream;

// E-mail notification settings: recipients, SMTP server and login, sender, subject
// and when to send. A plain value record; the password is held plain in memory.
class BACKUPFRAME_EXPORT EmailConfigAttribute
{
public:
    EmailConfigAttribute();
    EmailConfigAttribute(const EmailConfigAttribute& other);
    EmailConfigAttribute& operator=(const EmailConfigAttribute& other);
    virtual ~EmailConfigAttribute();

    quint64 getEnableEmailNotification() const;
    void setEnableEmailNotification(quint64 enable);
    QString getMailRecipients() const;
    void setMailRecipients(const QString& recipients);
    QString getSmtpServerAddress() const;
    void setSmtpServerAddress(const QString& address);
    quint16 getSmtpServerPort() const;
    void setSmtpServerPort(quint16 port);
    quint64 getSmtpServerEncryptionType() const;
    void setSmtpServerEncryptionType(quint64 type);
    quint64 getStmpAuthentication() const;
    void setStmpAuthentication(quint64 authentication);
    QString getLoginUserName() const;
    void setLoginUserName(const QString& userName);
    QByteArray getLoginPassword() const;
    void setLoginPassword(const QByteArray& password);
    QString getMailSender() const;
    void setMailSender(const QString& sender);
    QString getMailSubject() const;
    void setMailSubject(const QString& subject);
    quint64 getOperationSuccessful() const;
    void setOperationSuccessful(quint64 onSuccess);
    quint64 getOperationFailure() const;
    void setOperationFailure(quint64 onFailure);

    // The twelve fields in declared order: flags and kinds as qint64, the port as
    // qint16, the password as an unscrambled QByteArray.
    void Write(QDataStream& out) const;
    void Read(QDataStream& in);

private:
    void formother(const EmailConfigAttribute& other);

    quint64 m_enableEmailNotification;
    QString m_mailRecipients;
    QString m_smtpServerAddress;
    quint16 m_smtpServerPort;
    quint64 m_smtpServerEncryptionType;
    quint64 m_stmpAuthentication;
    QString m_loginUserName;
    QByteArray m_loginPassword;
    QString m_mailSender;
    QString m_mailSubject;
    quint64 m_operationSuccessful;
    quint64 m_operationFailure;
};

#endif
