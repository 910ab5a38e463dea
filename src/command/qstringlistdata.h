#ifndef BACKUPFRAME_QSTRINGLISTDATA_H
#define BACKUPFRAME_QSTRINGLISTDATA_H

#include "backupframe_global.h"
#include "command/commandobj.h"

#include <QList>
#include <QString>

// Payload of a list of strings. Writing keeps repeats; reading appends only the
// strings not yet in the list, so repeats come back once, in first-seen order.
class BACKUPFRAME_EXPORT QstringListData : public CommandObj
{
public:
    QstringListData();
    QstringListData(const QstringListData& other);
    QstringListData& operator=(const QstringListData& other);
    ~QstringListData() override;

    // One byte array holding the strings back to back: no count, null when empty.
    void Read(QDataStream& in) override;
    void Write(QDataStream& out) override;

    QList<QString> getQstringList() const;
    QList<QString>& getObjectQstringList();
    void setQstringList(const QList<QString>& qstringList);

private:
    void formother(const QstringListData& other);

    QList<QString> m_qstringList;
};

#endif
