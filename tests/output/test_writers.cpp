// PNG, TIFF and DPX files read back independently; TIFF, DPX and Y4M against the program's PNG; held frames.
#include <gtest/gtest.h>
#include <tiffio.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "TestFiles.h"
#include "WholeFrame.h"
#include "output/HeldFrame.h"
#include "output/writeDPX.h"
#include "output/writePng.h"
#include "output/writeTiff.h"
#include "output/writeY4m.h"

namespace {

using namespace TestFiles;
using Frame = std::vector<uint16_t>;

// libtiff's "width x length compression photometric planar bits samples strips directories", and the strip.
std::string readTiff(const std::string& path, Frame& pixels) {
    TIFF* tif = TIFFOpen(path.c_str(), "r");
    if (tif == nullptr) return "cannot open";
    uint32_t width = 0, length = 0;
    TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &length);
    std::string fields = std::to_string(width) + "x" + std::to_string(length);
    for (ttag_t tag : {TIFFTAG_COMPRESSION, TIFFTAG_PHOTOMETRIC, TIFFTAG_PLANARCONFIG, TIFFTAG_BITSPERSAMPLE,
                       TIFFTAG_SAMPLESPERPIXEL}) {
        uint16_t value = 0;
        TIFFGetField(tif, tag, &value);
        fields += " " + std::to_string(value);
    }
    fields += " " + std::to_string(TIFFNumberOfStrips(tif)) + " " + std::to_string(TIFFNumberOfDirectories(tif));
    pixels.resize(size_t(width) * length * 3);
    const tmsize_t bytes = static_cast<tmsize_t>(pixels.size() * 2);
    if (TIFFReadEncodedStrip(tif, 0, pixels.data(), bytes) != bytes) pixels.clear();
    TIFFClose(tif);
    return fields;
}

// The line tiffdump prints for a tag, e.g. "65456 (0xffb0) ASCII (2) 16<[[0,10],[11,1]]\0>"; "" if absent.
std::string dumpedTag(const std::string& path, const std::string& tagStart) {
    const std::string dump = "\n" + commandOutput("tiffdump '" + path + "' 2>&1");
    const size_t at = dump.find("\n" + tagStart);
    return at == std::string::npos ? "" : dump.substr(at + 1, dump.find('\n', at + 1) - at - 1);
}

ImageHeader headerOf(int width, int height) {
    ImageHeader header;
    header.width = width;
    header.height = height;
    return header;
}

int writePng(const Frame& frame, int width, int height, const std::string& path) {
    return WholeFrame::write(*PngWriter::make(), headerOf(width, height), frame.data(), size_t(width) * 4,
                             path.c_str());
}

int writeTiff(const Frame& frame, bool ycbcr, int width, int height, const std::vector<std::pair<int, int>>& repeats,
              const std::string& path) {
    ImageHeader header = headerOf(width, height);
    header.axes = ycbcr ? PatternGen::Colour_YCbCr_709 : PatternGen::Colour_RGB;
    header.lineRepeats = &repeats;
    return WholeFrame::write(*TiffWriter::make(), header, frame.data(), size_t(width) * 3, path.c_str(), true);
}

int writeDpx(const Frame& frame, DPX::eFormat format, int width, int height, const std::string& path,
             const DPX::Metadata& metadata = {}) {
    return WholeFrame::write(*DPXWriter::make(format, metadata), headerOf(width, height), frame.data(),
                             size_t(width) * 4, path.c_str());
}

const size_t kDpxData = 8192;

// A frame of two pages and more, sent twice with a change across a page boundary; the bytes due.
Bytes sendTwice(int fd, bool& sent) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE)), size = 2 * page + 100;
    Bytes frame(size), change(30, 0xEE);
    for (size_t i = 0; i < size; ++i) frame[i] = static_cast<uint8_t>(i * 7 + i / 251);
    HeldFrame held(size);
    held.place(frame.data(), size, 0);
    Bytes expected = frame;
    sent = held.writeTo(fd);
    held.place(change.data(), change.size(), page - 10);
    std::copy(change.begin(), change.end(), frame.begin() + long(page - 10));
    expected.insert(expected.end(), frame.begin(), frame.end());
    sent = sent && held.writeTo(fd);
    return expected;
}

}  // namespace

