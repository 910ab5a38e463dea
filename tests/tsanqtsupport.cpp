// Only in ThreadSanitizer builds (the tests, and the reference programs they start): tells the
// sanitizer about the hand-overs that happen inside the uninstrumented Qt libraries, so that its
// reports are about this code.
//  - The QMutex and QSemaphore calls made by this code and the library are wrapped so that a
//    lock or an acquire synchronises with the unlock or release before it.
//  - A queued call crosses threads through Qt's event queue: every signal emission, every
//    QMetaObject::invokeMethod with a functor, every QCoreApplication::postEvent called from
//    outside Qt (and every tsanRelease of test code that posts to another thread) releases one
//    token, and every delivered event acquires it. Coarse, but it orders only what the queue
//    orders or more.
//  - A thread's end (its deferred deletions included) is released when Qt destroys its thread
//    storage, and acquired when QThread::wait returns true.
//  - Memory functions called from inside Qt and GLib are not checked.

#if defined(__SANITIZE_THREAD__)

#include <QCoreApplication>
#include <QMutex>
#include <QSemaphore>
#include <QThread>
#include <QThreadStorage>

#include <dlfcn.h>

struct QSignalSpyCallbackSet;
void qt_register_signal_spy_callbacks(QSignalSpyCallbackSet* callbacks);

extern "C" {
void __tsan_acquire(void* addr);
void __tsan_release(void* addr);

const char* __tsan_default_suppressions()
{
    return "called_from_lib:libQt5Core.so.5\n"
           "called_from_lib:libQt5Network.so.5\n"
           "called_from_lib:libQt5Test.so.5\n"
           "called_from_lib:libglib-2.0.so.0\n";
}
}

namespace {
char g_eventToken;
char g_threadEndToken;

// Lives in every thread that emits a signal or delivers an event; Qt destroys it when the thread
// finishes, after the thread's deferred deletions and before QThread::wait returns elsewhere.
struct ThreadEnd {
    ~ThreadEnd() { __tsan_release(&g_threadEndToken); }
};
QThreadStorage<ThreadEnd*> g_threadEnd;

// The layout of Qt's private QSignalSpyCallbackSet.
struct SignalSpyCallbackSet {
    void (*signal_begin_callback)(QObject*, int, void**);
    void (*slot_begin_callback)(QObject*, int, void**);
    void (*signal_end_callback)(QObject*, int);
    void (*slot_end_callback)(QObject*, int);
};

void markThreadEnd()
{
    if (!g_threadEnd.hasLocalData())
        g_threadEnd.setLocalData(new ThreadEnd);
}

// Every QThread emits started() on its own thread, so each thread gets its ThreadEnd here.
SignalSpyCallbackSet g_callbacks = {[](QObject*, int, void**) {
                                        markThreadEnd();
                                        __tsan_release(&g_eventToken);
                                    },
                                    nullptr, [](QObject*, int) { __tsan_release(&g_eventToken); }, nullptr};

const bool g_registered = [] {
    qt_register_signal_spy_callbacks(reinterpret_cast<QSignalSpyCallbackSet*>(&g_callbacks));
    QInternal::registerCallback(QInternal::EventNotifyCallback, [](void**) {
        __tsan_acquire(&g_eventToken);
        markThreadEnd();
        return false;   // never consume the event
    });
    return true;
}();

template <typename F>
F real(const char* symbol)
{
    return reinterpret_cast<F>(dlsym(RTLD_NEXT, symbol));
}
} // namespace

void tsanRelease()
{
    __tsan_release(&g_eventToken);
}

void QMutex::lock() QT_MUTEX_LOCK_NOEXCEPT
{
    static const auto next = real<void (*)(QMutex*)>("_ZN6QMutex4lockEv");
    next(this);
    __tsan_acquire(this);
}

void QMutex::unlock() noexcept
{
    static const auto next = real<void (*)(QMutex*)>("_ZN6QMutex6unlockEv");
    __tsan_release(this);
    next(this);
}

