// The report as JSON (the keys the program's --json documents) and as text lines, and the annotated
// capture: the capture in 8-bit R'G'B' with the fitted outline and grid of the card drawn through the
// geometry, beside a map of what the fitted chain leaves unexplained.
#include "analysis/ReportFormat.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "colour/ColourMatrices.h"

namespace pm5544::analysis {

namespace {

// Keys in the order the report lists them.
using json = nlohmann::ordered_json;

const char* verdictWord(Verdict verdict) {
    switch (verdict) {
        case Verdict::BitExact:
            return "bit-exact";
        case Verdict::AsSent:
            return "as-sent";
        case Verdict::Changed:
            break;
    }
    return "changed";
}

const char* rangeWord(RangeChange range) {
    switch (range) {
        case RangeChange::Expanded:
            return "expanded";
        case RangeChange::Compressed:
            return "compressed";
        case RangeChange::AsSent:
            break;
    }
    return "as-sent";
}

const char* swapWord(Swap swap) {
    switch (swap) {
        case Swap::CbCr:
            return "Cb-Cr";
        case Swap::RB:
            return "R-B";
        case Swap::None:
            break;
    }
    return "none";
}

json triple(const Triple& values) { return json::array({values[0], values[1], values[2]}); }

// null where the capture and the card agree exactly, which has no finite PSNR.
json psnrs(const std::array<std::optional<double>, 3>& values) {
    json out = json::array();
    for (const std::optional<double>& value : values) out.push_back(value ? json(*value) : json(nullptr));
    return out;
}

}  // namespace

std::string reportJson(const Report& r) {
    json out;
    out["verdict"] = verdictWord(r.verdict);
    out["components"] =
        r.components == Components::YCbCr ? json::array({"Y", "Cb", "Cr"}) : json::array({"R", "G", "B"});
    out["geometry"] = {{"scale_x", r.geometry.scaleX},
                       {"scale_y", r.geometry.scaleY},
                       {"offset_x", r.geometry.offsetX},
                       {"offset_y", r.geometry.offsetY}};
    out["range"] = rangeWord(r.range);
    out["matrix"] = r.matrix ? json{{"from", r.matrix->from}, {"to", r.matrix->to}} : json(nullptr);
    out["swap"] = swapWord(r.swap);
    out["levels"] = {{"gain", triple(r.gain)}, {"offset", triple(r.offset)}};
    out["psnr"] = {{"raw", psnrs(r.psnrRaw)}, {"explained", psnrs(r.psnrExplained)}};
    out["noise"] = triple(r.noise);
    out["bit_depth"] = r.bitDepth;
    out["clipped"] = r.clipped;
    out["findings"] = json::array();
    for (const Finding& finding : r.findings)
        out["findings"].push_back({{"kind", finding.kind}, {"message", finding.message}});
    return out.dump(2) + "\n";
}

std::string reportText(const Report& r) {
    std::string text = std::string("verdict: ") + verdictWord(r.verdict) + "\n";
    for (const Finding& finding : r.findings) text += finding.kind + ": " + finding.message + "\n";
    return text;
}

// ---- The annotated capture ----

namespace {

// Differences are amplified this much in the map, so that a code or two shows.
constexpr int differenceGain = 8;
constexpr uint8_t outlineColour[3] = {255, 48, 48};
constexpr uint8_t gridColour[3] = {48, 255, 96};

// The luma coefficients a Y'CbCr capture is shown through: the matrix the chain decoded with, where the
// report names one, else BT.709.
struct LumaWeights {
    double kr, kb;
};
LumaWeights displayWeights(const Report& report) {
    // The capture's Y'CbCr is the sent matrix's, or the one a matrix change left.
    const std::string matrix = report.matrix && report.matrix->to != "rgb" ? report.matrix->to : report.sentMatrix;
    if (matrix == "601") return {ColourMatrix::BT601::kr, ColourMatrix::BT601::kb};
    if (matrix == "2020") return {ColourMatrix::BT2020::kr, ColourMatrix::BT2020::kb};
    return {ColourMatrix::BT709::kr, ColourMatrix::BT709::kb};
}

uint8_t byteOf(double value) { return uint8_t(std::lround(std::clamp(value, 0.0, 1.0) * 255)); }

// The capture's components at pixel (x, y) in the sent order (Y', Cb, Cr or R', G', B'), undoing the
// program's Cr, Y', Cb in R, G, B.
Triple sentOrder(const Report& report, const Picture& capture, int x, int y) {
    const Triple stored{double(capture.at(0, x, y)), double(capture.at(1, x, y)), double(capture.at(2, x, y))};
    if (!report.captureComponentsPermuted) return stored;
    return {stored[1], stored[2], stored[0]};
}

bool showsYCbCr(const Report& report, const Picture& capture) {
    return capture.components == Components::YCbCr || report.captureComponentsPermuted;
}

void drawCapture(const Report& report, const Picture& capture, uint8_t* rgb, size_t stride) {
    const double full = double((1 << capture.bits) - 1), scale = double(1 << capture.bits) / 256;
    const LumaWeights w = displayWeights(report);
    const bool ycbcr = showsYCbCr(report, capture);
    for (int y = 0; y < capture.height; ++y) {
        uint8_t* out = rgb + stride * size_t(y);
        for (int x = 0; x < capture.width; ++x, out += 3) {
            const Triple c = sentOrder(report, capture, x, y);
            if (!ycbcr) {
                for (int i = 0; i < 3; ++i) out[i] = byteOf(c[size_t(i)] / full);
                continue;
            }
            // Studio-range codes: black 16, white 235, colour differences 128 +- 112 at 8 bits.
            const double luma = (c[0] / scale - 16) / 219, cb = (c[1] / scale - 128) / 224,
                         cr = (c[2] / scale - 128) / 224;
            const double r = luma + 2 * (1 - w.kr) * cr, b = luma + 2 * (1 - w.kb) * cb;
            const double g = (luma - w.kr * r - w.kb * b) / (1 - w.kr - w.kb);
            out[0] = byteOf(r), out[1] = byteOf(g), out[2] = byteOf(b);
        }
    }
}

// Outside the card the map stays black: the chain's bars and borders are not the card's.
void drawDifferences(const Report& report, const Picture& reference, const Picture& capture, uint8_t* rgb,
                     size_t stride) {
    const double toByte = std::ldexp(double(differenceGain), 8 - reference.bits);
    CapturePrediction prediction(report, reference, capture.width, capture.height);
    for (int y = 0; y < capture.height; ++y) {
        uint8_t* out = rgb + stride * size_t(y) + size_t(capture.width) * 3;
        const std::vector<Triple>& predicted = prediction.row(y);
        for (int x = 0; x < capture.width; ++x, out += 3) {
            const Triple& p = predicted[size_t(x)];
            double largest = 0;
            if (!std::isnan(p[0])) {
                const Triple seen = sentOrder(report, capture, x, y);
                for (size_t i = 0; i < 3; ++i) largest = std::max(largest, std::abs(seen[i] * report.captureScale - p[i]));
            }
            out[0] = out[1] = out[2] = uint8_t(std::min(255.0, largest * toByte));
        }
    }
}

// Drawing on the capture's half in capture pixels; what falls outside is left out.
class Canvas {
public:
    Canvas(uint8_t* rgb, size_t stride, int width, int height)
        : rgb_(rgb), stride_(stride), width_(width), height_(height) {}
    void dot(long x, long y, const uint8_t colour[3]) {
        if (x < 0 || y < 0 || x >= width_ || y >= height_) return;
        std::copy(colour, colour + 3, rgb_ + stride_ * size_t(y) + size_t(x) * 3);
    }
    // A line from (x0, y0) to (x1, y1), one dot per pixel along its longer extent; clipped to the canvas
    // first, so that a wild geometry costs no more than the canvas.
    void line(double x0, double y0, double x1, double y1, const uint8_t colour[3]) {
        const double steps = std::ceil(std::max(std::abs(x1 - x0), std::abs(y1 - y0)));
        const double limit = 2.0 * (width_ + height_);
        if (!std::isfinite(steps) || steps > 4 * limit) return;
        for (double i = 0; i <= steps; ++i) {
            const double t = steps > 0 ? i / steps : 0;
            dot(std::lround(x0 + t * (x1 - x0)), std::lround(y0 + t * (y1 - y0)), colour);
        }
    }

private:
    uint8_t* rgb_;
    size_t stride_;
    int width_, height_;
};

// The centres of the runs of bright samples along a line of the reference's first component (Y' or R'):
// the card's white grid lines where the line crosses the grey field.
std::vector<double> brightRuns(const Picture& reference, bool alongRow, int at) {
    const int length = alongRow ? reference.width : reference.height;
    const auto value = [&](int i) { return alongRow ? reference.at(0, i, at) : reference.at(0, at, i); };
    int low = 1 << reference.bits, high = 0;
    for (int i = 0; i < length; ++i) low = std::min(low, int(value(i))), high = std::max(high, int(value(i)));
    std::vector<double> centres;
    const int threshold = (low + high + 1) / 2;
    for (int i = 0; i < length;) {
        if (high == low || value(i) < threshold) {
            ++i;
            continue;
        }
        int end = i;
        while (end < length && value(end) >= threshold) ++end;
        centres.push_back((i + end - 1) / 2.0);
        i = end;
    }
    return centres;
}

// Rows and columns beyond the card's circle (its radius is 252/576 of the height) and inside its field.
constexpr double clearOfTheCircle = 0.445;

// The card's vertical grid lines, where a row above the circle crosses them; of a few such rows the one
// crossing the most (a row along a horizontal line is bright throughout).
std::vector<double> verticalGridLines(const Picture& reference) {
    std::vector<double> best;
    for (double share : {clearOfTheCircle, clearOfTheCircle + 0.007, clearOfTheCircle + 0.014}) {
        const int row = reference.height / 2 - int(reference.height * share);
        if (row < 0) continue;
        std::vector<double> runs = brightRuns(reference, true, row);
        if (runs.size() > best.size()) best = std::move(runs);
    }
    return best;
}

// The horizontal grid lines, along the column halfway between the two vertical lines nearest the circle
// on its left, which crosses nothing else.
std::vector<double> horizontalGridLines(const Picture& reference, const std::vector<double>& verticals) {
    const double clear = reference.width / 2.0 - reference.height * clearOfTheCircle;
    for (size_t i = verticals.size(); i-- > 1;)
        if (verticals[i] < clear) return brightRuns(reference, false, int((verticals[i - 1] + verticals[i]) / 2));
    return {};
}

void drawOutlineAndGrid(const Report& report, const Picture& reference, Canvas& canvas) {
    const Geometry& g = report.geometry;
    const auto cx = [&](double x) { return g.scaleX * x + g.offsetX; };
    const auto cy = [&](double y) { return g.scaleY * y + g.offsetY; };
    // The outline runs through the centres of the sent picture's outermost pixels.
    const double left = 0, top = 0, right = reference.width - 1, bottom = reference.height - 1;
    const std::vector<double> verticals = verticalGridLines(reference);
    for (double x : verticals) canvas.line(cx(x), cy(top), cx(x), cy(bottom), gridColour);
    for (double y : horizontalGridLines(reference, verticals))
        canvas.line(cx(left), cy(y), cx(right), cy(y), gridColour);
    canvas.line(cx(left), cy(top), cx(right), cy(top), outlineColour);
    canvas.line(cx(right), cy(top), cx(right), cy(bottom), outlineColour);
    canvas.line(cx(right), cy(bottom), cx(left), cy(bottom), outlineColour);
    canvas.line(cx(left), cy(bottom), cx(left), cy(top), outlineColour);
}

}  // namespace

void annotationSize(const Picture& capture, int& width, int& height) {
    width = 2 * capture.width;
    height = capture.height;
}

void annotate(const Report& report, const Picture& reference, const Picture& capture, uint8_t* rgb, size_t stride) {
    drawCapture(report, capture, rgb, stride);
    drawDifferences(report, reference, capture, rgb, stride);
    Canvas canvas(rgb, stride, capture.width, capture.height);
    drawOutlineAndGrid(report, reference, canvas);
}

}  // namespace pm5544::analysis
