// The card's fast set-up against its reference definition: for every row of several rasters,
// aspect ratios and encodings, the table-driven line fill must give exactly the pixels of
// render(x, y), and the frame setup() keeps must equal the one built by calling render() and
// shaping every pixel on its own.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "philips-PM5544-new.h"

namespace {

struct Raster {
    int width;
    int height;
    int aspectNum;
    int aspectDen;
    PatternGen::colorAxes_e axes;
    int bits;
    PatternGen::sampling_e sampling;
};

std::string describe(const Raster& r) {
    char text[96];
    snprintf(text, sizeof text, "%dx%d_%d_%d_axes%d_%dbit_%d", r.width, r.height, r.aspectNum, r.aspectDen,
             static_cast<int>(r.axes), r.bits, static_cast<int>(r.sampling));
    return text;
}

std::string codes(const Pixel& p) {
    const ColourSpace& cs = p.colourSpace;
    char text[128];
    snprintf(text, sizeof text, "axes %d bits %d levels %d-%d gamma %d (%u, %u, %u, %u)", cs.colourAxes, cs.bitDepth,
             cs.blackLevel, cs.whiteLevel, cs.gammaType, p.sample[1], p.sample[0], p.sample[2], p.sample[3]);
    return text;
}

// Every field of the colour space and every sample.
bool identical(const Pixel& a, const Pixel& b) {
    const ColourSpace& ca = a.colourSpace;
    const ColourSpace& cb = b.colourSpace;
    return a.sameCodes(b) && ca.whiteLevel == cb.whiteLevel && ca.blackLevel == cb.blackLevel &&
           ca.gammaType == cb.gammaType;
}

// Counts the positions where two pixel sequences differ and describes the first of them.
::testing::AssertionResult sameSequence(const std::vector<Pixel>& actual, const Pixel* expected, size_t count,
                                        const char* what, int row) {
    if (actual.size() != count)
        return ::testing::AssertionFailure()
               << what << " row " << row << ": " << actual.size() << " pixels, expected " << count;
    size_t mismatches = 0;
    size_t firstMismatch = 0;
    for (size_t i = 0; i < count; ++i) {
        if (identical(actual[i], expected[i])) continue;
        if (mismatches++ == 0) firstMismatch = i;
    }
    if (mismatches == 0) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << what << " row " << row << ": " << mismatches << " pixels differ, first at "
                                         << firstMismatch << ": " << codes(actual[firstMismatch]) << " but expected "
                                         << codes(expected[firstMismatch]);
}

class CardFastPath : public testing::TestWithParam<Raster> {};

TEST_P(CardFastPath, LineFillAndShapedFrameEqualTheReferenceEverywhere) {
    const Raster& r = GetParam();
    auto card = std::make_unique<PhilipsPm5544Spec>();
    testing::internal::CaptureStdout();
    card->init(r.width, r.height, r.aspectNum, r.aspectDen, r.axes, r.sampling, r.bits, PatternGen::Quadrant_None, 0,
               false);
    const std::string output = testing::internal::GetCapturedStdout();
    ASSERT_EQ(output.find("Error"), std::string::npos) << output;
    ASSERT_EQ(card->cardFrame.size(), static_cast<size_t>(r.width) * static_cast<size_t>(r.height));

    // The reference line holds render(x, y) at buffer position x + 2 for x = 2 .. width - 3.
    std::vector<Pixel> reference;
    std::vector<Pixel> fast;
    int failedRows = 0;
    for (int y = 0; y < r.height && failedRows < 3; ++y) {
        card->fillLineReference(y, reference);
        card->fillLineFast(y, fast);
        const auto same = sameSequence(fast, reference.data(), reference.size(), "line fill", y);
        EXPECT_TRUE(same);
        failedRows += !same;
    }

    const std::vector<Pixel> frame = card->referenceFrame();
    failedRows = 0;
    for (int y = 0; y < r.height && failedRows < 3; ++y) {
        const size_t start = static_cast<size_t>(y) * static_cast<size_t>(r.width);
        const std::vector<Pixel> row(card->cardFrame.begin() + static_cast<std::ptrdiff_t>(start),
                                     card->cardFrame.begin() + static_cast<std::ptrdiff_t>(start) + r.width);
        const auto same = sameSequence(row, &frame[start], static_cast<size_t>(r.width), "shaped frame", y);
        EXPECT_TRUE(same);
        failedRows += !same;
    }
}

using namespace PatternGen;
INSTANTIATE_TEST_SUITE_P(
    Rasters, CardFastPath,
    testing::Values(Raster{720, 576, 4, 3, Colour_YCbCr_709, 12, Sampling_444},  // non-square pixels, 576 lines
                    Raster{768, 576, 4, 3, Colour_RGB, 12, Sampling_444},        // square pixels, h(k) = k
                    Raster{1280, 720, 16, 9, Colour_YCbCr_2020, 12, Sampling_420},
                    Raster{1366, 768, 16, 9, Colour_YCbCr_709, 12, Sampling_444},  // odd half-width
                    Raster{2048, 1080, 256, 135, Colour_RGB, 12, Sampling_444},    // wide non-square pixels
                    Raster{1001, 555, 21, 9, Colour_YCbCr_709, 12, Sampling_444},  // odd sizes, below 576 lines
                    Raster{640, 480, 4, 3, Colour_YCbCr_709, 10, Sampling_422},
                    Raster{480, 270, 16, 9, Colour_YCbCr_PQ, 10, Sampling_444},  // converted palette
                    Raster{64, 36, 16, 9, Colour_RGB, 12, Sampling_444}),        // a grid two lines apart
    [](const testing::TestParamInfo<Raster>& info) { return describe(info.param); });

}  // namespace
