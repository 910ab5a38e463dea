#include "agentoptions.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

#include <cmath>

namespace {

struct CommandShape {
    QString name;
    int minArguments;
    int maxArguments;   // -1: any number
    QStringList options;
    QString synopsis;   // the command with its arguments, as the help shows it
    QString what;
};

QList<CommandShape> shapes()
{
    const QStringList trigger = AgentOptions::TriggerOptionNames();
    const QStringList edit = QStringList{QStringLiteral("name"), QStringLiteral("operation"),
                                         QStringLiteral("parameter")} + trigger;
    auto text = [](const char* latin1) { return QString::fromLatin1(latin1); };
    return {{text("status"), 0, 0, {}, text("status"), text("does the scheduler answer? round trip, plans, journals")},
            {text("plans"), 0, 0, {}, text("plans"), text("list the plans")},
            {text("show"), 1, 1, {}, text("show PLAN"), text("everything about one plan")},
            {text("new"), 2, 3, trigger, text("new NAME OPERATION [PARAMETER]"),
             text("create a plan; trigger options below")},
            {text("edit"), 1, 1, edit, text("edit PLAN"),
             text("change a plan: --name, --operation, --parameter, trigger options")},
            {text("delete"), 1, 1, {}, text("delete PLAN"), text("delete a plan (its journals stay)")},
            {text("run"), 1, 1, {text("wait"), text("follow"), text("on-interrupt")},
             text("run PLAN [--wait|--follow]"),
             text("run a plan now; --wait until it has ended (exit 4 failed, 5 cancelled), --follow showing progress")},
            {text("cancel"), 1, 1, {}, text("cancel PLAN"), text("cancel a running or queued run")},
            {text("operations"), 0, 0, {}, text("operations"), text("the operations a plan can run, and their parameters")},
            {text("once"), 1, 2, {text("name"), text("wait"), text("follow"), text("on-interrupt")},
             text("once OPERATION [PARAMETER]"),
             text("run an operation once, as no plan (--name, --wait, --follow as for run)")},
            {text("backups"), 1, 1, {}, text("backups PLAN"), text("what a copy or zip plan has written")},
            {text("restore"), 1, 1,
             {text("from"), text("path"), text("to"), text("overwrite"), text("wait"), text("follow"), text("on-interrupt")},
             text("restore PLAN --to FOLDER"),
             text("get files back from a plan's mirror or archive (--from, --path, --overwrite, --wait, --follow)")},
            {text("verify"), 1, 1, {text("from"), text("wait"), text("follow"), text("on-interrupt")},
             text("verify PLAN"), text("check a plan's mirror against its source, or its archive's checksums")},
            {text("once-cancel"), 1, 1, {}, text("once-cancel RUN"), text("cancel a one-off run (its uuid)")},
            {text("once-delete"), 1, 1, {}, text("once-delete RUN"), text("delete the journal of an ended one-off run")},
            {text("export"), 0, 1, {}, text("export [FILE]"), text("write the plans to FILE (default: stdout) as JSON")},
            {text("import"), 1, 1, {}, text("import FILE"), text("store the plans of an export (FILE - reads stdin)")},
            {text("support-bundle"), 1, 1, {}, text("support-bundle FILE"),
             text("have the scheduler write its logs, settings and a summary into a new zip FILE")},
            {text("journals"), 0, 1, {}, text("journals [PLAN]"), text("list the journals, all or of one plan")},
            {text("journal-delete"), 0, -1, {text("all")}, text("journal-delete JOURNAL...|--all"),
             text("delete journals")},
            {text("email"), 1, 1, AgentOptions::EmailOptionNames(), text("email show|set|test [e-mail options]"),
             text("show or change the e-mail notification settings, or send a test mail (options: for this test only)")},
            {text("help"), 0, 1, {}, text("help [COMMAND]"), text("this help, or the usage of one command")}};
}

QString description()
{
    QString text = QStringLiteral("Talks to the backupframe scheduler service.\n\nCommands:\n");
    for (const CommandShape& shape : shapes())
        text += QStringLiteral("  %1 %2\n").arg(shape.synopsis.leftJustified(32), shape.what);
    text += QStringLiteral(
        "\n"
        "PLAN is a plan name, a plan uuid or a unique prefix of one (4 characters at least,\n"
        "the brace may be left out); JOURNAL is a journal uuid or such a prefix of one.\n"
        "Exit codes: 0 done, 1 usage error, 2 the scheduler refused, 3 no scheduler answers,\n"
        "4 run --wait/--follow: the run failed, 5 run --wait/--follow: the run was cancelled or\n"
        "interrupted, 130 run --wait/--follow: left running after Ctrl-C.");
    return text;
}

QList<QCommandLineOption> optionList()
{
    auto valued = [](const char* name, const char* help, const char* value) {
        return QCommandLineOption(QString::fromLatin1(name), QString::fromLatin1(help), QString::fromLatin1(value));
    };
    auto flag = [](const char* name, const char* help) {
        return QCommandLineOption(QString::fromLatin1(name), QString::fromLatin1(help));
    };
    return {
        valued("server-name", "Local server name of the scheduler (default from the configuration).", "name"),
        valued("timeout", "Seconds to wait for the connection and for each answer (default 5).", "seconds"),
        flag("json", "Machine-readable output (JSON)."),
        valued("config", "Service configuration INI file (default: the scheduler's default one).", "file"),
        flag("tcp", "Connect over TCP to --host on the configured port (needs tcp_server_code=88 and the TCP secret)."),
        valued("host", "--tcp: the scheduler's address (default 127.0.0.1).", "address"),
        valued("secret-file", "--tcp: the scheduler's TCP secret (default: tcp.secret in its default data directory).",
               "file"),
        valued("name", "edit: the new plan name; once: the name its journal shows.", "name"),
        valued("operation", "edit: the new operation.", "operation"),
        valued("parameter", "edit: the new operation parameter.", "text"),
        valued("type", "Trigger type: 0 once, 1 daily, 2 weekly, 3 monthly.", "n"),
        valued("start", "Trigger start, \"yyyy-MM-dd hh:mm:ss\".", "time"),
        valued("end", "Trigger end, \"yyyy-MM-dd hh:mm:ss\"; the trigger then ends.", "time"),
        flag("no-end", "edit: the trigger no longer ends."),
        valued("interval", "Repeat every HOURS hours.", "hours"),
        valued("duration", "Repeat for HOURS hours.", "hours"),
        valued("week-days", "Week days, e.g. 1,3,5 (1 to 7).", "list"),
        valued("months", "Months, e.g. 1,6 (1 to 12).", "list"),
        valued("month-days", "Days of the month, e.g. 1,15 (1 to 31).", "list"),
        flag("last-day", "Include the last day of the month."),
        flag("no-last-day", "edit: no longer include the last day of the month."),
        flag("all", "journal-delete: delete every journal."),
        flag("wait", "run: wait until the run has ended and show how it ended."),
        valued("from", "restore, verify: the archive (its name or path; default: the newest).", "archive"),
        valued("path", "restore: only this file or folder, relative to the backup's root.", "subpath"),
        valued("to", "restore: the folder to restore into (made when missing).", "folder"),
        flag("overwrite", "restore: replace files that exist in the target (default: keep them)."),
        flag("follow", "run: show the run's progress live until it has ended, then its journal."),
        valued("on-interrupt", "run --wait/--follow: what Ctrl-C does: ask (default; leave when there is no "
                               "terminal to ask on), cancel the run, or leave it running.", "ask|cancel|leave"),
        valued("enable", "email set: notifications on (1) or off (0).", "0|1"),
        valued("recipients", "email set: recipient addresses.", "text"),
        valued("smtp-server", "email set: SMTP server host.", "host"),
        valued("smtp-port", "email set: SMTP server port.", "port"),
        valued("encryption", "email set: connection security: 0 none, 1 STARTTLS, 2 SMTPS (TLS from the start).", "n"),
        valued("auth", "email set: log in to the server (1) or not (0).", "0|1"),
        valued("user", "email set: SMTP login name.", "name"),
        valued("password", "email set: SMTP password (visible to ps: prefer --password-stdin or --password-env).", "text"),
        flag("password-stdin", "email set/test: read the SMTP password from the first line of standard input."),
        flag("password-env", "email set/test: take the SMTP password from BACKUPFRAME_SMTP_PASSWORD."),
        valued("sender", "email set: sender address.", "address"),
        valued("subject", "email set: subject line.", "text"),
        valued("on-success", "email set: mail when an operation succeeds (1) or not (0).", "0|1"),
        valued("on-failure", "email set: mail when an operation fails (1) or not (0).", "0|1")};
}

} // namespace

