// The C API's planar and packed layouts equal ffmpeg's reading of the program's file of the same card
// (repacked by ffmpeg's encoders or read as raw video); plane sizes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "LayoutFrame.h"
#include "TestFiles.h"
#include "pm5544/pm5544.h"

using namespace TestFiles;

namespace {

struct LayoutCase {
    const char* encoding;
    pm5544_layout layout;
    const char* programArgs;  // depth and sampling of the program's file
    const char* extension;
    const char* common;     // ffmpeg's output options for the program's file (and the frame)
    const char* rawFormat;  // ffmpeg's name of the layout, or nullptr: the frame's own bytes are compared
};

const LayoutCase kCases[] = {
    {"709", PM5544_LAYOUT_V210, "-b 10 -s 422", "y4m", "-c:v v210", nullptr},
    {"601", PM5544_LAYOUT_UYVY, "-b 8 -s 422", "y4m", "-pix_fmt uyvy422", nullptr},
    {"RGB", PM5544_LAYOUT_RGBA16, "-b 16 -s 444", "png", "-pix_fmt rgba64le", nullptr},
    {"RGB-PQ", PM5544_LAYOUT_FRAME16, "-b 10 -s 444", "png", "-pix_fmt rgba64le", nullptr},
    {"709", PM5544_LAYOUT_FRAME16, "-b 12 -s 422", "png", "-pix_fmt rgba64le", nullptr},
    {"709", PM5544_LAYOUT_NV12, "-b 8 -s 420", "y4m", "-pix_fmt yuv420p", "nv12"},
    {"PQ", PM5544_LAYOUT_P010_10LE, "-b 10 -s 420", "y4m", "-pix_fmt yuv420p10le", "p010le"},
    {"HLG", PM5544_LAYOUT_P016_LE, "-b 16 -s 420", "y4m", "-pix_fmt yuv420p16le", "p016le"},
    {"601", PM5544_LAYOUT_YUY2, "-b 8 -s 422", "y4m", "-pix_fmt yuv422p", "yuyv422"},
    // ffmpeg takes the 8-bit codes of the PNG's samples; the alpha or padding byte is checked apart.
    {"RGB", PM5544_LAYOUT_RGBA, "-b 8 -s 444", "png", "-pix_fmt rgb24", "rgba"},
    {"RGB-PQ", PM5544_LAYOUT_BGRA, "-b 8 -s 444", "png", "-pix_fmt rgb24", "bgra"},
    {"RGB-headroom", PM5544_LAYOUT_RGBX, "-b 8 -s 444", "png", "-pix_fmt rgb24", "rgb0"},
    {"RGB-S-Log3", PM5544_LAYOUT_BGRX, "-b 8 -s 444", "png", "-pix_fmt rgb24", "bgr0"},
};

}  // namespace

// Odd sizes check packed-pixel padding and chroma rounding up; the strides' padding is not read.
TEST(Layouts, FramesEqualTheProgramsFilesAsFfmpegReadsThem) {
    ScratchDir dir;
    for (const auto& [width, height] : {std::pair{1921, 1081}, {720, 576}}) {
        const std::string raster = std::to_string(width) + "x" + std::to_string(height);
        for (const LayoutCase& c : kCases) {
            SCOPED_TRACE(std::string(pm5544_layout_name(c.layout)) + " " + c.encoding + " " + raster);
            // ffmpeg's v210 takes even widths, and its UYVY fills the pad pixel of an odd width its own way.
            if ((c.layout == PM5544_LAYOUT_V210 || c.layout == PM5544_LAYOUT_UYVY) && width % 2 != 0) continue;
            const std::string file = std::string("card.") + c.extension;
            const std::string args = "-d " + raster + " -c " + c.encoding + " " + c.programArgs + " " + file;
            ASSERT_EQ(0, runProgram(dir.path(""), args)) << args;
            const Bytes expected = ffmpegRaw("-i '" + dir.path(file) + "'", c.common);
            ASSERT_FALSE(expected.empty());

            Card card = newCard(width, height, c.encoding, c.layout);
            if (c.layout == PM5544_LAYOUT_FRAME16) {  // the one layout that takes a depth and sampling
                int bits = 0, sampling = 0;
                ASSERT_EQ(2, std::sscanf(c.programArgs, "-b %d -s %d", &bits, &sampling));
                pm5544_set_bits(card.get(), bits);
                pm5544_set_sampling(card.get(), sampling);
            }
            const size_t padding = c.rawFormat != nullptr ? 6 : 64;  // v210 and 16-bit words want aligned strides
            Bytes frame = renderLayout(card.get(), c.layout, width, height, 0, padding).packed();
            // Opaque alpha or padding (16-bit RGBA's where the PNG keeps the card's own); P010's six low bits zero.
            const auto everyFrom = [&](size_t first, size_t step, int mask, int value) {
                for (size_t i = first; i < frame.size(); i += step) ASSERT_EQ(value, frame[i] & mask) << "byte " << i;
            };
            if (c.rawFormat != nullptr && std::string(c.extension) == "png") everyFrom(3, 4, 0xFF, 0xFF);
            if (c.layout == PM5544_LAYOUT_P010_10LE) everyFrom(0, 2, 0x3F, 0);
            if (c.layout == PM5544_LAYOUT_RGBA16) {
                everyFrom(6, 8, 0xFF, 0xFF);
                everyFrom(7, 8, 0xFF, 0xFF);
                for (size_t a = 6; a + 1 < std::min(frame.size(), expected.size()); a += 8)
                    frame[a] = expected[a], frame[a + 1] = expected[a + 1];
            }
            if (c.rawFormat != nullptr) {
                writeFile(dir.path("card.raw"), frame);
                frame = ffmpegRaw("-f rawvideo -pix_fmt " + std::string(c.rawFormat) + " -s " + raster + " -i '" +
                                      dir.path("card.raw") + "'",
                                  c.common);
            }
            EXPECT_TRUE(expected == frame) << expected.size() << " bytes against " << frame.size();
        }
    }
}