// A smooth frame (libpng's predicting filters) with the extremes comes back unchanged through ffmpeg.
TEST(PngWriter, FrameRoundTripsAsSixteenBitRgba) {
    const int width = 64, height = 40;
    Frame frame;
    for (int i = 0; i < width * height * 4; ++i) frame.push_back(static_cast<uint16_t>(i % 256 * 250 + i / 256 * 77));
    frame[0] = 0x0102, frame[1] = 0xFFFF, frame[2] = 0;
    ScratchDir dir;
    const std::string rgb = dir.path("rgb.png");
    ASSERT_EQ(0, writePng(frame, width, height, rgb));
    const Bytes file = readFile(rgb);
    EXPECT_EQ(hex("00000040 00000028 10 06 00 00 00"), Bytes(file.begin() + 16, file.begin() + 29));  // 16-bit RGBA
    EXPECT_EQ(0, std::system(("pngcheck -q '" + rgb + "' >/dev/null").c_str()));
    EXPECT_EQ(frame, ffmpegSamples(rgb, "rgba64be", true));
}

// ImageLength is the number of stored lines; the private tag holds the line-repeat list as compact JSON.
TEST(TiffWriter, FieldsPixelsAndLineRepeatTag) {
    // YCbCr, size, line repeats, libtiff's fields, the private tag as tiffdump shows it, subsampling.
    const std::tuple<bool, int, int, std::vector<std::pair<int, int>>, const char*, const char*, const char*> cases[] =
        {{false, 12, 4, {{0, 10}, {11, 1}}, "12x4 5 2 1 16 3 1 1", "16<[[0,10],[11,1]]\\0>", ""},
         {true, 7, 3, {{-1, 1080}}, "7x3 5 6 1 16 3 1 1", "12<[[-1,1080]]\\0>", "2<1 1>"},
         {false, 5, 2, {}, "5x2 5 2 1 16 3 1 1", "", ""}};
    ScratchDir dir;
    const std::string path = dir.path("f.tif");
    for (const auto& [ycbcr, width, height, repeats, fields, repeatTag, subsampling] : cases) {
        Frame buffer = distinctSamples(size_t(width) * height * 3, 7), pixels;
        ASSERT_EQ(0, writeTiff(buffer, ycbcr, width, height, repeats, path));
        EXPECT_EQ(fields, readTiff(path, pixels));
        EXPECT_EQ(buffer, pixels) << fields;
        EXPECT_EQ(*repeatTag ? "65456 (0xffb0) ASCII (2) " + std::string(repeatTag) : "", dumpedTag(path, "65456 "));
        EXPECT_EQ(*subsampling ? "YCbCrSubsampling (530) SHORT (3) " + std::string(subsampling) : "",
                  dumpedTag(path, "YCbCrSubsampling"));
    }
}

