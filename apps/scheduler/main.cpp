// backupframe-scheduler: the reference scheduler service.
//
// Start-up: one instance per data directory (a lock file), the configuration checked,
// logger (<data-dir>/log/scheduler.log), database (<data-dir>/plans.db), the plans with
// their interrupted runs and missed occurrences, server on the scheduler's local server
// name (and TCP with --tcp). Shut-down on SIGINT/SIGTERM in the reverse order, the logger last.
// Exit codes: 0 stopped cleanly, 1 bad options, configuration or unusable data directory,
// 2 already running (on this data directory or under this server name), 3 the database or
// a server failed to start.

#include "protocol.h"
#include "requesthandler.h"
#include "schedulerdatabase.h"
#include "schedulerservice.h"
#include "serviceconfig.h"
#include "servicelog.h"
#include "tcpsecret.h"

#include <backupframe.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QHostAddress>
#include <QLockFile>
#include <QSocketNotifier>
#include <QStandardPaths>
#include <QTextStream>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int g_signalPipe[2] = {-1, -1};

void onSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] ssize_t n = ::write(g_signalPipe[1], &byte, 1);
}

// Turns SIGINT/SIGTERM into a quit of the event loop (self-pipe: nothing else is safe in a handler).
void quitOnSignals(QCoreApplication& app)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, g_signalPipe) != 0)
        return;
    auto* notifier = new QSocketNotifier(g_signalPipe[0], QSocketNotifier::Read, &app);
    QObject::connect(notifier, &QSocketNotifier::activated, &app, [notifier] {
        notifier->setEnabled(false);
        char byte = 0;
        [[maybe_unused]] ssize_t n = ::read(g_signalPipe[0], &byte, 1);
        QCoreApplication::quit();
    });
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

QTextStream& out()
{
    static QTextStream stream(stdout);
    return stream;
}

QTextStream& err()
{
    static QTextStream stream(stderr);
    return stream;
}

// One service per data directory, whatever server name it serves; a lock left by a killed
// process is taken over (its process no longer exists). 0, or the exit code after one line.
int lockDataDirectory(QLockFile& lock, const QString& dataDir)
{
    lock.setStaleLockTime(0);
    if (lock.tryLock(0))
        return 0;
    qint64 pid = 0;
    QString host, application;
    if (lock.error() == QLockFile::LockFailedError && lock.getLockInfo(&pid, &host, &application)) {
        err() << "backupframe-scheduler: another scheduler (pid " << pid << " on " << host
              << ") already uses the data directory " << dataDir << "\n";
        return 2;
    }
    err() << "backupframe-scheduler: cannot lock the data directory " << dataDir << "\n";
    return 1;
}

