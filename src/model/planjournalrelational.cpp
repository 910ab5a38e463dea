#include "model/planjournalrelational.h"

#include "command/ownedlist.h"

#include <QByteArray>
#include <QDataStream>

PlanJournalRelational::PlanJournalRelational()
    : m_planUuid(QLatin1String(""))
{
}

PlanJournalRelational::PlanJournalRelational(const PlanJournalRelational& other)
{
    formother(other);
}

PlanJournalRelational& PlanJournalRelational::operator=(const PlanJournalRelational& other)
{
    if (this != &other)
        formother(other);
    return *this;
}

PlanJournalRelational::~PlanJournalRelational() = default;

void PlanJournalRelational::formother(const PlanJournalRelational& other)
{
    m_planUuid = other.m_planUuid;
    m_journalUuidList = other.m_journalUuidList;
}

QString PlanJournalRelational::getPlanUuid() const { return m_planUuid; }
void PlanJournalRelational::setPlanUuid(const QString& planUuid) { m_planUuid = planUuid; }
QList<QString> PlanJournalRelational::getJournalUuidList() const { return m_journalUuidList; }
QList<QString>& PlanJournalRelational::getObjectJournalUuidList() { return m_journalUuidList; }
void PlanJournalRelational::setJournalUuidList(const QList<QString>& journalUuidList) { m_journalUuidList = journalUuidList; }

bool PlanJournalRelational::ContainsJournalUuid(const QString& journalUuid) const
{
    return m_journalUuidList.contains(journalUuid);
}

bool PlanJournalRelational::InsertJournalUuid(const QString& journalUuid)
{
    if (ContainsJournalUuid(journalUuid))
        return false;
    m_journalUuidList.append(journalUuid);
    return true;
}

void PlanJournalRelational::DeleteJournalUuid(const QString& journalUuid)
{
    m_journalUuidList.removeAll(journalUuid);
}

void PlanJournalRelational::DeleteAllJournalUuids()
{
    m_journalUuidList.clear();
}

void PlanJournalRelational::Write(QDataStream& out) const
{
    out << m_planUuid;
    OwnedList::WriteNested(out, m_journalUuidList,
                           [](QDataStream& inner, const QString& journalUuid) { inner << journalUuid; });
}

// Appends to the uuids already held, deliberately.
void PlanJournalRelational::Read(QDataStream& in)
{
    in >> m_planUuid;
    OwnedList::ReadNested(in, [this](QDataStream& inner) {
        QString journalUuid;
        inner >> journalUuid;
        m_journalUuidList.append(journalUuid);
    });
}
