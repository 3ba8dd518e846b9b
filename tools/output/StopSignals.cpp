#include "output/StopSignals.h"

#include <pthread.h>

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

}  // namespace

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
