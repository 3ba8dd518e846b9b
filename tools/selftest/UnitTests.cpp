// The printed colour self-test: scaling, rounding and conversions compared with reference codes.
// Only differing components are printed, so a clean group shows its heading alone. Its lines go to the
// sink it is given, in order.
#include "selftest/UnitTests.h"

#include <array>
#include <cstddef>
#include <string>

#include "colour/Pixel.h"

using PatternGen::colorAxes_e;

namespace {

// Columns of the reference tables; Other holds black or 40% grey where a set has one.
enum Bar { White, Yellow, Cyan, Green, Magenta, Red, Blue, Other, BarCount };
using ColourSet = std::array<Pixel, BarCount>;
using Codes = int[BarCount][3];

// Codes are constructor arguments: Y', Cb, Cr (or G, B, R); unused columns are zero.
ColourSet makeSet(colorAxes_e axes, int bits, const Codes& codes) {
    ColourSet set;
    for (int i = 0; i < BarCount; ++i) set[i] = Pixel(codes[i][0], codes[i][1], codes[i][2], axes, bits);
    return set;
}

// clang-format off
const Codes rgb100Codes = {{4095, 4095, 4095}, {4095, 0, 4095}, {4095, 4095, 0}, {4095, 0, 0},
                           {0, 4095, 4095}, {0, 0, 4095}, {0, 4095, 0}, {0, 0, 0}};
const Codes rgb75Codes = {{3071, 3071, 3071}, {3071, 0, 3071}, {3071, 3071, 0}, {3071, 0, 0},
                          {0, 3071, 3071}, {0, 0, 3071}, {0, 3071, 0}, {1638, 1638, 1638}};
const Codes rgb219Codes = {{3760, 3760, 3760}, {3760, 256, 3760}, {3760, 3760, 256}, {3760, 256, 256},
                           {256, 3760, 3760}, {256, 256, 3760}, {256, 3760, 256}, {256, 256, 256}};
const Codes y709Codes = {{3760, 2048, 2048}, {3507, 256, 2212}, {3015, 2459, 256}, {2763, 667, 420},
                         {1253, 3429, 3676}, {1001, 1637, 3840}, {509, 3840, 1884}, {256, 2048, 2048}};
const Codes y601Codes = {{3760, 2048, 2048}, {3360, 256, 2336}, {2704, 2656, 256}, {2304, 864, 544},
                         {1696, 3232, 3552}, {1296, 1440, 3840}, {640, 3840, 1760}, {256, 2048, 2048}};
const Codes y709x75Codes = {{2884, 2048, 2048}, {2694, 704, 2171}, {2325, 2356, 704}, {2136, 1012, 827},
                            {1004, 3084, 3269}, {815, 1740, 3392}, {446, 3392, 1925}, {1658, 2048, 2048}};
const Codes y2020x75Codes = {{0, 0, 0}, {2728, 704, 2156}, {2194, 2423, 704}, {2038, 1079, 812},
                             {1102, 3017, 3284}, {946, 1673, 3392}, {412, 3392, 1940}, {0, 0, 0}};
const Codes y709at10Codes = {{940, 512, 512}, {877, 63, 553}, {754, 615, 63}, {691, 166, 104},
                             {313, 857, 919}, {250, 408, 960}, {127, 960, 470}, {0, 0, 0}};
const Codes y709x75at8Codes = {{180, 128, 128}, {168, 44, 136}, {145, 147, 44}, {133, 63, 52},
                               {63, 193, 204}, {51, 109, 212}, {28, 212, 120}, {0, 0, 0}};
const Codes y709x75at10Codes = {{0, 0, 0}, {674, 176, 543}, {581, 589, 176}, {534, 253, 207},
                                {251, 771, 817}, {204, 435, 848}, {111, 848, 481}, {414, 512, 512}};
const Codes y2020x75at10Codes = {{0, 0, 0}, {682, 176, 539}, {548, 606, 176}, {509, 270, 203},
                                 {276, 754, 821}, {237, 418, 848}, {103, 848, 485}, {0, 0, 0}};
const Codes sLog3at10Codes = {{552, 512, 512}, {551, 421, 507}, {525, 524, 476}, {520, 428, 464},
                              {423, 569, 574}, {372, 443, 600}, {341, 608, 506}, {410, 512, 512}};
const Codes pq12Codes = {{2036, 2048, 2048}, {1988, 1684, 2071}, {1931, 2102, 1889}, {1873, 1721, 1902},
                         {1463, 2342, 2350}, {1363, 1783, 2403}, {950, 2617, 2144}, {256, 2048, 2048}};
const Codes pq10Codes = {{509, 512, 512}, {497, 421, 518}, {483, 526, 472}, {468, 430, 476},
                         {366, 585, 587}, {341, 446, 601}, {238, 654, 536}, {502, 512, 512}};  // Other: HLG white
// clang-format on

// Column orders used by the groups.
const Bar barOrder[] = {White, Yellow, Cyan, Green, Magenta, Red, Blue};
const Bar barOrderNoWhite[] = {Yellow, Cyan, Green, Magenta, Red, Blue, Other};
const Bar mathsOrder[] = {White, Yellow, Cyan, Magenta, Green, Red, Blue, Other};

// The self-test's lines, each a progress message of the sink (none: nothing is printed).
class Printer {
public:
    explicit Printer(const MessageSink& messages) : messages_(messages) {}
    // A whole number of lines, as they are.
    void text(const std::string& lines) const {
        if (messages_) messages_(MessageKind::Progress, lines);
    }
    // The line of printDiff, if computed differs from reference.
    void diff(const Pixel& computed, const char* label, const Pixel& reference) const {
        std::string line;
        if (computed.printDiff(label, reference, line) != 0) text(line);
    }

private:
    const MessageSink& messages_;
};

// Applies the transform to each source column in order and prints the differences from the reference.
template <std::size_t N, typename Transform>
void checkGroup(const Printer& out, const ColourSet& source, const ColourSet& reference, const Bar (&order)[N],
                const char* const (&labels)[N], Transform transform) {
    for (std::size_t i = 0; i < N; ++i) out.diff(transform(source[order[i]]), labels[i], reference[order[i]]);
}

template <std::size_t N>
void checkGroup(const Printer& out, const ColourSet& computed, const ColourSet& reference, const Bar (&order)[N],
                const char* const (&labels)[N]) {
    checkGroup(out, computed, reference, order, labels, [](const Pixel& p) { return p; });
}

ColourSet transformed(const ColourSet& source, Pixel (*transform)(const Pixel&)) {
    ColourSet result;
    for (int i = 0; i < BarCount; ++i) result[i] = transform(source[i]);
    return result;
}

// The I and Q vectors taken to an RGB encoding and back to 709 should come back unchanged.
void checkRoundTrip(const Printer& out, const Pixel& iVector, const Pixel& qVector, colorAxes_e via) {
    out.diff(iVector.convertTo(via).convertTo(PatternGen::Colour_YCbCr_709), "  I double conversion  ", iVector);
    out.diff(qVector.convertTo(via).convertTo(PatternGen::Colour_YCbCr_709), "  Q double conversion  ", qVector);
}

}  // namespace

