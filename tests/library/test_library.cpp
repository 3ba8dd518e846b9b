// The C API against the program and ffmpeg, clock frames against stills, threads, misuse.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "LayoutFrame.h"
#include "TestFiles.h"
#include "pm5544/pm5544.h"
#include "pm5544/pm5544.hpp"

using namespace TestFiles;

// Planar layouts hold the PNG's samples as ffmpeg reads them; an odd size rounds the chroma planes up.
TEST(Library, PlanarLayoutsHoldThePngSamples) {
    ScratchDir dir;
    const std::pair<const char*, pm5544_layout> cases[] = {
        {"709", PM5544_LAYOUT_I420_8},     {"2020", PM5544_LAYOUT_I420_10},       {"PQ", PM5544_LAYOUT_I422_12},
        {"HLG", PM5544_LAYOUT_I444_16},    {"S-Log3-Live", PM5544_LAYOUT_I444_8}, {"RGB-HLG", PM5544_LAYOUT_GBR_10},
        {"RGB-HLG", PM5544_LAYOUT_GBR_12}, {"RGB-HLG", PM5544_LAYOUT_GBR_16}};
    for (const auto& [width, height] : {std::pair{720, 576}, {723, 405}}) {
        for (const auto& [encoding, layout] : cases) {
            int bits = 0, sampling = 0;
            ASSERT_EQ(PM5544_OK, pm5544_layout_format(layout, &bits, &sampling));
            const std::string args = "-d " + std::to_string(width) + "x" + std::to_string(height) + " -c " + encoding +
                                     " -b " + std::to_string(bits) + " -s " + std::to_string(sampling) + " card.png";
            SCOPED_TRACE(args);
            ASSERT_EQ(0, runProgram(dir.path(""), args));
            const Bytes expected =
                planesOfPng(ffmpegSamples(dir.path("card.png"), "rgba64le", false), width, height, bits, sampling);
            Card card = newCard(width, height, encoding, layout);
            const Bytes got = renderLayout(card.get(), layout, width, height, 0, 64).packed();
            EXPECT_TRUE(expected == got) << expected.size() << " bytes against " << got.size();
        }
    }
}

