// The e-mail subcommands: email show, email set, email test.
#include "agentcommands.h"

#include "agentoutput.h"

#include <QFile>
#include <QJsonObject>
#include <QProcessEnvironment>

#include <functional>

namespace {

// The e-mail options, their checks and how each changes the settings.
struct EmailField {
    const char* option;
    const char* expected;   // null: any text
    quint64 max;
    std::function<void(EmailConfigAttribute&, const QString&)> apply;
};

QList<EmailField> emailFields()
{
    using E = EmailConfigAttribute;
    auto number = [](const QString& text) { return text.trimmed().toULongLong(nullptr, 10); };
    return {
        {"enable", "0 or 1", 1, [=](E& e, const QString& v) { e.setEnableEmailNotification(number(v)); }},
        {"recipients", nullptr, 0, [](E& e, const QString& v) { e.setMailRecipients(v); }},
        {"smtp-server", nullptr, 0, [](E& e, const QString& v) { e.setSmtpServerAddress(v); }},
        {"smtp-port", "a port 0 to 65535", 65535,
         [=](E& e, const QString& v) { e.setSmtpServerPort(static_cast<quint16>(number(v))); }},
        {"encryption", "a number", 0xFFFFFFFFULL, [=](E& e, const QString& v) { e.setSmtpServerEncryptionType(number(v)); }},
        {"auth", "0 or 1", 1, [=](E& e, const QString& v) { e.setStmpAuthentication(number(v)); }},
        {"user", nullptr, 0, [](E& e, const QString& v) { e.setLoginUserName(v); }},
        {"password", nullptr, 0, [](E& e, const QString& v) { e.setLoginPassword(v.toUtf8()); }},
        {"sender", nullptr, 0, [](E& e, const QString& v) { e.setMailSender(v); }},
        {"subject", nullptr, 0, [](E& e, const QString& v) { e.setMailSubject(v); }},
        {"on-success", "0 or 1", 1, [=](E& e, const QString& v) { e.setOperationSuccessful(number(v)); }},
        {"on-failure", "0 or 1", 1, [=](E& e, const QString& v) { e.setOperationFailure(number(v)); }}};
}

bool checkField(const EmailField& field, const QString& value)
{
    if (!field.expected)
        return true;
    bool ok = false;
    const quint64 number = value.trimmed().toULongLong(&ok, 10);
    return ok && number <= field.max;
}

// The password of --password-stdin: the first line of standard input, without its line end.
bool readPasswordLine(QByteArray& password)
{
    QFile in;
    if (!in.open(stdin, QIODevice::ReadOnly))
        return false;
    password = in.readLine();
    if (password.isEmpty())
        return false;
    while (password.endsWith('\n') || password.endsWith('\r'))
        password.chop(1);
    return true;
}

// How long 'email test' waits for its answer: the service's default mail timeout (30 s) with room to spare.
constexpr int kMailAnswerMs = 90000;

} // namespace

int AgentCommands::Email()
{
    const QString action = m_options.Arguments().first();
    if (action == QLatin1String("show")) {
        for (const QString& option : AgentOptions::EmailOptionNames()) {
            if (m_options.IsSet(option))
                return Usage(QStringLiteral("option --%1 does not apply to 'email show'").arg(option));
        }
        return EmailShow();
    }
    if (action == QLatin1String("set"))
        return EmailSet();
    if (action == QLatin1String("test"))
        return EmailTest();
    return Usage(QStringLiteral("'email' wants 'show', 'set' or 'test', not '%1'").arg(action));
}

int AgentCommands::EmailShow()
{
    const QString what = QStringLiteral("load the e-mail settings");
    QByteArray bytes;
    if (const int code = Call(LoadEmailConfigType, QString(), QString(), QByteArray(), what, &bytes))
        return code;
    RequestEmailConfigUpdateData settings;
    if (const int code = Decode(bytes, settings, what))
        return code;
    if (m_options.Json())
        PrintJson(AgentOutput::EmailToJson(settings.getEmailConfigAttribute()));
    else
        m_out << AgentOutput::EmailText(settings.getEmailConfigAttribute());
    return ExitOk;
}

