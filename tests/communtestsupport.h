#ifndef BACKUPFRAME_COMMUNTESTSUPPORT_H
#define BACKUPFRAME_COMMUNTESTSUPPORT_H

// Helpers shared by the transport tests: a log capture, unique endpoint names, command
// packages, and a server and a client that each run on a thread of their own.

#include <backupframe.h>

#include <QAtomicInt>
#include <QCoreApplication>
#include <QDataStream>
#include <QEvent>
#include <QHostAddress>
#include <QMutex>
#include <QMutexLocker>
#include <QSemaphore>
#include <QStringList>
#include <QTest>
#include <QThread>

#include <log4cpp/AppenderSkeleton.hh>
#include <log4cpp/Category.hh>
#include <log4cpp/LoggingEvent.hh>
#include <log4cpp/Priority.hh>

#include <functional>

// ThreadSanitizer builds only (tsanqtsupport.cpp): order what test code hands to another
// thread through Qt's event queue. No-ops otherwise.
void tsanRelease();
void tsanAcquire();

namespace communtest {

// Keeps every line written to the file log, from any thread, as "LEVEL message".
class LogCapture : public log4cpp::AppenderSkeleton
{
public:
    LogCapture()
        : log4cpp::AppenderSkeleton("communtest-capture")
    {
        Logger::GetFileLogHandle().addAppender(*this);
    }
    ~LogCapture() override { Logger::GetFileLogHandle().removeAppender(this); }

    void close() override {}
    bool requiresLayout() const override { return false; }
    void setLayout(log4cpp::Layout*) override {}

