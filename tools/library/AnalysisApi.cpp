// The C API's captures and analyses: captures read from files or copied from the caller's planes into
// the analysis' picture, and the card of a handle's settings rendered into one to analyse them against.
// As in CApi.cpp, nothing unwinds into C: failures become NULL and a message.
#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>
#include <string>

#include "analysis/Analysis.h"
#include "analysis/CaptureFiles.h"
#include "analysis/ReportFormat.h"
#include "library/CaptureHandle.h"
#include "library/CardHandle.h"
#include "library/FrameLayouts.h"
#include "pattern/FrameRow.h"

using pm5544::analysis::Components;
using pm5544::analysis::Picture;

struct pm5544_analysis {
    pm5544::analysis::Report report;
    std::shared_ptr<const Picture> reference;  // the card as sent, chroma at its sampling
    Picture captureShape;  // the analysed capture's raster and components, without its planes
    std::string json, text;
};

namespace {

using pm5544::handle::fail;

void copyMessage(const std::string& message, char* error, size_t size) {
    if (error == nullptr || size == 0) return;
    const size_t length = std::min(message.size(), size - 1);
    std::memcpy(error, message.data(), length);
    error[length] = '\0';
}

// The depth of FRAME16's codes, which the caller gives; every other layout fixes its own.
bool validFrameBits(int bits) { return bits >= 8 && bits <= 16; }

Picture pictureOfPlanes(const pm5544::LayoutFormat& format, int width, int height, int bits, bool ycbcr,
                        const void* const planes[], const size_t strides[]) {
    Picture picture;
    picture.width = width;
    picture.height = height;
    const bool frame = format.packing == pm5544::Packing::Frame16;
    picture.bits = frame ? bits : format.bits;
    picture.components =
        (frame ? ycbcr : !pm5544::layoutAllows(format, PatternGen::Colour_RGB)) ? Components::YCbCr : Components::RGB;
    picture.chromaShiftX = !frame && format.sampling != 444 ? 1 : 0;
    picture.chromaShiftY = !frame && format.sampling == 420 ? 1 : 0;
    picture.allocate();
    // Only the layout's own planes are read: a caller's array may hold no more.
    pm5544::PlaneSize sizes[pm5544::maximumPlanes];
    const int count = pm5544::planeSizes(format, width, height, sizes);
    const uint8_t* bytes[pm5544::maximumPlanes] = {};
    for (int p = 0; p < count; ++p) bytes[p] = static_cast<const uint8_t*>(planes[p]);
    for (int y = 0; y < height; ++y) {
        uint16_t* const out[3] = {
            &picture.planes[0][size_t(y) * size_t(width)],
            &picture.planes[1][size_t(y >> picture.chromaShiftY) * size_t(picture.planeWidth(1))],
            &picture.planes[2][size_t(y >> picture.chromaShiftY) * size_t(picture.planeWidth(2))]};
        pm5544::unpackRow(format, bytes, strides, width, y, picture.bits, ycbcr, out);
    }
    return picture;
}

// The planes the layout has are all given, their strides long enough for a row.
bool planesGiven(const pm5544::LayoutFormat& format, int width, int height, const void* const planes[],
                 const size_t strides[]) {
    if (planes == nullptr || strides == nullptr) return false;
    pm5544::PlaneSize sizes[pm5544::maximumPlanes];
    const int count = pm5544::planeSizes(format, width, height, sizes);
    for (int p = 0; p < count; ++p)
        if (planes[p] == nullptr || strides[p] < sizes[p].rowBytes) return false;
    return true;
}

// The card's frame as the analysis reads it: Y', Cb, Cr (or R', G', B') at the card's depth, the chroma
// of every pixel as the frame row holds it.
Picture renderReference(pm5544_card* card, int64_t frame) {
    const pm5544::CardSettings& s = card->settings;
    Picture reference;
    reference.width = s.width;
    reference.height = s.height;
    reference.bits = s.bits;
    const bool ycbcr = PatternGen::isYCbCrAxes(s.axes);
    reference.components = ycbcr ? Components::YCbCr : Components::RGB;
    // The chroma at the sent sampling, as the full-frame rows repeat it; interlaced 4:2:0, whose rows
    // pair by field, keeps a chroma row for every row.
    const bool fieldChroma = s.scan != PatternGen::Scan::Progressive;
    reference.chromaShiftX = s.sampling == PatternGen::Sampling_444 ? 0 : 1;
    reference.chromaShiftY = s.sampling == PatternGen::Sampling_420 && !fieldChroma ? 1 : 0;
    reference.allocate();
    const int from[3] = {ycbcr ? FrameRow::yOrG : FrameRow::crOrR, ycbcr ? FrameRow::cbOrB : FrameRow::yOrG,
                         ycbcr ? FrameRow::crOrR : FrameRow::cbOrB};
    pm5544::handle::forEachFrameRow(card, frame, [&](int y, const uint16_t* row) {
        for (int c = 0; c < 3; ++c) {
            const int shiftX = c == 0 ? 0 : reference.chromaShiftX, shiftY = c == 0 ? 0 : reference.chromaShiftY;
            if (y & ((1 << shiftY) - 1)) continue;
            const int width = reference.planeWidth(c);
            uint16_t* out = &reference.planes[c][size_t(y >> shiftY) * size_t(width)];
            for (int x = 0; x < width; ++x)
                out[x] = uint16_t(FrameRow::code(
                    row[size_t(x << shiftX) * FrameRow::samplesPerPixel + size_t(from[c])], s.bits));
        }
    });
    return reference;
}

// What was sent, in the analysis' words: the matrix of the encoding's colorimetry, studio range for all but
// full-range R'G'B'.
pm5544::analysis::Sent sentOf(const pm5544::CardSettings& s) {
    pm5544::analysis::Sent sent;
    sent.bits = s.bits;
    sent.ycbcr = PatternGen::isYCbCrAxes(s.axes);
    pm5544_colorimetry colorimetry{};
    pm5544_encoding_colorimetry(static_cast<pm5544_encoding>(s.axes), &colorimetry);
    sent.studioRange = colorimetry.full_range == 0;
    switch (colorimetry.matrix) {
        case PM5544_MATRIX_BT601:
            sent.matrix = "601";
            break;
        case PM5544_MATRIX_BT709:
            sent.matrix = "709";
            break;
        case PM5544_MATRIX_BT2020_NCL:
            sent.matrix = "2020";
            break;
        default:
            sent.matrix = "rgb";
    }
    return sent;
}

// The reference for frame `frame` in the card's handle: kept from an earlier analysis while the settings
// stay and the frame's lower box shows the same text, else rendered afresh.
pm5544_status keepReference(pm5544_card* card, int64_t frame) {
    if (frame < 0) return fail(card, PM5544_ERROR_ARGUMENT, "Frame " + std::to_string(frame) + " is before the first");
    const pm5544::CardSettings& s = card->settings;
    if (int64_t(s.width) * s.height > pm5544::analysis::CaptureLimits::maximumPixels)
        return fail(card, PM5544_ERROR_SETTINGS,
                    std::to_string(s.width) + "x" + std::to_string(s.height) + " is too large to analyse against (at most " +
                        std::to_string(pm5544::analysis::CaptureLimits::maximumPixels) + " pixels)");
    if (const pm5544_status prepared = pm5544::handle::prepare(card); prepared != PM5544_OK) return prepared;
    const std::string text = card->card->lowerText(frame);
    if (card->reference && card->referenceText == text) return PM5544_OK;
    card->reference = std::make_shared<const Picture>(renderReference(card, frame));
    card->referenceText = text;
    return PM5544_OK;
}

}  // namespace

