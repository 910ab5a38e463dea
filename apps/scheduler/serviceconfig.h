#ifndef BACKUPFRAME_SCHEDULER_SERVICECONFIG_H
#define BACKUPFRAME_SCHEDULER_SERVICECONFIG_H

#include <QString>

// The service configuration as the scheduler applies it. The raw INI values are checked
// here, so that a value out of range is named at start instead of being cut to its low
// bits; a key that the file does not have takes its default.
class ServiceConfig
{
public:
    // False with one line naming the file, the key and what it wants.
    bool Load(const QString& file, QString& error);

    QString schedulerServerName = QStringLiteral("SchedulerLocalServer");
    quint16 tcpPort = 6060;
    quint16 tcpCode = 0;
    QString tcpListenAddress = QStringLiteral("127.0.0.1");   // /Network/tcp_listen_address: where --tcp listens
    int missedRule = 2;     // /TriggerFire/date_time_fire_type: 0 ignore, 1 journal, 2 catch-up run
    int parallelRuns = 1;   // /Operation/operation_execute_type: runs at once, 1 to 16
    int journalKeepDays = 0;        // /Journals/keep_days: older journals are pruned; 0 keeps all
    int journalKeepPerPlan = 1000;  // /Journals/keep_per_plan: a plan's newest ones kept; 0 keeps all
    int mailTimeoutSeconds = 30;    // /Email/timeout_seconds: connect and whole-send limit, 1 to 600
    QString mailCaFile;             // /Email/ca_file: CA bundle for the server's certificate; empty: the system's
    bool mailVerifyCertificate = true;   // /Email/verify_certificate: 0 or 1

private:
    bool Number(const class QSettings& settings, const char* key, qint64 min, qint64 max, qint64& value,
                QString& error) const;
};

#endif
