// The semi-planar, YUY2 and 8-bit R'G'B' layouts: whole frames of the C API read by ffmpeg as raw video
// equal ffmpeg's reading of the program's file of the same card; their planes' sizes.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "LayoutFrame.h"
#include "TestFiles.h"
#include "pm5544/pm5544.h"

using namespace TestFiles;

namespace {

using Card = std::unique_ptr<pm5544_card, decltype(&pm5544_card_free)>;

struct Raster {
    int width, height;
    std::string text() const { return std::to_string(width) + "x" + std::to_string(height); }
};

// Frame 0 in the layout, rendered at strides `padding` bytes longer than a row; the rows without the
// padding, plane after plane, as raw video holds them.
Bytes renderPacked(const char* encoding, pm5544_layout layout, Raster raster, size_t padding = 6) {
    Card card(pm5544_card_new(), pm5544_card_free);
    EXPECT_EQ(PM5544_OK, pm5544_set_raster(card.get(), raster.width, raster.height));
    EXPECT_EQ(PM5544_OK, pm5544_set_encoding_name(card.get(), encoding));
    EXPECT_EQ(PM5544_OK, pm5544_use_layout(card.get(), layout));
    return renderLayout(card.get(), layout, raster.width, raster.height, 0, padding).packed();
}

Bytes ffmpegRaw(const std::string& inputArgs, const std::string& pixelFormat) {
    const std::string raw = commandOutput("ffmpeg -nostdin -v error " + inputArgs + " -pix_fmt " + pixelFormat +
                                          " -f rawvideo - 2>/dev/null");
    return Bytes(raw.begin(), raw.end());
}

struct LayoutCase {
    const char* encoding;
    pm5544_layout layout;
    const char* rawFormat;     // ffmpeg's name of the layout
    const char* commonFormat;  // what ffmpeg converts the layout and the program's file to
    const char* programArgs;   // depth and sampling of the program's file
    const char* extension;
};

const LayoutCase cases[] = {
    {"709", PM5544_LAYOUT_NV12, "nv12", "yuv420p", "-b 8 -s 420", "y4m"},
    {"PQ", PM5544_LAYOUT_P010_10LE, "p010le", "yuv420p10le", "-b 10 -s 420", "y4m"},
    {"HLG", PM5544_LAYOUT_P016_LE, "p016le", "yuv420p16le", "-b 16 -s 420", "y4m"},
    {"601", PM5544_LAYOUT_YUY2, "yuyv422", "yuv422p", "-b 8 -s 422", "y4m"},
    // ffmpeg takes the 8-bit codes of the PNG's samples; the alpha or padding byte is checked apart.
    {"RGB", PM5544_LAYOUT_RGBA, "rgba", "rgb24", "-b 8 -s 444", "png"},
    {"RGB-PQ", PM5544_LAYOUT_BGRA, "bgra", "rgb24", "-b 8 -s 444", "png"},
    {"RGB-headroom", PM5544_LAYOUT_RGBX, "rgb0", "rgb24", "-b 8 -s 444", "png"},
    {"RGB-S-Log3", PM5544_LAYOUT_BGRX, "bgr0", "rgb24", "-b 8 -s 444", "png"},
};

}  // namespace

