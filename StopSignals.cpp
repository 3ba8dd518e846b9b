#include "StopSignals.h"

#include <limits.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace StopSignals {

namespace {

// The terminal (Ctrl-C, Ctrl-\, a hang-up), kill, timers, user signals, a broken pipe, CPU limits, I/O
// and power events: the ways a run is stopped from outside or by its environment.
constexpr int kNamedStopSignals[] = {
    SIGINT,    SIGTERM, SIGHUP,    SIGQUIT, SIGPIPE, SIGUSR1, SIGUSR2,
    SIGALRM,   SIGXCPU, SIGVTALRM, SIGPROF, SIGPOLL, SIGPWR,
#ifdef SIGSTKFLT
    SIGSTKFLT,
#endif
};

// ---- Temporaries removed when the run is stopped, or exits without committing ----
// The signal handler may only touch memory that is never allocated or freed: a fixed table of names.

constexpr int kTemporarySlots = 8;
char temporaryName[kTemporarySlots][PATH_MAX];
volatile sig_atomic_t temporaryListed[kTemporarySlots];

void removeListedTemporaries() {
    for (int slot = 0; slot < kTemporarySlots; ++slot)
        if (temporaryListed[slot]) unlink(temporaryName[slot]);
}

// Async-signal-safe. SA_RESETHAND has restored the default action, so the signal raised again ends the
// process once the handler returns, and the exit status says which signal stopped it.
extern "C" void removeTemporariesAndStop(int signal) {
    removeListedTemporaries();
    raise(signal);
}

extern "C" void removeTemporariesAtExit() { removeListedTemporaries(); }

// A stop signal the caller ignores (as nohup does) stays ignored, and one that something in the process
// already handles (a profiler's SIGPROF) keeps its handler. SIGXFSZ is ignored so that a write
// past the file-size limit fails with EFBIG and is reported like a full disk, instead of killing the
// process with its temporary left behind.
void installCleanupOnce() {
    static bool installed = false;
    if (installed) return;
    installed = true;
    struct sigaction action {};
    action.sa_handler = removeTemporariesAndStop;
    action.sa_mask = set();
    action.sa_flags = SA_RESETHAND;
    for (int signal = 1; signal < NSIG; ++signal) {
        struct sigaction previous {};
        if (sigismember(&action.sa_mask, signal) == 1 && sigaction(signal, nullptr, &previous) == 0 &&
            (previous.sa_flags & SA_SIGINFO) == 0 && previous.sa_handler == SIG_DFL)
            sigaction(signal, &action, nullptr);
    }
    ::signal(SIGXFSZ, SIG_IGN);
    std::atexit(removeTemporariesAtExit);
}

// The stop signals are held back while the table and the directory disagree (a temporary created but
// not yet listed, or renamed but still listed).
class ListedTemporaries : public TemporaryList {
public:
    void opening() override { installCleanupOnce(); }

    int create(std::string& path, int& descriptor) override {
        if (path.size() >= PATH_MAX) {
            errno = ENAMETOOLONG;
            return -1;
        }
        const Blocked held;
        for (int slot = 0; slot < kTemporarySlots; ++slot) {
            if (temporaryListed[slot]) continue;
            std::memcpy(temporaryName[slot], path.c_str(), path.size() + 1);
            descriptor = mkstemp(temporaryName[slot]);
            if (descriptor < 0) return -1;
            path = temporaryName[slot];
            temporaryListed[slot] = 1;
            return slot;
        }
        errno = EMFILE;
        return -1;
    }

    int retire(int slot, const std::string& path, const char* target) override {
        const Blocked held;
        const int error = TemporaryList::retire(slot, path, target);
        temporaryListed[slot] = 0;
        return error;
    }
};

}  // namespace

TemporaryList& temporaries() {
    static ListedTemporaries listed;
    return listed;
}

sigset_t set() {
    sigset_t signals;
    sigemptyset(&signals);
    for (int signal : kNamedStopSignals) sigaddset(&signals, signal);
    // The real-time signals the C library leaves to programs end the process by default too.
    for (int signal = SIGRTMIN; signal <= SIGRTMAX; ++signal) sigaddset(&signals, signal);
    return signals;
}

Blocked::Blocked() {
    const sigset_t signals = set();
    pthread_sigmask(SIG_BLOCK, &signals, &previous_);
}

Blocked::~Blocked() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }

}  // namespace StopSignals
