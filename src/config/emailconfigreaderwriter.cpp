#include "config/emailconfigreaderwriter.h"

#include "common/commontools.h"

#include <QSettings>
#include <QVariant>

namespace {
const QString kEnableEmailNotification = QStringLiteral("/EmailConfig/enable_email_notification");
const QString kMailRecipients = QStringLiteral("/EmailConfig/mail_recipients");
const QString kSmtpServerAddress = QStringLiteral("/ServerConfig/smtp_server_address");
const QString kSmtpServerPort = QStringLiteral("/ServerConfig/smtp_server_port");
const QString kSmtpServerEncryptionType = QStringLiteral("/ServerConfig/smtp_server_encryption_type");
const QString kStmpAuthentication = QStringLiteral("/ServerConfig/stmp_authentication");
const QString kLoginUserName = QStringLiteral("/ServerConfig/login_use_name");
const QString kLoginPassword = QStringLiteral("/ServerConfig/login_password");
const QString kMailSender = QStringLiteral("/MimeEmail/mail_sender");
const QString kMailSubject = QStringLiteral("/MimeEmail/mail_subject");
const QString kOperationSuccessful = QStringLiteral("/AdditionalSetting/operation_successful");
const QString kOperationFailure = QStringLiteral("/AdditionalSetting/operation_failure");

// Numbers are read as 32-bit values (QVariant::toUInt): a text that is no number reads as 0,
// and a larger value keeps its low 32 bits.
quint64 readUInt32(const QSettings& settings, const QString& key)
{
    return settings.value(key, QVariant()).toUInt();
}
}

EmailConfigReaderWriter::EmailConfigReaderWriter() = default;

EmailConfigReaderWriter::EmailConfigReaderWriter(const EmailConfigReaderWriter& other)
    : EmailConfigAttribute(other)
    , m_configPath(other.m_configPath)
{
}

EmailConfigReaderWriter& EmailConfigReaderWriter::operator=(const EmailConfigReaderWriter& other)
{
    if (this != &other) {
        EmailConfigAttribute::operator=(other);
        m_configPath = other.m_configPath;
    }
    return *this;
}

EmailConfigReaderWriter::~EmailConfigReaderWriter() = default;

bool EmailConfigReaderWriter::Init(const QString& path)
{
    if (path.isEmpty())
        return false;
    m_configPath = path;
    return true;
}

void EmailConfigReaderWriter::ReadConfig()
{
    if (!CommonTools::IsFileExist(m_configPath))
        return;
    const QSettings settings(m_configPath, QSettings::IniFormat);
    setEnableEmailNotification(readUInt32(settings, kEnableEmailNotification));
    setMailRecipients(settings.value(kMailRecipients, QVariant()).toString());
    setSmtpServerAddress(settings.value(kSmtpServerAddress, QVariant()).toString());
    setSmtpServerPort(static_cast<quint16>(readUInt32(settings, kSmtpServerPort)));
    setSmtpServerEncryptionType(readUInt32(settings, kSmtpServerEncryptionType));
    setStmpAuthentication(readUInt32(settings, kStmpAuthentication));
    setLoginUserName(settings.value(kLoginUserName, QVariant()).toString());
    QByteArray password;
    CommonTools::DecryptPassword(settings.value(kLoginPassword, QVariant()).toByteArray(), password);
    setLoginPassword(password);
    setMailSender(settings.value(kMailSender, QVariant()).toString());
    setMailSubject(settings.value(kMailSubject, QVariant()).toString());
    setOperationSuccessful(readUInt32(settings, kOperationSuccessful));
    setOperationFailure(readUInt32(settings, kOperationFailure));
}

void EmailConfigReaderWriter::WriteConfig()
{
    if (m_configPath.isEmpty())
        return;
    QSettings settings(m_configPath, QSettings::IniFormat);
    settings.setValue(kEnableEmailNotification, QVariant::fromValue<quint64>(getEnableEmailNotification()));
    settings.setValue(kMailRecipients, getMailRecipients());
    settings.setValue(kSmtpServerAddress, getSmtpServerAddress());
    settings.setValue(kSmtpServerPort, static_cast<int>(getSmtpServerPort()));
    settings.setValue(kSmtpServerEncryptionType, QVariant::fromValue<quint64>(getSmtpServerEncryptionType()));
    settings.setValue(kStmpAuthentication, QVariant::fromValue<quint64>(getStmpAuthentication()));
    settings.setValue(kLoginUserName, getLoginUserName());
    QByteArray scrambled;
    CommonTools::EncryptPassword(getLoginPassword(), scrambled);
    settings.setValue(kLoginPassword, scrambled);
    settings.setValue(kMailSender, getMailSender());
    settings.setValue(kMailSubject, getMailSubject());
    settings.setValue(kOperationSuccessful, QVariant::fromValue<quint64>(getOperationSuccessful()));
    settings.setValue(kOperationFailure, QVariant::fromValue<quint64>(getOperationFailure()));
}

void EmailConfigReaderWriter::SetConfigAttribute(const EmailConfigAttribute& attribute)
{
    EmailConfigAttribute::operator=(attribute);
}

void EmailConfigReaderWriter::UnInit()
{
}