AgentOptions::AgentOptions()
{
    m_parser.setApplicationDescription(description());
    m_parser.addHelpOption();
    m_parser.addVersionOption();
    m_parser.addPositionalArgument(QStringLiteral("command"), QStringLiteral("The command and its arguments."),
                                   QStringLiteral("COMMAND [ARGUMENTS]"));
    const QStringList globals{QStringLiteral("server-name"), QStringLiteral("timeout"), QStringLiteral("json"),
                              QStringLiteral("config"), QStringLiteral("tcp"), QStringLiteral("host"),
                              QStringLiteral("secret-file")};
    for (const QCommandLineOption& option : optionList()) {
        m_parser.addOption(option);
        if (!globals.contains(option.names().first()))
            m_commandOptions.append(option.names().first());
    }
}

QStringList AgentOptions::TriggerOptionNames()
{
    return {QStringLiteral("type"),     QStringLiteral("start"),     QStringLiteral("end"),
            QStringLiteral("no-end"),   QStringLiteral("interval"),  QStringLiteral("duration"),
            QStringLiteral("week-days"), QStringLiteral("months"),   QStringLiteral("month-days"),
            QStringLiteral("last-day"), QStringLiteral("no-last-day")};
}

QStringList AgentOptions::EmailOptionNames()
{
    return {QStringLiteral("enable"),   QStringLiteral("recipients"), QStringLiteral("smtp-server"),
            QStringLiteral("smtp-port"), QStringLiteral("encryption"), QStringLiteral("auth"),
            QStringLiteral("user"),     QStringLiteral("password"),   QStringLiteral("sender"),
            QStringLiteral("subject"),  QStringLiteral("on-success"), QStringLiteral("on-failure"),
            QStringLiteral("password-stdin"), QStringLiteral("password-env")};
}

