#ifndef BACKUPFRAME_AGENT_AGENTOPTIONS_H
#define BACKUPFRAME_AGENT_AGENTOPTIONS_H

#include <QCommandLineParser>
#include <QString>
#include <QStringList>

// The agent's command line: global options, a subcommand, its positional arguments
// and the options that belong to it. Checks the shape of the line (which command,
// how many arguments, which options where); the subcommands check the values.
class AgentOptions
{
public:
    enum Outcome { Run, Help, Version, UsageError };

    AgentOptions();

    Outcome Parse(const QStringList& arguments);
    QString Error() const { return m_error; }
    // The whole help, or after "help COMMAND" the usage of that command.
    QString HelpText() const;

    QString Command() const { return m_command; }
    QStringList Arguments() const { return m_arguments; }
    bool IsSet(const QString& name) const;
    QString Value(const QString& name) const;

    bool Json() const;
    bool Tcp() const;
    int TimeoutMs() const { return m_timeoutMs; }
    // The configuration file given with --config, else the scheduler's own default one.
    QString ConfigFile() const;

    static QStringList TriggerOptionNames();
    static QStringList EmailOptionNames();

private:
    bool CheckShape();
    bool CheckTimeout();
    // --wait and --follow exclude each other; --on-interrupt is ask, cancel or leave, with one of them.
    bool CheckFollow();
    bool CheckHelpTopic();
    QString CommandHelp(const QString& command) const;

    QCommandLineParser m_parser;
    QStringList m_commandOptions;   // every option that belongs to some subcommand
    QString m_command;
    QStringList m_arguments;
    QString m_error;
    QString m_helpTopic;            // "help COMMAND": the command
    int m_timeoutMs = 5000;
};

#endif
