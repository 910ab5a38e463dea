// The journal subcommands: journals, journal-delete.
#include "agentcommands.h"

#include "agentoutput.h"

#include <QJsonArray>
#include <QJsonObject>

namespace {

// A full uuid in its braces: such a key may name the journals of a plan that is gone.
bool isFullUuid(const QString& key)
{
    return key.size() == 38 && key.startsWith(QLatin1Char('{')) && key.endsWith(QLatin1Char('}'));
}

} // namespace

int AgentCommands::Journals()
{
    QString planUuid;
    if (!m_options.Arguments().isEmpty()) {
        const QString key = m_options.Arguments().first();
        SchedulerPlan plan;
        if (isFullUuid(key))
            planUuid = key;
        else if (const int code = ResolvePlan(key, plan))
            return code;
        else
            planUuid = plan.getPlanUuid();
    }
    QList<JournalAttribute> journals;
    if (const int code = LoadJournals(planUuid, journals))
        return code;
    if (m_options.Json()) {
        QJsonArray array;
        for (const JournalAttribute& journal : journals)
            array.append(AgentOutput::JournalToJson(journal));
        PrintJson(array);
        return ExitOk;
    }
    if (journals.isEmpty()) {
        m_out << "No journals.\n";
        return ExitOk;
    }
    QStringList uuids;
    for (const JournalAttribute& journal : journals)
        uuids.append(journal.getJournalUuid());
    const QStringList ids = AgentOutput::ShortIds(uuids);
    AgentOutput::Table table;
    table.AddRow({QStringLiteral("ID"), QStringLiteral("PLAN"), QStringLiteral("TASK"), QStringLiteral("START"),
                  QStringLiteral("END"), QStringLiteral("TIME (ms)"), QStringLiteral("RESULT"), QStringLiteral("ERROR")});
    for (int i = 0; i < journals.size(); ++i) {
        const JournalAttribute& journal = journals[i];
        table.AddRow({ids[i], AgentOutput::Cell(journal.getPlanName()),
                      AgentOutput::Cell(AgentOutput::ShortTaskName(journal.getTaskName())), journal.getStartTime(),
                      journal.getEndTime(), QString::number(journal.getTimeConsuming()), journal.getResult(),
                      AgentOutput::Cell(journal.getErrorReason())});
    }
    m_out << table.Render();
    return ExitOk;
}

int AgentCommands::DeleteJournals()
{
    const bool all = m_options.IsSet(QStringLiteral("all"));
    const QStringList keys = m_options.Arguments();
    if (!all && keys.isEmpty())
        return Usage(QStringLiteral("'journal-delete': give journal uuids or --all"));
    if (all && !keys.isEmpty())
        return Usage(QStringLiteral("'journal-delete' wants journal uuids or --all, not both"));
    if (all) {
        if (const int code = Call(DeleteAllJournalType, QString(), QString(), QByteArray(),
                                  QStringLiteral("delete the journals")))
            return code;
        if (m_options.Json())
            PrintJson(QJsonObject{{QStringLiteral("deleted"), QStringLiteral("all")}});
        else
            m_out << "deleted all journals\n";
        return ExitOk;
    }
    QStringList uuids;
    if (const int code = ResolveJournals(keys, uuids))
        return code;
    QstringListData data;
    data.setQstringList(uuids);
    if (const int code = Call(DeleteSelectJournalType, QString(), QString(), SchedulerProtocol::EncodePayload(data),
                              QStringLiteral("delete the journals")))
        return code;
    if (m_options.Json())
        PrintJson(QJsonObject{{QStringLiteral("deleted"), QJsonArray::fromStringList(uuids)}});
    else
        m_out << "deleted " << uuids.size() << (uuids.size() == 1 ? " journal\n" : " journals\n");
    return ExitOk;
}

// Every key must name exactly one journal, by its uuid or a unique prefix of it.
int AgentCommands::ResolveJournals(const QStringList& keys, QStringList& uuids)
{
    QList<JournalAttribute> journals;
    if (const int code = LoadJournals(QString(), journals))
        return code;
    for (const QString& key : keys) {
        QList<Candidate> matches;
        for (const JournalAttribute& journal : journals) {
            const Candidate candidate{journal.getJournalUuid(), journal.getPlanName()};
            if (candidate.uuid.compare(key, Qt::CaseInsensitive) == 0) {
                matches = {candidate};
                break;
            }
            if (AgentOutput::MatchesUuidPrefix(candidate.uuid, key))
                matches.append(candidate);
        }
        if (matches.isEmpty())
            return Fail(ExitRefused, QStringLiteral("journal not found: no journal has the uuid or uuid prefix '%1'").arg(key));
        if (matches.size() > 1)
            return Ambiguous(key, QStringLiteral("journals"), matches);
        if (!uuids.contains(matches.first().uuid))
            uuids.append(matches.first().uuid);
    }
    return ExitOk;
}
