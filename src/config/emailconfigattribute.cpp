#include "config/emailconfigattribute.h"

#include <QDataStream>

EmailConfigAttribute::EmailConfigAttribute()
    : m_enableEmailNotification(0)
    , m_mailRecipients(QLatin1String(""))
    , m_smtpServerAddress(QLatin1String(""))
    , m_smtpServerPort(0)
    , m_smtpServerEncryptionType(0)
    , m_stmpAuthentication(0)
    , m_loginUserName(QLatin1String(""))
    , m_loginPassword("")
    , m_mailSender(QLatin1String(""))
    , m_mailSubject(QLatin1String(""))
    , m_operationSuccessful(0)
    , m_operationFailure(0)
{
}

EmailConfigAttribute::EmailConfigAttribute(const EmailConfigAttribute& other)
{
    formother(other);
}

EmailConfigAttribute& EmailConfigAttribute::operator=(const EmailConfigAttribute& other)
{
    if (this != &other)
        formother(other);
    return *this;
}

EmailConfigAttribute::~EmailConfigAttribute() = default;

void EmailConfigAttribute::formother(const EmailConfigAttribute& other)
{
    m_enableEmailNotification = other.m_enableEmailNotification;
    m_mailRecipients = other.m_mailRecipients;
    m_smtpServerAddress = other.m_smtpServerAddress;
    m_smtpServerPort = other.m_smtpServerPort;
    m_smtpServerEncryptionType = other.m_smtpServerEncryptionType;
    m_stmpAuthentication = other.m_stmpAuthentication;
    m_loginUserName = other.m_loginUserName;
    m_loginPassword = other.m_loginPassword;
    m_mailSender = other.m_mailSender;
    m_mailSubject = other.m_mailSubject;
    m_operationSuccessful = other.m_operationSuccessful;
    m_operationFailure = other.m_operationFailure;
}

quint64 EmailConfigAttribute::getEnableEmailNotification() const { return m_enableEmailNotification; }
void EmailConfigAttribute::setEnableEmailNotification(quint64 enable) { m_enableEmailNotification = enable; }
QString EmailConfigAttribute::getMailRecipients() const { return m_mailRecipients; }
void EmailConfigAttribute::setMailRecipients(const QString& recipients) { m_mailRecipients = recipients; }
QString EmailConfigAttribute::getSmtpServerAddress() const { return m_smtpServerAddress; }
void EmailConfigAttribute::setSmtpServerAddress(const QString& address) { m_smtpServerAddress = address; }
quint16 EmailConfigAttribute::getSmtpServerPort() const { return m_smtpServerPort; }
void EmailConfigAttribute::setSmtpServerPort(quint16 port) { m_smtpServerPort = port; }
quint64 EmailConfigAttribute::getSmtpServerEncryptionType() const { return m_smtpServerEncryptionType; }
void EmailConfigAttribute::setSmtpServerEncryptionType(quint64 type) { m_smtpServerEncryptionType = type; }
quint64 EmailConfigAttribute::getStmpAuthentication() const { return m_stmpAuthentication; }
void EmailConfigAttribute::setStmpAuthentication(quint64 authentication) { m_stmpAuthentication = authentication; }
QString EmailConfigAttribute::getLoginUserName() const { return m_loginUserName; }
void EmailConfigAttribute::setLoginUserName(const QString& userName) { m_loginUserName = userName; }
QByteArray EmailConfigAttribute::getLoginPassword() const { return m_loginPassword; }
void EmailConfigAttribute::setLoginPassword(const QByteArray& password) { m_loginPassword = password; }
QString EmailConfigAttribute::getMailSender() const { return m_mailSender; }
void EmailConfigAttribute::setMailSender(const QString& sender) { m_mailSender = sender; }
QString EmailConfigAttribute::getMailSubject() const { return m_mailSubject; }
void EmailConfigAttribute::setMailSubject(const QString& subject) { m_mailSubject = subject; }
quint64 EmailConfigAttribute::getOperationSuccessful() const { return m_operationSuccessful; }
void EmailConfigAttribute::setOperationSuccessful(quint64 onSuccess) { m_operationSuccessful = onSuccess; }
quint64 EmailConfigAttribute::getOperationFailure() const { return m_operationFailure; }
void EmailConfigAttribute::setOperationFailure(quint64 onFailure) { m_operationFailure = onFailure; }

void EmailConfigAttribute::Write(QDataStream& out) const
{
    out << static_cast<qint64>(m_enableEmailNotification) << m_mailRecipients << m_smtpServerAddress
        << static_cast<qint16>(m_smtpServerPort) << static_cast<qint64>(m_smtpServerEncryptionType)
        << static_cast<qint64>(m_stmpAuthentication) << m_loginUserName << m_loginPassword
        << m_mailSender << m_mailSubject << static_cast<qint64>(m_operationSuccessful)
        << static_cast<qint64>(m_operationFailure);
}

void EmailConfigAttribute::Read(QDataStream& in)
{
    qint64 enable = 0;
    qint16 port = 0;
    qint64 encryptionType = 0;
    qint64 authentication = 0;
    qint64 onSuccess = 0;
    qint64 onFailure = 0;
    in >> enable >> m_mailRecipients >> m_smtpServerAddress >> port >> encryptionType
       >> authentication >> m_loginUserName >> m_loginPassword >> m_mailSender >> m_mailSubject
       >> onSuccess >> onFailure;
    m_enableEmailNotification = static_cast<quint64>(enable);
    m_smtpServerPort = static_cast<quint16>(port);
    m_smtpServerEncryptionType = static_cast<quint64>(encryptionType);
    m_stmpAuthentication = static_cast<quint64>(authentication);
    m_operationSuccessful = static_cast<quint64>(onSuccess);
    m_operationFailure = static_cast<quint64>(onFailure);
}
