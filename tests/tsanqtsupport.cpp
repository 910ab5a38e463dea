// Only in ThreadSanitizer builds: tells the sanitizer about the hand-overs that happen inside
// the uninstrumented Qt libraries, so that its reports are about this code.
//  - The QMutex and QSemaphore calls made by this code and the library are wrapped so that a
//    lock or an acquire synchronises with the unlock or release before it.
//  - A queued call crosses threads through Qt's event queue: every signal emission (and every
//    tsanRelease of test code that posts to another thread) releases one token, and every
//    delivered event acquires it. Coarse, but it orders only what the queue orders or more.
//  - Memory functions called from inside Qt and GLib are not checked.

#if defined(__SANITIZE_THREAD__)

#include <QCoreApplication>
#include <QMutex>
#include <QSemaphore>

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

// The layout of Qt's private QSignalSpyCallbackSet.
struct SignalSpyCallbackSet {
    void (*signal_begin_callback)(QObject*, int, void**);
    void (*slot_begin_callback)(QObject*, int, void**);
    void (*signal_end_callback)(QObject*, int);
    void (*slot_end_callback)(QObject*, int);
};

SignalSpyCallbackSet g_callbacks = {[](QObject*, int, void**) { __tsan_release(&g_eventToken); }, nullptr,
                                    [](QObject*, int) { __tsan_release(&g_eventToken); }, nullptr};

const bool g_registered = [] {
    qt_register_signal_spy_callbacks(reinterpret_cast<QSignalSpyCallbackSet*>(&g_callbacks));
    QInternal::registerCallback(QInternal::EventNotifyCallback, [](void**) {
        __tsan_acquire(&g_eventToken);
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

void QSemaphore::release(int n)
{
    static const auto next = real<void (*)(QSemaphore*, int)>("_ZN10QSemaphore7releaseEi");
    __tsan_release(this);
    next(this, n);
}

#else

void tsanRelease() {}

#endif
