// Captures read back: the program's files as the library renders, other tools' files as their samples,
// the C API's layouts as their planar twins; broken, truncated and oversized files refused with a message.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "CaptureTestSupport.h"
#include "TestFiles.h"
#include "analysis/CaptureFiles.h"
#include "library/CaptureHandle.h"

using namespace CaptureTest;
using namespace TestFiles;
using pm5544::analysis::readCapture;

namespace {

TEST(Captures, ProgramFilesReadAsTheLibraryRenders) {
    const struct {
        const char *options, *file;
        int width, height;
        Holding holding;
    } cases[] = {
        // The PNG holds Cr, Y', Cb (or R', G', B') at 16 bits, read as its R, G, B.
        {"-c RGB -b 12", "card.png", 161, 91, {Components::RGB, 16, {0, 1, 2}}},
        {"-c 709 -b 10 -s 422", "card.png", 161, 91, {Components::RGB, 16, {0, 1, 2}}},
        {"-c 709 -b 12", "card.tif", 161, 91, {Components::YCbCr, 16, {1, 2, 0}}},
        {"-c RGB -b 12", "card.tif", 161, 91, {Components::RGB, 16, {0, 1, 2}}},
        {"-c RGB -b 10", "card.dpx", 161, 91, {Components::RGB, 10, {0, 1, 2}}},
        {"-c 709 -b 10", "card.dpx", 161, 91, {Components::YCbCr, 10, {1, 2, 0}}},
        {"-c 601 -b 10 -s 422", "card.dpx", 160, 90, {Components::YCbCr, 10, {1, 2, 0}, 1, 0}},
        {"-c 709 -s 420 -b 8", "card.y4m", 161, 91, {Components::YCbCr, 8, {1, 2, 0}, 1, 1}},
        {"-c 709 -s 420 -b 10", "card.y4m", 161, 91, {Components::YCbCr, 10, {1, 2, 0}, 1, 1}},
        {"-c 709 -s 422 -b 8", "card.y4m", 161, 91, {Components::YCbCr, 8, {1, 2, 0}, 1, 0}},
        {"-c 709 -s 422 -b 10", "card.y4m", 161, 91, {Components::YCbCr, 10, {1, 2, 0}, 1, 0}},
        {"-c 2020 -s 444 -b 8", "card.y4m", 161, 91, {Components::YCbCr, 8, {1, 2, 0}}},
        {"-c 2020 -s 444 -b 10", "card.y4m", 161, 91, {Components::YCbCr, 10, {1, 2, 0}}},
    };
    for (const auto& c : cases) {
        const std::string raster = std::to_string(c.width) + "x" + std::to_string(c.height);
        SCOPED_TRACE(std::string(c.options) + " " + c.file + " " + raster);
        ScratchDir dir;
        ASSERT_EQ(0, runProgram(dir.path(""), std::string("-d ") + raster + " " + c.options + " " + c.file));
        const Picture read = readCapture(dir.path(c.file), 0);
        const auto frame = renderFrame16(sentOf(c.options), c.width, c.height);
        EXPECT_TRUE(samePicture(expectedPicture(frame, c.width, c.height, c.holding), read));
    }
}

// Interlaced 4:2:0 holds each field's chroma: every row reads the chroma of its field's pair of rows.
TEST(Captures, InterlacedY4mGivesEachRowItsFieldsChroma) {
    ScratchDir dir;
    const std::string options = "-c 709 -s 420 -b 10";
    ASSERT_EQ(0, runProgram(dir.path(""), "-d 160x92 " + options + " --interlaced tff card.y4m"));
    const Picture read = readCapture(dir.path("card.y4m"), 0);
    const auto frame = renderFrame16(sentOf(options), 160, 92, 0, false, PM5544_SCAN_INTERLACED_TFF);
    Picture expected = expectedPicture(frame, 160, 92, {Components::YCbCr, 10, {1, 2, 0}, 1, 0});
    for (int c = 1; c < 3; ++c)
        for (int y = 0; y < 92; ++y)
            for (int x = 0; x < 80; ++x) {
                const int from = (y >> 2) * 4 + (y & 1);  // the field's first row of the pair
                expected.planes[c][size_t(y) * 80 + size_t(x)] =
                    uint16_t(frame[(size_t(from) * 160 + size_t(2 * x)) * 4 + size_t(yCbCrOrder[c])] >> 6);
            }
    EXPECT_TRUE(samePicture(expected, read));
}

// Frame N of a clip whose clock moves on each frame; past the last frame, a refusal that counts them.
TEST(Captures, FrameOfAClipAndPastItsEnd) {
    ScratchDir dir;
    const std::string options = "-c 709 -s 422 -b 10";
    ASSERT_EQ(
        0, runProgram(dir.path(""), "-d 320x180 " + options + " --clock --timecode 10:00:00:00 --frames 3 clip.y4m"));
    const Holding holding{Components::YCbCr, 10, {1, 2, 0}, 1, 0};
    const Picture second = readCapture(dir.path("clip.y4m"), 2);
    EXPECT_TRUE(
        samePicture(expectedPicture(renderFrame16(sentOf(options), 320, 180, 2, true), 320, 180, holding), second));
    EXPECT_FALSE(samePicture(readCapture(dir.path("clip.y4m"), 0), second));  // the clock moved
    try {
        readCapture(dir.path("clip.y4m"), 3);
        ADD_FAILURE() << "frame 3 of 3 read";
    } catch (const std::runtime_error& e) {
        EXPECT_NE(nullptr, std::strstr(e.what(), "has 3 frames: there is no frame 3")) << e.what();
    }
}

// Distinct samples within `bits` as ffmpeg's raw format (words little-endian, or big for the *be formats).
Bytes rawSamples(size_t count, int bits, bool bigEndian) {
    Bytes raw;
    const std::vector<uint16_t> samples = distinctSamples(count);
    for (uint16_t s : samples) {
        const unsigned value = s >> (16 - bits);
        if (bits == 8) {
            raw.push_back(uint8_t(value));
        } else if (bigEndian) {
            raw.push_back(uint8_t(value >> 8)), raw.push_back(uint8_t(value));
        } else {
            raw.push_back(uint8_t(value)), raw.push_back(uint8_t(value >> 8));
        }
    }
    return raw;
}

TEST(Captures, FilesOfOtherToolsReadAsTheirSamples) {
    const int width = 67, height = 45;
    const size_t pixels = size_t(width) * height;
    const struct {
        const char* pixelFormat;  // ffmpeg's name for the raw samples
        int bits, samplesPerPixel;
        bool bigEndian;
        const char* file;
        bool separate;  // rewritten by tiffcp with separate planes
        Components components;
        int planeOf[4];  // the picture plane of each raw sample (-1: dropped); grey fills all three
        bool grey = false;
    } cases[] = {
        {"rgb24", 8, 3, false, "rgb.png", false, Components::RGB, {0, 1, 2, -1}},
        {"rgba", 8, 4, false, "rgba.png", false, Components::RGB, {0, 1, 2, -1}},
        {"gray", 8, 1, false, "grey.png", false, Components::RGB, {0, -1, -1, -1}, true},
        {"ya8", 8, 2, false, "grey-alpha.png", false, Components::RGB, {0, -1, -1, -1}, true},
        {"rgb48be", 16, 3, true, "rgb16.png", false, Components::RGB, {0, 1, 2, -1}},
        {"gray16be", 16, 1, true, "grey16.png", false, Components::RGB, {0, -1, -1, -1}, true},
        {"rgb48le", 16, 3, false, "rgb16.dpx", false, Components::RGB, {0, 1, 2, -1}},
        {"rgb24", 8, 3, false, "rgb8.dpx", false, Components::RGB, {0, 1, 2, -1}},
        {"rgb24", 8, 3, false, "rgb.tif", false, Components::RGB, {0, 1, 2, -1}},
        {"rgb48le", 16, 3, false, "rgb16.tif", false, Components::RGB, {0, 1, 2, -1}},
        {"rgb24", 8, 3, false, "planes.tif", true, Components::RGB, {0, 1, 2, -1}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.pixelFormat) + " " + c.file);
        ScratchDir dir;
        writeFile(dir.path("raw"), rawSamples(pixels * size_t(c.samplesPerPixel), c.bits, c.bigEndian));
        ASSERT_EQ(0, ffmpegFromRaw(dir, c.pixelFormat, "67x45", c.file));
        const std::string tiffcp = "tiffcp -p separate '" + dir.path(c.file) + "' '" + dir.path("separate.tif") + "'";
        ASSERT_TRUE(!c.separate || std::system(tiffcp.c_str()) == 0) << tiffcp;
        const Picture picture = readCapture(dir.path(c.separate ? "separate.tif" : c.file), 0);
        ASSERT_EQ(width, picture.width);
        EXPECT_EQ(c.bits, picture.bits);
        EXPECT_EQ(c.components, picture.components);
        const std::vector<uint16_t> samples = distinctSamples(pixels * size_t(c.samplesPerPixel));
        size_t differ = 0;
        for (size_t p = 0; p < pixels; ++p)
            for (int s = 0; s < c.samplesPerPixel; ++s) {
                const uint16_t value = uint16_t(samples[p * size_t(c.samplesPerPixel) + size_t(s)] >> (16 - c.bits));
                if (c.planeOf[s] < 0) continue;
                for (int plane = c.planeOf[s]; plane < (c.grey ? 3 : c.planeOf[s] + 1); ++plane)
                    differ += picture.planes[plane][p] != value;
            }
        EXPECT_EQ(0u, differ);
    }
}

