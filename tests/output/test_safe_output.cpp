// Safe output: whatever fails, stops or races, the name holds the earlier file or the whole new one and
// no temporary is left. OutputFile is driven directly (in forked children wherever a limit, another user
// or a signal must not reach the test process), then the built program meets the same faults per format.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "TestFiles.h"
#include "output/OutputFile.h"

namespace {

using namespace TestFiles;
namespace fs = std::filesystem;
using Tree = std::map<std::string, std::string>;

// A batch runner may start the tests with SIGINT ignored, and the cleanup under test leaves an ignored
// signal ignored: the stop signals start at their default action here.
[[maybe_unused]] const bool stopSignalsAtDefault = [] {
    for (int stop : {SIGINT, SIGTERM, SIGHUP}) signal(stop, SIG_DFL);
    return true;
}();

Bytes noiseBytes(size_t count, uint32_t seed) {
    Bytes bytes(count);
    for (uint8_t& byte : bytes) byte = uint8_t((seed = seed * 1664525u + 1013904223u) >> 24);
    return bytes;
}

const Bytes kEarlier = noiseBytes(8 * 1024, 1);
const Bytes kFresh = noiseBytes(64 * 1024, 2);

void writeFile(const std::string& path, const Bytes& bytes, mode_t mode = 0644) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    chmod(path.c_str(), mode);
}

mode_t modeOf(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

size_t occurrences(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

// Every path under `root` with its bytes (or "dir", "link", "special"): equal trees mean the earlier file is
// byte-identical and nothing, a temporary included, was added or removed.
Tree snapshot(const std::string& root) {
    Tree tree;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
        const std::string path = entry.path().string().substr(root.size());
        if (entry.is_symlink()) {
            tree[path] = "link";
        } else if (entry.is_directory()) {
            tree[path] = "dir";
        } else if (!entry.is_regular_file()) {
            tree[path] = "special";
        } else {
            const Bytes bytes = readFile(entry.path().string());
            tree[path] = std::string(bytes.begin(), bytes.end());
        }
    }
    return tree;
}

// Names and sizes in `directory`: cheap enough to watch a run write.
std::map<std::string, uintmax_t> listing(const std::string& directory) {
    std::map<std::string, uintmax_t> names;
    std::error_code ignored;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory, ignored))
        names[entry.path().filename().string()] = entry.file_size(ignored);
    return names;
}

// What differs between two trees, by path ("" when nothing does): short enough to print.
std::string differences(const Tree& before, const Tree& after) {
    std::string found;
    for (const auto& [path, content] : before) {
        const auto it = after.find(path);
        if (it == after.end())
            found += " removed " + path;
        else if (it->second != content)
            found += " changed " + path;
    }
    for (const auto& [path, content] : after)
        if (before.count(path) == 0) found += " added " + path;
    return found;
}

std::string text(const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }

// ---- Children: limits, another user and signals stay out of the test process ----

struct ChildSetup {
    std::string directory = ".";
    rlim_t fileSizeLimit = RLIM_INFINITY;
    rlim_t addressSpaceLimit = RLIM_INFINITY;
    bool asNobody = false;
    bool ignoreHangUp = false;  // as nohup starts a program
    std::string standardOutput = "/dev/null", standardError = "/dev/null";
};

struct ChildResult {
    int status = -1;  // as waitpid gives it
    std::string report;
};