    QStringList lines()
    {
        QMutexLocker locker(&m_mutex);
        return m_lines;
    }
    int count(const QString& line)
    {
        QMutexLocker locker(&m_mutex);
        return m_lines.count(line);
    }
    void clear()
    {
        QMutexLocker locker(&m_mutex);
        m_lines.clear();
    }

protected:
    void _append(const log4cpp::LoggingEvent& event) override
    {
        const QString line = QString::fromStdString(log4cpp::Priority::getPriorityName(event.priority)) + ' '
                             + QString::fromStdString(event.message);
        QMutexLocker locker(&m_mutex);
        m_lines.append(line);
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

// Every transport test runs once per transport: a global column "transport", "local" or "tcp".
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

inline QByteArray encode(CommCommand* command)
{
    QByteArray bytes;
    CommandBuilder::CommandToBytearray(command, bytes);
    return bytes;
}

// A request package carrying the number n in its request data.
inline QByteArray numberedPackage(quint32 n, const QString& client = QStringLiteral("client"))
{
    RequestCommand request(CustomCommandType);
    request.setClientUuid(client);
    QByteArray data;
    QDataStream(&data, QIODevice::WriteOnly) << n;
    request.setRequestData(data);
    return encode(&request);
}

inline quint32 numberOf(const QByteArray& package)
{
    CommCommand* command = CommandBuilder::BytearrayToCommand(package);
    quint32 n = 0xFFFFFFFFu;
    if (auto* request = dynamic_cast<RequestCommand*>(command))
        QDataStream(request->getRequestData()) >> n;
    CommandBuilder::DestroyCommand(command);
    return n;
}

// Runs one function on the thread of the object it is posted to. The function, and all it
// captured, is destroyed on that thread as well, so nothing it owns changes threads twice.
class FunctionRunner : public QObject
{
public:
    static QEvent::Type eventType()
    {
        static const int type = QEvent::registerEventType();
        return static_cast<QEvent::Type>(type);
    }

    FunctionRunner(std::function<void()> function, QSemaphore* done)
        : m_function(std::move(function))
        , m_done(done)
    {
    }

    bool event(QEvent* event) override
    {
        if (event->type() != eventType())
            return QObject::event(event);
        m_function();
        m_function = nullptr;
        if (m_done)
            m_done->release();
        deleteLater();
        return true;
    }

    // Hands the runner to the object's thread and starts it there.
    void post(QObject* object)
    {
        moveToThread(object->thread());
        auto* event = new QEvent(eventType());
        tsanRelease();
        QCoreApplication::postEvent(this, event);
    }

private:
    std::function<void()> m_function;
    QSemaphore* m_done;
};

// Runs the function on the object's thread (another one than the caller's) and waits for it.
template <typename F>
void runOn(QObject* object, F&& function)
{
    QSemaphore done;
    (new FunctionRunner([&function] { function(); }, &done))->post(object);
    done.acquire();
}

// Queues the function to the object's thread.
template <typename F>
void postTo(QObject* object, F&& function)
{
    (new FunctionRunner(std::forward<F>(function), nullptr))->post(object);
}

// Answers every package with a ResultCommand (type 2001) that echoes the request data.
inline QByteArray echoAnswer(const QByteArray& package)
{
    CommCommand* command = CommandBuilder::BytearrayToCommand(package);
    ResultCommand result(2001);
    result.GetRequestCommandInfo(*command);
    if (auto* request = dynamic_cast<RequestCommand*>(command))
        result.setResultData(request->getRequestData());
    result.setUintResult(0);
    CommandBuilder::DestroyCommand(command);
    return encode(&result);
}

// A CommunServer on its own thread. The handler runs on that thread for every package.
class ServerOnThread
{
public:
    using Handler = std::function<void(CommunServer*, QIODevice*, const QByteArray&)>;

    explicit ServerOnThread(Handler handler = Handler())
        : m_handler(std::move(handler))
    {
        m_thread.start();
        m_server = new CommunServer;
        m_server->moveToThread(&m_thread);
    }
    ~ServerOnThread()
    {
        runOn(m_server, [this] {
            m_server->UnInit();
            delete m_server;
        });
        m_thread.quit();
        m_thread.wait();
    }
    ServerOnThread(const ServerOnThread&) = delete;
    ServerOnThread& operator=(const ServerOnThread&) = delete;

    // Local: listens on a fresh name (or the one given). TCP: 127.0.0.1 on a free port (or the one given).
    bool start(quint64 protocol, const QString& name = QString(), quint16 port = 0)
    {
        m_protocol = protocol;
        m_name = name.isEmpty() ? uniqueName("server") : name;
        bool ok = false;
        runOn(m_server, [&] {
            QObject::connect(m_server, &CommunServer::incomingBlockData, m_server,
                             [this](quint64, QIODevice* socket, QByteArray bytes) {
                                 if (m_handler)
                                     m_handler(m_server, socket, bytes);
                                 m_received.fetchAndAddOrdered(1);
                             });
            ok = m_server->Init(static_cast<CommunAttribute::CommProtocolType>(protocol));
            if (ok && protocol == CommunAttribute::TcpProtocol)
                ok = m_server->StartTcp(port, QHostAddress::LocalHost);
            else if (ok)
                ok = m_server->Start(m_name, 0);
            m_port = m_server->getTcpServerPort();
        });
        return ok;
    }

    CommunAttribute endpoint() const
    {
        CommunAttribute attribute;
        attribute.setProtocolType(m_protocol);
        if (m_protocol == CommunAttribute::TcpProtocol) {
            attribute.setDestSvrNameIp(QStringLiteral("127.0.0.1"));
            attribute.setDestPort(m_port);
        } else {
            attribute.setDestSvrNameIp(m_name);
        }
        return attribute;
    }

    CommunServer* server() const { return m_server; }
    QThread* thread() { return &m_thread; }
    QString name() const { return m_name; }
    quint16 port() const { return m_port; }
    int received() const { return m_received.loadAcquire(); }

private:
    Handler m_handler;
    QThread m_thread;
    CommunServer* m_server = nullptr;
    quint64 m_protocol = 0;
    QString m_name;
    quint16 m_port = 0;
    QAtomicInt m_received;
};

// A CommunClientWork on its own thread (or on a shared one). Its signals are re-collected
// on the thread that created this object through queued connections.
class ClientOnThread : public QObject
{
public:
    struct Outcome {
        quint64 type;
        QString name;
        quint16 port;
        bool flag;
    };

    explicit ClientOnThread(QThread* shared = nullptr)
        : m_thread(shared ? shared : &m_ownThread)
    {
        if (!shared)
            m_ownThread.start();
        m_work = new CommunClientWork;
        m_work->moveToThread(m_thread);
        connect(m_work, &CommunClientWork::returnResult, this, [this](QByteArray blocks) { results.append(blocks); });
        connect(m_work, &CommunClientWork::hostConnected, this,
                [this](quint64 t, QString n, quint16 p, bool f) { hostOutcomes.append({t, n, p, f}); });
        connect(m_work, &CommunClientWork::firstConnected, this,
                [this](quint64 t, QString n, quint16 p, bool f) { firstOutcomes.append({t, n, p, f}); });
        runOn(m_work, [this] { m_initialised = m_work->Init(); });
    }
    ~ClientOnThread() override
    {
        runOn(m_work, [this] {
            m_work->UnInit();
            delete m_work;
        });
        if (m_thread == &m_ownThread) {
            m_ownThread.quit();
            m_ownThread.wait();
        }
    }

    bool initialised() const { return m_initialised; }
    CommunClientWork* work() const { return m_work; }

    void setEndpoint(const CommunAttribute& attribute) { m_work->SetCommunAttribute(attribute); }
    void reconnect()
    {
        postTo(m_work, [work = m_work] { work->onreconnectServer(); });
    }
    // Connects and waits for the outcome.
    bool connectTo(const CommunAttribute& attribute, int timeoutMs = 10000)
    {
        const int before = hostOutcomes.size();
        setEndpoint(attribute);
        reconnect();
        if (!QTest::qWaitFor([&] { return hostOutcomes.size() > before; }, timeoutMs))
            return false;
        return hostOutcomes.last().flag;
    }
    void request(const QByteArray& bytes)
    {
        // onRequestData is private: reach it through the meta-object, on the worker's thread.
        postTo(m_work, [work = m_work, bytes] {
            QMetaObject::invokeMethod(work, "onRequestData", Qt::DirectConnection, Q_ARG(QByteArray, bytes));
        });
    }

    QList<QByteArray> results;
    QList<Outcome> hostOutcomes;
    QList<Outcome> firstOutcomes;

private:
    QThread m_ownThread;
    QThread* m_thread;
    CommunClientWork* m_work = nullptr;
    bool m_initialised = false;
};

} // namespace communtest

#endif
