// The e-mail subcommands: email show, email set.
#include "agentcommands.h"

#include "agentoutput.h"

#include <QJsonObject>

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
    return Usage(QStringLiteral("'email' wants 'show' or 'set', not '%1'").arg(action));
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

int AgentCommands::EmailSet()
{
    QList<EmailField> given;
    for (const EmailField& field : emailFields()) {
        const QString option = QString::fromLatin1(field.option);
        if (!m_options.IsSet(option))
            continue;
        if (!checkField(field, m_options.Value(option)))
            return Usage(QStringLiteral("--%1 wants %2, not '%3'")
                             .arg(option, QString::fromLatin1(field.expected), m_options.Value(option)));
        given.append(field);
    }
    if (given.isEmpty())
        return Usage(QStringLiteral("'email set' wants at least one e-mail option"));

    // Load first so that the fields not given keep their current values.
    QByteArray bytes;
    if (const int code = Call(LoadEmailConfigType, QString(), QString(), QByteArray(),
                              QStringLiteral("load the e-mail settings"), &bytes))
        return code;
    RequestEmailConfigUpdateData settings;
    if (const int code = Decode(bytes, settings, QStringLiteral("load the e-mail settings")))
        return code;
    for (const EmailField& field : given)
        field.apply(settings.getObjectEmailConfigAttribute(), m_options.Value(QString::fromLatin1(field.option)));
    if (const int code = Call(EmailConfigUpdateType, QString(), QString(), SchedulerProtocol::EncodePayload(settings),
                              QStringLiteral("save the e-mail settings")))
        return code;
    if (m_options.Json())
        PrintJson(AgentOutput::EmailToJson(settings.getEmailConfigAttribute()));
    else
        m_out << "e-mail settings saved\n";
    return ExitOk;
}