// Forks a child that takes `setup`, runs `body` and exits with its result, after writing the report
// `body` made to `reportFd`. Returns the child's pid.
pid_t startChild(const ChildSetup& setup, const std::function<int(std::string&)>& body, int reportFd = -1) {
    std::fflush(stdout);
    std::fflush(stderr);
    const pid_t pid = fork();
    if (pid != 0) return pid;
    dup2(::open(setup.standardOutput.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), STDOUT_FILENO);
    dup2(::open(setup.standardError.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), STDERR_FILENO);
    const rlimit fileSize{setup.fileSizeLimit, setup.fileSizeLimit};
    const rlimit addressSpace{setup.addressSpaceLimit, setup.addressSpaceLimit};
    signal(SIGXFSZ, SIG_IGN);  // past the file-size limit a write fails with EFBIG
    if (setup.ignoreHangUp) signal(SIGHUP, SIG_IGN);
    const passwd* nobody = getpwnam("nobody");
    const bool becameNobody = !setup.asNobody || (nobody != nullptr && setgroups(0, nullptr) == 0 &&
                                                  setgid(nobody->pw_gid) == 0 && setuid(nobody->pw_uid) == 0);
    // The limits last: past them the child of a sanitizer build cannot map memory any more.
    if (!becameNobody || chdir(setup.directory.c_str()) != 0 || setrlimit(RLIMIT_FSIZE, &fileSize) != 0 ||
        setrlimit(RLIMIT_AS, &addressSpace) != 0)
        _exit(126);
    std::string report;
    const int status = body(report);
    if (reportFd >= 0 && write(reportFd, report.data(), report.size()) < 0) _exit(126);
    _exit(status);
}

ChildResult inChild(const ChildSetup& setup, const std::function<int(std::string&)>& body) {
    int channel[2];
    if (pipe(channel) != 0) return {};
    const pid_t pid = startChild(setup, body, channel[1]);
    close(channel[1]);
    ChildResult result;
    char chunk[256];
    for (ssize_t count; (count = read(channel[0], chunk, sizeof chunk)) > 0;)
        result.report.append(chunk, size_t(count));
    close(channel[0]);
    waitpid(pid, &result.status, 0);
    return result;
}

std::string outcome(int status) {
    if (WIFEXITED(status)) return "exit " + std::to_string(WEXITSTATUS(status));
    if (WIFSIGNALED(status)) return std::string("signal ") + strsignal(WTERMSIG(status));
    return "stopped";
}

// ---- The faults ----

// A tmpfs of `bytes` mounted on `directory` while the object lives, where mounting is allowed.
class SmallFileSystem {
public:
    SmallFileSystem(const std::string& directory, size_t bytes) : directory_(directory) {
        mounted_ = mount("tmpfs", directory.c_str(), "tmpfs", MS_NOSUID | MS_NODEV,
                         ("size=" + std::to_string(bytes)).c_str()) == 0;
    }
    ~SmallFileSystem() {
        if (mounted_) umount2(directory_.c_str(), MNT_DETACH);
    }
    bool mounted() const { return mounted_; }

private:
    std::string directory_;
    bool mounted_ = false;
};

// Room for the earlier file and 24 KiB: less than any format's output and the bytes the unit tests write.
constexpr size_t kSmallFileSystemBytes = 32 * 1024;
constexpr rlim_t kFileSizeLimit = 24 * 1024;

enum class Fault {
    FullFileSystem,
    ReadOnlyDirectory,
    MissingDirectory,
    NameIsDirectory,
    DeviceFull,
    ReadOnlyFile,
    LibraryFailure  // a library that writes to the stream fails by itself (an allocation in libpng, say)
};
const Fault kCommonFaults[] = {Fault::FullFileSystem, Fault::ReadOnlyDirectory, Fault::MissingDirectory,
                               Fault::NameIsDirectory, Fault::DeviceFull};

const char* describe(Fault fault) {
    static const char* const names[] = {"full file system",    "read-only directory", "missing directory",
                                        "name is a directory", "link to /dev/full",   "read-only earlier file",
                                        "library failure"};
    return names[int(fault)];
}

// A fault set up in a scratch directory for a file called `base`: the name to write and the errno
// whose text the failure gives (0: cannot be set up here, with `why`). Where the name can have an
// earlier file, it holds kEarlier.
struct PreparedFault {
    std::string name;
    int error = 0;
    std::string why;
    std::unique_ptr<SmallFileSystem> fileSystem;
};

