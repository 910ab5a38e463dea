#include "command/resultloadjournalsdata.h"

#include "command/ownedlist.h"
#include "model/journalattribute.h"

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

void ResultLoadJournalsData::clean() { OwnedList::Clean(m_journalAttrList); }

void ResultLoadJournalsData::copy(const QList<JournalAttribute*>& journalAttrList)
{
    OwnedList::Copy(m_journalAttrList, journalAttrList);
}

void ResultLoadJournalsData::Write(QDataStream& out) { OwnedList::Write(out, m_journalAttrList); }
void ResultLoadJournalsData::Read(QDataStream& in) { OwnedList::Read(in, m_journalAttrList); }

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
