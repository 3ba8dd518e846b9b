// The C API: a handle owns its pattern, settings and last error; every entry point checks its arguments
// and turns exceptions into status codes, so that nothing unwinds into C.
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "library/CardHandle.h"
#include "library/FrameLayouts.h"
#include "pattern/FrameRow.h"
#include "pm5544/pm5544.h"

using pm5544::LayoutFormat;
using pm5544::handle::fail;
using pm5544::handle::guarded;
using pm5544::handle::prepare;

namespace {

#ifndef PM5544_VERSION
#define PM5544_VERSION "unknown"
#endif

// The library's names for its settings in its messages.
const pm5544::SettingNames& names = pm5544::settingNames;

// The limits the header states are the card's.
static_assert(PM5544_MIN_SIDE == pm5544::Limits::minimumSide && PM5544_MAX_SIDE == pm5544::Limits::maximumSide &&
                  PM5544_MAX_RATE_TERM == pm5544::Limits::maximumRateTerm &&
                  PM5544_ENCODING_COUNT == PatternGen::colourAxesCount &&
                  double(PM5544_MIN_PIXEL_ASPECT_N) / PM5544_MIN_PIXEL_ASPECT_D == pm5544::Limits::minimumPixelAspect &&
                  double(PM5544_MAX_PIXEL_ASPECT_N) / PM5544_MAX_PIXEL_ASPECT_D == pm5544::Limits::maximumPixelAspect,
              "the header's limits and the card's");

// The public encodings are the internal ones by number: values cross the API by a cast.
constexpr bool sameNumber(pm5544_encoding encoding, PatternGen::colorAxes_e axes) { return int(encoding) == int(axes); }
static_assert(sameNumber(PM5544_ENCODING_RGB, PatternGen::Colour_RGB) &&
                  sameNumber(PM5544_ENCODING_RGB_HEADROOM, PatternGen::Colour_RGB_219) &&
                  sameNumber(PM5544_ENCODING_601, PatternGen::Colour_YCbCr_601) &&
                  sameNumber(PM5544_ENCODING_709, PatternGen::Colour_YCbCr_709) &&
                  sameNumber(PM5544_ENCODING_PQ, PatternGen::Colour_YCbCr_PQ) &&
                  sameNumber(PM5544_ENCODING_PQ_MAPPED, PatternGen::Colour_YCbCr_PQ_Mapped) &&
                  sameNumber(PM5544_ENCODING_HLG, PatternGen::Colour_YCbCr_HLG) &&
                  sameNumber(PM5544_ENCODING_HLG_MAPPED, PatternGen::Colour_YCbCr_HLG_Mapped) &&
                  sameNumber(PM5544_ENCODING_2020, PatternGen::Colour_YCbCr_2020) &&
                  sameNumber(PM5544_ENCODING_SLOG3, PatternGen::Colour_YCbCr_SLog3) &&
                  sameNumber(PM5544_ENCODING_SLOG3_MAPPED, PatternGen::Colour_YCbCr_SLog3_Mapped) &&
                  sameNumber(PM5544_ENCODING_SLOG3_LIVE, PatternGen::Colour_YCbCr_SLog3_Live) &&
                  sameNumber(PM5544_ENCODING_SLOG3_LIVE_MAPPED, PatternGen::Colour_YCbCr_SLog3_Live_Mapped) &&
                  sameNumber(PM5544_ENCODING_RGB_PQ, PatternGen::Colour_RGB_PQ) &&
                  sameNumber(PM5544_ENCODING_RGB_HLG, PatternGen::Colour_RGB_HLG) &&
                  sameNumber(PM5544_ENCODING_RGB_SLOG3, PatternGen::Colour_RGB_SLog3) &&
                  sameNumber(PM5544_ENCODING_RGB_SLOG3_LIVE, PatternGen::Colour_RGB_SLog3_Live) &&
                  sameNumber(PM5544_ENCODING_RGB_PQ_MAPPED, PatternGen::Colour_RGB_PQ_Mapped) &&
                  sameNumber(PM5544_ENCODING_RGB_HLG_MAPPED, PatternGen::Colour_RGB_HLG_Mapped) &&
                  sameNumber(PM5544_ENCODING_RGB_SLOG3_MAPPED, PatternGen::Colour_RGB_SLog3_Mapped) &&
                  sameNumber(PM5544_ENCODING_RGB_SLOG3_LIVE_MAPPED, PatternGen::Colour_RGB_SLog3_Live_Mapped),
              "the public and the internal encodings are numbered alike");

// A setting changed: the card is built afresh when next needed. A value the card already has keeps the
// prepared card (and where a time-of-day clock started).
template <typename Change>
pm5544_status change(pm5544_card* card, Change&& apply) {
    return guarded(card, [&] {
        pm5544::CardSettings changed = card->settings;
        apply(changed);
        const bool same = pm5544::sameCard(changed, card->settings);
        card->settings = std::move(changed);
        if (same) return PM5544_OK;
        card->card.reset();
        card->pattern.reset();
        card->reference.reset();
        card->settingsChanged = true;
        return PM5544_OK;
    });
}

// As above, for a value refused on its own: `refusal` says why (empty: it is not), and the setting
// is then left as it was.
template <typename Refusal, typename Change>
pm5544_status change(pm5544_card* card, Refusal&& refusal, Change&& apply) {
    return guarded(card, [&] {
        if (const std::string fault = refusal(); !fault.empty()) return fail(card, PM5544_ERROR_SETTINGS, fault);
        return change(card, apply);
    });
}

// Hands the callback one line at a time. What it throws stops at this frame, so that it never unwinds
// through the card being built (leaving it half made, and what it holds unreleased): the call reports it.
void deliver(pm5544_card* card, MessageKind kind, const std::string& text) {
    if (card->callback == nullptr) return;
    const pm5544_message_kind k = kind == MessageKind::Warning ? PM5544_MESSAGE_WARNING : PM5544_MESSAGE_PROGRESS;
    for (size_t start = 0; start < text.size();) {
        const size_t newline = text.find('\n', start);
        const size_t end = newline == std::string::npos ? text.size() : newline + 1;
        const std::string line = text.substr(start, end - start);
        start = end;
        std::string thrown;
        ++card->inCallback;
        try {
            card->callback(card->userData, k, line.c_str());
        } catch (const std::exception& error) {
            thrown = std::string("\"") + error.what() + "\"";
        } catch (...) {
            thrown = "an exception that is no std::exception";
        }
        --card->inCallback;
        if (card->callbackFault.empty()) card->callbackFault = thrown;
    }
}

std::string text(const char* utf8) { return utf8 != nullptr ? utf8 : ""; }

// The layout exists, suits the card's settings, and the planes and strides can take a frame of it.
pm5544_status checkTarget(pm5544_card* card, pm5544_layout layout, void* const planes[], const size_t strides[],
                          const LayoutFormat*& format) {
    format = pm5544::layoutFormat(layout);
    if (format == nullptr)
        return fail(card, PM5544_ERROR_ARGUMENT, "Layout " + std::to_string(int(layout)) + " is unknown");
    const pm5544::CardSettings& s = card->settings;
    if (!pm5544::layoutAllows(*format, s.axes))
        return fail(
            card, PM5544_ERROR_SETTINGS,
            std::string("Layout ") + format->name + " cannot hold the encoding " + pm5544::encodingNameOf(s.axes));
    if (format->bits != 0 && (format->bits != s.bits || format->sampling != int(s.sampling)))
        return fail(card, PM5544_ERROR_SETTINGS,
                    std::string("Layout ") + format->name + " holds " + std::to_string(format->bits) + "-bit " +
                        std::to_string(format->sampling) + " frames, not " + std::to_string(s.bits) + "-bit " +
                        std::to_string(int(s.sampling)) + " (pm5544_use_layout sets them)");
    if (planes == nullptr || strides == nullptr) return fail(card, PM5544_ERROR_ARGUMENT, "No planes or strides given");
    pm5544::PlaneSize sizes[pm5544::maximumPlanes];
    const int count = pm5544::planeSizes(*format, s.width, s.height, sizes);
    const size_t alignment = pm5544::planeAlignment(*format);
    for (int p = 0; p < count; ++p) {
        const std::string plane = "Plane " + std::to_string(p) + " of " + format->name;
        if (planes[p] == nullptr) return fail(card, PM5544_ERROR_ARGUMENT, plane + " is missing");
        if (strides[p] < sizes[p].rowBytes)
            return fail(card, PM5544_ERROR_ARGUMENT,
                        plane + ": stride " + std::to_string(strides[p]) + " is shorter than a row of " +
                            std::to_string(sizes[p].rowBytes) + " bytes");
        if (reinterpret_cast<uintptr_t>(planes[p]) % alignment != 0 || strides[p] % alignment != 0)
            return fail(card, PM5544_ERROR_ARGUMENT,
                        plane + " and its stride must be aligned to " + std::to_string(alignment) + " bytes");
    }
    return PM5544_OK;
}

// Renders rows first .. first + count - 1 of the frame the card shows into the planes.
void renderRows(pm5544_card* card, const LayoutFormat& format, pm5544::RowSpan span, void* const planes[],
                const size_t strides[]) {
    const pm5544::CardSettings& s = card->settings;
    pm5544::PlaneSize sizes[pm5544::maximumPlanes];
    const int count = pm5544::planeSizes(format, s.width, s.height, sizes);
    uint8_t* bytes[pm5544::maximumPlanes] = {};
    for (int p = 0; p < count; ++p) bytes[p] = static_cast<uint8_t*>(planes[p]);
    const std::unique_ptr<FullFrameRowSource> rows = card->card->frameRows(span);
    const size_t pixels = static_cast<size_t>(s.width);
    for (int i = 0; i < rows->rows(); ++i) {
        rows->nextRow(card->row.data());
        FrameRow::round(card->row.data(), pixels, s.axes, s.bits);
        pm5544::packRow(format, card->row.data(), s.width, span.first + i, bytes, strides, s.scan);
    }
}

// The rows frame `to` changes from frame `from`; the boxes then show `to`.
pm5544::RowSpan changedRows(pm5544_card* card, int64_t from, int64_t to) {
    if (card->shown != from) card->card->showFrame(from);
    card->shown = to;
    return card->card->showFrame(to);
}

pm5544_status checkFrame(pm5544_card* card, int64_t frame) {
    if (frame < 0) return fail(card, PM5544_ERROR_ARGUMENT, "Frame " + std::to_string(frame) + " is before the first");
    return PM5544_OK;
}

}  // namespace