// Clock frame n equals the still of its timecode, updated in place or whole; rows outside those reported stay;
// interlaced 4:2:0 reports whole groups of four rows even where the text's rows are not.
TEST(Library, ClockFramesEqualStillsAndChangeOnlyTheRowsReported) {
    const int width = 640, height = 360;
    const auto clockCard = [&](pm5544_layout layout, pm5544_scan scan, const char* timecode) {
        Card card = newCard(width, height, "709", layout);
        if (layout == PM5544_LAYOUT_FRAME16) pm5544_set_sampling(card.get(), 420);
        EXPECT_EQ(PM5544_OK, pm5544_set_scan(card.get(), scan));
        pm5544_set_clock(card.get(), 1);
        pm5544_set_frame_rate(card.get(), 30000, 1001);
        EXPECT_EQ(PM5544_OK, pm5544_set_timecode(card.get(), timecode));
        return card;
    };
    pm5544_rows progressive{};
    ASSERT_EQ(PM5544_OK,
              pm5544_changed_rows(clockCard(PM5544_LAYOUT_I420_8, PM5544_SCAN_PROGRESSIVE, "00:00:59;28").get(), 0, 2,
                                  &progressive));
    ASSERT_TRUE(progressive.first_row % 4 != 0 || (progressive.first_row + progressive.row_count) % 4 != 0);
    const struct {
        int64_t frame;
        const char* timecode;
    } steps[] = {{1, "00:00:59;29"}, {2, "00:01:00;02"}, {2, "00:01:00;02"}, {1800, "00:02:00;02"}, {3, "00:01:00;03"}};
    for (pm5544_layout layout : {PM5544_LAYOUT_I420_10, PM5544_LAYOUT_V210, PM5544_LAYOUT_FRAME16})
        for (pm5544_scan scan : {PM5544_SCAN_PROGRESSIVE, PM5544_SCAN_INTERLACED_TFF}) {
            SCOPED_TRACE(std::string(pm5544_layout_name(layout)) +
                         (scan == PM5544_SCAN_PROGRESSIVE ? "" : " interlaced"));
            Card clock = clockCard(layout, scan, "00:00:59;28");
            LayoutFrame held = renderLayout(clock.get(), layout, width, height, 0);
            int64_t heldFrame = 0;
            for (const auto& step : steps) {
                const LayoutFrame expected =
                    renderLayout(clockCard(layout, scan, step.timecode).get(), layout, width, height, 0);
                const LayoutFrame before = held;
                const std::vector<void*> planes = held.pointers();
                pm5544_rows written{};
                ASSERT_EQ(PM5544_OK, pm5544_update_frame(clock.get(), step.frame, heldFrame, layout, planes.data(),
                                                         held.strides.data(), &written));
                EXPECT_TRUE(expected.planes == held.planes) << step.timecode;
                EXPECT_TRUE(expected.planes == renderLayout(clock.get(), layout, width, height, step.frame).planes);
                EXPECT_EQ(step.frame == heldFrame, written.row_count == 0) << step.timecode;
                if (scan != PM5544_SCAN_PROGRESSIVE && layout != PM5544_LAYOUT_V210) {  // 4:2:0
                    EXPECT_TRUE(written.first_row % 4 == 0 && written.row_count % 4 == 0) << step.timecode;
                }
                // Outside the rows written nothing differs; the first and last of them do (4:2:2).
                const size_t stride = held.strides[0];
                for (int r = 0; r < height; ++r) {
                    const bool inside = r >= written.first_row && r < written.first_row + written.row_count;
                    const bool same =
                        std::memcmp(&before.planes[0][stride * r], &held.planes[0][stride * r], stride) == 0;
                    if (!inside) {
                        ASSERT_TRUE(same) << "row " << r;
                    } else if (layout == PM5544_LAYOUT_V210 && scan == PM5544_SCAN_PROGRESSIVE &&
                               (r == written.first_row || r == written.first_row + written.row_count - 1)) {
                        EXPECT_FALSE(same) << "row " << r << " is reported but unchanged";
                    }
                }
                pm5544_rows changed{};
                ASSERT_EQ(PM5544_OK, pm5544_changed_rows(clock.get(), heldFrame, step.frame, &changed));
                EXPECT_EQ(written.first_row, changed.first_row);
                EXPECT_EQ(written.row_count, changed.row_count);
                heldFrame = step.frame;
            }
        }
}

// Four cards of different settings on four threads, twice over, give their frames alone (also under TSan).
TEST(LibraryThreads, HandlesOnThreadsRenderWhatEachRendersAlone) {
    struct Job {
        const char* encoding;
        pm5544_layout layout;
        const char* ident;
        LayoutFrame alone{PM5544_LAYOUT_FRAME16, 1, 1};
        std::vector<LayoutFrame> threaded{};
    };
    Job jobs[] = {{"709", PM5544_LAYOUT_V210, "BBC"},
                  {"PQ", PM5544_LAYOUT_I422_10, ""},
                  {"RGB", PM5544_LAYOUT_RGBA16, "PM5544"},
                  {"HLG", PM5544_LAYOUT_I420_8, "Test"}};
    const int width = 480, height = 270;
    const auto renderJob = [&](Job& job, int64_t frame) {
        Card card = newCard(width, height, job.encoding, job.layout);
        pm5544_set_ident(card.get(), job.ident);
        pm5544_set_clock(card.get(), 1);
        pm5544_set_timecode(card.get(), "10:00:00:00");
        return renderLayout(card.get(), job.layout, width, height, frame);
    };
    for (Job& job : jobs) job.alone = renderJob(job, 7);
    std::vector<std::thread> threads;
    for (Job& job : jobs)
        threads.emplace_back([&] {
            for (int round = 0; round < 2; ++round) job.threaded.push_back(renderJob(job, 7));
        });
    for (std::thread& thread : threads) thread.join();
    for (Job& job : jobs)
        for (const LayoutFrame& frame : job.threaded) EXPECT_TRUE(job.alone.planes == frame.planes) << job.encoding;
}