PreparedFault prepare(Fault fault, const ScratchDir& dir, const std::string& base, ChildSetup& setup) {
    PreparedFault p;
    chmod(dir.path("").c_str(), 0755);  // another user must reach the directories inside
    setup.directory = dir.path("");
    const bool otherUser = fault == Fault::ReadOnlyDirectory || fault == Fault::ReadOnlyFile;
    if (otherUser && geteuid() == 0) {
        // Root writes anywhere: the run is made as nobody.
        if (getpwnam("nobody") == nullptr) return {"", 0, "no user 'nobody' to run as", nullptr};
        setup.asNobody = true;
    }
    const std::string sub = fault == Fault::FullFileSystem ? "full/" : fault == Fault::LibraryFailure ? "lib/" : "ro/";
    switch (fault) {
        case Fault::FullFileSystem:
            fs::create_directories(dir.path(sub));
            p.fileSystem = std::make_unique<SmallFileSystem>(dir.path(sub), kSmallFileSystemBytes);
            if (!p.fileSystem->mounted()) setup.fileSizeLimit = kFileSizeLimit;
            p.error = p.fileSystem->mounted() ? ENOSPC : EFBIG;
            p.name = sub + base;
            writeFile(dir.path(p.name), kEarlier);
            break;
        case Fault::ReadOnlyDirectory:
        case Fault::ReadOnlyFile:
            // The directory refuses a temporary even though the file could be written in place; the
            // earlier file refuses writing even though the directory takes a temporary.
            fs::create_directories(dir.path(sub));
            p.name = sub + base;
            writeFile(dir.path(p.name), kEarlier, fault == Fault::ReadOnlyFile ? 0444 : 0666);
            chmod(dir.path(sub).c_str(), fault == Fault::ReadOnlyFile ? 0777 : 0555);
            p.error = EACCES;
            break;
        case Fault::MissingDirectory:
            p.name = "missing/" + base;
            p.error = ENOENT;
            break;
        case Fault::NameIsDirectory:
            p.name = base;
            fs::create_directories(dir.path(base));
            writeFile(dir.path(base + "/inside"), kEarlier);
            p.error = EISDIR;
            break;
        case Fault::LibraryFailure:
            fs::create_directories(dir.path(sub));
            p.name = sub + base;
            writeFile(dir.path(p.name), kEarlier);
            p.error = ENOMEM;
            break;
        case Fault::DeviceFull:
            if (!fs::is_character_file("/dev/full")) return {"", 0, "no /dev/full", nullptr};
            // Through a link, so that the name keeps the format's extension.
            p.name = base;
            fs::create_symlink("/dev/full", dir.path(base));
            p.error = ENOSPC;
            break;
    }
    return p;
}

// ---- OutputFile driven directly ----

// Until commit the name keeps its earlier bytes; then it has the new ones with the earlier permission
// bits (or fopen's for a new file), symbolic links are written through and stay links, and the one
// temporary, beside the file replaced, is gone.
TEST(OutputFile, ReplacesAtCommitKeepingModeAndLinks) {
    ScratchDir dir;
    const mode_t savedMask = umask(027);
    for (const char* sub : {"a", "b", "c", "d", "e"}) fs::create_directories(dir.path(sub));
    writeFile(dir.path("b/old"), kEarlier, 0604);
    writeFile(dir.path("d/target"), kEarlier, 0620);
    fs::create_symlink("../d/link2", dir.path("c/link"));
    fs::create_symlink("target", dir.path("d/link2"));
    fs::create_symlink("made", dir.path("e/dangling"));
    const struct {
        const char* name;
        const char* replaced;  // the file that receives the bytes
        mode_t mode;
    } cases[] = {
        {"a/new", "a/new", 0640},        // 0666 less the umask
        {"b/old", "b/old", 0604},        // the earlier file's bits
        {"c/link", "d/target", 0620},    // through two relative links
        {"e/dangling", "e/made", 0640},  // a dangling link gets its target
    };
    for (const auto& c : cases) {
        const Tree before = snapshot(dir.path(""));
        const std::string temporaryPrefix = " added " + fs::path(c.replaced).parent_path().string() + "/.";
        OutputFile out(dir.path(c.name));
        ASSERT_TRUE(out.open()) << c.name << ": " << out.reason();
        EXPECT_TRUE(out.write(kFresh.data(), kFresh.size()));
        std::fflush(out.stream());
        const std::string during = differences(before, snapshot(dir.path("")));
        EXPECT_EQ(during.rfind(temporaryPrefix, 0), 0u) << c.name << ":" << during;
        EXPECT_EQ(occurrences(during, " "), 2u) << c.name << ": one temporary and no other change:" << during;
        EXPECT_TRUE(out.commit()) << c.name << ": " << out.reason();
        const std::string change = before.count(c.replaced) != 0 ? " changed " : " added ";
        EXPECT_EQ(differences(before, snapshot(dir.path(""))), change + c.replaced);
        EXPECT_EQ(readFile(dir.path(c.replaced)), kFresh) << c.name;
        EXPECT_EQ(modeOf(dir.path(c.replaced)), c.mode) << c.name;
    }
    for (const char* link : {"c/link", "d/link2", "e/dangling"}) EXPECT_TRUE(fs::is_symlink(dir.path(link))) << link;
    umask(savedMask);
}

