#ifndef BACKUPFRAME_COMMCOMMAND_H
#define BACKUPFRAME_COMMCOMMAND_H

#include "backupframe_global.h"
#include "command/commandobj.h"
#include "commun/communattribute.h"

#include <QString>

// Named command types. The range of a type selects the class that CommandBuilder
// builds for it; the names are what BuildCommandTypeToString reports.
enum CommandType : quint64 {
    StopLocalModelCommandType = 1,
    ConnectServerCommandType = 2,
    RequestCommandType = 100,
    LoadSchedulersType = 101,
    LoadJournalsType = 102,
    FlushSchedulersType = 103,
    FlushJournalsType = 104,
    NewOperationType = 200,
    ExecuteOperationType = 201,
    CancelOperationType = 202,
    DeleteOperationType = 203,
    EditOperationType = 204,
    AddOperationType = 205,
    TriggerExecuteType = 600,
    TriggerUpdateInfoType = 601,
    DeleteSelectJournalType = 800,
    DeleteAllJournalType = 801,
    EmailConfigUpdateType = 802,
    EmailMessageTestType = 803,
    LoadEmailConfigType = 804,
    MinizipType = 805,
    SingleOperationNewType = 806,
    SingleOperationCancelType = 807,
    SingleOperationDeleteType = 808,
    SingleFlushSchedulerType = 809,
    ResultCommandType = 2000,
    ChannelCommandType = 3000,
    ResultChannelType = 4000,
    CustomCommandType = 5000
};

// The envelope of every command: type, endpoint, plan, trace flag and flags.
// The command type travels ahead of Write's output (WriteCommandType), never inside it.
class BACKUPFRAME_EXPORT CommCommand : public CommandObj
{
public:
    explicit CommCommand(quint64 commandType);
    CommCommand(const CommCommand& other);
    CommCommand& operator=(const CommCommand& other);
    ~CommCommand() override;

    void Read(QDataStream& in) override;
    void Write(QDataStream& out) override;

    void WriteCommandType(QDataStream& out);
    void ReadCommandType(QDataStream& in);

    // Rebuilds the trace flag "[planUuid:%1,planName:%2,commandType:%3]".
    void CreateTraceFlag();

    quint64 getCommandType() const;
    void setCommandType(quint64 commandType);
    CommunAttribute getCommunAttribute() const;
    CommunAttribute& getObjectCommunAttribute();
    void setCommunAttribute(const CommunAttribute& attribute);
    QString getPlanUuid() const;
    void setPlanUuid(const QString& planUuid);
    QString getTraceFlag() const;
    void setTraceFlag(const QString& traceFlag);
    QString getPlanName() const;
    void setPlanName(const QString& planName);
    quint64 getTriggerFlag() const;
    void setTriggerFlag(quint64 flag);
    quint64 getTriggerType() const;
    void setTriggerType(quint64 type);
    quint64 getShowMsgFlag() const;
    void setShowMsgFlag(quint64 flag);

private:
    void formother(const CommCommand& other);
    QString BuildCommandTypeToString();

    quint64 m_commandType;
    CommunAttribute m_communAttribute;
    QString m_planUuid;
    QString m_traceFlag;
    QString m_planName;
    quint64 m_triggerFlag;
    quint64 m_triggerType;
    quint64 m_showMsgFlag;
};

#endif