namespace pm5544::handle {

pm5544_status prepare(pm5544_card* card) {
    if (card->card) return PM5544_OK;
    if (const std::string fault = pm5544::settingsFault(card->settings, names); !fault.empty())
        return fail(card, PM5544_ERROR_SETTINGS, fault);
    auto pattern = std::make_unique<PhilipsPm5544Spec>();
    const auto sink = [card](MessageKind kind, const std::string& text) { deliver(card, kind, text); };
    auto built = std::make_unique<pm5544::Card>(*pattern, sink, names);
    if (!built->prepare(card->settings)) return fail(card, PM5544_ERROR_SETTINGS, built->fault());
    card->row.assign(static_cast<size_t>(card->settings.width) * FrameRow::samplesPerPixel, 0);
    card->pattern = std::move(pattern);
    card->card = std::move(built);
    card->shown = 0;
    return PM5544_OK;
}

void forEachFrameRow(pm5544_card* card, int64_t frame, const std::function<void(int, const uint16_t*)>& take) {
    const pm5544::CardSettings& s = card->settings;
    if (card->shown != frame) card->card->showFrame(frame);
    card->shown = frame;
    const std::unique_ptr<FullFrameRowSource> rows = card->card->frameRows({0, s.height});
    for (int y = 0; y < rows->rows(); ++y) {
        rows->nextRow(card->row.data());
        FrameRow::round(card->row.data(), static_cast<size_t>(s.width), s.axes, s.bits);
        take(y, card->row.data());
    }
}

}  // namespace pm5544::handle