// Each fault, with and without a seeking writer: the first failure's text, at open or at commit, and the
// directory as it was.
TEST(OutputFile, FaultsGiveTheSystemsReasonAndKeepTheEarlierFile) {
    std::vector<Fault> faults(std::begin(kCommonFaults), std::end(kCommonFaults));
    faults.insert(faults.end(), {Fault::ReadOnlyFile, Fault::LibraryFailure});
    for (Fault fault : faults) {
        for (bool needSeek : {false, true}) {
            ScratchDir dir;
            ChildSetup setup;
            const PreparedFault p = prepare(fault, dir, "out", setup);
            if (p.error == 0) {
                std::cout << "[ SKIPPED  ] " << describe(fault) << ": " << p.why << "\n";
                continue;
            }
            const Tree before = snapshot(dir.path(""));
            const ChildResult r = inChild(setup, [&](std::string& report) {
                OutputFile out(p.name);
                const bool opened = out.open(needSeek);
                if (opened) {
                    out.write(kFresh.data(), kFresh.size() / 2);
                    if (fault == Fault::LibraryFailure) out.fail(ENOMEM);
                    out.write(kFresh.data() + kFresh.size() / 2, kFresh.size() / 2);
                }
                const bool committed = opened && out.commit();
                report =
                    std::string(opened ? "opened" : "refused") + (committed ? ", committed" : "") + ": " + out.reason();
                return 0;
            });
            const bool atOpen =
                fault != Fault::FullFileSystem && fault != Fault::DeviceFull && fault != Fault::LibraryFailure;
            const std::string what = std::string(describe(fault)) + (needSeek ? ", seeking" : "");
            EXPECT_EQ(r.report, std::string(atOpen ? "refused" : "opened") + ": " + strerror(p.error)) << what;
            EXPECT_EQ(outcome(r.status), "exit 0") << what;
            EXPECT_EQ(differences(before, snapshot(dir.path(""))), "") << what;
            chmod(dir.path("ro").c_str(), 0755);
        }
    }
}

