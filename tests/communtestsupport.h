#ifndef BACKUPFRAME_COMMUNTESTSUPPORT_H
#define BACKUPFRAME_COMMUNTESTSUPPORT_H

// Shared by the transport tests: a capture of the file log, unique endpoint names, the global
// "transport" column that runs every test once over local sockets and once over TCP, and
// plain sockets of the current transport.

#include <backupframe.h>

#include <QAtomicInt>
#include <QCoreApplication>
#include <QLocalSocket>
#include <QMutex>
#include <QStringList>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

#include <memory>

#include <log4cpp/AppenderSkeleton.hh>
#include <log4cpp/Category.hh>
#include <log4cpp/LoggingEvent.hh>
#include <log4cpp/Priority.hh>

// ThreadSanitizer builds only (tsanqtsupport.cpp): orders what test code wrote before it
// posts a call to another thread through Qt's event queue. A no-op otherwise.
void tsanRelease();

namespace communtest {

// Keeps every line written to the file log, from any thread, as "LEVEL message".
class LogCapture : public log4cpp::AppenderSkeleton
{
public:
    LogCapture() : log4cpp::AppenderSkeleton("communtest-capture") { Logger::GetFileLogHandle().addAppender(*this); }
    ~LogCapture() override { Logger::GetFileLogHandle().removeAppender(this); }

    void close() override {}
    bool requiresLayout() const override { return false; }
    void setLayout(log4cpp::Layout*) override {}

    QStringList lines() { QMutexLocker locker(&m_mutex); return m_lines; }
    void clear() { QMutexLocker locker(&m_mutex); m_lines.clear(); }

protected:
    void _append(const log4cpp::LoggingEvent& event) override
    {
        QMutexLocker locker(&m_mutex);
        m_lines.append(QString::fromStdString(log4cpp::Priority::getPriorityName(event.priority) + ' ' + event.message));
    }

private:
    QMutex m_mutex;
    QStringList m_lines;
};

inline QString uniqueName(const char* what)
{
    static QAtomicInt counter;
    return QStringLiteral("bftest-%1-%2-%3")
        .arg(QCoreApplication::applicationPid())
        .arg(QLatin1String(what))
        .arg(counter.fetchAndAddRelaxed(1));
}

inline void addTransportRows()
{
    QTest::addColumn<QString>("transport");
    QTest::newRow("local") << QStringLiteral("local");
    QTest::newRow("tcp") << QStringLiteral("tcp");
}

inline quint64 currentProtocol()
{
    const QString transport = *static_cast<QString*>(QTest::qGlobalData("transport", qMetaTypeId<QString>()));
    return transport == QLatin1String("tcp") ? CommunAttribute::TcpProtocol : CommunAttribute::LocalProtocol;
}

inline bool isTcp()
{
    return currentProtocol() == CommunAttribute::TcpProtocol;
}

// A plain socket of the current transport connected to the local name or to the TCP port on
// 127.0.0.1; null if it did not connect within 5 s.
inline std::unique_ptr<QIODevice> connectedSocket(const QString& name, quint16 port)
{
    if (isTcp()) {
        auto socket = std::make_unique<QTcpSocket>();
        socket->connectToHost(QHostAddress::LocalHost, port);
        return socket->waitForConnected(5000) ? std::move(socket) : nullptr;
    }
    auto socket = std::make_unique<QLocalSocket>();
    socket->connectToServer(name);
    return socket->waitForConnected(5000) ? std::move(socket) : nullptr;
}

// An endpoint of the current transport nobody serves: a fresh name, or a TCP port that was
// free a moment ago and is closed now.
inline CommunAttribute unservedEndpoint()
{
    CommunAttribute endpoint;
    endpoint.setProtocolType(currentProtocol());
    endpoint.setDestSvrNameIp(isTcp() ? QStringLiteral("127.0.0.1") : uniqueName("nobody"));
    QTcpServer probe;
    if (isTcp() && probe.listen(QHostAddress::LocalHost, 0))
        endpoint.setDestPort(probe.serverPort());
    return endpoint;
}

} // namespace communtest

#endif
