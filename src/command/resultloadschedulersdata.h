#ifndef BACKUPFRAME_RESULTLOADSCHEDULERSDATA_H
#define BACKUPFRAME_RESULTLOADSCHEDULERSDATA_H

#include "backupframe_global.h"
#include "command/commandobj.h"

#include <QList>

class SchedulerPlan;

// Result payload of "LoadSchedulers". The record owns every plan its list points
// to: copies, assignment and setActionPlansList copy deeply; the destructor deletes.
class BACKUPFRAME_EXPORT ResultLoadSchedulersData : public CommandObj
{
public:
    ResultLoadSchedulersData();
    ResultLoadSchedulersData(const ResultLoadSchedulersData& other);
    ResultLoadSchedulersData& operator=(const ResultLoadSchedulersData& other);
    ~ResultLoadSchedulersData() override;

    // Appends the decoded plans to those already held.
    void Read(QDataStream& in) override;
    // One byte array holding the plans back to back; null pointers are skipped.
    void Write(QDataStream& out) override;

    // The pointers still belong to the record: do not delete them.
    QList<SchedulerPlan*> getActionPlansList() const;
    // Plans appended through this reference pass into the record's ownership.
    QList<SchedulerPlan*>& getObjectActionPlansList();
    // Copies the plans; the caller keeps what it passed in.
    void setActionPlansList(const QList<SchedulerPlan*>& actionPlansList);

private:
    void clean();
    void copy(const QList<SchedulerPlan*>& actionPlansList);

    QList<SchedulerPlan*> m_actionPlansList;
};

#endif