// A stop signal while the file is written, an exit without commit and an exception unwinding past the
// OutputFile: the temporary goes, the earlier file stays, and a signal still ends the process as itself.
TEST(OutputFile, StopsRemoveTheTemporary) {
    const struct {
        const char* what;
        std::function<void()> stop;
        std::string outcome;
    } stops[] = {
        {"SIGINT", [] { raise(SIGINT); }, std::string("signal ") + strsignal(SIGINT)},
        {"SIGTERM", [] { raise(SIGTERM); }, std::string("signal ") + strsignal(SIGTERM)},
        {"SIGHUP", [] { raise(SIGHUP); }, std::string("signal ") + strsignal(SIGHUP)},
        {"exit", [] { std::exit(3); }, "exit 3"},
        {"exception", [] { throw std::bad_alloc(); }, "exit 4"},
    };
    for (const auto& s : stops) {
        ScratchDir dir;
        writeFile(dir.path("out"), kEarlier);
        const Tree before = snapshot(dir.path(""));
        ChildSetup setup;
        setup.directory = dir.path("");
        const ChildResult r = inChild(setup, [&](std::string&) {
            try {
                OutputFile out("out");
                if (!out.open()) return 1;
                out.write(kFresh.data(), kFresh.size());
                std::fflush(out.stream());
                if (snapshot(dir.path("")).size() != 2) return 5;  // the temporary must be there
                s.stop();
            } catch (const std::bad_alloc&) {
                return 4;
            }
            return 0;
        });
        EXPECT_EQ(outcome(r.status), s.outcome) << s.what;
        EXPECT_EQ(differences(before, snapshot(dir.path(""))), "") << s.what;
    }
}

// A writer that seeks back (as libtiff does) reaches a pipe through an anonymous temporary: the reader
// gets the bytes as they stand at commit. Standard output ("-") and a FIFO by name, seeking or not.
TEST(OutputFile, SeekingWriterReachesAPipe) {
    const std::string head = "HEAD";
    const Bytes expected = [&] {
        Bytes bytes(head.begin(), head.end());
        bytes.insert(bytes.end(), kFresh.begin(), kFresh.end());
        return bytes;
    }();
    for (const bool standardOutput : {false, true}) {
        for (const bool needSeek : {false, true}) {
            ScratchDir dir;
            const std::string fifo = dir.path("fifo");
            ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
            Bytes received;
            std::thread reader([&] { received = readFile(fifo); });
            ChildSetup setup;
            if (standardOutput) setup.standardOutput = fifo;
            const ChildResult r = inChild(setup, [&](std::string& report) {
                OutputFile out(standardOutput ? "-" : fifo);
                if (!out.open(needSeek)) return 1;
                if (needSeek) {
                    out.write("XXXX", 4);  // filled in last, as libtiff fills in its header
                } else {
                    out.write(head.data(), head.size());
                }
                out.write(kFresh.data(), kFresh.size());
                if (needSeek && (std::fseek(out.stream(), 0, SEEK_SET) != 0 || !out.write(head.data(), head.size())))
                    return 2;
                report = out.commit() ? "committed" : out.reason();
                return 0;
            });
            reader.join();
            const std::string what = std::string(standardOutput ? "-" : "FIFO") + (needSeek ? ", seeking" : "");
            EXPECT_EQ(r.report, "committed") << what;
            EXPECT_EQ(text(received), text(expected)) << what;
            EXPECT_EQ(snapshot(dir.path("")).size(), 1u) << what;
        }
    }
}

// Two writers on one name at once: each has its own temporary, each commit puts a whole file in place,
// and the last one wins.
TEST(OutputFile, ConcurrentWritersLastCommitWins) {
    ScratchDir dir;
    writeFile(dir.path("out"), kEarlier);
    const Bytes first = noiseBytes(50000, 3), second = noiseBytes(70000, 4);
    for (const bool firstCommitsLast : {true, false}) {
        OutputFile a(dir.path("out")), b(dir.path("out"));
        ASSERT_TRUE(a.open() && b.open());
        for (size_t at = 0; at < 50000; at += 10000) {
            a.write(first.data() + at, 10000);
            b.write(second.data() + at, 10000);
        }
        b.write(second.data() + 50000, 20000);
        EXPECT_TRUE(firstCommitsLast ? b.commit() && a.commit() : a.commit() && b.commit());
        EXPECT_EQ(readFile(dir.path("out")), firstCommitsLast ? first : second);
        EXPECT_EQ(snapshot(dir.path("")).size(), 1u);
    }
}

// ---- The built program ----

struct Format {
    const char* extension;
    const char* options;
    const char* failureLine;  // followed by the name for the full-frame formats
    bool namesFile;
};

