// Only in ThreadSanitizer builds: tells the sanitizer about the hand-overs that happen
// inside the (uninstrumented) Qt libraries, so that its reports are about this code.
//  - Qt's mutexes and semaphores sleep and wake through futex(2) called via syscall():
//    a wake releases the futex word, a return from a wait acquires it.
//  - A queued slot call crosses threads through Qt's event queue: every signal emission
//    releases one token and every delivered meta-call event acquires it (coarse, but it
//    only ever hides orderings that a queued call really creates).
// Test code that posts functors itself (invokeMethod) releases the token with tsanRelease().

#if defined(__SANITIZE_THREAD__)

#include <QCoreApplication>
#include <QEvent>
#include <QObject>

#include <cstdarg>
#include <dlfcn.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

struct QSignalSpyCallbackSet;
void qt_register_signal_spy_callbacks(QSignalSpyCallbackSet* callbacks);

extern "C" {
void __tsan_acquire(void* addr);
void __tsan_release(void* addr);
}

namespace {
char g_eventToken;

struct SignalSpyCallbackSet {
    void (*signal_begin_callback)(QObject*, int, void**);
    void (*slot_begin_callback)(QObject*, int, void**);
    void (*signal_end_callback)(QObject*, int);
    void (*slot_end_callback)(QObject*, int);
};

void releaseOnEmit(QObject*, int, void**)
{
    __tsan_release(&g_eventToken);
}

void releaseAfterEmit(QObject*, int)
{
    __tsan_release(&g_eventToken);
}

bool acquireOnDelivery(void** data)
{
    auto* event = static_cast<QEvent*>(data[1]);
    if (event && event->type() == QEvent::MetaCall)
        __tsan_acquire(&g_eventToken);
    return false;   // never consume the event
}

SignalSpyCallbackSet g_callbacks = {releaseOnEmit, nullptr, releaseAfterEmit, nullptr};

struct Register {
    Register()
    {
        qt_register_signal_spy_callbacks(reinterpret_cast<QSignalSpyCallbackSet*>(&g_callbacks));
        QInternal::registerCallback(QInternal::EventNotifyCallback, acquireOnDelivery);
    }
} g_register;
} // namespace

void tsanRelease()
{
    __tsan_release(&g_eventToken);
}

void tsanAcquire()
{
    __tsan_acquire(&g_eventToken);
}

extern "C" long syscall(long number, ...) noexcept
{
    using Syscall = long (*)(long, ...);
    static const Syscall real = reinterpret_cast<Syscall>(dlsym(RTLD_NEXT, "syscall"));
    va_list args;
    va_start(args, number);
    long a[6];
    for (long& arg : a)
        arg = va_arg(args, long);
    va_end(args);
    if (number != SYS_futex)
        return real(number, a[0], a[1], a[2], a[3], a[4], a[5]);

    void* word = reinterpret_cast<void*>(a[0]);
    const int op = int(a[1]) & FUTEX_CMD_MASK;
    const bool wake = op == FUTEX_WAKE || op == FUTEX_WAKE_OP || op == FUTEX_WAKE_BITSET || op == FUTEX_REQUEUE
                      || op == FUTEX_CMP_REQUEUE;
    if (wake) {
        __tsan_release(word);
        if (op == FUTEX_WAKE_OP || op == FUTEX_REQUEUE || op == FUTEX_CMP_REQUEUE)
            __tsan_release(reinterpret_cast<void*>(a[4]));
    }
    const long result = real(number, a[0], a[1], a[2], a[3], a[4], a[5]);
    if (!wake)
        __tsan_acquire(word);
    return result;
}

#else

void tsanRelease() {}
void tsanAcquire() {}

#endif