// Each field is checked, then cleared in a copy of the header, which must be all zero afterwards. At 0:
// "XPDS", data at 8192, "V2.0", file size 8384, no ditto key, generic header 768; at 660: not encrypted;
// at 768: orientation 0, one element, 12 x 4, unsigned, reference codes 64 and 940 for 0.0 and 1.0,
// descriptor 50, BT.709 transfer and colorimetry, 10 bits, packing 1, no encoding, data at 8192.
// The time stamp is "YYYY:MM:DD:hh:mm:ss:ZONE".
TEST(DpxWriter, HeaderFieldsAndZerosElsewhere) {
    ScratchDir dir;
    std::filesystem::create_directories(dir.path("out/dir"));
    Frame frame = distinctSamples(12 * 4 * 4);
    ASSERT_EQ(0, writeDpx(frame, DPX::kRGB, 12, 4, dir.path("out/dir/test.dpx"), {"pm5544 tests", "card", "none"}));
    const Bytes file = readFile(dir.path("out/dir/test.dpx"));
    ASSERT_EQ(kDpxData + 12 * 4 * 4, file.size());
    const auto text = [](const std::string& t) { return Bytes(t.begin(), t.end()); };
    const std::pair<size_t, Bytes> fields[] = {
        {0, hex("58504453 00200000 56322E30 00000000 C0200000 00000000 00030000")},
        {36, text("test.dpx")},
        {160, text("pm5544 tests")},
        {260, text("card")},
        {460, text("none")},
        {660, hex("FFFFFFFF")},
        {768, hex("0000 0100 0C000000 04000000 00000000 40000000 00000000 AC030000 0000803F 32 06 06 0A 0100 0000"
                  "00200000")}};
    Bytes rest(file.begin(), file.begin() + kDpxData);
    for (const auto& [at, expected] : fields) {
        EXPECT_EQ(expected, Bytes(file.begin() + at, file.begin() + at + expected.size())) << "offset " << at;
        std::fill(rest.begin() + at, rest.begin() + at + expected.size(), 0);
    }
    std::string stamp(file.begin() + 136, file.begin() + 160);
    for (char& c : stamp) c = std::isdigit(static_cast<unsigned char>(c)) ? 'd' : c;
    EXPECT_TRUE(stamp.rfind("dddd:dd:dd:dd:dd:dd:", 0) == 0 && stamp[20] != '\0') << stamp;
    std::fill(rest.begin() + 136, rest.begin() + 160, 0);
    const auto stray = std::find_if(rest.begin(), rest.end(), [](uint8_t b) { return b != 0; });
    EXPECT_EQ(rest.end(), stray) << "non-zero byte at " << (stray - rest.begin());
    // Long names are cut without a terminator; samples keep their top ten bits in bits 31-22, 21-12, 11-2.
    const std::string cut = dir.path(std::string(120, 'n'));
    Frame words = {0xFFFF, 0, 0, 0xFFFF, 0, 0, 0xFFFF, 0, 0x003F, 0x0040, 0x007F, 0};
    ASSERT_EQ(0, writeDpx(words, DPX::kCbYCr, 3, 1, cut, {std::string(150, 'c'), "next field", ""}));
    const Bytes cutFile = readFile(cut);
    EXPECT_EQ(std::string(100, 'n'), std::string(cutFile.begin() + 36, cutFile.begin() + 136));
    EXPECT_EQ(std::string(100, 'c') + "next field", std::string(cutFile.begin() + 160, cutFile.begin() + 270));
    EXPECT_EQ(hex("0000C0FF FC0F0000 04100000"), Bytes(cutFile.begin() + kDpxData, cutFile.end()));
}