extern "C" {

pm5544_capture* pm5544_capture_read(const char* path, int64_t frame, char* error, size_t error_size) {
    try {
        if (path == nullptr) throw std::invalid_argument("No capture file named");
        return new pm5544_capture{pm5544::analysis::readCapture(path, frame)};
    } catch (const std::bad_alloc&) {
        copyMessage(std::string(path != nullptr ? path : "") + ": not enough memory to read it", error, error_size);
    } catch (const std::exception& e) {
        copyMessage(e.what(), error, error_size);
    } catch (...) {
        copyMessage("An exception that is no std::exception stopped the reading", error, error_size);
    }
    return nullptr;
}

pm5544_capture* pm5544_capture_from_planes(pm5544_layout layout, int width, int height, int bits, int ycbcr,
                                           const void* const planes[], const size_t strides[]) {
    const pm5544::LayoutFormat* format = pm5544::layoutFormat(layout);
    if (format == nullptr || width <= 0 || height <= 0 || !planesGiven(*format, width, height, planes, strides))
        return nullptr;
    if (format->packing == pm5544::Packing::Frame16 && !validFrameBits(bits)) return nullptr;
    if (width > pm5544::analysis::CaptureLimits::maximumSide || height > pm5544::analysis::CaptureLimits::maximumSide ||
        int64_t(width) * height > pm5544::analysis::CaptureLimits::maximumPixels)
        return nullptr;
    try {
        return new pm5544_capture{pictureOfPlanes(*format, width, height, bits, ycbcr != 0, planes, strides)};
    } catch (...) {
        return nullptr;
    }
}

void pm5544_capture_free(pm5544_capture* capture) { delete capture; }

pm5544_status pm5544_capture_format(const pm5544_capture* capture, int* width, int* height, int* bits, int* ycbcr) {
    if (capture == nullptr || width == nullptr || height == nullptr || bits == nullptr || ycbcr == nullptr)
        return PM5544_ERROR_ARGUMENT;
    const Picture& p = capture->picture;
    *width = p.width, *height = p.height, *bits = p.bits, *ycbcr = p.components == Components::YCbCr ? 1 : 0;
    return PM5544_OK;
}

pm5544_status pm5544_prepare_analysis(pm5544_card* card, int64_t frame) {
    return pm5544::handle::guarded(card, [&] { return keepReference(card, frame); });
}

pm5544_analysis* pm5544_analyse(pm5544_card* card, const pm5544_capture* capture, int64_t frame) {
    pm5544_analysis* result = nullptr;
    const pm5544_status status = pm5544::handle::guarded(card, [&] {
        if (capture == nullptr) return fail(card, PM5544_ERROR_ARGUMENT, "No capture given");
        if (const pm5544_status kept = keepReference(card, frame); kept != PM5544_OK) return kept;
        auto analysis = std::make_unique<pm5544_analysis>();
        analysis->reference = card->reference;
        try {
            analysis->report = pm5544::analysis::analyse(*analysis->reference, sentOf(card->settings), capture->picture);
        } catch (const pm5544::analysis::NoCardFound& none) {
            return fail(card, PM5544_ERROR_NO_CARD, none.what());
        }
        const Picture& c = capture->picture;
        analysis->captureShape.width = c.width, analysis->captureShape.height = c.height;
        analysis->captureShape.bits = c.bits, analysis->captureShape.components = c.components;
        analysis->json = pm5544::analysis::reportJson(analysis->report);
        analysis->text = pm5544::analysis::reportText(analysis->report);
        result = analysis.release();
        return PM5544_OK;
    });
    return status == PM5544_OK ? result : nullptr;
}

void pm5544_analysis_free(pm5544_analysis* analysis) { delete analysis; }

pm5544_verdict pm5544_analysis_verdict(const pm5544_analysis* analysis) {
    if (analysis == nullptr) return PM5544_VERDICT_CHANGED;
    switch (analysis->report.verdict) {
        case pm5544::analysis::Verdict::BitExact:
            return PM5544_VERDICT_BIT_EXACT;
        case pm5544::analysis::Verdict::AsSent:
            return PM5544_VERDICT_AS_SENT;
        case pm5544::analysis::Verdict::Changed:
            break;
    }
    return PM5544_VERDICT_CHANGED;
}

const char* pm5544_analysis_json(const pm5544_analysis* analysis) {
    return analysis != nullptr ? analysis->json.c_str() : nullptr;
}

const char* pm5544_analysis_text(const pm5544_analysis* analysis) {
    return analysis != nullptr ? analysis->text.c_str() : nullptr;
}

pm5544_status pm5544_analysis_annotation_size(const pm5544_analysis* analysis, int* width, int* height) {
    if (analysis == nullptr || width == nullptr || height == nullptr) return PM5544_ERROR_ARGUMENT;
    pm5544::analysis::annotationSize(analysis->captureShape, *width, *height);
    return PM5544_OK;
}

pm5544_status pm5544_analysis_annotate(const pm5544_analysis* analysis, const pm5544_capture* capture, uint8_t* rgb,
                                       size_t stride) {
    if (analysis == nullptr || capture == nullptr || rgb == nullptr) return PM5544_ERROR_ARGUMENT;
    const Picture& shape = analysis->captureShape;
    if (capture->picture.width != shape.width || capture->picture.height != shape.height) return PM5544_ERROR_ARGUMENT;
    int width = 0, height = 0;
    pm5544::analysis::annotationSize(shape, width, height);
    if (stride < size_t(width) * 3) return PM5544_ERROR_ARGUMENT;
    try {
        pm5544::analysis::annotate(analysis->report, *analysis->reference, capture->picture, rgb, stride);
        return PM5544_OK;
    } catch (const std::bad_alloc&) {
        return PM5544_ERROR_MEMORY;
    } catch (...) {
        return PM5544_ERROR_FAILED;
    }
}

}  // extern "C"
