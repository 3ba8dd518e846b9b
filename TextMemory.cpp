// Text drawn first in a forked copy of the process when memory is limited.
#include "TextMemory.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace {

// An address-space or data-segment limit, as `ulimit -v` or `ulimit -d` set them.
bool memoryLimited() {
    for (const int resource : {RLIMIT_AS, RLIMIT_DATA}) {
        rlimit limit{};
        if (getrlimit(resource, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY) return true;
    }
    return false;
}

// The copy's output goes nowhere: the real run prints its own warnings, and stdio buffers it inherits
// unflushed must not reach the real outputs twice.
void silenceOutputs() {
    const int devNull = open("/dev/null", O_WRONLY);
    if (devNull < 0) return;
    dup2(devNull, STDOUT_FILENO);
    dup2(devNull, STDERR_FILENO);
    close(devNull);
}

// Pango's helper threads (fontconfig's start, font sorting) may all be alive at once in the real run
// where they followed each other in the copy, a finished thread's stack being reused: the copy draws
// with the stacks of that many more threads taken, each as a thread with default attributes needs.
constexpr size_t overlappingHelperThreads = 2;

bool reserveHelperThreadStacks() {
    pthread_attr_t attributes;
    size_t stackSize = 0;
    if (pthread_getattr_default_np(&attributes) != 0) return true;
    pthread_attr_getstacksize(&attributes, &stackSize);
    pthread_attr_destroy(&attributes);
    const size_t guard = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return mmap(nullptr, overlappingHelperThreads * (stackSize + guard), PROT_NONE,
                MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0) != MAP_FAILED;
}

}  // namespace

bool drawsWithinMemoryLimit(const std::function<void()>& draw) {
    if (!memoryLimited()) return true;
    // The copy has this process's address space and limits, and only the calling thread: the same
    // draw needs there what it needs here.
    const pid_t child = fork();
    if (child < 0) return errno != ENOMEM;
    if (child == 0) {
        silenceOutputs();
        if (!reserveHelperThreadStacks()) _exit(1);
        try {
            draw();
        } catch (...) {
            _exit(1);
        }
        _exit(0);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) return false;
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