// Line and file sizes and each line unpacked: B G R for descriptor 50, Cb Y Cr Y for 100, zero padding;
// width 7 leaves a 4:2:2 tail of one pair and one pixel.
TEST(DpxWriter, LinesAreSizedAndPackedByDescriptor) {
    const std::tuple<DPX::eFormat, int, int, size_t> cases[] = {// descriptor, width, height, line size
                                                                {DPX::kRGB, 7, 3, 28},
                                                                {DPX::kCbYCrY, 7, 4, 20},
                                                                {DPX::kRGBA, 12, 1, 64}};
    ScratchDir dir;
    for (const auto& [format, width, height, lineBytes] : cases) {
        SCOPED_TRACE("descriptor " + std::to_string(format) + " width " + std::to_string(width));
        Frame frame = distinctSamples(size_t(width) * height * 4, 0x1234);
        ASSERT_EQ(0, writeDpx(frame, format, width, height, dir.path("f.dpx")));
        const Bytes file = readFile(dir.path("f.dpx"));
        ASSERT_EQ(kDpxData + lineBytes * height, file.size());
        EXPECT_EQ(file.size(), littleEndian(file, 16));
        EXPECT_EQ(format, file.at(800));
        for (int y = 0; y < height; ++y) {
            const auto s = [&](int x, int c) { return uint16_t(frame[(size_t(y) * width + x) * 4 + c] >> 6); };
            Frame expected, unpacked;
            for (int x = 0; x < width && format == DPX::kRGB; ++x)
                expected.insert(expected.end(), {s(x, 2), s(x, 1), s(x, 0)});
            for (int x = 0; x < width && format == DPX::kCbYCrY; x += 2)
                expected.insert(expected.end(), {s(x, 2), s(x, 1), s(x, 0), x + 1 < width ? s(x + 1, 1) : uint16_t(0)});
            if (format == DPX::kCbYCrY) expected.resize(2 * size_t(width));
            expected.resize(lineBytes / 4 * 3, 0);
            for (size_t at = kDpxData + lineBytes * y; at < kDpxData + lineBytes * (y + 1); at += 4) {
                const uint32_t word = littleEndian(file, at);
                EXPECT_EQ(0u, word & 3u) << "padding bits at byte " << at;
                for (int shift : {2, 12, 22}) unpacked.push_back(uint16_t(word >> shift & 0x3FF));
            }
            ASSERT_EQ(expected, unpacked) << "line " << y;
        }
    }
}

// TIFF (every code, photometric 6 or 2) and DPX (top ten bits) equal the PNG render, read back independently.
TEST(Formats, TiffAndDpxMatchThePngRender) {
    const struct {
        const char *options, *ext;
        int photometric;  // TIFF; 0 for DPX
    } cases[] = {{"-c 709 -b 12", "tif", 6}, {"-c RGB -b 12", "tif", 2}, {"-c RGB -b 10", "dpx", 0}};
    const int width = 320, height = 180;
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.options) + " " + c.ext);
        ScratchDir dir;
        const std::string size = "-d " + std::to_string(width) + "x" + std::to_string(height) + " " + c.options;
        ASSERT_EQ(0, runProgram(dir.path(""), size + " card.png"));
        ASSERT_EQ(0, runProgram(dir.path(""), size + " card." + c.ext));
        const Frame png = ffmpegSamples(dir.path("card.png"), "rgba64be", true);
        ASSERT_EQ(size_t(width) * height * 4, png.size());
        Frame read;
        if (c.photometric != 0) {
            const std::string fields = readTiff(dir.path("card.tif"), read);
            EXPECT_EQ("320x180 5 " + std::to_string(c.photometric) + " 1 16 3 1 1", fields);
            // tiffinfo decodes the strip the rows were encoded into one by one, without complaint.
            EXPECT_EQ("", commandOutput("tiffinfo -D '" + dir.path("card.tif") + "' 2>&1 >/dev/null"));
        } else {
            read = ffmpegSamples(dir.path("card.dpx"), "rgb48le", false);
        }
        ASSERT_EQ(size_t(width) * height * 3, read.size());
        size_t differ = 0;
        for (size_t p = 0; p < size_t(width) * height; ++p)
            for (int i = 0; i < 3; ++i) {
                const uint16_t* s = &png[p * 4];
                // TIFF: Y Cb Cr from the PNG's Cr Y Cb, or R G B as they are.
                const int tiffFrom = c.photometric == 6 ? (i + 1) % 3 : i;
                differ += c.photometric == 0 ? (read[p * 3 + i] >> 6) != (s[i] >> 6) : read[p * 3 + i] != s[tiffFrom];
            }
        EXPECT_EQ(0u, differ);
    }
}