const Format kFormats[] = {
    {"png", "", "Failed to write PNG file ", true},      {"tif", "", "Failed to write TIFF file ", true},
    {"dpx", "", "Failed to write DPX file ", true},      {"pat", "-c 709 -s 422 -b 12 -d 1920x1080 ", "Error: ", false},
    {"rgb", "-c RGB-headroom -b 12 ", "Error: ", false}, {"yc4", "-c 709 -s 444 ", "Error: ", false},
    {"xyz", "-c RGB-headroom -b 12 ", "Error: ", false},
};

// A command line split at spaces, made before the fork so that the child only calls execv.
class CommandLine {
public:
    CommandLine(const char* program, const std::string& arguments) : words_{program} {
        std::istringstream in(arguments);
        for (std::string word; in >> word;) words_.push_back(word);
        for (std::string& word : words_) argv_.push_back(word.data());
        argv_.push_back(nullptr);
    }
    [[noreturn]] void exec() const {
        execv(argv_[0], argv_.data());
        _exit(127);
    }

private:
    std::vector<std::string> words_;
    std::vector<char*> argv_;
};

int runProgram(const char* program, const std::string& arguments, const ChildSetup& setup) {
    const CommandLine command(program, arguments);
    return inChild(setup, [&](std::string&) -> int { command.exec(); }).status;
}

// Each format against each fault: status 1, the format's failure line and the system's reason once on
// standard error, and the directory as it was.
TEST(SafeOutputProgram, FaultsFailWithTheReasonAndKeepTheEarlierFile) {
    for (const Format& format : kFormats) {
        for (Fault fault : kCommonFaults) {
            ScratchDir dir, logs;
            ChildSetup setup;
            setup.standardError = logs.path("stderr");
            PreparedFault p = prepare(fault, dir, std::string("card.") + format.extension, setup);
            const std::string what = std::string(format.extension) + ", " + describe(fault);
            if (p.error == 0) {
                std::cout << "[ SKIPPED  ] " << what << ": " << p.why << "\n";
                continue;
            }
            const Tree before = snapshot(dir.path(""));
            const int status = runProgram(PM5544_EXE, format.options + p.name, setup);
            const std::string err = text(readFile(logs.path("stderr")));
            EXPECT_EQ(outcome(status), "exit 1") << what << "\n" << err;
            EXPECT_NE(err.find(format.failureLine + (format.namesFile ? p.name : "")), std::string::npos)
                << what << "\n"
                << err;
            EXPECT_EQ(occurrences(err, strerror(p.error)), 1u) << what << "\n" << err;
            EXPECT_EQ(differences(before, snapshot(dir.path(""))), "") << what;
            chmod(dir.path("ro").c_str(), 0755);
        }
    }
}

// Memory runs out at the run's peak: under the smallest address-space limit that lets the run finish,
// less 1 MiB. For PNG and TIFF that peak is inside the writer, after the output was opened. A sanitizer
// build reserves terabytes of address space and cannot start under such a limit, so the release build
// that `make test` makes first is run.
TEST(SafeOutputProgram, OutOfMemoryKeepsTheEarlierFile) {
    const std::string program = PM5544_SOURCE_DIR "/build/pm5544";
    if (!fs::exists(program)) GTEST_SKIP() << "no release build at " << program;
    constexpr rlim_t MiB = 1 << 20;
    for (const Format& format : kFormats) {
        ScratchDir dir, logs;
        const std::string name = std::string("card.") + format.extension;
        ChildSetup setup;
        setup.directory = dir.path("");
        setup.standardError = logs.path("stderr");
        const auto runsUnder = [&](rlim_t mebibytes) {
            fs::remove(dir.path(name));
            setup.addressSpaceLimit = mebibytes * MiB;
            return runProgram(program.c_str(), format.options + name, setup);
        };
        rlim_t fails = 16, succeeds = 2048;
        ASSERT_EQ(outcome(runsUnder(succeeds)), "exit 0") << format.extension << "\n"
                                                          << text(readFile(logs.path("stderr")));
        while (succeeds - fails > 1) {
            const rlim_t middle = (fails + succeeds) / 2;
            (runsUnder(middle) == 0 ? succeeds : fails) = middle;
        }
        fs::remove(dir.path(name));
        writeFile(dir.path(name), kEarlier);
        const Tree before = snapshot(dir.path(""));
        setup.addressSpaceLimit = (succeeds - 1) * MiB;
        const int status = runProgram(program.c_str(), format.options + name, setup);
        const std::string err = text(readFile(logs.path("stderr")));
        EXPECT_EQ(outcome(status), "exit 1") << format.extension << "\n" << err;
        EXPECT_FALSE(err.empty()) << format.extension;
        EXPECT_EQ(differences(before, snapshot(dir.path(""))), "")
            << format.extension << " at " << succeeds - 1 << " MiB\n"
            << err;
    }
}