int AgentCommands::EmailChanges(QList<std::function<void(EmailConfigAttribute&)>>& changes)
{
    for (const EmailField& field : emailFields()) {
        const QString option = QString::fromLatin1(field.option);
        if (!m_options.IsSet(option))
            continue;
        const QString value = m_options.Value(option);
        if (!checkField(field, value))
            return Usage(QStringLiteral("--%1 wants %2, not '%3'").arg(option, QString::fromLatin1(field.expected), value));
        changes.append([field, value](EmailConfigAttribute& settings) { field.apply(settings, value); });
    }
    const int sources = int(m_options.IsSet(QStringLiteral("password"))) + int(m_options.IsSet(QStringLiteral("password-stdin")))
        + int(m_options.IsSet(QStringLiteral("password-env")));
    if (sources > 1)
        return Usage(QStringLiteral("give the password one way only: --password, --password-stdin or --password-env"));
    QByteArray password;
    if (m_options.IsSet(QStringLiteral("password-stdin")) && !readPasswordLine(password))
        return Usage(QStringLiteral("--password-stdin: standard input holds no line"));
    if (m_options.IsSet(QStringLiteral("password-env"))) {
        const QString name = QStringLiteral("BACKUPFRAME_SMTP_PASSWORD");
        if (!QProcessEnvironment::systemEnvironment().contains(name))
            return Usage(QStringLiteral("--password-env: %1 is not set").arg(name));
        password = qgetenv("BACKUPFRAME_SMTP_PASSWORD");
    }
    if (m_options.IsSet(QStringLiteral("password-stdin")) || m_options.IsSet(QStringLiteral("password-env")))
        changes.append([password](EmailConfigAttribute& settings) { settings.setLoginPassword(password); });
    return ExitOk;
}

int AgentCommands::EmailSet()
{
    QList<std::function<void(EmailConfigAttribute&)>> changes;
    if (const int code = EmailChanges(changes))
        return code;
    if (changes.isEmpty())
        return Usage(QStringLiteral("'email set' wants at least one e-mail option"));

    // Load first so that the fields not given keep their current values.
    QByteArray bytes;
    if (const int code = Call(LoadEmailConfigType, QString(), QString(), QByteArray(),
                              QStringLiteral("load the e-mail settings"), &bytes))
        return code;
    RequestEmailConfigUpdateData settings;
    if (const int code = Decode(bytes, settings, QStringLiteral("load the e-mail settings")))
        return code;
    for (const auto& change : changes)
        change(settings.getObjectEmailConfigAttribute());
    if (const int code = Call(EmailConfigUpdateType, QString(), QString(), SchedulerProtocol::EncodePayload(settings),
                              QStringLiteral("save the e-mail settings")))
        return code;
    if (m_options.Json())
        PrintJson(AgentOutput::EmailToJson(settings.getEmailConfigAttribute()));
    else
        m_out << "e-mail settings saved\n";
    return ExitOk;
}

// Without options the service tests its stored settings; options change a copy for this test only.
int AgentCommands::EmailTest()
{
    QList<std::function<void(EmailConfigAttribute&)>> changes;
    if (const int code = EmailChanges(changes))
        return code;
    QByteArray payload;
    if (!changes.isEmpty()) {
        QByteArray bytes;
        RequestEmailConfigUpdateData settings;
        if (const int code = Call(LoadEmailConfigType, QString(), QString(), QByteArray(),
                                  QStringLiteral("load the e-mail settings"), &bytes))
            return code;
        if (const int code = Decode(bytes, settings, QStringLiteral("load the e-mail settings")))
            return code;
        for (const auto& change : changes)
            change(settings.getObjectEmailConfigAttribute());
        payload = SchedulerProtocol::EncodePayload(settings);
    }
    if (const int code = OpenSession())
        return code;
    // The answer comes when the send has ended, which may take the service's mail timeout.
    m_session->SetTimeoutMs(qMax(kMailAnswerMs, m_options.TimeoutMs()));
    QByteArray bytes;
    if (const int code = Call(EmailMessageTestType, QString(), QString(), payload,
                              QStringLiteral("send the test mail"), &bytes))
        return code;
    const QString message = SchedulerProtocol::ReasonOf(bytes);
    if (m_options.Json())
        PrintJson(QJsonObject{{QStringLiteral("sent"), true}, {QStringLiteral("message"), message}});
    else
        m_out << message << "\n";
    return ExitOk;
}