void QSemaphore::acquire(int n)
{
    static const auto next = real<void (*)(QSemaphore*, int)>("_ZN10QSemaphore7acquireEi");
    next(this, n);
    __tsan_acquire(this);
}

bool QSemaphore::tryAcquire(int n)
{
    static const auto next = real<bool (*)(QSemaphore*, int)>("_ZN10QSemaphore10tryAcquireEi");
    const bool acquired = next(this, n);
    if (acquired)
        __tsan_acquire(this);
    return acquired;
}

namespace {
// Wraps the functor of an invokeMethod so that the end of each call releases, and its destruction
// acquires, the wrapper: whichever thread drops the last reference (counted inside Qt, unseen by
// the sanitizer) then deletes the functor after the call that used it, also in the sanitizer's
// view. A blocking caller acquires the event token once woken.
class AnnotatedSlot : public QtPrivate::QSlotObjectBase
{
public:
    explicit AnnotatedSlot(QtPrivate::QSlotObjectBase* inner)
        : QSlotObjectBase(&impl), m_inner(inner)
    {
    }

private:
    static void impl(int which, QSlotObjectBase* self, QObject* receiver, void** args, bool* ret)
    {
        auto* that = static_cast<AnnotatedSlot*>(self);
        if (which == Call) {
            that->m_inner->call(receiver, args);
            __tsan_release(that);
            __tsan_release(&g_eventToken);   // for a blocking caller, woken inside Qt
        } else if (which == Destroy) {
            __tsan_acquire(that);
            that->m_inner->destroyIfLastRef();
            delete that;
        } else if (which == Compare) {
            *ret = that->m_inner->compare(args);
        }
    }

    QtPrivate::QSlotObjectBase* m_inner;
};
} // namespace

// The functor form of invokeMethod: the functor and what it captured travel in the event.
bool QMetaObject::invokeMethodImpl(QObject* object, QtPrivate::QSlotObjectBase* slot, Qt::ConnectionType type,
                                   void* ret)
{
    static const auto next = real<bool (*)(QObject*, QtPrivate::QSlotObjectBase*, Qt::ConnectionType, void*)>(
        "_ZN11QMetaObject16invokeMethodImplEP7QObjectPN9QtPrivate15QSlotObjectBaseEN2Qt14ConnectionTypeEPv");
    QtPrivate::QSlotObjectBase* annotated = slot ? new AnnotatedSlot(slot) : slot;
    __tsan_release(&g_eventToken);
    const bool invoked = next(object, annotated, type, ret);
    if (type == Qt::BlockingQueuedConnection)
        __tsan_acquire(&g_eventToken);
    return invoked;
}

void QCoreApplication::postEvent(QObject* receiver, QEvent* event, int priority)
{
    static const auto next = real<void (*)(QObject*, QEvent*, int)>("_ZN16QCoreApplication9postEventEP7QObjectP6QEventi");
    __tsan_release(&g_eventToken);
    next(receiver, event, priority);
}

// What a finished thread did, its last deletions included, comes before what follows the wait.
bool QThread::wait(QDeadlineTimer deadline)
{
    static const auto next = real<bool (*)(QThread*, QDeadlineTimer)>("_ZN7QThread4waitE14QDeadlineTimer");
    const bool finished = next(this, deadline);
    if (finished)
        __tsan_acquire(&g_threadEndToken);
    return finished;
}

bool QThread::wait(unsigned long time)
{
    static const auto next = real<bool (*)(QThread*, unsigned long)>("_ZN7QThread4waitEm");
    const bool finished = next(this, time);
    if (finished)
        __tsan_acquire(&g_threadEndToken);
    return finished;
}

void QSemaphore::release(int n)
{
    static const auto next = real<void (*)(QSemaphore*, int)>("_ZN10QSemaphore7releaseEi");
    __tsan_release(this);
    next(this, n);
}

#else

void tsanRelease() {}

#endif
