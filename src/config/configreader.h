#ifndef BACKUPFRAME_CONFIGREADER_H
#define BACKUPFRAME_CONFIGREADER_H

#include "backupframe_global.h"

#include <QString>

// The service configuration, read once at start-up from an INI file into static
// members and read without locks afterwards. The file is never written.
class BACKUPFRAME_EXPORT ConfigReader
{
public:
    ConfigReader() = default;
    ConfigReader(const ConfigReader&) = default;
    ConfigReader& operator=(const ConfigReader&) = default;
    virtual ~ConfigReader() = default;

    // A missing file gives the defaults; keys absent from an existing file give "" or 0.
    static constexpr unsigned short TcpSwitchCode = 88;

    static bool IniReader(const QString& path);

    static QString getAgentLocalServerName();
    static QString getSchedulerLocalServerName();
    static unsigned short getTcpServerPort();
    // TcpSwitchCode, and only that value, switches the TCP transport on.
    static unsigned short getTcpServerCode();
    static unsigned int getDateTimeFireType();
    static unsigned int getOperationExecuteType();

private:
    static QString m_agentLocalServerName;
    static QString m_schedulerLocalServerName;
    static quint16 m_tcpServerPort;
    static quint16 m_tcpServerCode;
    static quint32 m_date_time_fire_type;
    static quint32 m_operation_execute_type;
};

#endif