// Settings are refused at once or at prepare, in the library's words ("raster", not "-d"); misuse errs.
TEST(LibrarySettings, RefusesWhatItCannotDoWithAReason) {
    const std::pair<std::function<pm5544_status(pm5544_card*)>, const char*> refused[] = {
        {[](pm5544_card* c) { return pm5544_set_raster(c, 32, 32); }, "(raster)"},
        {[](pm5544_card* c) { return pm5544_set_aspect(c, 16, 1); }, "(aspect)"},
        {[](pm5544_card* c) { return pm5544_set_bits(c, 17); }, "(bits)"},
        {[](pm5544_card* c) {
             pm5544_set_frame_rate(c, 25, 1);
             return pm5544_set_timecode(c, "10:00:00;00");
         },
         "(timecode)"},
    };
    for (const auto& [set, setting] : refused) {
        Card card(pm5544_card_new(), pm5544_card_free);
        EXPECT_TRUE(set(card.get()) == PM5544_ERROR_SETTINGS || pm5544_prepare(card.get()) == PM5544_ERROR_SETTINGS);
        const std::string message = pm5544_last_error(card.get());
        EXPECT_EQ(message.size() - std::strlen(setting), message.rfind(setting)) << message;
    }

    Card card = newCard(128, 96, "709", PM5544_LAYOUT_V210);
    LayoutFrame frame(PM5544_LAYOUT_V210, 128, 96);
    std::vector<void*> planes = frame.pointers();
    std::vector<size_t> strides = frame.strides;
    const auto render = [&](pm5544_card* on, int64_t n, pm5544_layout layout) {
        return pm5544_render_frame(on, n, layout, planes.data(), strides.data());
    };
    EXPECT_EQ(PM5544_ERROR_ARGUMENT, render(nullptr, 0, PM5544_LAYOUT_V210));
    EXPECT_EQ(PM5544_ERROR_ARGUMENT, pm5544_render_frame(card.get(), 0, PM5544_LAYOUT_V210, nullptr, strides.data()));
    EXPECT_EQ(PM5544_ERROR_ARGUMENT, render(card.get(), -1, PM5544_LAYOUT_V210));
    EXPECT_EQ(PM5544_ERROR_ARGUMENT, render(card.get(), 0, pm5544_layout(99)));
    strides[0] -= 4;
    EXPECT_EQ(PM5544_ERROR_ARGUMENT, render(card.get(), 0, PM5544_LAYOUT_V210));
    EXPECT_NE(nullptr, std::strstr(pm5544_last_error(card.get()), "shorter than a row"));
    strides[0] += 2;
    EXPECT_EQ(PM5544_ERROR_ARGUMENT, render(card.get(), 0, PM5544_LAYOUT_V210));
    strides = frame.strides;
    EXPECT_EQ(PM5544_ERROR_SETTINGS, render(card.get(), 0, PM5544_LAYOUT_RGBA16));
    EXPECT_EQ(PM5544_ERROR_SETTINGS, render(card.get(), 0, PM5544_LAYOUT_UYVY));
    EXPECT_EQ(PM5544_ERROR_SETTINGS, pm5544_set_encoding_name(card.get(), "Rec709"));
    // The failing call's message stays through calls that succeed.
    EXPECT_EQ(PM5544_OK, render(card.get(), 0, PM5544_LAYOUT_V210));
    EXPECT_STREQ("Encoding Rec709 is unknown", pm5544_last_error(card.get()));
    EXPECT_EQ(PM5544_ERROR_ARGUMENT, pm5544_changed_rows(card.get(), 0, 1, nullptr));
    EXPECT_EQ(-1, pm5544_layout_allows(pm5544_layout(-1), PM5544_ENCODING_709));
    EXPECT_EQ(nullptr, pm5544_encoding_name(pm5544_encoding(21)));
}