// Opens the database, proves that it can be written and loads the plans; false with the reason.
bool openDatabase(SchedulerDatabase& database, SchedulerService& service, const QString& file, QString& error)
{
    if (!database.Init(file)) {
        error = SchedulerDatabase::OpenError(file);
        return false;
    }
    if (!database.PrepareRunTable(error))
        return false;
    if (service.Start())
        return true;
    error = database.LastError();
    if (error.isEmpty())
        error = QStringLiteral("the plans cannot be read");
    return false;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("backupframe-scheduler"));
    QCoreApplication::setOrganizationName(QStringLiteral("backupframe"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("The backupframe scheduler service."));
    parser.addHelpOption();
    const QCommandLineOption dataDirOption(QStringLiteral("data-dir"),
        QStringLiteral("Directory of the database, the e-mail settings and the logs."), QStringLiteral("dir"),
        QStandardPaths::writableLocation(QStandardPaths::AppDataLocation));
    const QCommandLineOption configOption(QStringLiteral("config"),
        QStringLiteral("Service configuration INI file (default <data-dir>/scheduler.ini; missing means defaults)."),
        QStringLiteral("file"));
    const QCommandLineOption serverNameOption(QStringLiteral("server-name"),
        QStringLiteral("Local server name to serve (default from the configuration)."), QStringLiteral("name"));
    const QCommandLineOption tcpOption(QStringLiteral("tcp"),
        QStringLiteral("Also listen on the configured TCP port, on every address."));
    parser.addOptions({dataDirOption, configOption, serverNameOption, tcpOption});
    parser.process(app);

    const QString dataDir = QDir(parser.value(dataDirOption)).absolutePath();
    if (!QDir().mkpath(dataDir) || !QFileInfo(dataDir).isWritable() || !QDir::setCurrent(dataDir)) {
        err() << "backupframe-scheduler: cannot use the data directory " << dataDir
              << ": it cannot be created or written\n";
        return 1;
    }
    QLockFile lock(QDir(dataDir).filePath(QStringLiteral("scheduler.lock")));
    if (const int code = lockDataDirectory(lock, dataDir))
        return code;
    const QString configFile = parser.isSet(configOption)
        ? QFileInfo(parser.value(configOption)).absoluteFilePath()
        : QDir(dataDir).filePath(QStringLiteral("scheduler.ini"));
    ServiceConfig config;
    QString configError;
    if (!config.Load(configFile, configError)) {
        err() << "backupframe-scheduler: " << configError << "\n";
        return 1;
    }
    // The rolling log file is renamed relative to the working directory: it stays the data directory.
    if (!Logger::Initialize(dataDir, QStringLiteral("log"), QStringLiteral("scheduler.log"))) {
        err() << "backupframe-scheduler: cannot create the log directory under " << dataDir << "\n";
        return 1;
    }
    ConfigReader::IniReader(configFile);
    const QString serverName = parser.isSet(serverNameOption) ? parser.value(serverNameOption)
                                                              : config.schedulerServerName;

    int exitCode = 0;
    SchedulerDatabase database;
    CommunServer localServer;
    CommunServer tcpServer;
    CommunProducerConsumerManager dispatch;
    {
        localServer.Init(CommunAttribute::LocalProtocol);
        if (localServer.IsLocalServerRun(serverName)) {
            err() << "backupframe-scheduler: another scheduler already serves '" << serverName << "'\n";
            Logger::UnInitialize();
            return 2;
        }
        const QString dbFile = QDir(dataDir).filePath(QStringLiteral("plans.db"));
        SchedulerService::Settings settings;
        settings.missedRule = config.missedRule;
        settings.parallelRuns = config.parallelRuns;
        settings.journalKeepDays = config.journalKeepDays;
        settings.journalKeepPerPlan = config.journalKeepPerPlan;
        settings.emailFile = QDir(dataDir).filePath(QStringLiteral("email.ini"));
        settings.dataDir = dataDir;
        settings.configFile = configFile;
        settings.mail.timeoutSeconds = config.mailTimeoutSeconds;
        settings.mail.caFile = config.mailCaFile;
        settings.mail.verifyCertificate = config.mailVerifyCertificate;
        const Clock clock;
        SchedulerService service(database, settings, clock);
        RequestHandler handler(service);
        QString dbError;
        const bool dbOpen = openDatabase(database, service, dbFile, dbError);
        QByteArray tcpSecret;
        QString secretError;
        if (!dbOpen) {
            err() << "backupframe-scheduler: cannot use the database " << dbFile << ": "
                  << dbError << "\n";
            exitCode = 3;
        } else if (!localServer.Start(serverName, 0)) {
            err() << "backupframe-scheduler: cannot serve '" << serverName << "'\n";
            exitCode = 3;
        } else if (parser.isSet(tcpOption)
                   && !TcpSecret::Ensure(QDir(dataDir).filePath(TcpSecret::FileName()), tcpSecret, secretError)) {
            err() << "backupframe-scheduler: " << secretError << "\n";
            exitCode = 1;
        } else if (parser.isSet(tcpOption)
                   && (!tcpServer.Init(CommunAttribute::TcpProtocol)
                       || !tcpServer.StartTcp(config.tcpPort, QHostAddress(config.tcpListenAddress)))) {
            err() << "backupframe-scheduler: cannot listen on TCP port " << config.tcpPort << " of "
                  << config.tcpListenAddress << "\n";
            exitCode = 3;
        }
        if (exitCode == 0) {
            handler.Serve(&localServer);
            if (parser.isSet(tcpOption))
                handler.Serve(&tcpServer, tcpSecret);
            // The dispatch queue carries the process's own requests to other endpoints.
            dispatch.Init();
            dispatch.Start();
            quitOnSignals(app);
            ServiceLog::Info(QStringLiteral("Scheduler serving '%1'%2, data in %3.")
                                 .arg(serverName,
                                      parser.isSet(tcpOption)
                                          ? QStringLiteral(" and TCP port %1 of %2").arg(config.tcpPort).arg(config.tcpListenAddress)
                                          : QString(),
                                      dataDir));
            out() << "backupframe-scheduler: serving '" << serverName << "'";
            if (parser.isSet(tcpOption))
                out() << " and TCP port " << config.tcpPort << " of " << config.tcpListenAddress;
            out() << ", data in " << dataDir << Qt::endl;
            app.exec();
            out() << "backupframe-scheduler: stopping" << Qt::endl;
            dispatch.Stop();
            dispatch.UnInit();
        }
        service.Stop();
        handler.FlushEvents(1000);   // followers learn how the runs they follow ended
        localServer.Stop();
        localServer.UnInit();
        tcpServer.Stop();
        tcpServer.UnInit();
        database.UnInit();
    }
    Logger::UnInitialize();
    return exitCode;
}