AgentOptions::Outcome AgentOptions::Parse(const QStringList& arguments)
{
    if (!m_parser.parse(arguments)) {
        m_error = m_parser.errorText();
        return UsageError;
    }
    if (m_parser.isSet(QStringLiteral("help")) || m_parser.isSet(QStringLiteral("help-all")))
        return Help;
    if (m_parser.isSet(QStringLiteral("version")))
        return Version;
    const QStringList positional = m_parser.positionalArguments();
    if (positional.isEmpty()) {
        m_error = QStringLiteral("no command given");
        return UsageError;
    }
    m_command = positional.first();
    m_arguments = positional.mid(1);
    if (!CheckShape() || !CheckTimeout() || !CheckFollow())
        return UsageError;
    if (m_command == QLatin1String("help"))
        return CheckHelpTopic() ? Help : UsageError;
    return Run;
}

bool AgentOptions::CheckFollow()
{
    const bool wait = m_parser.isSet(QStringLiteral("wait"));
    const bool follow = m_parser.isSet(QStringLiteral("follow"));
    const QString onInterrupt = m_parser.value(QStringLiteral("on-interrupt"));
    if (wait && follow)
        m_error = QStringLiteral("--wait and --follow do not go together");
    else if (!onInterrupt.isEmpty() && !QStringList{"ask", "cancel", "leave"}.contains(onInterrupt))
        m_error = QStringLiteral("--on-interrupt wants ask, cancel or leave");
    else if (!onInterrupt.isEmpty() && !wait && !follow)
        m_error = QStringLiteral("--on-interrupt goes with --wait or --follow");
    else
        return true;
    return false;
}