// Planes and their sizes, worked out by hand; the last layout's name ends the list.
TEST(Layouts, PlaneSizesDepthsAndEncodings) {
    const struct {
        pm5544_layout layout;
        struct {
            int width, height;
        } raster;
        int count;
        pm5544_plane planes[2];
    } cases[] = {
        {PM5544_LAYOUT_NV12, {1921, 1081}, 2, {{1921, 1081, 1921 * 1081}, {1922, 541, 1922 * 541}}},
        {PM5544_LAYOUT_P010_10LE, {1921, 1081}, 2, {{3842, 1081, 3842 * 1081}, {3844, 541, 3844 * 541}}},
        {PM5544_LAYOUT_P016_LE, {64, 64}, 2, {{128, 64, 128 * 64}, {128, 32, 128 * 32}}},
        {PM5544_LAYOUT_YUY2, {1921, 3}, 1, {{3844, 3, 3844 * 3}}},
        {PM5544_LAYOUT_RGBA, {1921, 2}, 1, {{7684, 2, 7684 * 2}}},
        {PM5544_LAYOUT_BGRX, {64, 64}, 1, {{256, 64, 256 * 64}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(pm5544_layout_name(c.layout));
        pm5544_plane got[PM5544_MAX_PLANES];
        ASSERT_EQ(c.count, pm5544_layout_planes(c.layout, c.raster.width, c.raster.height, got));
        for (int p = 0; p < c.count; ++p) {
            EXPECT_EQ(c.planes[p].row_bytes, got[p].row_bytes) << p;
            EXPECT_EQ(c.planes[p].rows, got[p].rows) << p;
            EXPECT_EQ(c.planes[p].bytes, got[p].bytes) << p;
        }
    }
    EXPECT_STREQ("BGRx", pm5544_layout_name(pm5544_layout(PM5544_LAYOUT_COUNT - 1)));
    EXPECT_EQ(nullptr, pm5544_layout_name(pm5544_layout(PM5544_LAYOUT_COUNT)));
}

// 16-bit words want even strides: a P010 plane at an odd stride is refused, not written across.
TEST(Layouts, SixteenBitSemiPlanarPlanesWantEvenStrides) {
    Card card = newCard(64, 64, "709", PM5544_LAYOUT_P010_10LE);
    std::vector<uint16_t> luma(64 * 65), chroma(64 * 33);
    void* const planes[] = {luma.data(), chroma.data()};
    const size_t strides[] = {129, 128};
    EXPECT_EQ(PM5544_ERROR_ARGUMENT, pm5544_render_frame(card.get(), 0, PM5544_LAYOUT_P010_10LE, planes, strides));
    EXPECT_STREQ("Plane 0 of P010_10LE and its stride must be aligned to 2 bytes", pm5544_last_error(card.get()));
}
