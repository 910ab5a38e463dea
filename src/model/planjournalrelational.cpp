#include "model/planjournalrelational.h"

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
    QByteArray list;
    if (!m_journalUuidList.isEmpty()) {
        QDataStream inner(&list, QIODevice::WriteOnly);
        for (const QString& journalUuid : m_journalUuidList)
            inner << journalUuid;
    }
    out << list;
}

void PlanJournalRelational::Read(QDataStream& in)
{
    QByteArray list;
    in >> m_planUuid >> list;
    if (list.size() <= 0)
        return;
    QDataStream inner(&list, QIODevice::ReadOnly);
    while (!inner.atEnd()) {
        QString journalUuid;
        inner >> journalUuid;
        m_journalUuidList.append(journalUuid);
    }
}
