#ifndef BACKUPFRAME_COMMTERMINAL_H
#define BACKUPFRAME_COMMTERMINAL_H

#include "backupframe_global.h"
#include "commun/socketcommandpackage.h"

#include <QByteArray>
#include <QDateTime>
#include <QMutex>
#include <QObject>

class ChannelCommand;
class QIODevice;
class ResultCommand;

// One connected peer on the serving side: its socket and a copy of the channel command
// it announced itself with. SendData wraps bytes into a ResultChannel addressed to that
// socket. The lock makes SocketCommandInfo, SendData and cleaning safe across threads;
// channelSendCommand is emitted under it, so a direct receiver must not call back in.
class BACKUPFRAME_EXPORT CommTerminal : public QObject
{
    Q_OBJECT

public:
    explicit CommTerminal(QObject* parent = nullptr);
    ~CommTerminal() override;

    // Binds the socket; the first call keeps a copy of the channel command, later calls
    // take over only its trace flag. The caller keeps ownership of pchannel.
    void SocketCommandInfo(QIODevice* psocket, ChannelCommand* pchannel);
    // False when no socket is bound; otherwise the receiver of channelSendCommand owns
    // the package and the result command.
    virtual bool SendData(const QByteArray& bytes);

    void setLastTime(const QDateTime& time);
    QDateTime getLastTime();

signals:
    void channelSendCommand(SocketCommandPackage* ppackage, ResultCommand* pretcommand);

private:
    void CleanSocketCommand();

    QIODevice* m_socket;
    ChannelCommand* m_channelCommand;
    QMutex m_mutex;
    QDateTime m_lastTime;
};

#endif