// The lines the program prints reach the callback, and nothing is printed.
TEST(LibraryMessages, ProgressLinesReachTheCallbackNotTheTerminal) {
    Card card = newCard(1920, 1080, "709", PM5544_LAYOUT_FRAME16);
    std::vector<std::string> lines;
    pm5544_set_message_callback(
        card.get(),
        [](void* user, pm5544_message_kind kind, const char* line) {
            static_cast<std::vector<std::string>*>(user)->push_back(std::to_string(int(kind)) + line);
        },
        &lines);
    pm5544_set_caption(card.get(), "Caption");
    pm5544_set_font(card.get(), "No Such Family");
    const std::string printed = stdoutOf([&] { EXPECT_EQ(PM5544_OK, pm5544_prepare(card.get())); }) +
                                stderrOf([&] { EXPECT_EQ(PM5544_OK, pm5544_prepare(card.get())); });
    EXPECT_EQ("", printed);
    ASSERT_GE(lines.size(), 4u);
    EXPECT_EQ((std::vector<std::string>{"0Width x Height: 1920x1080\n", "0Aspect: 16:9\n", "0Pixel aspect: 1:1.000\n"}),
              std::vector<std::string>(lines.begin(), lines.begin() + 3));
    EXPECT_EQ("1Warning: Font \"No Such Family\" could not be loaded; the text is drawn in the default sans-serif\n",
              lines.back());
    for (const std::string& line : lines) EXPECT_EQ(line.size() - 1, line.find('\n')) << line;
}

// Setters refuse at once what needs no other setting, naming it; the card keeps what it had.
TEST(LibrarySettings, SettersRefuseWhatTheCardCanNeverHave) {
    const std::pair<std::function<pm5544_status(pm5544_card*)>, const char*> refused[] = {
        {[](pm5544_card* c) { return pm5544_set_bits(c, 99); }, "Bit depth 99 is outside 8 to 16 (bits)"},
        {[](pm5544_card* c) { return pm5544_set_sampling(c, 100000); },
         "Sampling 100000 is not 444, 422 or 420 (sampling)"},
        {[](pm5544_card* c) { return pm5544_set_encoding(c, pm5544_encoding(-1)); }, "Encoding -1 is unknown"},
        {[](pm5544_card* c) { return pm5544_set_frame_rate(c, 0, 1); },
         "Rate 0 is not NUM or NUM/DEN, whole numbers from 1 to 1000000, such as 25 or 30000/1001 (frame rate)"},
        {[](pm5544_card* c) { return pm5544_set_ident(c, "\xff"); }, "ident \xff is not UTF-8 text"},
    };
    const LayoutFrame expected =
        renderLayout(newCard(160, 90, "RGB", PM5544_LAYOUT_FRAME16).get(), PM5544_LAYOUT_FRAME16, 160, 90);
    for (const auto& [set, message] : refused) {
        Card card = newCard(160, 90, "RGB", PM5544_LAYOUT_FRAME16);
        EXPECT_GT(PM5544_OK, set(card.get()));
        EXPECT_STREQ(message, pm5544_last_error(card.get()));
        EXPECT_TRUE(renderLayout(card.get(), PM5544_LAYOUT_FRAME16, 160, 90).planes == expected.planes) << message;
    }
}

// The lines a card's callback is handed, and what it does on each.
struct Messages {
    std::vector<std::string> lines;
    std::function<void(const std::string&)> onLine;
    bool has(const std::string& start) const {
        for (const std::string& line : lines)
            if (line.compare(0, start.size(), start) == 0) return true;
        return false;
    }
    static void collect(void* user, pm5544_message_kind, const char* line) {
        Messages& m = *static_cast<Messages*>(user);
        m.lines.push_back(line);
        if (m.onLine) m.onLine(line);
    }
};

// Calls from inside a card's callback are refused, and no change is lost half applied.
TEST(LibraryCallbacks, CallsFromInsideTheCallbackAreRefused) {
    Card card = newCard(320, 180, "709", PM5544_LAYOUT_I422_10);
    Messages messages;
    std::vector<pm5544_status> inside;
    bool called = false;
    messages.onLine = [&](const std::string&) {
        if (std::exchange(called, true)) return;
        inside = {pm5544_set_raster(card.get(), 1920, 1080), pm5544_set_ident(card.get(), "Lost"),
                  pm5544_prepare(card.get())};
    };
    pm5544_set_message_callback(card.get(), Messages::collect, &messages);
    const LayoutFrame frame = renderLayout(card.get(), PM5544_LAYOUT_I422_10, 320, 180);
    EXPECT_EQ(std::vector<pm5544_status>(3, PM5544_ERROR_IN_CALLBACK), inside);
    EXPECT_NE(nullptr, std::strstr(pm5544_last_error(card.get()), "message callback"));
    const Card plain = newCard(320, 180, "709", PM5544_LAYOUT_I422_10);
    EXPECT_TRUE(renderLayout(plain.get(), PM5544_LAYOUT_I422_10, 320, 180).planes == frame.planes);
}