// Odd sizes check the rounding up of chroma planes and pixel pairs; the strides' padding is not read.
TEST(Layouts, FramesEqualTheProgramsFilesAsFfmpegReadsThem) {
    ScratchDir dir;
    for (const Raster raster : {Raster{1921, 1081}, Raster{64, 64}}) {
        for (const LayoutCase& c : cases) {
            SCOPED_TRACE(std::string(pm5544_layout_name(c.layout)) + " " + raster.text());
            const std::string file = std::string("card.") + c.extension;
            const std::string args = "-d " + raster.text() + " -c " + c.encoding + " " + c.programArgs + " " + file;
            ASSERT_EQ(0, runProgram(dir.path(""), args)) << args;
            const Bytes expected = ffmpegRaw("-i '" + dir.path(file) + "'", c.commonFormat);
            ASSERT_FALSE(expected.empty());

            const Bytes frame = renderPacked(c.encoding, c.layout, raster);
            writeFile(dir.path("card.raw"), frame);
            const Bytes got = ffmpegRaw("-f rawvideo -pix_fmt " + std::string(c.rawFormat) + " -s " + raster.text() +
                                            " -i '" + dir.path("card.raw") + "'",
                                        c.commonFormat);
            EXPECT_TRUE(expected == got) << expected.size() << " bytes against " << got.size();

            // Opaque alpha or padding; P010's six low bits zero.
            const auto everyFrom = [&](size_t first, size_t step, int mask, int value) {
                for (size_t i = first; i < frame.size(); i += step) ASSERT_EQ(value, frame[i] & mask) << "byte " << i;
            };
            if (std::string(c.extension) == "png") everyFrom(3, 4, 0xFF, 0xFF);
            if (c.layout == PM5544_LAYOUT_P010_10LE) everyFrom(0, 2, 0x3F, 0);
        }
    }
}

// Planes and their sizes, worked out by hand; what each layout fixes and holds.
TEST(Layouts, PlaneSizesDepthsAndEncodings) {
    const struct {
        pm5544_layout layout;
        Raster raster;
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
    const struct {
        pm5544_layout layout;
        const char* name;
        int bits, sampling;
        pm5544_encoding refused;
    } formats[] = {
        {PM5544_LAYOUT_NV12, "NV12", 8, 420, PM5544_ENCODING_RGB},
        {PM5544_LAYOUT_P010_10LE, "P010_10LE", 10, 420, PM5544_ENCODING_RGB_PQ},
        {PM5544_LAYOUT_P016_LE, "P016_LE", 16, 420, PM5544_ENCODING_RGB_HEADROOM},
        {PM5544_LAYOUT_YUY2, "YUY2", 8, 422, PM5544_ENCODING_RGB},
        {PM5544_LAYOUT_RGBA, "RGBA", 8, 444, PM5544_ENCODING_709},
        {PM5544_LAYOUT_BGRA, "BGRA", 8, 444, PM5544_ENCODING_PQ},
        {PM5544_LAYOUT_RGBX, "RGBx", 8, 444, PM5544_ENCODING_601},
        {PM5544_LAYOUT_BGRX, "BGRx", 8, 444, PM5544_ENCODING_HLG},
    };
    for (const auto& f : formats) {
        int bits = 0, sampling = 0;
        ASSERT_EQ(PM5544_OK, pm5544_layout_format(f.layout, &bits, &sampling));
        EXPECT_EQ(f.bits, bits) << f.name;
        EXPECT_EQ(f.sampling, sampling) << f.name;
        EXPECT_STREQ(f.name, pm5544_layout_name(f.layout));
        EXPECT_EQ(0, pm5544_layout_allows(f.layout, f.refused)) << f.name;
    }
    EXPECT_STREQ("BGRx", pm5544_layout_name(pm5544_layout(PM5544_LAYOUT_COUNT - 1)));
    EXPECT_EQ(nullptr, pm5544_layout_name(pm5544_layout(PM5544_LAYOUT_COUNT)));
}

// 16-bit words want even strides: a P010 plane at an odd stride is refused, not written across.
TEST(Layouts, SixteenBitSemiPlanarPlanesWantEvenStrides) {
    Card card(pm5544_card_new(), pm5544_card_free);
    pm5544_set_raster(card.get(), 64, 64);
    pm5544_set_encoding(card.get(), PM5544_ENCODING_709);
    pm5544_use_layout(card.get(), PM5544_LAYOUT_P010_10LE);
    std::vector<uint16_t> luma(64 * 65), chroma(64 * 33);
    void* const planes[] = {luma.data(), chroma.data()};
    const size_t strides[] = {129, 128};
    EXPECT_EQ(PM5544_ERROR_ARGUMENT, pm5544_render_frame(card.get(), 0, PM5544_LAYOUT_P010_10LE, planes, strides));
    EXPECT_STREQ("Plane 0 of P010_10LE and its stride must be aligned to 2 bytes", pm5544_last_error(card.get()));
}