// ffmpeg decodes the Y4M (odd size, two frames at 30000/1001) to exactly the PNG render's samples at the
// output depth; a pipe gets the same bytes as the file written in place.
TEST(Formats, Y4mDecodesToThePngRender) {
    const int width = 161, height = 91;
    const struct { int sampling, bits; } cases[] = {{444, 12}, {422, 10}, {420, 10}, {420, 8}};
    for (const auto& c : cases) {
        const int sampling = c.sampling, bits = c.bits;
        const std::string settings = "-d 161x91 -c 709 -s " + std::to_string(sampling) + " -b " + std::to_string(bits);
        SCOPED_TRACE(settings);
        ScratchDir dir;
        ASSERT_EQ(0, runProgram(dir.path(""), settings + " card.png"));
        ASSERT_EQ(0, runProgram(dir.path(""), settings + " --frames 2 --rate 30000/1001 card.y4m"));
        ASSERT_EQ(0, std::system(("cd '" + dir.path("") + "' && '" PM5544_EXE "' " + settings +
                                  " --frames 2 --rate 30000/1001 --format y4m - 2>/dev/null | cat >pipe.y4m")
                                     .c_str()));
        EXPECT_EQ(readFile(dir.path("card.y4m")), readFile(dir.path("pipe.y4m")));
        const std::string format =
            "yuv" + std::to_string(sampling) + (bits == 8 ? "p" : "p" + std::to_string(bits) + "le");
        const Bytes planes = ffmpegRaw("-i '" + dir.path("card.y4m") + "'", "-pix_fmt " + format);
        const Bytes frame =
            planesOfPng(ffmpegSamples(dir.path("card.png"), "rgba64be", true), width, height, bits, sampling);
        Bytes expected = frame;
        expected.insert(expected.end(), frame.begin(), frame.end());
        EXPECT_TRUE(expected == planes) << planes.size() << " bytes decoded";
        EXPECT_EQ("30000/1001,2\n", commandOutput("ffprobe -v error -count_frames -show_entries "
                                                  "stream=r_frame_rate,nb_read_frames -of csv=p=0 '" +
                                                  dir.path("card.y4m") + "'"));
    }
}

// The pixel aspect in lowest terms, refused past 32 bits; 8-bit 4:2:0 names top-left chroma siting.
TEST(Formats, Y4mHeaderAspectAndChromaSiting) {
    ScratchDir dir;
    const auto headerLine = [&](const std::string& name) {
        const std::string line = text(readFile(dir.path(name)));
        return line.substr(0, line.find('\n'));
    };
    ASSERT_EQ(0, runProgram(dir.path(""), "-d 720x576 -c 601 -s 420 -b 8 -a 4x3 sd.y4m"));
    EXPECT_EQ("YUV4MPEG2 W720 H576 F25:1 Ip A16:15 C420paldv XCOLORRANGE=LIMITED", headerLine("sd.y4m"));
    EXPECT_EQ("topleft\n", commandOutput("ffprobe -v error -show_entries stream=chroma_location -of csv=p=0 '" +
                                         dir.path("sd.y4m") + "'"));
    ASSERT_EQ(0, runProgram(dir.path(""), "-d 64x64 -c 709 -s 420 -b 10 -a 2147483647x1207959551 wide.y4m"));
    EXPECT_EQ("YUV4MPEG2 W64 H64 F25:1 Ip A2147483647:1207959551 C420p10 XCOLORRANGE=LIMITED", headerLine("wide.y4m"));
    // 2147483647*1080 : 1207959551*1920 reduces to 19327352823:19327352816.
    EXPECT_EQ(1, runProgram(dir.path(""), "-d 1920x1080 -c 709 -a 2147483647x1207959551 over.y4m"));
    EXPECT_NE(std::string::npos, text(readFile(dir.path("stderr"))).find("19327352823:19327352816"));
    EXPECT_FALSE(exists(dir.path("over.y4m")));
}

