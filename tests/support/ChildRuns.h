// The built program in a forked child, out of the test process's reach; snapshots of directories.
#pragma once

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <map>
#include <string>

#include "TestFiles.h"

namespace ChildRuns {

using Tree = std::map<std::string, std::string>;

// Every path under `root` with its bytes (or "dir", "link", "special"), the streams a ProgramTest
// collects aside: equal trees mean nothing, a temporary included, was changed, added or removed.
inline Tree snapshot(const std::string& root) {
    namespace fs = std::filesystem;
    Tree tree;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
        const std::string path = entry.path().string().substr(root.size());
        if (path == "stdout" || path == "stderr") continue;
        tree[path] = entry.is_symlink()         ? "link"
                     : entry.is_directory()     ? "dir"
                     : !entry.is_regular_file() ? "special"
                                                : TestFiles::text(TestFiles::readFile(entry.path().string()));
    }
    return tree;
}

// What differs between two trees, by path ("" when nothing does): short enough to print.
inline std::string differences(const Tree& before, const Tree& after) {
    std::string found;
    for (const auto& [path, content] : before) {
        const auto it = after.find(path);
        if (it == after.end() || it->second != content) found += (it == after.end() ? " removed " : " changed ") + path;
    }
    for (const auto& [path, content] : after)
        if (before.count(path) == 0) found += " added " + path;
    return found;
}

struct ChildSetup {
    std::string directory = ".";
    std::string program = PM5544_EXE;
    rlim_t fileSizeLimit = RLIM_INFINITY;
    rlim_t addressSpaceLimit = RLIM_INFINITY;
    bool asNobody = false;
    std::string standardError = "/dev/null";
    int standardOutput = -1;  // a descriptor, or -1 for /dev/null
    int ignoredSignal = 0;    // the one signal the caller ignores, as a shell's caller may
};

// Forks a child started as a shell would start the program (default signals, none blocked, no core),
// applies `setup` and runs the program through the shell; the child's pid.
inline pid_t startProgram(const ChildSetup& setup, const std::string& arguments) {
    const std::string command = "exec '" + setup.program + "' " + arguments + " </dev/null";  // made before the fork
    std::fflush(stdout);
    std::fflush(stderr);
    const pid_t pid = fork();
    if (pid != 0) return pid;
    dup2(setup.standardOutput >= 0 ? setup.standardOutput : ::open("/dev/null", O_WRONLY), STDOUT_FILENO);
    dup2(::open(setup.standardError.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), STDERR_FILENO);
    for (int each = 1; each < NSIG; ++each) signal(each, SIG_DFL);
    if (setup.ignoredSignal != 0) signal(setup.ignoredSignal, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);  // past the file-size limit a write fails with EFBIG
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    // nobody may not read the leak suppressions in the source tree; leaks are checked in the other runs.
    if (setup.asNobody) setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
    const passwd* nobody = getpwnam("nobody");
    const bool becameNobody = !setup.asNobody || (nobody != nullptr && setgroups(0, nullptr) == 0 &&
                                                  setgid(nobody->pw_gid) == 0 && setuid(nobody->pw_uid) == 0);
    const rlimit noCore{0, 0}, fileSize{setup.fileSizeLimit, setup.fileSizeLimit},
        addressSpace{setup.addressSpaceLimit, setup.addressSpaceLimit};
    // The limits last: past them the child of a sanitizer build cannot map memory any more.
    if (becameNobody && chdir(setup.directory.c_str()) == 0 && setrlimit(RLIMIT_CORE, &noCore) == 0 &&
        setrlimit(RLIMIT_FSIZE, &fileSize) == 0 && setrlimit(RLIMIT_AS, &addressSpace) == 0)
        execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
    _exit(126);
}

inline std::string outcome(int status) {
    if (WIFEXITED(status)) return "exit " + std::to_string(WEXITSTATUS(status));
    if (WIFSIGNALED(status)) return std::string("signal ") + strsignal(WTERMSIG(status));
    return "stopped";
}

inline std::string runProgram(const ChildSetup& setup, const std::string& arguments) {
    int status = -1;
    waitpid(startProgram(setup, arguments), &status, 0);
    return outcome(status);
}

}  // namespace ChildRuns
