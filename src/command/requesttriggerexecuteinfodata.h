#ifndef BACKUPFRAME_REQUESTTRIGGEREXECUTEINFODATA_H
#define BACKUPFRAME_REQUESTTRIGGEREXECUTEINFODATA_H

#include "backupframe_global.h"
#include "command/commandobj.h"

#include <QString>

// Payload of "TriggerExecute" and "TriggerUpdateInfo": the trigger's next start
// time and whether its schedule has ended.
class BACKUPFRAME_EXPORT RequestTriggerExecuteInfoData : public CommandObj
{
public:
    RequestTriggerExecuteInfoData();
    RequestTriggerExecuteInfoData(const RequestTriggerExecuteInfoData& other);
    RequestTriggerExecuteInfoData& operator=(const RequestTriggerExecuteInfoData& other);
    ~RequestTriggerExecuteInfoData() override;

    void Read(QDataStream& in) override;
    void Write(QDataStream& out) override;

    QString getNextStartTime() const;
    void setNextStartTime(const QString& nextStartTime);
    quint64 getTriggerEndFlag() const;
    void setTriggerEndFlag(quint64 triggerEndFlag);

private:
    void formother(const RequestTriggerExecuteInfoData& other);

    QString m_nextStartTime;
    quint64 m_triggerEndFlag;
};

#endif
