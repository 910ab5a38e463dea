#ifndef BACKUPFRAME_PLANJOURNALRELATIONAL_H
#define BACKUPFRAME_PLANJOURNALRELATIONAL_H

#include "backupframe_global.h"

#include <QList>
#include <QString>

class QDataStream;

// Ties one plan to the uuids of its journals, in insertion order. A plain value record.
class BACKUPFRAME_EXPORT PlanJournalRelational
{
public:
    PlanJournalRelational();
    PlanJournalRelational(const PlanJournalRelational& other);
    PlanJournalRelational& operator=(const PlanJournalRelational& other);
    virtual ~PlanJournalRelational();

    QString getPlanUuid() const;
    void setPlanUuid(const QString& planUuid);
    QList<QString> getJournalUuidList() const;
    QList<QString>& getObjectJournalUuidList();
    void setJournalUuidList(const QList<QString>& journalUuidList);

    bool ContainsJournalUuid(const QString& journalUuid) const;
    // False, list unchanged, when the uuid is already listed.
    bool InsertJournalUuid(const QString& journalUuid);
    // Removes every occurrence.
    void DeleteJournalUuid(const QString& journalUuid);
    void DeleteAllJournalUuids();

    // Plan uuid, then one byte array holding the uuids back to back (null when
    // the list is empty; no count; inner stream at QDataStream's default version).
    void Write(QDataStream& out) const;
    // Appends the decoded uuids to the list already held.
    void Read(QDataStream& in);

private:
    void formother(const PlanJournalRelational& other);

    QString m_planUuid;
    QList<QString> m_journalUuidList;
};

#endif
