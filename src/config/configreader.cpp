#include "config/configreader.h"

#include "common/commontools.h"

#include <QSettings>

QString ConfigReader::m_agentLocalServerName;
QString ConfigReader::m_schedulerLocalServerName;
quint16 ConfigReader::m_tcpServerPort = 0;
quint16 ConfigReader::m_tcpServerCode = 0;
quint32 ConfigReader::m_date_time_fire_type = 0;
quint32 ConfigReader::m_operation_execute_type = 0;

bool ConfigReader::IniReader(const QString& path)
{
    if (path.isEmpty())
        return false;
    if (!CommonTools::IsFileExist(path)) {
        m_agentLocalServerName = QStringLiteral("AgentLocalServer");
        m_schedulerLocalServerName = QStringLiteral("SchedulerLocalServer");
        m_tcpServerPort = 6060;
        m_tcpServerCode = 0;
        m_date_time_fire_type = 2;
        m_operation_execute_type = 1;
        return true;
    }
    // Keys absent from an existing file read as "" or 0: the defaults above
    // stand only for a missing file.
    const QSettings settings(path, QSettings::IniFormat);
    m_agentLocalServerName = settings.value(QStringLiteral("/Network/agent_local_server_name"), QVariant()).toString();
    m_schedulerLocalServerName = settings.value(QStringLiteral("/Network/scheduler_local_server_name"), QVariant()).toString();
    m_tcpServerPort = static_cast<quint16>(settings.value(QStringLiteral("/Network/tcp_server_port"), QVariant()).toUInt());
    m_tcpServerCode = static_cast<quint16>(settings.value(QStringLiteral("/Network/tcp_server_code"), QVariant()).toUInt());
    m_date_time_fire_type = settings.value(QStringLiteral("/TriggerFire/date_time_fire_type"), QVariant()).toUInt();
    m_operation_execute_type = settings.value(QStringLiteral("/Operation/operation_execute_type"), QVariant()).toUInt();
    return true;
}

QString ConfigReader::getAgentLocalServerName() { return m_agentLocalServerName; }
QString ConfigReader::getSchedulerLocalServerName() { return m_schedulerLocalServerName; }
unsigned short ConfigReader::getTcpServerPort() { return m_tcpServerPort; }
unsigned short ConfigReader::getTcpServerCode() { return m_tcpServerCode; }
unsigned int ConfigReader::getDateTimeFireType() { return m_date_time_fire_type; }
unsigned int ConfigReader::getOperationExecuteType() { return m_operation_execute_type; }
