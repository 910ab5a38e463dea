// The subcommands that read or write files: export, import, support-bundle.
#include "agentcommands.h"

#include "agentoutput.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include <cstdio>

using namespace SchedulerProtocol;

namespace {

// What an export file says it is, so that import refuses any other JSON.
const QString kFormat = QStringLiteral("backupframe plans");

// A support bundle holds the logs: give its writing time.
constexpr int kBundleTimeoutMs = 120000;

} // namespace

int AgentCommands::ExportPlans()
{
    QList<SchedulerPlan> plans;
    if (const int code = LoadPlans(plans))
        return code;
    QJsonArray array;
    for (const SchedulerPlan& plan : plans)
        array.append(AgentOutput::PlanToJson(plan));
    const QByteArray bytes = QJsonDocument(QJsonObject{{QStringLiteral("format"), kFormat},
                                                       {QStringLiteral("version"), 1},
                                                       {QStringLiteral("plans"), array}})
                                 .toJson(QJsonDocument::Indented);
    const QString path = m_options.Arguments().value(0, QStringLiteral("-"));
    if (path == QLatin1String("-")) {
        m_out << QString::fromUtf8(bytes);
        return ExitOk;
    }
    // Written whole or not at all: an export that fails half-way leaves the old file as it was.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit())
        return Fail(ExitRefused, QStringLiteral("cannot write %1: %2").arg(path, file.errorString()));
    if (m_options.Json())
        PrintJson(QJsonObject{{QStringLiteral("exported"), plans.size()}, {QStringLiteral("file"), path}});
    else
        m_out << "exported " << plans.size() << " plan" << (plans.size() == 1 ? "" : "s") << " to " << path << "\n";
    return ExitOk;
}

int AgentCommands::ImportPlans()
{
    const QString path = m_options.Arguments().first();
    QFile file;
    const bool opened = path == QLatin1String("-") ? file.open(stdin, QIODevice::ReadOnly)
                                                    : (file.setFileName(path), file.open(QIODevice::ReadOnly));
    if (!opened)
        return Fail(ExitRefused, QStringLiteral("cannot read %1: %2").arg(path, file.errorString()));
    QJsonParseError parse;
    const QJsonObject document = QJsonDocument::fromJson(file.readAll(), &parse).object();
    if (parse.error != QJsonParseError::NoError || document.value(QStringLiteral("format")).toString() != kFormat
        || !document.value(QStringLiteral("plans")).isArray())
        return Usage(QStringLiteral("%1 is not a plan export of backupframe-agent").arg(path));
    QJsonArray imported;
    QJsonArray refused;
    for (const QJsonValue& value : document.value(QStringLiteral("plans")).toArray()) {
        SchedulerPlan plan;
        QString error;
        const QString name = value.toObject().value(QStringLiteral("name")).toString();
        if (!AgentOutput::PlanFromJson(value.toObject(), plan, error)) {
            refused.append(QJsonObject{{QStringLiteral("name"), name}, {QStringLiteral("error"), error}});
            continue;
        }
        SchedulerPlanData data;
        data.setSchedulerPlan(plan);
        ResultCommand answer(ResultType);
        if (const int code = OpenSession())
            return code;
        if (!m_session->Call(AddOperationType, plan.getPlanUuid(), name, EncodePayload(data), answer))
            return NoAnswer(m_session->Error());
        if (answer.getUintResult() == 0) {
            imported.append(QJsonObject{{QStringLiteral("name"), name}, {QStringLiteral("uuid"), answer.getPlanUuid()}});
            continue;
        }
        const QString reason = ReasonOf(answer.getResultData());
        refused.append(QJsonObject{{QStringLiteral("name"), name},
                                   {QStringLiteral("error"), ErrorText(answer.getUintResult())
                                                                 + (reason.isEmpty() ? QString() : QStringLiteral(": ") + reason)}});
    }
    if (m_options.Json()) {
        PrintJson(QJsonObject{{QStringLiteral("imported"), imported}, {QStringLiteral("refused"), refused}});
    } else {
        for (const QJsonValue& plan : imported)
            m_out << "imported " << plan[QStringLiteral("uuid")].toString() << "  "
                  << AgentOutput::Escaped(plan[QStringLiteral("name")].toString()) << "\n";
        for (const QJsonValue& plan : refused)
            m_err << "backupframe-agent: not imported '" << AgentOutput::Escaped(plan[QStringLiteral("name")].toString())
                  << "': " << plan[QStringLiteral("error")].toString() << "\n";
    }
    return refused.isEmpty() ? ExitOk : ExitRefused;
}

int AgentCommands::SupportBundle()
{
    const QString path = QFileInfo(m_options.Arguments().first()).absoluteFilePath();
    RequestMinizipData data;
    data.setSavePath(path);
    if (const int code = OpenSession())
        return code;
    m_session->SetTimeoutMs(qMax(m_options.TimeoutMs(), kBundleTimeoutMs));
    if (const int code = Call(MinizipType, QString(), QString(), EncodePayload(data),
                              QStringLiteral("write a support bundle")))
        return code;
    const qint64 size = QFileInfo(path).size();
    if (m_options.Json())
        PrintJson(QJsonObject{{QStringLiteral("file"), path}, {QStringLiteral("bytes"), size}});
    else
        m_out << "wrote " << path << " (" << AgentOutput::ByteSize(static_cast<quint64>(size)) << ")\n";
    return ExitOk;
}