// A large DPX stopped once its output appears in the directory (or the name changes): the earlier file
// is intact, no temporary remains, and the status says which signal stopped the run. Under nohup the
// hang-up is ignored and the run completes.
TEST(SafeOutputProgram, StoppedRunKeepsTheEarlierFile) {
    const struct {
        int signal;
        bool ignoreHangUp;
    } stops[] = {{SIGINT, false}, {SIGTERM, false}, {SIGHUP, false}, {SIGHUP, true}};
    for (const auto& stop : stops) {
        const std::string what = std::string(strsignal(stop.signal)) + (stop.ignoreHangUp ? " under nohup" : "");
        ScratchDir dir;
        writeFile(dir.path("card.dpx"), kEarlier);
        const Tree before = snapshot(dir.path(""));
        const auto unchanged = listing(dir.path(""));
        ChildSetup setup;
        setup.directory = dir.path("");
        setup.ignoreHangUp = stop.ignoreHangUp;
        const CommandLine command(PM5544_EXE, "-d 3840x2160 card.dpx");
        const pid_t pid = startChild(setup, [&](std::string&) -> int { command.exec(); });
        int status = 0;
        bool signalled = false;
        while (waitpid(pid, &status, WNOHANG) == 0) {
            if (!signalled && listing(dir.path("")) != unchanged) signalled = kill(pid, stop.signal) == 0;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        if (!signalled) {
            std::cout << "[ SKIPPED  ] " << what << ": the run ended before its output appeared\n";
            continue;
        }
        const Tree after = snapshot(dir.path(""));
        if (stop.ignoreHangUp) {
            EXPECT_EQ(outcome(status), "exit 0") << what;
            EXPECT_EQ(after.size(), 1u) << what;
            EXPECT_EQ(fs::file_size(dir.path("card.dpx")), 8192u + 3840u * 2160u * 4u) << what;  // header, 10-bit RGB
        } else {
            EXPECT_EQ(outcome(status), std::string("signal ") + strsignal(stop.signal)) << what;
            EXPECT_EQ(differences(before, after), "") << what;
        }
    }
}

// Two runs on one name at once (a batch started twice, here with two colour encodings so that a mix
// shows): both succeed and the name holds one whole PNG, read back by pngcheck.
TEST(SafeOutputProgram, RacingRunsLeaveOneCompleteFile) {
    ScratchDir dir;
    ChildSetup setup;
    setup.directory = dir.path("");
    const CommandLine commands[] = {{PM5544_EXE, "-d 3840x2160 card.png"},
                                    {PM5544_EXE, "-d 3840x2160 -c 709 card.png"}};
    std::vector<pid_t> runs;
    for (const CommandLine& command : commands)
        runs.push_back(startChild(setup, [&](std::string&) -> int { command.exec(); }));
    for (pid_t run : runs) {
        int status = 0;
        waitpid(run, &status, 0);
        EXPECT_EQ(outcome(status), "exit 0");
    }
    EXPECT_EQ(listing(dir.path("")).size(), 1u);
    EXPECT_EQ(0, std::system(("pngcheck -q '" + dir.path("card.png") + "' >/dev/null").c_str()));
}

}  // namespace