// A palette PNG reads as ffmpeg decodes it.
TEST(Captures, PalettePngReadsAsFfmpegDecodesIt) {
    ScratchDir dir;
    writeFile(dir.path("raw"), rawSamples(size_t(67) * 45 * 3, 8, false));
    ASSERT_EQ(0, ffmpegFromRaw(dir, "rgb24", "67x45", "pal.png", "", "pal8"));
    const Bytes decoded = ffmpegRaw("-i '" + dir.path("pal.png") + "'", "-pix_fmt rgb24");
    const Picture picture = readCapture(dir.path("pal.png"), 0);
    ASSERT_EQ(decoded.size(), picture.planes[0].size() * 3);
    size_t differ = 0;
    for (size_t i = 0; i < decoded.size(); ++i) differ += picture.planes[i % 3][i / 3] != decoded[i];
    EXPECT_EQ(0u, differ);
}

// ffmpeg's 10-bit DPX (R, G, B from each word's top) and Y4M of 10-bit 4:2:2 and of grey (at an even
// width: ffmpeg writes half a sample too few a chroma row of an odd one above 8 bits).
TEST(Captures, FfmpegDpxAndY4mReadAsTheirPlanes) {
    const int width = 66, height = 45;
    const size_t pixels = size_t(width) * height, chroma = size_t((width + 1) / 2) * height;
    ScratchDir dir;
    const auto make = [&](const std::string& format, const std::string& file, const std::string& extra) {
        return ffmpegFromRaw(dir, format, "66x45", file, extra);
    };
    // gbrp10: planes G', B', R', in either byte order (the file's magic says which).
    const std::vector<uint16_t> samples = distinctSamples(3 * pixels);
    for (const bool bigEndian : {false, true}) {
        SCOPED_TRACE(bigEndian ? "big-endian" : "little-endian");
        writeFile(dir.path("raw"), rawSamples(3 * pixels, 10, bigEndian));
        const std::string format = bigEndian ? "gbrp10be" : "gbrp10le", file = format + ".dpx";
        ASSERT_EQ(0, make(format, file, ""));
        EXPECT_EQ(bigEndian ? "SDPX" : "XPDS", text(readFile(dir.path(file))).substr(0, 4));
        const Picture dpx = readCapture(dir.path(file), 0);
        EXPECT_EQ(10, dpx.bits);
        const int planeOfGbr[3] = {1, 2, 0};
        size_t differ = 0;
        for (int g = 0; g < 3; ++g)
            for (size_t p = 0; p < pixels; ++p)
                differ += dpx.planes[planeOfGbr[g]][p] != samples[size_t(g) * pixels + p] >> 6;
        EXPECT_EQ(0u, differ);
    }

    writeFile(dir.path("raw"), rawSamples(pixels + 2 * chroma, 10, false));
    ASSERT_EQ(0, make("yuv422p10le", "yuv.y4m", "-strict -1"));
    const Picture y4m = readCapture(dir.path("yuv.y4m"), 0);
    EXPECT_EQ(1, y4m.chromaShiftX);
    std::vector<uint16_t> yuv = distinctSamples(pixels + 2 * chroma);
    std::vector<uint16_t> read = y4m.planes[0];
    read.insert(read.end(), y4m.planes[1].begin(), y4m.planes[1].end());
    read.insert(read.end(), y4m.planes[2].begin(), y4m.planes[2].end());
    for (uint16_t& s : yuv) s = uint16_t(s >> 6);
    EXPECT_TRUE(read == yuv);

    writeFile(dir.path("raw"), rawSamples(pixels, 8, false));
    ASSERT_EQ(0, make("gray", "grey.y4m", ""));
    const Picture grey = readCapture(dir.path("grey.y4m"), 0);
    EXPECT_EQ(std::vector<uint16_t>(pixels, 128), grey.planes[1]);
}