// A throwing callback does not unwind through the build: the font still loads, the C call errs, and the
// C++ wrapper rethrows the handler's exception afterwards with the card prepared.
TEST(LibraryCallbacks, ThrowingCallbacksDoNotUnwindThroughTheLibrary) {
    Card card = newCard(320, 180, "709", PM5544_LAYOUT_FRAME16);
    pm5544_set_ident(card.get(), "PM5544");
    Messages messages;
    messages.onLine = [](const std::string& line) {
        if (line.compare(0, 5, "Font:") == 0) throw 5544;
    };
    pm5544_set_message_callback(card.get(), Messages::collect, &messages);
    pm5544_status status = PM5544_OK;
    EXPECT_NO_THROW(status = pm5544_prepare(card.get()));
    EXPECT_EQ(PM5544_ERROR_FAILED, status);
    EXPECT_TRUE(messages.has("FreetypeFont:"));

    pm5544::TestCard wrapped;
    std::vector<std::string> lines;
    wrapped.raster(320, 180).ident("PM5544").onMessage([&](pm5544_message_kind, const char* line) {
        lines.push_back(line);
        if (lines.back().compare(0, 5, "Font:") == 0) throw std::logic_error("no fonts wanted");
    });
    EXPECT_THROW(wrapped.prepare(), std::logic_error);
    EXPECT_EQ(0, lines.back().compare(0, 13, "FreetypeFont:"));
    const size_t seen = lines.size();
    EXPECT_NO_THROW(wrapped.prepare());
    EXPECT_EQ(seen, lines.size());
}

// Setting a value it has, or the edge taper this card never applies, keeps the prepared card.
TEST(LibrarySettings, SettersThatChangeNothingKeepThePreparedCard) {
    Card card = newCard(320, 180, "PQ", PM5544_LAYOUT_I422_10);
    pm5544_set_clock(card.get(), 1);
    Messages messages;
    pm5544_set_message_callback(card.get(), Messages::collect, &messages);
    renderLayout(card.get(), PM5544_LAYOUT_I422_10, 320, 180);
    messages.lines.clear();
    for (const pm5544_status status :
         {pm5544_set_raster(card.get(), 320, 180), pm5544_set_encoding_name(card.get(), "PQ"),
          pm5544_use_layout(card.get(), PM5544_LAYOUT_I422_10), pm5544_set_clock(card.get(), 1),
          pm5544_set_time_of_day(card.get(), -1, 0, 0), pm5544_set_edge_taper(card.get(), 0),
          pm5544_prepare(card.get())})
        EXPECT_EQ(PM5544_OK, status);
    EXPECT_TRUE(messages.lines.empty()) << messages.lines.front();
    Card untapered = newCard(320, 180, "PQ", PM5544_LAYOUT_I422_10);
    pm5544_set_edge_taper(untapered.get(), 0);
    EXPECT_TRUE(
        renderLayout(untapered.get(), PM5544_LAYOUT_I422_10, 320, 180).planes ==
        renderLayout(newCard(320, 180, "PQ", PM5544_LAYOUT_I422_10).get(), PM5544_LAYOUT_I422_10, 320, 180).planes);
}

// After a change of settings an update renders the whole frame, whatever the planes are said to hold.
TEST(LibrarySettings, AnUpdateAfterAChangeRendersTheWholeFrame) {
    const auto clockCard = [](const char* ident) {
        Card card = newCard(320, 180, "709", PM5544_LAYOUT_I420_8);
        pm5544_set_clock(card.get(), 1);
        pm5544_set_timecode(card.get(), "10:00:00:00");
        pm5544_set_ident(card.get(), ident);
        return card;
    };
    Card card = clockCard("BEFORE");
    LayoutFrame held = renderLayout(card.get(), PM5544_LAYOUT_I420_8, 320, 180, 0);
    ASSERT_EQ(PM5544_OK, pm5544_set_ident(card.get(), "AFTER"));
    const std::vector<void*> planes = held.pointers();
    pm5544_rows written{};
    ASSERT_EQ(PM5544_OK, pm5544_update_frame(card.get(), 25, 0, PM5544_LAYOUT_I420_8, planes.data(),
                                             held.strides.data(), &written));
    EXPECT_EQ(180, written.row_count);
    EXPECT_TRUE(renderLayout(clockCard("AFTER").get(), PM5544_LAYOUT_I420_8, 320, 180, 25).planes == held.planes);
}

