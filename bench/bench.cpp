// Times each stage of a render (card init and setup, the full-frame loop, the rounding, the
// writer) for PNG and DPX output at several rasters, each in its own process so that the
// reported peak memory belongs to that render alone.
//
// Usage: pm5544_bench [WIDTHxHEIGHT ...]   (default: 1920x1080 3840x2160 7680x4320)
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "pattern/LargeBuffer.h"
#include "PatternRender.h"
#include "philips-PM5544-new.h"
#include "output/writeDPX.h"
#include "output/writePng.h"

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

enum class Format { Png, Dpx };

const char* formatName(Format format) { return format == Format::Dpx ? "DPX" : "PNG"; }

// Renders one frame the way the driver does and writes the stage times to the pipe.
int renderOnce(int width, int height, Format format, int reportFd) {
    const PatternGen::colorAxes_e axes = PatternGen::Colour_RGB;
    const int bits = format == Format::Dpx ? 10 : 12;
    const std::string file = std::string("/tmp/pm5544_bench.") + (format == Format::Dpx ? "dpx" : "png");

    const Clock::time_point t0 = Clock::now();
    PhilipsPm5544Spec card;
    card.init(width, height, 16, 9, axes, PatternGen::Sampling_444, bits, PatternGen::Quadrant_None, 0, false);
    const double setupTime = secondsSince(t0);

    Clock::time_point t = Clock::now();
    const size_t pixels = size_t(width) * size_t(height);
    LargeBuffer::Ptr<uint16_t> frame = LargeBuffer::allocate<uint16_t>(pixels * 4);
    card.run_body(0, width, height, frame.get());
    const double loopTime = secondsSince(t);

    t = Clock::now();
    PatternRender::roundFrame(frame.get(), pixels, axes, bits);
    const double roundTime = secondsSince(t);

    t = Clock::now();
    int result;
    if (format == Format::Dpx) {
        DPX::Metadata metadata;
        result =
            DPXWriter::writeDPX(frame.get(), static_cast<DPX::eFormat>(50), width, height, 10, file.c_str(), metadata);
    } else {
        result = PngWriter::writePng(frame.get(), false, width, height, bits, file.c_str());
    }
    const double writeTime = secondsSince(t);
    const double total = secondsSince(t0);
    std::remove(file.c_str());

    char line[160];
    const int n = std::snprintf(line, sizeof line, "%5dx%-5d %-4s %9.3f %9.3f %9.3f %9.3f %9.3f", width, height,
                                formatName(format), setupTime, loopTime, roundTime, writeTime, total);
    if (write(reportFd, line, size_t(n)) != n) return 1;
    return result == 0 ? 0 : 1;
}

// Runs one render in a child process (its progress lines silenced) and prints its stage
// times with the child's peak resident memory.
bool measure(int width, int height, Format format) {
    int fds[2];
    if (pipe(fds) != 0) return false;
    std::fflush(stdout);
    const pid_t child = fork();
    if (child < 0) return false;
    if (child == 0) {
        close(fds[0]);
        FILE* devNull = std::freopen("/dev/null", "w", stdout);
        std::_Exit(devNull ? renderOnce(width, height, format, fds[1]) : 1);
    }
    close(fds[1]);
    char line[160] = {};
    const ssize_t got = read(fds[0], line, sizeof line - 1);
    close(fds[0]);
    int status = 0;
    struct rusage usage {};
    if (wait4(child, &status, 0, &usage) != child) return false;
    const bool ok = got > 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (!ok) std::snprintf(line, sizeof line, "%5dx%-5d %-4s failed", width, height, formatName(format));
    std::printf("%s %10.1f MB\n", line, usage.ru_maxrss / 1024.0);
    return ok;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::pair<int, int>> sizes;
    for (int i = 1; i < argc; ++i) {
        int w = 0, h = 0;
        if (std::sscanf(argv[i], "%dx%d", &w, &h) == 2 && w > 0 && h > 0) sizes.emplace_back(w, h);
    }
    if (sizes.empty()) sizes = {{1920, 1080}, {3840, 2160}, {7680, 4320}};

    std::printf("Seconds per stage (card init+setup, full-frame loop, rounding, writer, total) and peak memory\n");
    std::printf("%-11s %-4s %9s %9s %9s %9s %9s %13s\n", "raster", "fmt", "setup", "loop", "round", "write", "total",
                "peak");
    bool ok = true;
    for (const auto& [w, h] : sizes) {
        ok = measure(w, h, Format::Png) && ok;
        ok = measure(w, h, Format::Dpx) && ok;
    }
    return ok ? 0 : 1;
}