int UnitTests::runUnitTests(int width, int height, int aspectW, int aspectH, colorAxes_e /*axes*/,
                            const MessageSink& messages) {
    report(messages, MessageKind::Progress, "Width x Height: %dx%d\n", width, height);
    report(messages, MessageKind::Progress, "Aspect: %d:%d\n", aspectW, aspectH);
    report(messages, MessageKind::Progress, "Pixel aspect: 1:%.3lf\n",
           (static_cast<double>(aspectH) * width) / (static_cast<double>(aspectW) * height));
    const Printer out(messages);

    const ColourSet rgb100 = makeSet(PatternGen::Colour_RGB, 12, rgb100Codes);
    const ColourSet rgb75 = makeSet(PatternGen::Colour_RGB, 12, rgb75Codes);
    const ColourSet rgb219 = makeSet(PatternGen::Colour_RGB_219, 12, rgb219Codes);
    const ColourSet y709 = makeSet(PatternGen::Colour_YCbCr_709, 12, y709Codes);
    const ColourSet y601 = makeSet(PatternGen::Colour_YCbCr_601, 12, y601Codes);
    const ColourSet y709x75 = makeSet(PatternGen::Colour_YCbCr_709, 12, y709x75Codes);
    const ColourSet y2020x75 = makeSet(PatternGen::Colour_YCbCr_2020, 12, y2020x75Codes);
    const ColourSet y709at10 = makeSet(PatternGen::Colour_YCbCr_709, 10, y709at10Codes);
    const ColourSet y709x75at8 = makeSet(PatternGen::Colour_YCbCr_709, 8, y709x75at8Codes);
    const ColourSet y709x75at10 = makeSet(PatternGen::Colour_YCbCr_709, 10, y709x75at10Codes);
    const ColourSet y2020x75at10 = makeSet(PatternGen::Colour_YCbCr_709, 10, y2020x75at10Codes);
    const ColourSet sLog3at10 = makeSet(PatternGen::Colour_YCbCr_SLog3, 10, sLog3at10Codes);
    const ColourSet pq12 = makeSet(PatternGen::Colour_YCbCr_PQ, 12, pq12Codes);
    const ColourSet pq10 = makeSet(PatternGen::Colour_YCbCr_PQ, 10, pq10Codes);
    const Pixel iVector(980, 1648, 2516);
    const Pixel qVector(564, 2788, 2424);

    const char* const labels75[] = {"  White75   ", "  Yellow75  ", "  Cyan75    ", "  Green75   ",
                                    "  Magenta75 ", "  Red75     ", "  Blue75    "};
    const ColourSet scaled75 = transformed(y709, [](const Pixel& p) { return p.scale(75, 100); });
    out.text("\nCheck 75% scaling\n");
    checkGroup(out, scaled75, y709x75, barOrder, labels75);

    const char* const labels75at8[] = {"  White75_8   ", "  Yellow75_8  ", "  Cyan75_8    ", "  Green75_8   ",
                                       "  Magenta75_8 ", "  Red75_8     ", "  Blue75_8    "};
    out.text("\nCheck 8 bit truncation\n");
    checkGroup(out, scaled75, y709x75at8, barOrder, labels75at8, [](const Pixel& p) { return p.truncateTo(8); });
    out.text("\nCheck 8 bit rounding\n");
    checkGroup(out, scaled75, y709x75at8, barOrder, labels75at8, [](const Pixel& p) { return p.roundTo(8); });

    const auto roundTo10 = [](const Pixel& p) { return p.roundTo(10); };
    const char* const labels709at10[] = {"  White_709_10   ", "  Yellow_709_10  ", "  Cyan_709_10    ",
                                         "  Green_709_10   ", "  Magenta_709_10 ", "  Red_709_10     ",
                                         "  Blue_709_10    "};
    out.text("\nCheck 10 bit rounding\n");
    checkGroup(out, y709, y709at10, barOrder, labels709at10, roundTo10);

    const char* const labels709x75at10[] = {"  Yellow_709_10  ",     "  Cyan_709_10    ", "  Green_709_10   ",
                                            "  Magenta_709_10 ",     "  Red_709_10     ", "  Blue_709_10    ",
                                            "  Grey 40%% 709_10    "};
    out.text("\nCheck 75% 10 bit rounding\n");
    checkGroup(out, y709x75, y709x75at10, barOrderNoWhite, labels709x75at10, roundTo10);

    const Bar colourBars[] = {Yellow, Cyan, Green, Magenta, Red, Blue};
    const char* const labels2020at10[] = {"  Yellow_2020_10  ", "  Cyan_2020_10    ", "  Green_2020_10   ",
                                          "  Magenta_2020_10 ", "  Red_2020_10     ", "  Blue_2020_10    "};
    out.text("\nCheck 2020 75% 10 bit rounding\n");
    checkGroup(out, y2020x75, y2020x75at10, colourBars, labels2020at10, roundTo10);

    const char* const labels709[] = {"  White 709   ", "  Yellow 709  ", "  Cyan 709    ", "  Magenta 709 ",
                                     "  Green 709   ", "  Red 709     ", "  Blue 709    ", "  Black 709   "};
    const char* const labels601[] = {"  White 601   ", "  Yellow 601  ", "  Cyan 601    ", "  Magenta 601 ",
                                     "  Green 601   ", "  Red 601     ", "  Blue 601    ", "  Black 601   "};
    const ColourSet from709 =
        transformed(rgb100, [](const Pixel& p) { return p.convertTo(PatternGen::Colour_YCbCr_709); });
    const ColourSet from601 =
        transformed(rgb100, [](const Pixel& p) { return p.convertTo(PatternGen::Colour_YCbCr_601); });
    out.text("\nCheck RGB - YCbCr Maths\n");
    checkGroup(out, from709, y709, mathsOrder, labels709);
    out.text("\n");
    checkGroup(out, from601, y601, mathsOrder, labels601);

    const char* const labelsRgb[] = {"  White RGB   ", "  Yellow RGB  ", "  Cyan RGB    ", "  Magenta RGB ",
                                     "  Green RGB   ", "  Red RGB     ", "  Blue RGB    ", "  Black RGB   "};
    out.text("\nCheck RGB - YCbCr - RGB Maths\n");
    checkGroup(out, from601, rgb100, mathsOrder, labelsRgb,
               [](const Pixel& p) { return p.convertTo(PatternGen::Colour_RGB); });

    const char* const labelsStudio[] = {"  White RGB_studio   ", "  Yellow RGB_studio  ", "  Cyan RGB_studio    ",
                                        "  Magenta RGB_studio ", "  Green RGB_studio   ", "  Red RGB_studio     ",
                                        "  Blue RGB_studio    ", "  Black RGB_studio   "};
    ColourSet headroomSources = from601;
    headroomSources[White] = y601[White];
    headroomSources[Yellow] = y601[Yellow];
    out.text("\nCheck YCbCr - RGB headroom Maths\n");
    checkGroup(out, headroomSources, rgb219, mathsOrder, labelsStudio,
               [](const Pixel& p) { return p.convertTo(PatternGen::Colour_RGB_219); });

    out.text("\nCheck red and blue YCbCr - RGB-219 - and back\n");
    const Pixel red219 = y709[Red].convertTo(PatternGen::Colour_RGB_219);
    const Pixel blue219 = y709[Blue].convertTo(PatternGen::Colour_RGB_219);
    out.diff(red219, "  R 709 conversion 219 ", rgb219[Red]);
    out.diff(blue219, "  B 709 conversion 219 ", rgb219[Blue]);
    out.diff(red219.convertTo(PatternGen::Colour_YCbCr_709), "  R double conversion  ", from709[Red]);
    out.diff(blue219.convertTo(PatternGen::Colour_YCbCr_709), "  B double conversion  ", from709[Blue]);

    out.text("\nCheck I and Q vectors YCbCr - RGB-219 - and back\n");
    checkRoundTrip(out, iVector, qVector, PatternGen::Colour_RGB_219);
    out.text("\nCheck I and Q vectors YCbCr - RGB - and back\n");
    checkRoundTrip(out, iVector, qVector, PatternGen::Colour_RGB);

    out.text("\nCheck 95% white rgb 219 - full RGB\n");
    out.diff(Pixel(243, 243, 242, PatternGen::Colour_RGB_219, 10).convertTo(PatternGen::Colour_RGB), "  White 95%  ",
             rgb100[White].scale(95, 100));

    out.text("\nCheck 709 YCbCr - HLG 2020\n");
    out.diff(y709[White].convertTo(PatternGen::Colour_YCbCr_HLG), "  White HLG   ", pq10[Other]);

    const char* const labelsPq[] = {"  White PQ   ", "  Yellow PQ  ", "  Cyan PQ    ", "  Magenta PQ ",
                                    "  Green PQ   ", "  Red PQ     ", "  Blue PQ    ", "  Black PQ   "};
    out.text("\nCheck 709 YCbCr - PQ 2020\n");
    checkGroup(out, y709, pq12, mathsOrder, labelsPq,
               [](const Pixel& p) { return p.convertTo(PatternGen::Colour_YCbCr_PQ); });

    const Bar pqRoundingOrder[] = {White, Yellow, Cyan, Magenta, Green, Red, Blue};
    const char* const labelsPqRounding[] = {"  White PQ   ", "  Yellow PQ  ", "  Cyan PQ    ", "  Magenta PQ ",
                                            "  Green PQ   ", "  Red PQ     ", "  Blue PQ    "};
    out.text("\nCheck Ref PQ 12bits - 10 bits rounded\n");
    checkGroup(out, pq12, pq10, pqRoundingOrder, labelsPqRounding, roundTo10);

    const char* const labelsSLog3[] = {"  White SLog3   ", "  Yellow SLog3  ",   "  Cyan RSLog3    ",
                                       "  Magenta SLog3 ", "  Green SLog3   ",   "  Red SLog3     ",
                                       "  Blue SLog3    ", "  Grey 40% SLog3   "};
    out.text("\nCheck SLog3\n");
    checkGroup(out, rgb75, sLog3at10, mathsOrder, labelsSLog3,
               [](const Pixel& p) { return p.convertTo(PatternGen::Colour_YCbCr_SLog3).roundTo(10); });

    out.text("\n\n");
    return 1;
}
