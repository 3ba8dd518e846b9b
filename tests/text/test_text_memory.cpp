// Box text under an address-space limit: the text libraries end the process when an allocation or a
// thread fails, so the program must find the shortfall before they start.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "TestFiles.h"

using namespace TestFiles;

namespace {

const std::string kArguments = " -d 3840x2160 --ident Hello card.png";
const Bytes kEarlier = {'e', 'a', 'r', 'l', 'i', 'e', 'r'};
constexpr int kKiBPerMiB = 1024;

struct LimitedRun {
    int status;  // the exit status, or 128 + the signal that ended the run
    std::string err;
};

LimitedRun runUnder(const ScratchDir& dir, const ScratchDir& logs, int mebibytes) {
    const std::string command = "cd '" + dir.path("") + "' && (ulimit -v " + std::to_string(mebibytes * kKiBPerMiB) +
                                " && exec " + PM5544_PLAIN_EXE + kArguments + ") >/dev/null 2>'" + logs.path("err") + "'";
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), text(readFile(logs.path("err")))};
}

// Too little room for the dynamic loader or an emulator to start the program.
bool startsNothing(const LimitedRun& run) {
    return run.err.find("error while loading shared libraries") != std::string::npos ||
           run.err.find("Unable to reserve") != std::string::npos;
}

size_t entries(const ScratchDir& dir) {
    size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(dir.path(""))) ++count;
    return count;
}

}  // namespace

// The least limit (in MiB) under which the run succeeds is found first; below it, every run down to 24 MiB
// less either succeeds or says "Not enough memory", exits 1 and leaves the earlier file alone. A limit
// too low for the dynamic loader, before the program starts, ends the walk down.
TEST(TextMemory, LowMemoryWithBoxTextIsReportedAndKeepsTheEarlierFile) {
    if (std::string(PM5544_RUN_PREFIX) != "")
        GTEST_SKIP() << "the program runs under " PM5544_RUN_PREFIX ", whose own address space the limit "
                        "would measure, not the program's";
    ScratchDir dir, logs;
    int fails = 16, succeeds = 1024;
    if (const LimitedRun roomy = runUnder(dir, logs, succeeds); roomy.status != 0)
        GTEST_SKIP() << "the program does not run under a " << succeeds << " MiB address-space limit here (an "
                     << "emulator reserves more):\n"
                     << roomy.err;
    while (succeeds - fails > 1) {
        const int middle = (fails + succeeds) / 2;
        (runUnder(dir, logs, middle).status == 0 ? succeeds : fails) = middle;
    }
    constexpr int kBelow = 24;
    for (int mebibytes = succeeds - 1; mebibytes >= succeeds - kBelow; --mebibytes) {
        std::filesystem::remove(dir.path("card.png"));
        writeFile(dir.path("card.png"), kEarlier);
        const LimitedRun run = runUnder(dir, logs, mebibytes);
        if (run.status == 0) continue;
        if (startsNothing(run)) break;
        EXPECT_EQ(run.status, 1) << mebibytes << " MiB\n" << run.err;
        EXPECT_NE(run.err.find("Error: Not enough memory to render 3840x2160"), std::string::npos)
            << mebibytes << " MiB\n"
            << run.err;
        EXPECT_EQ(readFile(dir.path("card.png")), kEarlier) << mebibytes << " MiB";
        EXPECT_EQ(entries(dir), 1u) << mebibytes << " MiB: a temporary is left";
    }
}
