// Times each stage of a render and its peak memory, per format and raster, each render in its own
// process (so the peak belongs to it alone); then the two speed ratios the project tracks, as
// medians of several runs taken in turn: the 4K 12-bit 709 PNG against libpng's own encode of the
// same frame, the 4K 10-bit 709 DPX against ffmpeg writing a DPX of its SMPTE bars, and 500 frames of
// 1080p50 10-bit 4:2:2 Y4M through a pipe against ffmpeg's SMPTE bars the same way.
//
// Usage: pm5544_bench [--light | --ratios] [WIDTHxHEIGHT ...]
//   default rasters 1920x1080 3840x2160 7680x4320 15360x8640; --ratios prints the ratios alone; --light
//   renders a cheap test pattern
//   instead of the card, which shows what the streaming pipeline itself needs.
#include <fcntl.h>
#include <png.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "PatternRender.h"
#include "colour/Pixel.h"
#include "pattern/FrameRow.h"
#include "philips-PM5544-new.h"

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

constexpr int ratioRuns = 7;
const char* const scratch = "/tmp/pm5544_bench";

// Vertical bars and a ramp, with none of the card's set-up: the pipeline's own cost.
class LightPattern final : public PatternSpec {
public:
    void setup() override {}
    Pixel body(int x, int y) override { return bars100[((x + y / 4) / 64) & 7]; }
};

struct Run {
    const char* format;
    const char* options;
};

// One device-file format stands for the four: they share the loop and the writer. The Y4M run is a
// 20-frame clip to a file, its later frames copied within the file.
const Run runs[] = {{"png", "-c 709 -b 12"},
                    {"dpx", "-c 709 -b 10"},
                    {"tif", "-c 709 -b 12"},
                    {"pat", "-c 709 -s 422 -b 12"},
                    {"y4m", "-c 709 -s 422 -b 10 --frames 20"}};

std::string programPath() {
    char path[4096] = {};
    const ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
    std::string self(path, n > 0 ? size_t(n) : 0);
    return self.substr(0, self.rfind('/') + 1) + "pm5544";
}

