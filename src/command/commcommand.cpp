#include "command/commcommand.h"

#include <QDataStream>

CommCommand::CommCommand(quint64 commandType)
    : m_commandType(commandType)
    , m_planUuid(QLatin1String(""))
    , m_traceFlag(QLatin1String(""))
    , m_planName(QLatin1String(""))
    , m_triggerFlag(0)
    , m_triggerType(0)
    , m_showMsgFlag(0)
{
}

CommCommand::CommCommand(const CommCommand& other)
    : CommandObj(other)
{
    formother(other);
}

CommCommand& CommCommand::operator=(const CommCommand& other)
{
    if (this != &other)
        formother(other);
    return *this;
}

CommCommand::~CommCommand() = default;

void CommCommand::formother(const CommCommand& other)
{
    m_commandType = other.m_commandType;
    m_communAttribute = other.m_communAttribute;
    m_planUuid = other.m_planUuid;
    m_traceFlag = other.m_traceFlag;
    m_planName = other.m_planName;
    m_triggerFlag = other.m_triggerFlag;
    m_triggerType = other.m_triggerType;
    m_showMsgFlag = other.m_showMsgFlag;
}

void CommCommand::Write(QDataStream& out)
{
    m_communAttribute.Write(out);
    out << m_planUuid << m_traceFlag << m_planName;
    out << static_cast<qint64>(m_triggerFlag) << static_cast<qint64>(m_triggerType)
        << static_cast<qint64>(m_showMsgFlag);
}

void CommCommand::Read(QDataStream& in)
{
    qint64 triggerFlag = 0;
    qint64 triggerType = 0;
    qint64 showMsgFlag = 0;
    m_communAttribute.Read(in);
    in >> m_planUuid >> m_traceFlag >> m_planName;
    in >> triggerFlag >> triggerType >> showMsgFlag;
    m_triggerFlag = static_cast<quint64>(triggerFlag);
    m_triggerType = static_cast<quint64>(triggerType);
    m_showMsgFlag = static_cast<quint64>(showMsgFlag);
}

void CommCommand::WriteCommandType(QDataStream& out)
{
    out << static_cast<qint64>(m_commandType);
}

void CommCommand::ReadCommandType(QDataStream& in)
{
    qint64 type = 0;
    in >> type;
    m_commandType = static_cast<quint64>(type);
}

void CommCommand::CreateTraceFlag()
{
    // Three chained replacements: each one fills the lowest placeholder still in the text,
    // so a "%3" inside the plan name is filled by the command type's name as well.
    m_traceFlag = QStringLiteral("[planUuid:%1,planName:%2,commandType:%3]")
                      .arg(m_planUuid, 0, QLatin1Char(' '))
                      .arg(m_planName, 0, QLatin1Char(' '))
                      .arg(BuildCommandTypeToString(), 0, QLatin1Char(' '));
}

QString CommCommand::BuildCommandTypeToString()
{
    switch (m_commandType) {
    case StopLocalModelCommandType: return QStringLiteral("StopLocalModelCommand");
    case ConnectServerCommandType: return QStringLiteral("ConnectServerCommand");
    case RequestCommandType: return QStringLiteral("RequestCommand");
    case LoadSchedulersType: return QStringLiteral("LoadSchedulers");
    case LoadJournalsType: return QStringLiteral("LoadJournals");
    case FlushSchedulersType: return QStringLiteral("FlushSchedulers");
    case FlushJournalsType: return QStringLiteral("FlushJournals");
    case NewOperationType: return QStringLiteral("NewOperation");
    case ExecuteOperationType: return QStringLiteral("ExecuteOperation");
    case CancelOperationType: return QStringLiteral("CancelOperation");
    case DeleteOperationType: return QStringLiteral("DeleteOperatio");
    case EditOperationType: return QStringLiteral("EditOperation");
    case AddOperationType: return QStringLiteral("AddOperation");
    case TriggerExecuteType: return QStringLiteral("TriggerExecute");
    case TriggerUpdateInfoType: return QStringLiteral("TriggerUpdateInfo");
    case DeleteSelectJournalType: return QStringLiteral("DeleteSelectJournal");
    case DeleteAllJournalType: return QStringLiteral("DeleteAllJournal");
    case EmailConfigUpdateType: return QStringLiteral("EmailConfigUpdate");
    case EmailMessageTestType: return QStringLiteral("EmailMessageTest");
    case LoadEmailConfigType: return QStringLiteral("LoadEmailConfig");
    case MinizipType: return QStringLiteral("Minizip");
    case SingleOperationNewType: return QStringLiteral("SingleOperationNew");
    case SingleOperationCancelType: return QStringLiteral("SingleOperationCancel");
    case SingleOperationDeleteType: return QStringLiteral("SingleOperationDelete");
    case SingleFlushSchedulerType: return QStringLiteral("SingleFlushScheduler");
    case ChannelCommandType: return QStringLiteral("ChannelCommand");
    case ResultChannelType: return QStringLiteral("ResultChannel");
    case CustomCommandType: return QStringLiteral("CustomCommand");
    default: return QLatin1String("");
    }
}

quint64 CommCommand::getCommandType() const { return m_commandType; }
void CommCommand::setCommandType(quint64 commandType) { m_commandType = commandType; }
CommunAttribute CommCommand::getCommunAttribute() const { return m_communAttribute; }
CommunAttribute& CommCommand::getObjectCommunAttribute() { return m_communAttribute; }
void CommCommand::setCommunAttribute(const CommunAttribute& attribute) { m_communAttribute = attribute; }
QString CommCommand::getPlanUuid() const { return m_planUuid; }
void CommCommand::setPlanUuid(const QString& planUuid) { m_planUuid = planUuid; }
QString CommCommand::getTraceFlag() const { return m_traceFlag; }
void CommCommand::setTraceFlag(const QString& traceFlag) { m_traceFlag = traceFlag; }
QString CommCommand::getPlanName() const { return m_planName; }
void CommCommand::setPlanName(const QString& planName) { m_planName = planName; }
quint64 CommCommand::getTriggerFlag() const { return m_triggerFlag; }
void CommCommand::setTriggerFlag(quint64 flag) { m_triggerFlag = flag; }
quint64 CommCommand::getTriggerType() const { return m_triggerType; }
void CommCommand::setTriggerType(quint64 type) { m_triggerType = type; }
quint64 CommCommand::getShowMsgFlag() const { return m_showMsgFlag; }
void CommCommand::setShowMsgFlag(quint64 flag) { m_showMsgFlag = flag; }
