// The signals that stop a run from outside. The program's output files list their temporaries here, and
// they are removed when one arrives or the program exits without committing them; every thread the
// program starts keeps the signals blocked, so that the handler runs on the main thread.
#pragma once

#include <signal.h>

#include "output/OutputFile.h"

namespace StopSignals {

// Every signal whose default action ends the process, except those that report a fault of the process
// itself (SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS), after which nothing is safe to
// do, and SIGXFSZ, which OutputFile ignores so that a write past the file-size limit fails and is reported.
sigset_t set();

// Blocks the stop signals in the calling thread while it lives, then restores the thread's mask. A thread
// started meanwhile inherits the blocked mask and keeps it.
class Blocked {
public:
    Blocked();
    ~Blocked();
    Blocked(const Blocked&) = delete;
    Blocked& operator=(const Blocked&) = delete;

private:
    sigset_t previous_;
};

// The temporaries of the files the program writes, removed on a stop signal or at exit. The handler is
// installed when the first file is opened.
TemporaryList& temporaries();

}  // namespace StopSignals
