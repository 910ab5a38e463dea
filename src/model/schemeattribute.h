#ifndef BACKUPFRAME_SCHEMEATTRIBUTE_H
#define BACKUPFRAME_SCHEMEATTRIBUTE_H

#include "backupframe_global.h"

#include <QString>

class QDataStream;

// Bookkeeping state of one backup plan: execution state, last status, last finish
// and creation times. A plain value record, embedded whole in a SchedulerPlan.
class BACKUPFRAME_EXPORT SchemeAttribute
{
public:
    SchemeAttribute();
    SchemeAttribute(const SchemeAttribute& other);
    SchemeAttribute& operator=(const SchemeAttribute& other);
    virtual ~SchemeAttribute();

    bool operator==(const SchemeAttribute& other) const;
    bool operator!=(const SchemeAttribute& other) const;

    QString getExecutState() const;
    void setExecutState(const QString& executState);
    QString getStatus() const;
    void setStatus(const QString& status);
    QString getLatestFinishTime() const;
    void setLatestFinishTime(QString latestFinishTime);
    // "yyyy-MM-dd hh:mm:ss": SchedulerPlan orders plans by parsing it.
    QString getCreateTime() const;
    void setCreateTime(QString createTime);

    // Four QStrings in declared order; the stream's owner sets version and byte order.
    void Write(QDataStream& out) const;
    void Read(QDataStream& in);

private:
    void formother(const SchemeAttribute& other);

    QString m_executState;
    QString m_status;
    QString m_latestFinishTime;
    QString m_createTime;
};

#endif