// Frame INT64_MAX of each clock is the still of a clock started at that frame's time (worked out with
// exact integers): the time of day at one frame in 1,000,000 s, a timecode, a drop-frame timecode.
TEST(LibraryClock, TheLastFrameShowsItsTimeOfDay) {
    const auto frame = [](int rateNum, int rateDen, const char* timecode, int hours, int minutes, int seconds,
                          int64_t n) {
        Card card = newCard(320, 180, "709", PM5544_LAYOUT_I444_8);
        pm5544_set_clock(card.get(), 1);
        EXPECT_EQ(PM5544_OK, pm5544_set_frame_rate(card.get(), rateNum, rateDen));
        EXPECT_EQ(PM5544_OK, pm5544_set_timecode(card.get(), timecode));
        EXPECT_EQ(PM5544_OK, pm5544_set_time_of_day(card.get(), hours, minutes, seconds));
        return renderLayout(card.get(), PM5544_LAYOUT_I444_8, 320, 180, n).planes;
    };
    const auto still = [&](int rateNum, int rateDen, const char* timecode, int hours, int minutes, int seconds) {
        return frame(rateNum, rateDen, timecode, hours, minutes, seconds, 0);
    };
    const auto last = [&](int rateNum, int rateDen, const char* timecode) {
        return frame(rateNum, rateDen, timecode, 0, 0, 0, INT64_MAX);
    };
    EXPECT_TRUE(last(1, 1000000, "") == still(1, 1000000, "", 8, 26, 40));
    EXPECT_TRUE(last(25, 1, "10:00:00:00") == still(25, 1, "10:37:12:07", 0, 0, 0));
    EXPECT_TRUE(last(30000, 1001, "00:00:00;00") == still(30000, 1001, "22:22:15;29", 0, 0, 0));
    EXPECT_EQ(PM5544_ERROR_SETTINGS,
              pm5544_set_time_of_day(newCard(64, 64, "709", PM5544_LAYOUT_I444_8).get(), 24, 0, 0));
}

// Plane sizes are worked out in 64 bits: exact where size_t holds them (64-bit machines), else refused.
TEST(LibraryLayouts, PlaneSizesOfHugeRastersAreExactOrRefused) {
    pm5544_plane planes[PM5544_MAX_PLANES];
    const int count = pm5544_layout_planes(PM5544_LAYOUT_I420_8, 64, INT_MAX, planes);
    if (uint64_t{64} * INT_MAX <= SIZE_MAX) {
        ASSERT_EQ(3, count);
        EXPECT_EQ(uint64_t{64} * INT_MAX, planes[0].bytes);
        EXPECT_EQ(1 << 30, planes[1].rows);  // half of INT_MAX rows, rounded up
        EXPECT_EQ(uint64_t{32} << 30, planes[2].bytes);
    } else {
        EXPECT_EQ(PM5544_ERROR_ARGUMENT, count);
    }
    // 8 bytes a pixel: 2^65 bytes.
    EXPECT_EQ(PM5544_ERROR_ARGUMENT, pm5544_layout_planes(PM5544_LAYOUT_FRAME16, INT_MAX, INT_MAX, planes));
}

// The C++ wrapper throws the handle's message and forwards lines to a handler.
TEST(LibraryWrapper, ThrowsTheHandlesMessageAndForwardsLines) {
    pm5544::TestCard card;
    std::string lines;
    card.onMessage([&](pm5544_message_kind, const char* line) { lines += line; });
    try {
        card.raster(32, 32);
        ADD_FAILURE() << "32x32 was accepted";
    } catch (const pm5544::Error& error) {
        EXPECT_EQ(PM5544_ERROR_SETTINGS, error.status());
        EXPECT_STREQ("Size 32x32 is outside 64x64 to 16384x16384 (raster)", error.what());
    }
    card.raster(64, 64).prepare();
    EXPECT_EQ("Width x Height: 64x64\nAspect: 16:9\nPixel aspect: 1:0.562\n", lines);
}
