// Frames of a clock rendered into memory through the C API, on the calling thread: the first frame,
// then frame after frame into one reused buffer (only the rows that change), then whole frames.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "pm5544/pm5544.h"

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

struct Target {
    int width, height;
    double framesPerSecond;  // for frames into a reused buffer
};

bool measure(const Target& target, pm5544_layout layout, int frames) {
    pm5544_card* card = pm5544_card_new();
    pm5544_set_raster(card, target.width, target.height);
    pm5544_set_encoding(card, PM5544_ENCODING_709);
    pm5544_use_layout(card, layout);
    pm5544_set_clock(card, 1);
    pm5544_set_timecode(card, "10:00:00:00");
    pm5544_plane planes[PM5544_MAX_PLANES];
    const int count = pm5544_layout_planes(layout, target.width, target.height, planes);
    std::vector<std::vector<unsigned char>> memory;
    std::vector<void*> data;
    std::vector<size_t> strides;
    for (int p = 0; p < count; ++p) {
        memory.emplace_back(planes[p].bytes);
        data.push_back(memory.back().data());
        strides.push_back(planes[p].row_bytes);
    }
    Clock::time_point start = Clock::now();
    bool ok = pm5544_render_frame(card, 0, layout, data.data(), strides.data()) == PM5544_OK;
    const double first = secondsSince(start);

    start = Clock::now();
    long long rows = 0;
    for (int n = 1; ok && n <= frames; ++n) {
        pm5544_rows written;
        ok = pm5544_update_frame(card, n, n - 1, layout, data.data(), strides.data(), &written) == PM5544_OK;
        rows += written.row_count;
    }
    const double updates = secondsSince(start);

    const int wholeFrames = 20;
    start = Clock::now();
    for (int n = 0; ok && n < wholeFrames; ++n)
        ok = pm5544_render_frame(card, frames + n, layout, data.data(), strides.data()) == PM5544_OK;
    const double whole = secondsSince(start);
    if (!ok) std::printf("failed: %s\n", pm5544_last_error(card));
    pm5544_card_free(card);
    if (!ok) return false;
    std::printf("%5dx%-5d %-8s first %6.1f ms | reused buffer %7.0f frames/s (%5.1f rows a frame; target >= %.0f) | "
                "whole frames %6.1f frames/s\n",
                target.width, target.height, pm5544_layout_name(layout), first * 1e3, frames / updates,
                double(rows) / frames, target.framesPerSecond, wholeFrames / whole);
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    const int frames = argc > 1 ? std::atoi(argv[1]) : 500;
    std::printf("Clock frames into memory through libpm5544, one thread, 709 10-bit 4:2:2, timecode at 25 fps\n");
    bool ok = true;
    for (const Target& target : {Target{1920, 1080, 800}, Target{3840, 2160, 200}})
        for (pm5544_layout layout : {PM5544_LAYOUT_V210, PM5544_LAYOUT_I422_10})
            ok = measure(target, layout, frames) && ok;
    return ok ? 0 : 1;
}