bool AgentOptions::CheckHelpTopic()
{
    if (m_arguments.isEmpty())
        return true;
    for (const CommandShape& shape : shapes()) {
        if (shape.name == m_arguments.first()) {
            m_helpTopic = shape.name;
            return true;
        }
    }
    m_error = QStringLiteral("no help for '%1': no such command").arg(m_arguments.first());
    return false;
}

bool AgentOptions::CheckShape()
{
    for (const CommandShape& shape : shapes()) {
        if (shape.name != m_command)
            continue;
        const int count = m_arguments.size();
        if (count < shape.minArguments || (shape.maxArguments >= 0 && count > shape.maxArguments)) {
            m_error = QStringLiteral("wrong number of arguments for '%1'").arg(m_command);
            return false;
        }
        for (const QString& option : m_commandOptions) {
            if (m_parser.isSet(option) && !shape.options.contains(option)) {
                m_error = QStringLiteral("option --%1 does not apply to '%2'").arg(option, m_command);
                return false;
            }
        }
        return true;
    }
    m_error = QStringLiteral("unknown command '%1'").arg(m_command);
    return false;
}

bool AgentOptions::CheckTimeout()
{
    if (!m_parser.isSet(QStringLiteral("timeout")))
        return true;
    bool ok = false;
    const double seconds = m_parser.value(QStringLiteral("timeout")).toDouble(&ok);
    if (!ok || !std::isfinite(seconds) || seconds <= 0 || seconds > 86400) {
        m_error = QStringLiteral("--timeout wants a number of seconds above 0 (at most 86400)");
        return false;
    }
    m_timeoutMs = qMax(1, static_cast<int>(std::lround(seconds * 1000)));
    return true;
}

QString AgentOptions::HelpText() const
{
    if (m_helpTopic.isEmpty())
        return m_parser.helpText();
    return CommandHelp(m_helpTopic);
}

// "Usage: ...", what the command does and the options that belong to it.
QString AgentOptions::CommandHelp(const QString& command) const
{
    QString text;
    for (const CommandShape& shape : shapes()) {
        if (shape.name != command)
            continue;
        text = QStringLiteral("Usage: backupframe-agent [global options] %1\n%2\n").arg(shape.synopsis, shape.what);
        if (!shape.options.isEmpty())
            text += QStringLiteral("\nOptions:\n");
        for (const QCommandLineOption& option : optionList()) {
            if (!shape.options.contains(option.names().first()))
                continue;
            QString name = QStringLiteral("--") + option.names().first();
            if (!option.valueName().isEmpty())
                name += QStringLiteral(" <%1>").arg(option.valueName());
            text += QStringLiteral("  %1 %2\n").arg(name.leftJustified(24), option.description());
        }
    }
    return text;
}

bool AgentOptions::IsSet(const QString& name) const
{
    return m_parser.isSet(name);
}

QString AgentOptions::Value(const QString& name) const
{
    return m_parser.value(name);
}

bool AgentOptions::Json() const
{
    return m_parser.isSet(QStringLiteral("json"));
}

bool AgentOptions::Tcp() const
{
    return m_parser.isSet(QStringLiteral("tcp"));
}

QString AgentOptions::ConfigFile() const
{
    if (m_parser.isSet(QStringLiteral("config")))
        return QFileInfo(m_parser.value(QStringLiteral("config"))).absoluteFilePath();
    // The scheduler reads <its data directory>/scheduler.ini by default; so does the agent,
    // so that both agree on the server name and port without options.
    const QString dataRoot = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    return QDir(dataRoot).filePath(QStringLiteral("backupframe/backupframe-scheduler/scheduler.ini"));
}
