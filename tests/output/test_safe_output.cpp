// Whatever fails, runs out of memory or races, the name holds the earlier file or the whole new one and no
// temporary is left; the program runs in a forked child, OutputFile directly for permissions and links.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "ChildRuns.h"
#include "TestFiles.h"
#include "output/OutputFile.h"

namespace {

using namespace TestFiles;
using namespace ChildRuns;
namespace fs = std::filesystem;

Bytes noiseBytes(size_t count, uint32_t seed) {
    Bytes bytes(count);
    for (uint8_t& byte : bytes) byte = uint8_t((seed = seed * 1664525u + 1013904223u) >> 24);
    return bytes;
}

const Bytes kEarlier = noiseBytes(8 * 1024, 1);
const Bytes kFresh = noiseBytes(64 * 1024, 2);

void writeFile(const std::string& path, const Bytes& bytes, mode_t mode = 0644) {
    TestFiles::writeFile(path, bytes);
    chmod(path.c_str(), mode);
}

size_t occurrences(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

// The program copied where nobody can run it (the build may sit under /root); empty with `why` if nowhere.
struct ProgramForNobody {
    std::string path, why;
};

// Whether nobody can run the copy (it may start another program, as a cross build's emulator does).
bool nobodyCanRun(const std::string& path) {
    ChildSetup setup;
    setup.program = path;
    setup.asNobody = true;
    return runProgram(setup, "--version") == "exit 0";
}

const ProgramForNobody& programForNobody() {
    static const ScratchDir place;
    static const ProgramForNobody copy = [] {
        if (getpwnam("nobody") == nullptr) return ProgramForNobody{"", "no user 'nobody' to run as"};
        const std::string path = place.path("pm5544");
        std::error_code error;
        fs::copy_file(PM5544_EXE, path, error);
        chmod(place.path("").c_str(), 0755);
        if (!error && nobodyCanRun(path)) return ProgramForNobody{path, ""};
        return ProgramForNobody{"", "user 'nobody' cannot run a copy of the program in " + place.path("")};
    }();
    return copy;
}

// A small tmpfs mounted where mounting is allowed, unmounted when the object goes (a failed check included).
class SmallFileSystem {
public:
    SmallFileSystem() = default;
    SmallFileSystem(const SmallFileSystem&) = delete;
    SmallFileSystem& operator=(const SmallFileSystem&) = delete;
    bool mountAt(const std::string& directory, size_t bytes) {
        if (mount("tmpfs", directory.c_str(), "tmpfs", MS_NOSUID | MS_NODEV,
                  ("size=" + std::to_string(bytes)).c_str()) != 0)
            return false;
        mounted_ = directory;
        return true;
    }
    ~SmallFileSystem() {
        if (!mounted_.empty()) umount2(mounted_.c_str(), MNT_DETACH);
    }

private:
    std::string mounted_;
};

// Room for the earlier file and 24 KiB: less than any format's output.
constexpr size_t kSmallFileSystemBytes = 32 * 1024;
constexpr rlim_t kFileSizeLimit = 24 * 1024;

enum class Fault { FullFileSystem, ReadOnlyDirectory, MissingDirectory, NameIsDirectory, DeviceFull, ReadOnlyFile };
const Fault kFaults[] = {Fault::FullFileSystem,  Fault::ReadOnlyDirectory, Fault::MissingDirectory,
                         Fault::NameIsDirectory, Fault::DeviceFull,        Fault::ReadOnlyFile};
const char* const kFaultNames[] = {"full file system",    "read-only directory", "missing directory",
                                   "name is a directory", "link to /dev/full",   "read-only earlier file"};

// A fault for a file called `base`: the name to write and the errno its failure gives (0: not here, see `why`);
// an earlier file there holds kEarlier.
struct PreparedFault {
    std::string name;
    int error = 0;
    std::string why;
};

PreparedFault prepare(Fault fault, const ScratchDir& dir, const std::string& base, ChildSetup& setup,
                      SmallFileSystem& small) {
    PreparedFault p;
    chmod(dir.path("").c_str(), 0755);  // another user must reach the directories inside
    setup.directory = dir.path("");
    if ((fault == Fault::ReadOnlyDirectory || fault == Fault::ReadOnlyFile) && geteuid() == 0) {
        // Root writes anywhere: the run is made as nobody.
        const ProgramForNobody& copy = programForNobody();
        if (copy.path.empty()) return {"", 0, copy.why};
        setup.asNobody = true;
        setup.program = copy.path;
    }
    switch (fault) {
        case Fault::FullFileSystem:
            // A small tmpfs where mounting is allowed (unmounted by the caller), else a file-size limit.
            fs::create_directories(dir.path("full"));
            p.error = small.mountAt(dir.path("full"), kSmallFileSystemBytes) ? ENOSPC : EFBIG;
            if (p.error == EFBIG) setup.fileSizeLimit = kFileSizeLimit;
            p.name = "full/" + base;
            writeFile(dir.path(p.name), kEarlier);
            break;
        case Fault::ReadOnlyDirectory:
        case Fault::ReadOnlyFile:
            // The directory refuses a temporary (the file is writable in place), or the earlier file refuses writing.
            fs::create_directories(dir.path("ro"));
            p.name = "ro/" + base;
            writeFile(dir.path(p.name), kEarlier, fault == Fault::ReadOnlyFile ? 0444 : 0666);
            chmod(dir.path("ro").c_str(), fault == Fault::ReadOnlyFile ? 0777 : 0555);
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
        case Fault::DeviceFull:
            if (!fs::is_character_file("/dev/full")) return {"", 0, "no /dev/full"};
            // Through a link, so that the name keeps the format's extension.
            p.name = base;
            fs::create_symlink("/dev/full", dir.path(base));
            p.error = ENOSPC;
            break;
    }
    return p;
}

struct Format {
    const char* extension;
    const char* options;
    const char* failureLine;  // followed by the name for the full-frame formats
    bool namesFile;
};

// The device formats share one writer: pat (Y'CbCr) and xyz (converted R'G'B') stand for them.
const Format kFormats[] = {
    {"png", "", "Failed to write PNG file ", true},      {"tif", "", "Failed to write TIFF file ", true},
    {"dpx", "", "Failed to write DPX file ", true},      {"pat", "-c 709 -s 422 -b 12 -d 1920x1080 ", "Error: ", false},
    {"xyz", "-c RGB-headroom -b 12 ", "Error: ", false},
};

// Each format against each fault: status 1, the failure line and the reason once, the directory unchanged;
// faults this machine cannot set up are skipped with the reason.
TEST(SafeOutputProgram, FaultsFailWithTheReasonAndKeepTheEarlierFile) {
    std::map<std::string, std::string> notSetUp;  // fault name -> reason
    for (const Format& format : kFormats) {
        for (Fault fault : kFaults) {
            ScratchDir dir, logs;
            SmallFileSystem small;
            ChildSetup setup;
            setup.standardError = logs.path("stderr");
            const PreparedFault p = prepare(fault, dir, std::string("card.") + format.extension, setup, small);
            const std::string what = std::string(format.extension) + ", " + kFaultNames[int(fault)];
            if (p.error == 0) {
                notSetUp[kFaultNames[int(fault)]] = p.why;
                continue;
            }
            const Tree before = snapshot(dir.path(""));
            const std::string status = runProgram(setup, format.options + p.name);
            const std::string err = text(readFile(logs.path("stderr")));
            EXPECT_EQ(status, "exit 1") << what << "\n" << err;
            EXPECT_NE(err.find(format.failureLine + (format.namesFile ? p.name : "")), std::string::npos)
                << what << "\n"
                << err;
            EXPECT_EQ(occurrences(err, strerror(p.error)), 1u) << what << "\n" << err;
            EXPECT_EQ(differences(before, snapshot(dir.path(""))), "") << what;
            chmod(dir.path("ro").c_str(), 0755);
        }
    }
    std::string reasons;
    for (const auto& [fault, why] : notSetUp) reasons += "\n  " + fault + ": " + why;
    if (!reasons.empty()) GTEST_SKIP() << "faults not set up here:" << reasons;
}

constexpr rlim_t kMiB = 1 << 20;
constexpr const char* kEmulated =
    "the program runs under " PM5544_RUN_PREFIX ", whose own address space a limit would measure, not the program's";

// The plain program (a sanitizer build's reservations would exceed any limit) in `dir`, its errors in `logs`.
ChildSetup plainRun(const ScratchDir& dir, const ScratchDir& logs) {
    ChildSetup setup;
    setup.program = PM5544_PLAIN_EXE;
    setup.directory = dir.path("");
    setup.standardError = logs.path("stderr");
    return setup;
}

// Runs under an address-space limit with the earlier file at `name`: the status, standard error, and what
// changed in the directory.
struct LimitedRun {
    std::string status, err, changed;
};
LimitedRun runLimited(ChildSetup setup, const std::string& arguments, const std::string& name, rlim_t mebibytes) {
    writeFile((fs::path(setup.directory) / name).string(), kEarlier);
    const Tree before = snapshot(setup.directory);
    setup.addressSpaceLimit = mebibytes * kMiB;
    const std::string status = runProgram(setup, arguments);
    return {status, text(readFile(setup.standardError)), differences(before, snapshot(setup.directory))};
}

// The least address-space limit in MiB (17 to 2048) under which the run succeeds; 0 if it fails at 2048.
rlim_t leastLimit(ChildSetup setup, const std::string& arguments, const std::string& name) {
    const auto succeedsUnder = [&](rlim_t mebibytes) {
        fs::remove(fs::path(setup.directory) / name);
        setup.addressSpaceLimit = mebibytes * kMiB;
        return runProgram(setup, arguments) == "exit 0";
    };
    rlim_t fails = 16, succeeds = 2048;
    if (!succeedsUnder(succeeds)) return 0;
    while (succeeds - fails > 1) {
        const rlim_t middle = (fails + succeeds) / 2;
        (succeedsUnder(middle) ? succeeds : fails) = middle;
    }
    return succeeds;
}

// Memory runs out at the run's peak (inside the writer for PNG and TIFF, after the output was opened).
TEST(SafeOutputProgram, OutOfMemoryKeepsTheEarlierFile) {
    if (std::string(PM5544_RUN_PREFIX) != "") GTEST_SKIP() << kEmulated;
    for (const Format& format : kFormats) {
        ScratchDir dir, logs;
        ChildSetup setup = plainRun(dir, logs);
        const std::string name = std::string("card.") + format.extension, arguments = format.options + name;
        const rlim_t least = leastLimit(setup, arguments, name);
        ASSERT_NE(0u, least) << format.extension << "\n" << text(readFile(logs.path("stderr")));
        const LimitedRun r = runLimited(setup, arguments, name, least - 1);
        EXPECT_EQ(r.status, "exit 1") << format.extension << "\n" << r.err;
        EXPECT_FALSE(r.err.empty()) << format.extension;
        EXPECT_EQ(r.changed, "") << format.extension << " at " << least - 1 << " MiB\n" << r.err;
    }
}

// Box text: the text libraries abort on a failed allocation, so the program must find the shortfall first:
// down to 24 MiB below the least limit, each run succeeds or says "Not enough memory" and changes nothing.
TEST(SafeOutputProgram, OutOfMemoryWithBoxTextIsReported) {
    if (std::string(PM5544_RUN_PREFIX) != "") GTEST_SKIP() << kEmulated;
    ScratchDir dir, logs;
    ChildSetup setup = plainRun(dir, logs);
    const std::string arguments = "-d 3840x2160 --ident Hello card.png";
    const rlim_t least = leastLimit(setup, arguments, "card.png");
    if (least == 0) GTEST_SKIP() << "the program does not run under a 2048 MiB address-space limit here";
    for (rlim_t below = 1; below <= 24 && below < least; ++below) {
        const rlim_t mebibytes = least - below;
        const LimitedRun r = runLimited(setup, arguments, "card.png", mebibytes);
        if (r.status == "exit 0") continue;
        // Too little for the dynamic loader or an emulator to start the program: the walk down ends.
        if (r.err.find("error while loading shared libraries") != std::string::npos ||
            r.err.find("Unable to reserve") != std::string::npos)
            break;
        EXPECT_EQ(r.status, "exit 1") << mebibytes << " MiB\n" << r.err;
        EXPECT_NE(r.err.find("Error: Not enough memory to render 3840x2160"), std::string::npos) << r.err;
        EXPECT_EQ(r.changed, "") << mebibytes << " MiB";
    }
}

// Two runs on one name at once (two encodings, so a mix shows): both succeed, one whole PNG per pngcheck.
TEST(SafeOutputProgram, RacingRunsLeaveOneCompleteFile) {
    ScratchDir dir;
    ChildSetup setup;
    setup.directory = dir.path("");
    std::vector<pid_t> runs;
    for (const char* arguments : {"-d 3840x2160 card.png", "-d 3840x2160 -c 709 card.png"})
        runs.push_back(startProgram(setup, arguments));
    for (pid_t run : runs) {
        int status = 0;
        waitpid(run, &status, 0);
        EXPECT_EQ(outcome(status), "exit 0");
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path("")), fs::directory_iterator()), 1);
    EXPECT_EQ(0, std::system(("pngcheck -q '" + dir.path("card.png") + "' >/dev/null").c_str()));
}

mode_t modeOf(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

// Until commit the name keeps its bytes; then the new ones with the earlier mode, links written through,
// and no temporary left.
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

}  // namespace
