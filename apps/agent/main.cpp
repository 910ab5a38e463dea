// backupframe-agent: the command-line front end of the reference scheduler service.
//
//   backupframe-agent [--server-name NAME] [--tcp [--host ADDRESS] [--secret-file FILE]]
//                     [--config FILE] [--timeout SECONDS] [--json] COMMAND [ARGUMENTS] [OPTIONS]
//
// Commands: status, plans, show, new, edit, delete, run, cancel, operations, once, once-cancel,
// once-delete, backups, restore, verify, export, import, support-bundle, journals,
// journal-delete, email show|set|test, help [COMMAND] (--help lists their arguments and options,
// 'help COMMAND' those of one; --version prints the version). Each run opens one connection,
// sends its requests one at a time and waits at most --timeout seconds (default 5) for the
// connection and for each answer; run/once/restore/verify with --wait or --follow subscribe
// to the scheduler's events and wait for the run's journal.
//
// Exit codes:
//   0  done
//   1  usage error: unknown command or option, wrong arguments or values, an ambiguous
//      PLAN or JOURNAL prefix, --tcp without tcp_server_code=88 in the configuration
//   2  the scheduler answered with an error (one line with its reason on stderr), or
//      no plan or journal matches the PLAN or JOURNAL given
//   3  no scheduler answers: nothing serves the endpoint, no answer within the timeout
//      (the request may still have been carried out), the connection was lost or the
//      answer could not be read
//   4  --wait/--follow: the run failed (the plan's resultCode 1)
//   5  --wait/--follow: the run was cancelled or interrupted (resultCode 2 or 3)
//   130 --wait/--follow: Ctrl-C, and the run was left running
//
// Output: tables or JSON (--json) on stdout, UTF-8; failures as one line on stderr (for
// --json also {"error": ..., "exitCode": N} on stdout). Table cells show control
// characters escaped ("\x1b", "\n"); list tables cut cells at 40 characters ("…").
// The library's log goes to <per-user data directory>/log/agent.log only (see startLogging).

#include "agentcommands.h"
#include "agentoptions.h"

#include <backupframe.h>

#include <log4cpp/Appender.hh>
#include <log4cpp/Category.hh>

#include <QCoreApplication>
#include <QDir>
#include <QStandardPaths>
#include <QTextStream>

namespace {

// The library's log lines are useful after the fact but must not mix with the agent's
// own output: the file log goes under the per-user data directory
// (e.g. ~/.local/share/backupframe/backupframe-agent/log/agent.log) and the console
// appender that Logger puts on the root category is removed again, since the file
// category echoes every line to it. The rolling file is renamed relative to the working
// directory, so the agent stays in that directory (every path argument is already
// absolute by then). Without a usable directory the agent runs without a log.
bool startLogging()
{
    const QString base = QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation);
    if (base.isEmpty() || !QDir().mkpath(base))
        return false;
    if (!Logger::Initialize(base, QStringLiteral("log"), QStringLiteral("agent.log")))
        return false;
    log4cpp::Category& root = Logger::GetConsoleHandle();
    if (log4cpp::Appender* console = root.getAppender("console"))
        root.removeAppender(console);
    QDir::setCurrent(base);
    return true;
}

// The scheduler's endpoint: its local server name, or 127.0.0.1 and the configured port.
bool makeEndpoint(const AgentOptions& options, const QString& configFile, CommunAttribute& endpoint,
                  QString& error)
{
    if (options.Tcp()) {
        // The connection worker only creates its TCP socket under this switch value.
        if (ConfigReader::getTcpServerCode() != ConfigReader::TcpSwitchCode) {
            error = QStringLiteral("--tcp needs tcp_server_code=%1 in the [Network] section of %2")
                        .arg(ConfigReader::TcpSwitchCode)
                        .arg(configFile);
            return false;
        }
        endpoint.setProtocolType(CommunAttribute::TcpProtocol);
        endpoint.setDestSvrNameIp(options.IsSet(QStringLiteral("host")) ? options.Value(QStringLiteral("host"))
                                                                       : QStringLiteral("127.0.0.1"));
        endpoint.setDestPort(ConfigReader::getTcpServerPort());
        return true;
    }
    const QString name = options.IsSet(QStringLiteral("server-name")) ? options.Value(QStringLiteral("server-name"))
                                                                      : ConfigReader::getSchedulerLocalServerName();
    if (name.isEmpty()) {
        error = QStringLiteral("no server name: give --server-name or set it in %1").arg(configFile);
        return false;
    }
    endpoint.setProtocolType(CommunAttribute::LocalProtocol);
    endpoint.setDestSvrNameIp(name);
    return true;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("backupframe-agent"));
    QCoreApplication::setOrganizationName(QStringLiteral("backupframe"));
    QCoreApplication::setApplicationVersion(QString::fromLatin1(BACKUPFRAME_AGENT_VERSION));
    QTextStream out(stdout);
    QTextStream err(stderr);
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    out.setCodec("UTF-8");   // Qt 6 text streams are UTF-8 already
    err.setCodec("UTF-8");
#endif

    AgentOptions options;
    switch (options.Parse(QCoreApplication::arguments())) {
    case AgentOptions::Help:
        out << options.HelpText();
        return ExitOk;
    case AgentOptions::Version:
        out << QCoreApplication::applicationName() << " " << QCoreApplication::applicationVersion() << "\n";
        return ExitOk;
    case AgentOptions::UsageError:
        return PrintError(out, err, options.Json(), ExitUsage, options.Error());
    case AgentOptions::Run:
        break;
    }

    const QString configFile = options.ConfigFile();   // absolute: resolved before the directory changes
    const bool logging = startLogging();
    ConfigReader::IniReader(configFile);
    CommunAttribute endpoint;
    QString error;
    int code = ExitUsage;
    if (!makeEndpoint(options, configFile, endpoint, error)) {
        PrintError(out, err, options.Json(), ExitUsage, error);
    } else {
        AgentCommands commands(options, endpoint, out, err);
        code = commands.Execute();
    }
    out.flush();
    if (logging)
        Logger::UnInitialize();
    return code;
}