std::string refusal(const std::string& path, int64_t frame = 0) {
    char message[512] = {};
    pm5544_capture* capture = pm5544_capture_read(path.c_str(), frame, message, sizeof message);
    if (capture != nullptr) {
        pm5544_capture_free(capture);
        return "read";
    }
    return message;
}

Bytes bytesOf(const std::string& text) { return Bytes(text.begin(), text.end()); }

TEST(Captures, BrokenFilesAreRefusedWithTheirNameAndWhy) {
    ScratchDir dir;
    for (const char* ext : {"png", "dpx", "tif", "y4m"})
        ASSERT_EQ(0, runProgram(dir.path(""), std::string("-d 96x64 -c 709 -s 422 -b 10 card.") + ext));
    const auto cut = [&](const std::string& from, const std::string& to, size_t keep) {
        Bytes bytes = readFile(dir.path(from));
        bytes.resize(std::min(keep, bytes.size()));
        writeFile(dir.path(to), bytes);
    };
    cut("card.png", "cut.png", 300);
    cut("card.dpx", "cut.dpx", 9000);
    cut("card.dpx", "header.dpx", 100);
    cut("card.tif", "cut.tif", 200);
    cut("card.y4m", "cut.y4m", 5000);
    writeFile(dir.path("text.png"), bytesOf("not a picture\n"));
    writeFile(dir.path("zero.y4m"), bytesOf("YUV4MPEG2 W0 H10 C420\nFRAME\n"));
    // A 16-bit 4:4:4 16K frame is refused from its header, before 1.5 GB are allocated.
    writeFile(dir.path("huge.y4m"), bytesOf("YUV4MPEG2 W16384 H16384 F25:1 C444p16\nFRAME\n"));
    writeFile(dir.path("411.y4m"), bytesOf("YUV4MPEG2 W64 H64 C411\nFRAME\n"));
    writeFile(dir.path("endless.y4m"), bytesOf("YUV4MPEG2 W64 H64 " + std::string(5000, 'X')));
    const struct {
        std::string file;
        int64_t frame;
        const char* says;
    } cases[] = {
        {"text.png", 0, "not a PNG, TIFF, DPX or Y4M file"},
        {"cut.png", 0, "cut.png: row "},
        {"cut.dpx", 0, "cut.dpx: the file ends before its 64 lines (truncated)"},
        {"header.dpx", 0, "header.dpx: the file ends in the header (truncated)"},
        {"cut.tif", 0, "cut.tif: "},
        {"cut.y4m", 0, "cut.y4m: the file ends in a frame (truncated)"},
        {"zero.y4m", 0, "the header gives a raster of 0x10"},
        {"huge.y4m", 0, "16384x16384 is too large to analyse"},
        {"411.y4m", 0, "colour space C411 is not read"},
        {"endless.y4m", 0, "a header line longer than 4096 bytes"},
        {"card.y4m", 1, "card.y4m: has 1 frames: there is no frame 1"},
        {"card.png", 1, "card.png: holds one picture: there is no frame 1"},
        {"missing.png", 0, "missing.png: No such file or directory"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        const std::string message = refusal(dir.path(c.file), c.frame);
        EXPECT_NE(std::string::npos, message.find(c.says)) << message;
        EXPECT_NE(std::string::npos, message.find(c.file)) << message;
    }
}

// A 1x1 picture is a picture: it reads (the analysis then finds no card in it).
TEST(Captures, OnePixelReads) {
    ScratchDir dir;
    writeFile(dir.path("raw"), {255, 255, 255});
    ASSERT_EQ(0, ffmpegFromRaw(dir, "rgb24", "1x1", "dot.png"));
    const Picture dot = readCapture(dir.path("dot.png"), 0);
    EXPECT_EQ(std::make_pair(1, 1), std::make_pair(dot.width, dot.height));
}

// The card rendered into a layout, with strides a little longer than a row, and copied back as a capture.
Picture pictureOfLayout(pm5544_layout layout, const char* encoding, int bits, int sampling, int width, int height,
                        int frameBits = 0, int ycbcr = 0) {
    const Card card = sentCard({encoding, bits, sampling}, width, height);
    pm5544_use_layout(card.get(), layout);
    LayoutFrame frame = renderLayout(card.get(), layout, width, height, 0, 16);
    const std::vector<void*> planes = frame.pointers();
    Picture picture;
    pm5544_capture* capture =
        pm5544_capture_from_planes(layout, width, height, frameBits, ycbcr, planes.data(), frame.strides.data());
    if (capture != nullptr) picture = capture->picture;
    pm5544_capture_free(capture);
    return picture;
}

TEST(CaptureApi, EveryLayoutGivesThePictureOfItsPlanarTwin) {
    const int width = 99, height = 67;
    const struct {
        pm5544_layout layout, twin;
        const char* encoding;
        int bits, sampling;
    } cases[] = {
        {PM5544_LAYOUT_V210, PM5544_LAYOUT_I422_10, "709", 10, 422},
        {PM5544_LAYOUT_UYVY, PM5544_LAYOUT_I422_8, "709", 8, 422},
        {PM5544_LAYOUT_YUY2, PM5544_LAYOUT_I422_8, "709", 8, 422},
        {PM5544_LAYOUT_NV12, PM5544_LAYOUT_I420_8, "601", 8, 420},
        {PM5544_LAYOUT_P010_10LE, PM5544_LAYOUT_I420_10, "2020", 10, 420},
        {PM5544_LAYOUT_P016_LE, PM5544_LAYOUT_I420_16, "709", 16, 420},
        {PM5544_LAYOUT_BGRA, PM5544_LAYOUT_RGBA, "RGB", 8, 444},
        {PM5544_LAYOUT_RGBX, PM5544_LAYOUT_RGBA, "RGB", 8, 444},
        {PM5544_LAYOUT_BGRX, PM5544_LAYOUT_RGBA, "RGB", 8, 444},
        {PM5544_LAYOUT_RGBA16, PM5544_LAYOUT_GBR_16, "RGB-headroom", 16, 444},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(pm5544_layout_name(c.layout));
        const Picture picture = pictureOfLayout(c.layout, c.encoding, c.bits, c.sampling, width, height);
        ASSERT_EQ(width, picture.width);
        EXPECT_TRUE(samePicture(pictureOfLayout(c.twin, c.encoding, c.bits, c.sampling, width, height), picture));
    }
}

// The planar layouts and FRAME16 hold what the card renders, FRAME16 at the depth the caller gives.
TEST(CaptureApi, PlanarAndFrameLayoutsHoldTheRenderedCodes) {
    const int width = 99, height = 67;
    const auto frame = renderFrame16(sentOf("-c 709 -b 10 -s 422"), width, height);
    EXPECT_TRUE(samePicture(expectedPicture(frame, width, height, {Components::YCbCr, 10, {1, 2, 0}, 1, 0}),
                            pictureOfLayout(PM5544_LAYOUT_I422_10, "709", 10, 422, width, height)));
    EXPECT_TRUE(samePicture(expectedPicture(frame, width, height, {Components::YCbCr, 10, {1, 2, 0}}),
                            pictureOfLayout(PM5544_LAYOUT_FRAME16, "709", 10, 422, width, height, 10, 1)));
    const auto rgb = renderFrame16(sentOf("-c RGB -b 12"), width, height);
    EXPECT_TRUE(samePicture(expectedPicture(rgb, width, height, {Components::RGB, 12, {0, 1, 2}}),
                            pictureOfLayout(PM5544_LAYOUT_GBR_12, "RGB", 12, 444, width, height)));
}

TEST(CaptureApi, BadPlanesGiveNoCapture) {
    std::vector<uint8_t> memory(64 * 64 * 8);
    const void* planes[3] = {memory.data(), nullptr, nullptr};
    const size_t strides[3] = {64 * 8, 0, 0};
    EXPECT_EQ(nullptr, pm5544_capture_from_planes(pm5544_layout(99), 64, 64, 10, 1, planes, strides));
    EXPECT_EQ(nullptr, pm5544_capture_from_planes(PM5544_LAYOUT_FRAME16, 64, 64, 7, 1, planes, strides));
    EXPECT_EQ(nullptr, pm5544_capture_from_planes(PM5544_LAYOUT_I422_10, 64, 64, 0, 0, planes, strides));
    const size_t shortStrides[3] = {64 * 8 - 1, 0, 0};
    EXPECT_EQ(nullptr, pm5544_capture_from_planes(PM5544_LAYOUT_FRAME16, 64, 64, 10, 1, planes, shortStrides));
    EXPECT_EQ(nullptr, pm5544_capture_from_planes(PM5544_LAYOUT_FRAME16, 0, 64, 10, 1, planes, strides));
    pm5544_capture* capture = pm5544_capture_from_planes(PM5544_LAYOUT_FRAME16, 64, 64, 10, 1, planes, strides);
    std::array<int, 4> format{};  // width, height, bits, Y'CbCr
    ASSERT_EQ(PM5544_OK, pm5544_capture_format(capture, &format[0], &format[1], &format[2], &format[3]));
    EXPECT_EQ((std::array<int, 4>{64, 64, 10, 1}), format);
    pm5544_capture_free(capture);
}

}  // namespace