// One clip written in place, through a pipe held in memory and held in a temporary file: the same bytes.
TEST(Y4mWriter, InPlaceHeldAndPlaneByPlaneFramesAgree) {
    const int width = 37, height = 21, firstChangedRow = 13, frames = 4;
    // Frame 0 is one picture; every later frame is another from firstChangedRow down.
    const auto writeClip = [&](OutputFile& out, size_t budget) {
        const std::unique_ptr<FullFrameWriter> writer = Y4mWriter::make(frames, 25, 1, 4, 3, budget);
        ImageHeader header;
        header.width = width, header.height = height, header.bits = 10, header.sampling = 420;
        header.axes = PatternGen::Colour_YCbCr_709;
        Frame row(size_t(width) * 4);
        const auto rows = [&](int frame, int from) {
            for (int y = from; y < height; ++y) {
                const uint16_t seed = frame > 0 && y >= firstChangedRow ? 2 : 1;
                for (size_t i = 0; i < row.size(); ++i) row[i] = uint16_t((seed + y * 977 + i * 131) << 6);
                if (!writer->writeRow({row.data()})) return false;
            }
            return true;
        };
        if (!out.open() || !writer->begin(out, header)) return false;
        if (writer->rowPasses() == 1) {
            if (!rows(0, 0) || !writer->startNextFrame(firstChangedRow) || !rows(1, firstChangedRow)) return false;
        } else {
            for (int frame = 0; frame < frames; ++frame)
                for (int pass = 0; pass < writer->rowPasses(); ++pass)
                    if (!rows(frame, 0)) return false;
        }
        return writer->finish() && out.commit();
    };
    const auto throughPipe = [&](size_t budget) {
        int fds[2];
        if (pipe(fds) != 0) return std::string("no pipe");
        Bytes read;
        std::thread reader([&] { read = readAll(fds[0]); });
        FILE* stream = fdopen(fds[1], "wb");
        bool written = false;
        {
            OutputFile out("-", stream);
            written = writeClip(out, budget);
        }
        std::fclose(stream);
        reader.join();
        close(fds[0]);
        return written ? text(read) : "failed";
    };
    ScratchDir dir;
    OutputFile file(dir.path("clip.y4m"));
    ASSERT_TRUE(writeClip(file, Y4mWriter::kHeldFrameBudget));
    const std::string inPlace = text(readFile(dir.path("clip.y4m")));
    const size_t frameBytes = (size_t(width) * height + 2 * 19 * 11) * 2 + 6;
    EXPECT_EQ(inPlace.find('\n') + 1 + 4 * frameBytes, inPlace.size());
    const auto frame = [&](int n) { return inPlace.substr(inPlace.size() - (4 - n) * frameBytes, frameBytes); };
    EXPECT_NE(frame(0), frame(1));
    EXPECT_EQ(frame(1), frame(3));
    EXPECT_EQ(inPlace, throughPipe(Y4mWriter::kHeldFrameBudget));
    EXPECT_EQ(inPlace, throughPipe(1024));
}

// It and Ib in the header, which ffprobe reads as top or bottom field first.
TEST(Y4mInterlace, FfprobeReadsTheFieldOrder) {
    ScratchDir dir;
    for (const auto& [order, read] : {std::pair{"tff", "tt\n"}, {"bff", "bb\n"}}) {
        ASSERT_EQ(0, runProgram(dir.path(""), std::string("-d 320x180 -c 709 -s 422 -b 10 --interlaced ") + order +
                                                  " --frames 2 card.y4m"));
        EXPECT_EQ(read, commandOutput("ffprobe -v error -show_entries stream=field_order -of csv=p=0 '" +
                                      dir.path("card.y4m") + "'"));
    }
}