extern "C" {

const char* pm5544_version(void) { return PM5544_VERSION; }

int pm5544_encoding_is_ycbcr(pm5544_encoding encoding) {
    if (int(encoding) < 0 || int(encoding) >= PatternGen::colourAxesCount) return -1;
    return PatternGen::isYCbCrAxes(encoding) ? 1 : 0;
}

const char* pm5544_encoding_name(pm5544_encoding encoding) {
    if (int(encoding) < 0 || int(encoding) >= PatternGen::colourAxesCount) return nullptr;
    return pm5544::encodingNameOf(static_cast<PatternGen::colorAxes_e>(encoding));
}

const char* pm5544_encoding_description(pm5544_encoding encoding) {
    for (const pm5544::EncodingName& row : pm5544::encodingNameTable)
        if (int(row.axes) == int(encoding)) return row.meaning;
    return nullptr;
}

pm5544_status pm5544_encoding_colorimetry(pm5544_encoding encoding, pm5544_colorimetry* colorimetry) {
    const int axes = encoding;
    if (axes < 0 || axes >= PatternGen::colourAxesCount || colorimetry == nullptr) return PM5544_ERROR_ARGUMENT;
    using namespace PatternGen;
    pm5544_colorimetry c{};
    if (isRGBAxes(axes))
        c.matrix = PM5544_MATRIX_RGB;
    else if (axes == Colour_YCbCr_601)
        c.matrix = PM5544_MATRIX_BT601;
    else if (axes == Colour_YCbCr_709)
        c.matrix = PM5544_MATRIX_BT709;
    else
        c.matrix = PM5544_MATRIX_BT2020_NCL;
    c.transfer = isPQAxes(axes)      ? PM5544_TRANSFER_PQ
                 : isHLGAxes(axes)   ? PM5544_TRANSFER_HLG
                 : isSLog3Axes(axes) ? PM5544_TRANSFER_SLOG3
                                     : PM5544_TRANSFER_BT709;
    c.primaries = isIn2020Axes(axes)         ? PM5544_PRIMARIES_BT2020
                  : axes == Colour_YCbCr_601 ? PM5544_PRIMARIES_BT601
                                             : PM5544_PRIMARIES_BT709;
    c.full_range = axes == Colour_RGB ? 1 : 0;
    *colorimetry = c;
    return PM5544_OK;
}

const char* pm5544_layout_name(pm5544_layout layout) {
    const LayoutFormat* format = pm5544::layoutFormat(layout);
    return format != nullptr ? format->name : nullptr;
}

pm5544_status pm5544_layout_format(pm5544_layout layout, int* bits, int* sampling) {
    const LayoutFormat* format = pm5544::layoutFormat(layout);
    if (format == nullptr || bits == nullptr || sampling == nullptr) return PM5544_ERROR_ARGUMENT;
    *bits = format->bits;
    *sampling = format->sampling;
    return PM5544_OK;
}

int pm5544_layout_allows(pm5544_layout layout, pm5544_encoding encoding) {
    const LayoutFormat* format = pm5544::layoutFormat(layout);
    if (format == nullptr || int(encoding) < 0 || int(encoding) >= PatternGen::colourAxesCount) return -1;
    return pm5544::layoutAllows(*format, static_cast<PatternGen::colorAxes_e>(encoding)) ? 1 : 0;
}

int pm5544_layout_planes(pm5544_layout layout, int width, int height, pm5544_plane planes[PM5544_MAX_PLANES]) {
    const LayoutFormat* format = pm5544::layoutFormat(layout);
    if (format == nullptr || planes == nullptr || width <= 0 || height <= 0) return PM5544_ERROR_ARGUMENT;
    pm5544::PlaneSize sizes[pm5544::maximumPlanes];
    const int count = pm5544::planeSizes(*format, width, height, sizes);
    for (int p = 0; p < count; ++p) {
        const uint64_t rows = static_cast<uint64_t>(sizes[p].rows);
        if (sizes[p].rowBytes > SIZE_MAX / rows) return PM5544_ERROR_ARGUMENT;  // more bytes than size_t holds
        planes[p] = {static_cast<size_t>(sizes[p].rowBytes), sizes[p].rows,
                     static_cast<size_t>(sizes[p].rowBytes * rows)};
    }
    return count;
}

pm5544_card* pm5544_card_new(void) { return new (std::nothrow) pm5544_card(); }

void pm5544_card_free(pm5544_card* card) { delete card; }

const char* pm5544_last_error(const pm5544_card* card) {
    return card != nullptr ? card->error.c_str() : "No card (a null handle)";
}

pm5544_status pm5544_set_message_callback(pm5544_card* card, pm5544_message_fn callback, void* user_data) {
    return guarded(card, [&] {
        card->callback = callback;
        card->userData = user_data;
        return PM5544_OK;
    });
}

pm5544_status pm5544_set_raster(pm5544_card* card, int width, int height) {
    return change(
        card, [&] { return pm5544::sizeFault(width, height, PatternGen::Quadrant_None, names); },
        [&](pm5544::CardSettings& s) { s.width = width, s.height = height; });
}

pm5544_status pm5544_set_aspect(pm5544_card* card, int numerator, int denominator) {
    return change(
        card, [&] { return pm5544::aspectFault(numerator, denominator, names); },
        [&](pm5544::CardSettings& s) { s.aspectNum = numerator, s.aspectDen = denominator; });
}

pm5544_status pm5544_set_encoding(pm5544_card* card, pm5544_encoding encoding) {
    return guarded(card, [&] {
        // Checked before the value becomes an encoding, which no number outside the enumeration may be.
        if (const std::string fault = pm5544::encodingFault(encoding); !fault.empty())
            return fail(card, PM5544_ERROR_ARGUMENT, fault);
        return change(card, [&](pm5544::CardSettings& s) { s.axes = static_cast<PatternGen::colorAxes_e>(encoding); });
    });
}

pm5544_status pm5544_set_encoding_name(pm5544_card* card, const char* name) {
    return guarded(card, [&] {
        const pm5544::EncodingName* word = pm5544::encodingNamed(text(name));
        if (word == nullptr) return fail(card, PM5544_ERROR_SETTINGS, "Encoding " + text(name) + " is unknown");
        return pm5544_set_encoding(card, static_cast<pm5544_encoding>(word->axes));
    });
}

pm5544_status pm5544_set_bits(pm5544_card* card, int bits) {
    return change(
        card, [&] { return pm5544::bitsFault(bits, names); }, [&](pm5544::CardSettings& s) { s.bits = bits; });
}

pm5544_status pm5544_set_sampling(pm5544_card* card, int sampling) {
    return change(
        card, [&] { return pm5544::samplingFault(sampling, names); },
        [&](pm5544::CardSettings& s) { s.sampling = static_cast<PatternGen::sampling_e>(sampling); });
}

pm5544_status pm5544_use_layout(pm5544_card* card, pm5544_layout layout) {
    return guarded(card, [&] {
        const LayoutFormat* format = pm5544::layoutFormat(layout);
        if (format == nullptr)
            return fail(card, PM5544_ERROR_ARGUMENT, "Layout " + std::to_string(int(layout)) + " is unknown");
        if (format->bits == 0) return PM5544_OK;
        return change(card, [&](pm5544::CardSettings& s) {
            s.bits = format->bits;
            s.sampling = static_cast<PatternGen::sampling_e>(format->sampling);
        });
    });
}

pm5544_status pm5544_set_edge_taper(pm5544_card* card, int enabled) {
    return change(card, [&](pm5544::CardSettings& s) { s.edgeTaperOff = enabled == 0; });
}

pm5544_status pm5544_set_ident(pm5544_card* card, const char* utf8) {
    return change(
        card, [&] { return pm5544::textFault(text(utf8), names.ident); },
        [&](pm5544::CardSettings& s) { s.ident = text(utf8); });
}

pm5544_status pm5544_set_caption(pm5544_card* card, const char* utf8) {
    return change(
        card, [&] { return pm5544::textFault(text(utf8), names.caption); },
        [&](pm5544::CardSettings& s) { s.caption = text(utf8); });
}

pm5544_status pm5544_set_clock(pm5544_card* card, int enabled) {
    return change(card, [&](pm5544::CardSettings& s) { s.clock = enabled != 0; });
}

pm5544_status pm5544_set_timecode(pm5544_card* card, const char* timecode) {
    return guarded(card, [&] {
        const std::string given = text(timecode);
        std::optional<pm5544::Timecode> read;
        if (!given.empty() && !(read = pm5544::readTimecode(given)))
            return fail(card, PM5544_ERROR_SETTINGS, pm5544::unreadableTimecode(given, names));
        return change(card, [&](pm5544::CardSettings& s) { s.timecode = read; });
    });
}

pm5544_status pm5544_set_time_of_day(pm5544_card* card, int hours, int minutes, int seconds) {
    const std::optional<pm5544::Timecode> start =
        hours >= 0 ? std::optional(pm5544::Timecode{hours, minutes, seconds, 0, false}) : std::nullopt;
    return change(
        card, [&] { return start ? pm5544::timeOfDayFault(*start) : std::string(); },
        [&](pm5544::CardSettings& s) { s.timeOfDay = start; });
}

pm5544_status pm5544_set_font(pm5544_card* card, const char* fontconfig_name) {
    return change(
        card, [&] { return pm5544::textFault(text(fontconfig_name), names.font); },
        [&](pm5544::CardSettings& s) { s.font = text(fontconfig_name); });
}

pm5544_status pm5544_set_frame_rate(pm5544_card* card, int numerator, int denominator) {
    return change(
        card, [&] { return pm5544::rateFault(numerator, denominator, names); },
        [&](pm5544::CardSettings& s) { s.rateNum = numerator, s.rateDen = denominator; });
}

pm5544_status pm5544_set_scan(pm5544_card* card, pm5544_scan scan) {
    static_assert(int(PatternGen::Scan::InterlacedTopFirst) == PM5544_SCAN_INTERLACED_TFF &&
                      int(PatternGen::Scan::InterlacedBottomFirst) == PM5544_SCAN_INTERLACED_BFF,
                  "the scans are numbered alike");
    return guarded(card, [&] {
        if (scan != PM5544_SCAN_PROGRESSIVE && scan != PM5544_SCAN_INTERLACED_TFF && scan != PM5544_SCAN_INTERLACED_BFF)
            return fail(card, PM5544_ERROR_ARGUMENT, "Scan " + std::to_string(int(scan)) + " is unknown");
        return change(card, [&](pm5544::CardSettings& s) { s.scan = static_cast<PatternGen::Scan>(scan); });
    });
}

pm5544_status pm5544_prepare(pm5544_card* card) {
    return guarded(card, [&] { return prepare(card); });
}

pm5544_status pm5544_render_frame(pm5544_card* card, int64_t frame, pm5544_layout layout, void* const planes[],
                                  const size_t strides[]) {
    return pm5544_update_frame(card, frame, -1, layout, planes, strides, nullptr);
}

pm5544_status pm5544_changed_rows(pm5544_card* card, int64_t from, int64_t to, pm5544_rows* rows) {
    return guarded(card, [&] {
        if (rows == nullptr) return fail(card, PM5544_ERROR_ARGUMENT, "No rows to fill in");
        if (pm5544_status status = checkFrame(card, from); status != PM5544_OK) return status;
        if (pm5544_status status = checkFrame(card, to); status != PM5544_OK) return status;
        if (pm5544_status status = prepare(card); status != PM5544_OK) return status;
        const pm5544::RowSpan span = changedRows(card, from, to);
        *rows = {span.first, span.count};
        return PM5544_OK;
    });
}

pm5544_status pm5544_update_frame(pm5544_card* card, int64_t frame, int64_t held, pm5544_layout layout,
                                  void* const planes[], const size_t strides[], pm5544_rows* written) {
    return guarded(card, [&] {
        const LayoutFormat* format = nullptr;
        if (pm5544_status status = checkFrame(card, frame); status != PM5544_OK) return status;
        if (pm5544_status status = prepare(card); status != PM5544_OK) return status;
        if (pm5544_status status = checkTarget(card, layout, planes, strides, format); status != PM5544_OK)
            return status;
        pm5544::RowSpan span{0, card->settings.height};
        // No frame the planes hold can be of settings changed since the last render.
        if (held < 0 || card->settingsChanged) {
            if (card->shown != frame) card->card->showFrame(frame);
            card->shown = frame;
        } else {
            span = changedRows(card, held, frame);
        }
        if (!span.empty()) renderRows(card, *format, span, planes, strides);
        card->settingsChanged = false;
        if (written != nullptr) *written = {span.first, span.count};
        return PM5544_OK;
    });
}

}  // extern "C"
