#include "command/resultloadjournalsdata.h"

#include "model/journalattribute.h"

#include <QByteArray>
#include <QDataStream>

ResultLoadJournalsData::ResultLoadJournalsData() = default;

ResultLoadJournalsData::ResultLoadJournalsData(const ResultLoadJournalsData& other)
    : CommandObj(other)
{
    copy(other.m_journalAttrList);
}

ResultLoadJournalsData& ResultLoadJournalsData::operator=(const ResultLoadJournalsData& other)
{
    if (this != &other) {
        clean();
        copy(other.m_journalAttrList);
    }
    return *this;
}

ResultLoadJournalsData::~ResultLoadJournalsData()
{
    clean();
}

void ResultLoadJournalsData::clean()
{
    for (JournalAttribute* journal : qAsConst(m_journalAttrList))
        delete journal;
    m_journalAttrList.clear();
}

void ResultLoadJournalsData::copy(const QList<JournalAttribute*>& journalAttrList)
{
    for (const JournalAttribute* source : journalAttrList) {
        // A null entry copies as a null entry; Write skips it.
        JournalAttribute* journal = nullptr;
        if (source != nullptr) {
            journal = new JournalAttribute();
            *journal = *source;
        }
        m_journalAttrList.append(journal);
    }
}

void ResultLoadJournalsData::Write(QDataStream& out)
{
    if (m_journalAttrList.isEmpty()) {
        out << QByteArray();
        return;
    }
    // The inner stream keeps QDataStream's default version on purpose.
    QByteArray list;
    QDataStream inner(&list, QIODevice::WriteOnly);
    for (const JournalAttribute* journal : qAsConst(m_journalAttrList)) {
        if (journal != nullptr)
            journal->Write(inner);
    }
    out << list;
}

void ResultLoadJournalsData::Read(QDataStream& in)
{
    QByteArray list;
    in >> list;
    if (list.size() <= 0)
        return;
    QDataStream inner(&list, QIODevice::ReadOnly);
    while (!inner.atEnd()) {
        auto* journal = new JournalAttribute();
        journal->Read(inner);
        m_journalAttrList.append(journal);
    }
}

QList<JournalAttribute*> ResultLoadJournalsData::getJournalAttrList() const { return m_journalAttrList; }
QList<JournalAttribute*>& ResultLoadJournalsData::getObjectJournalAttrList() { return m_journalAttrList; }

void ResultLoadJournalsData::setJournalAttrList(const QList<JournalAttribute*>& journalAttrList)
{
    // Copy before cleaning: the argument may hold this record's own pointers
    // (a list taken with getJournalAttrList).
    ResultLoadJournalsData fresh;
    fresh.copy(journalAttrList);
    clean();
    m_journalAttrList.swap(fresh.m_journalAttrList);
}