// ffmpeg's field filter gives 4:2:0 fields: luma the field's rows, chroma the 4:2:2 chroma of every 4th row.
TEST(Y4mInterlace, EachFieldIsAFourTwoZeroPictureOfItsOwnRows) {
    const size_t width = 320, height = 180, chromaWidth = width / 2;
    ScratchDir dir;
    ASSERT_EQ(0, runProgram(dir.path(""), "-d 320x180 -c 709 -b 10 -s 420 --interlaced tff fields.y4m"));
    ASSERT_EQ(0, runProgram(dir.path(""), "-d 320x180 -c 709 -b 10 -s 422 full.y4m"));
    const std::vector<uint16_t> full = ffmpegSamples(dir.path("full.y4m"), "yuv422p10le", false);
    for (size_t field = 0; field < 2; ++field) {
        const std::vector<uint16_t> got =
            ffmpegSamples(dir.path("fields.y4m"), "yuv420p10le", false, field == 0 ? "field=top" : "field=bottom");
        std::vector<uint16_t> expected;
        for (size_t y = field; y < height; y += 2)
            expected.insert(expected.end(), &full[y * width], &full[(y + 1) * width]);
        for (size_t plane = 0; plane < 2; ++plane)
            for (size_t y = field; y < height; y += 4) {
                const uint16_t* row = &full[width * height + (plane * height + y) * chromaWidth];
                expected.insert(expected.end(), row, row + chromaWidth);
            }
        EXPECT_TRUE(expected == got) << "field " << field << ": " << got.size() << " samples";
    }
}

// A clock's third frame, its changed rows written again, equals a still of its time.
TEST(Y4mInterlace, ClockFramesEqualStillsOfTheirTime) {
    ScratchDir dir;
    const std::string settings = "-d 320x180 -c 709 -s 420 -b 8 --interlaced bff --clock --rate 30000/1001 ";
    ASSERT_EQ(0, runProgram(dir.path(""), settings + "--timecode '00:00:59;28' --frames 3 clip.y4m"));
    ASSERT_EQ(0, runProgram(dir.path(""), settings + "--timecode '00:01:00;02' still.y4m"));
    const std::string clip = text(readFile(dir.path("clip.y4m"))), still = text(readFile(dir.path("still.y4m")));
    const size_t frameBytes = still.size() - still.find("FRAME\n");
    EXPECT_EQ(still.substr(still.size() - frameBytes), clip.substr(clip.size() - frameBytes));
}

// Still formats have no field order; interlaced 4:2:0 needs whole pairs of each field's rows.
TEST(Y4mInterlace, RefusesWhatCannotBeInterlaced) {
    ScratchDir dir;
    const struct {
        const char* arguments;
        const char* message;
    } cases[] = {
        {"-c 709 --interlaced tff card.dpx", "Error: --interlaced is for Y4M video: a dpx file is a progressive still"},
        {"-c 709 --interlaced top card.y4m", "Error: --interlaced top is not tff (top field first) or bff"},
        {"-d 720x486 -c 709 -s 420 --interlaced tff card.y4m", "multiple of 4, not 486"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(1, runProgram(dir.path(""), c.arguments)) << c.arguments;
        EXPECT_NE(std::string::npos, text(readFile(dir.path("stderr"))).find(c.message)) << c.arguments;
    }
    EXPECT_FALSE(exists(dir.path("card.dpx")) || exists(dir.path("card.y4m")));
}

// The first send hands the pipe its pages by reference: the change must not reach them.
TEST(HeldFrame, APipeKeepsWhatItWasGiven) {
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    bool sent = false;
    const Bytes expected = sendTwice(fds[1], sent);
    ASSERT_TRUE(sent);
    close(fds[1]);
    EXPECT_TRUE(expected == readAll(fds[0]));
    close(fds[0]);
}

// A pipe whose reader has gone: the write fails with the system's reason.
TEST(HeldFrame, AClosedPipeFailsWithItsReason) {
    const auto previous = std::signal(SIGPIPE, SIG_IGN);
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    close(fds[0]);
    bool sent = true;
    errno = 0;
    sendTwice(fds[1], sent);
    EXPECT_FALSE(sent);
    EXPECT_EQ(EPIPE, errno);
    close(fds[1]);
    std::signal(SIGPIPE, previous);
}
