#include "serviceconfig.h"

#include <QDir>
#include <QFileInfo>
#include <QHostAddress>
#include <QSettings>

bool ServiceConfig::Number(const QSettings& settings, const char* key, qint64 min, qint64 max, qint64& value,
                           QString& error) const
{
    const QString name = QString::fromLatin1(key);
    if (!settings.contains(name))
        return true;
    const QString text = settings.value(name).toString().trimmed();
    bool ok = false;
    const qint64 number = text.toLongLong(&ok, 10);
    if (!ok || number < min || number > max) {
        error = QStringLiteral("%1: %2 = '%3' is not a number from %4 to %5")
                    .arg(settings.fileName(), name.mid(1), text)
                    .arg(min)
                    .arg(max);
        return false;
    }
    value = number;
    return true;
}

bool ServiceConfig::Load(const QString& file, QString& error)
{
    if (!QFileInfo::exists(file))
        return true;
    QSettings settings(file, QSettings::IniFormat);
    if (settings.status() != QSettings::NoError) {
        error = QStringLiteral("%1: cannot be read as an INI file").arg(file);
        return false;
    }
    const QString nameKey = QStringLiteral("/Network/scheduler_local_server_name");
    if (settings.contains(nameKey)) {
        schedulerServerName = settings.value(nameKey).toString().trimmed();
        if (schedulerServerName.isEmpty()) {
            error = QStringLiteral("%1: Network/scheduler_local_server_name is empty").arg(file);
            return false;
        }
    }
    const QString addressKey = QStringLiteral("/Network/tcp_listen_address");
    if (settings.contains(addressKey)) {
        tcpListenAddress = settings.value(addressKey).toString().trimmed();
        if (QHostAddress(tcpListenAddress).isNull()) {
            error = QStringLiteral("%1: Network/tcp_listen_address = '%2' is not an IP address").arg(file, tcpListenAddress);
            return false;
        }
    }
    qint64 port = tcpPort, code = tcpCode, missed = missedRule, parallel = parallelRuns;
    qint64 keepDays = journalKeepDays, keepPerPlan = journalKeepPerPlan;
    qint64 mailTimeout = mailTimeoutSeconds, verify = mailVerifyCertificate ? 1 : 0;
    if (!Number(settings, "/Network/tcp_server_port", 1, 65535, port, error)
        || !Number(settings, "/Network/tcp_server_code", 0, 65535, code, error)
        || !Number(settings, "/TriggerFire/date_time_fire_type", 0, 2, missed, error)
        || !Number(settings, "/Operation/operation_execute_type", 1, 16, parallel, error)
        || !Number(settings, "/Journals/keep_days", 0, 36500, keepDays, error)
        || !Number(settings, "/Journals/keep_per_plan", 0, 1000000, keepPerPlan, error)
        || !Number(settings, "/Email/timeout_seconds", 1, 600, mailTimeout, error)
        || !Number(settings, "/Email/verify_certificate", 0, 1, verify, error))
        return false;
    const QString caKey = QStringLiteral("/Email/ca_file");
    mailCaFile = settings.value(caKey, mailCaFile).toString().trimmed();
    if (!mailCaFile.isEmpty())   // a relative path is taken from the configuration file's folder
        mailCaFile = QFileInfo(QFileInfo(file).absoluteDir(), mailCaFile).absoluteFilePath();
    if (!mailCaFile.isEmpty() && !(QFileInfo(mailCaFile).isFile() && QFileInfo(mailCaFile).isReadable())) {
        error = QStringLiteral("%1: Email/ca_file = '%2' is not a readable file").arg(file, mailCaFile);
        return false;
    }
    tcpPort = static_cast<quint16>(port);
    tcpCode = static_cast<quint16>(code);
    missedRule = static_cast<int>(missed);
    parallelRuns = static_cast<int>(parallel);
    journalKeepDays = static_cast<int>(keepDays);
    journalKeepPerPlan = static_cast<int>(keepPerPlan);
    mailTimeoutSeconds = static_cast<int>(mailTimeout);
    mailVerifyCertificate = verify != 0;
    return true;
}
