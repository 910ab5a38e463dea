#include "config/emailconfigreaderwriter.h"

#include "common/commontools.h"

#include <QFile>
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

void writeValues(QSettings& settings, const EmailConfigAttribute& config)
{
    settings.setValue(kEnableEmailNotification, QVariant::fromValue<quint64>(config.getEnableEmailNotification()));
    settings.setValue(kMailRecipients, config.getMailRecipients());
    settings.setValue(kSmtpServerAddress, config.getSmtpServerAddress());
    settings.setValue(kSmtpServerPort, static_cast<int>(config.getSmtpServerPort()));
    settings.setValue(kSmtpServerEncryptionType, QVariant::fromValue<quint64>(config.getSmtpServerEncryptionType()));
    settings.setValue(kStmpAuthentication, QVariant::fromValue<quint64>(config.getStmpAuthentication()));
    settings.setValue(kLoginUserName, config.getLoginUserName());
    QByteArray scrambled;
    CommonTools::EncryptPassword(config.getLoginPassword(), scrambled);
    settings.setValue(kLoginPassword, scrambled);
    settings.setValue(kMailSender, config.getMailSender());
    settings.setValue(kMailSubject, config.getMailSubject());
    settings.setValue(kOperationSuccessful, QVariant::fromValue<quint64>(config.getOperationSuccessful()));
    settings.setValue(kOperationFailure, QVariant::fromValue<quint64>(config.getOperationFailure()));
}

#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
bool isHexDigit(char16_t unit)
{
    return (unit >= '0' && unit <= '9') || (unit >= 'a' && unit <= 'f') || (unit >= 'A' && unit <= 'F');
}

// Qt 6 writes text values as UTF-8 where Qt 5 writes each UTF-16 unit from 0x7f up as "\x" and
// lower-case hex, and escapes a hex digit right behind such an escape too. Rewrites the file
// Qt 5's way: both builds leave the same bytes, and a Qt 5 build reads a Qt 6 build's file.
void writeQt5Escapes(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite))
        return;
    const QByteArray written = file.readAll();
    QByteArray escaped;
    escaped.reserve(written.size());
    bool escapeHexDigit = false;
    for (const QChar character : QString::fromUtf8(written)) {
        const char16_t unit = character.unicode();
        if (unit >= 0x7f || (escapeHexDigit && isHexDigit(unit))) {
            escaped += "\\x" + QByteArray::number(unit, 16);
            escapeHexDigit = true;
        } else {
            escaped += char(unit);
            escapeHexDigit = false;
        }
    }
    if (escaped == written)
        return;
    // In place, so that the file keeps its owner-only permissions.
    file.seek(0);
    file.write(escaped);
    file.resize(escaped.size());
}
#endif
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
    {
        QSettings settings(m_configPath, QSettings::IniFormat);
        writeValues(settings, *this);
    }
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    writeQt5Escapes(m_configPath);
#endif
}

void EmailConfigReaderWriter::SetConfigAttribute(const EmailConfigAttribute& attribute)
{
    EmailConfigAttribute::operator=(attribute);
}

void EmailConfigReaderWriter::UnInit()
{
}