// Renders in a child process through the driver, timing its stages; prints them with the child's peak.
bool measure(int width, int height, const Run& run, bool light) {
    const std::string size = std::to_string(width) + "x" + std::to_string(height);
    const std::string file = std::string(scratch) + "." + run.format;
    const std::string command = std::string("pm5544 -d ") + size + " " + run.options + " " + file;
    int fds[2];
    if (pipe(fds) != 0) return false;
    std::fflush(stdout);
    const pid_t child = fork();
    if (child < 0) return false;
    if (child == 0) {
        close(fds[0]);
        if (std::freopen("/dev/null", "w", stdout) == nullptr) std::_Exit(1);
        std::vector<std::string> words;
        for (size_t at = 0, next; at < command.size(); at = next + 1) {
            next = command.find(' ', at);
            if (next == std::string::npos) next = command.size();
            words.push_back(command.substr(at, next - at));
        }
        std::vector<char*> argv;
        for (std::string& word : words) argv.push_back(word.data());
        PatternRender::StageTimes times;
        int status;
        if (light) {
            LightPattern pattern;
            status = PatternRender::renderPattern(int(argv.size()), argv.data(), pattern, &times);
        } else {
            PhilipsPm5544Spec card;
            status = PatternRender::renderPattern(int(argv.size()), argv.data(), card, &times);
        }
        const ssize_t wrote = write(fds[1], &times, sizeof times);
        std::_Exit(status == 0 && wrote == ssize_t(sizeof times) ? 0 : 1);
    }
    close(fds[1]);
    PatternRender::StageTimes times;
    const ssize_t got = read(fds[0], &times, sizeof times);
    close(fds[0]);
    int status = 0;
    struct rusage usage {};
    if (wait4(child, &status, 0, &usage) != child) return false;
    std::remove(file.c_str());
    const bool ok = got == ssize_t(sizeof times) && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (!ok) {
        std::printf("%-11s %-4s failed\n", size.c_str(), run.format);
        return false;
    }
    std::printf("%-11s %-4s %8.3f %8.3f %8.3f %8.3f %8.3f %9.1f MB\n", size.c_str(), run.format, times.setup,
                times.render, times.write, times.stream, times.setup + times.stream, usage.ru_maxrss / 1024.0);
    return true;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// One run of a shell command; false if it failed.
bool runCommand(const std::string& command) { return std::system((command + " >/dev/null 2>&1").c_str()) == 0; }

// libpng's own encode of a rendered frame, default settings, to a file: the frame is rendered and rounded
// once, each call encodes it.
class LibpngReference {
public:
    LibpngReference(int width, int height) : width_(width), height_(height) {
        PhilipsPm5544Spec card;
        std::vector<uint16_t> frame(size_t(width) * height * 4);
        card.messages = nullptr;  // init's progress lines go nowhere
        card.init(width, height, 16, 9, PatternGen::Colour_YCbCr_709, PatternGen::Sampling_444, 12,
                  PatternGen::Quadrant_None, 0, false);
        card.run_body(0, width, height, frame.data());
        FrameRow::round(frame.data(), frame.size() / 4, PatternGen::Colour_YCbCr_709, 12);
        bytes_.resize(frame.size() * 2);
        for (size_t i = 0; i < frame.size(); ++i)
            bytes_[2 * i] = png_byte(frame[i] >> 8), bytes_[2 * i + 1] = png_byte(frame[i]);
        for (int y = 0; y < height; ++y) rows_.push_back(&bytes_[size_t(y) * width * 8]);
    }
    ~LibpngReference() { std::remove(file_.c_str()); }

    bool encode() {
        std::FILE* out = std::fopen(file_.c_str(), "wb");
        if (out == nullptr) return false;
        png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
        png_infop info = png_create_info_struct(png);
        png_init_io(png, out);
        png_set_IHDR(png, info, png_uint_32(width_), png_uint_32(height_), 16, PNG_COLOR_TYPE_RGB_ALPHA,
                     PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
        png_set_rows(png, info, rows_.data());
        png_write_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
        png_destroy_write_struct(&png, &info);
        return std::fclose(out) == 0;
    }

private:
    int width_, height_;
    std::vector<png_byte> bytes_;
    std::vector<png_bytep> rows_;
    const std::string file_ = std::string(scratch) + "_ref.png";
};

// Median wall-clock seconds of ratioRuns runs of each, taken in turn so that a change in the machine's
// load weighs on both alike; -1 for one that failed.
std::pair<double, double> sideBySide(const std::function<bool()>& ours, const std::function<bool()>& reference) {
    std::vector<double> oursSeconds, referenceSeconds;
    bool oursOk = true, referenceOk = true;
    for (int i = 0; i < ratioRuns; ++i) {
        Clock::time_point start = Clock::now();
        oursOk = ours() && oursOk;
        oursSeconds.push_back(secondsSince(start));
        start = Clock::now();
        referenceOk = reference() && referenceOk;
        referenceSeconds.push_back(secondsSince(start));
    }
    return {oursOk ? median(oursSeconds) : -1, referenceOk ? median(referenceSeconds) : -1};
}

// A stream into a pipe costs mostly the kernel's copying: the reader is `wc -c`, which only counts.
void printPipeRatio(const std::string& program) {
    const std::string intoPipe = " | wc -c";
    const auto [ours, ffmpeg] = sideBySide(
        [&] {
            return runCommand("{ " + program +
                              " -d 1920x1080 -c 709 -s 422 -b 10 --frames 500 --rate 50 --format y4m - " +
                              "2>/dev/null; }" + intoPipe);
        },
        [&] {
            return runCommand(
                "ffmpeg -v error -f lavfi -i smptehdbars=size=1920x1080:rate=50 -frames:v 500 "
                "-pix_fmt yuv422p10le -strict -1 -f yuv4mpegpipe -" +
                intoPipe);
        });
    if (ffmpeg > 0)
        std::printf("1920x1080 Y4M 500 frames to a pipe %7.3f s / ffmpeg %7.3f s = %.2f (target <= 0.8)\n", ours,
                    ffmpeg, ours / ffmpeg);
    else
        std::printf("1920x1080 Y4M 500 frames to a pipe %7.3f s (ffmpeg not available for the reference)\n", ours);
}

void printRatios() {
    const std::string program = programPath();
    std::printf("\nRatios (medians of %d runs, end to end, taken in turn with the reference)\n", ratioRuns);
    LibpngReference libpng(3840, 2160);
    const auto [png, libpngSeconds] =
        sideBySide([&] { return runCommand(program + " -d 3840x2160 -c 709 -b 12 " + scratch + ".png"); },
                   [&] { return libpng.encode(); });
    std::printf("3840x2160 12-bit 709 PNG  %7.3f s / libpng encode %7.3f s = %.2f (target <= 1.05)\n", png,
                libpngSeconds, png / libpngSeconds);
    const auto [dpx, ffmpeg] =
        sideBySide([&] { return runCommand(program + " -d 3840x2160 -c 709 -b 10 " + scratch + ".dpx"); },
                   [&] {
                       return runCommand(std::string("ffmpeg -y -v error -f lavfi -i smptehdbars=size=3840x2160 ") +
                                         "-frames:v 1 -pix_fmt gbrp10le " + scratch + "_ref.dpx");
                   });
    if (ffmpeg > 0)
        std::printf("3840x2160 10-bit 709 DPX  %7.3f s / ffmpeg        %7.3f s = %.2f (target <= 0.6)\n", dpx, ffmpeg,
                    dpx / ffmpeg);
    else
        std::printf("3840x2160 10-bit 709 DPX  %7.3f s (ffmpeg not available for the reference)\n", dpx);
    for (const char* ext : {".png", ".dpx", "_ref.dpx"}) std::remove((std::string(scratch) + ext).c_str());
    printPipeRatio(program);
}

}  // namespace

int main(int argc, char** argv) {
    bool light = false, ratiosOnly = false;
    std::vector<std::pair<int, int>> sizes;
    for (int i = 1; i < argc; ++i) {
        int w = 0, h = 0;
        if (std::string(argv[i]) == "--light")
            light = true;
        else if (std::string(argv[i]) == "--ratios")
            ratiosOnly = true;
        else if (std::sscanf(argv[i], "%dx%d", &w, &h) == 2 && w > 0 && h > 0)
            sizes.emplace_back(w, h);
    }
    if (ratiosOnly) return printRatios(), 0;
    if (sizes.empty()) sizes = {{1920, 1080}, {3840, 2160}, {7680, 4320}, {15360, 8640}};

    std::printf("Seconds per stage and peak memory (%s). render and write overlap within stream;\n",
                light ? "light test pattern" : "the card");
    std::printf("pat stands for the four device formats (any width renders; the devices play 1280 to 2048).\n");
    std::printf("%-11s %-4s %8s %8s %8s %8s %8s %12s\n", "raster", "fmt", "setup", "render", "write", "stream", "total",
                "peak");
    bool ok = true;
    for (const auto& [w, h] : sizes)
        for (const Run& run : runs) ok = measure(w, h, run, light) && ok;
    if (!light) printRatios();
    return ok ? 0 : 1;
}
