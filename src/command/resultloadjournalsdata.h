#ifndef BACKUPFRAME_RESULTLOADJOURNALSDATA_H
#define BACKUPFRAME_RESULTLOADJOURNALSDATA_H

#include "backupframe_global.h"
#include "command/commandobj.h"

#include <QList>

class JournalAttribute;

// Result payload of "LoadJournals". The record owns every journal its list points
// to: copies, assignment and setJournalAttrList copy deeply; the destructor deletes.
class BACKUPFRAME_EXPORT ResultLoadJournalsData : public CommandObj
{
public:
    ResultLoadJournalsData();
    ResultLoadJournalsData(const ResultLoadJournalsData& other);
    ResultLoadJournalsData& operator=(const ResultLoadJournalsData& other);
    ~ResultLoadJournalsData() override;

    // Appends the decoded journals to those already held.
    void Read(QDataStream& in) override;
    // One byte array holding the journals back to back; null pointers are skipped.
    void Write(QDataStream& out) override;

    // The pointers still belong to the record: do not delete them.
    QList<JournalAttribute*> getJournalAttrList() const;
    // Journals appended through this reference pass into the record's ownership.
    QList<JournalAttribute*>& getObjectJournalAttrList();
    // Copies the journals; the caller keeps what it passed in.
    void setJournalAttrList(const QList<JournalAttribute*>& journalAttrList);

private:
    void clean();
    void copy(const QList<JournalAttribute*>& journalAttrList);

    QList<JournalAttribute*> m_journalAttrList;
};

#endif
