// pm5544src under GStreamer: caps, buffers equal to the library's frames, time, time codes, properties.
#include <gst/check/gstharness.h>
#include <gst/check/gsttestclock.h>
#include <gst/gst.h>
#include <gst/video/video.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numeric>
#include <set>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "LayoutFrame.h"
#include "TestFiles.h"
#include "pm5544/pm5544.h"
#include "pm5544/pm5544.hpp"

using namespace TestFiles;

namespace {

// The plugin from this build with a registry of its own, rebuilt in a child: the scan leaks GLib's quark
// table and the sanitized plugin cannot load in gst-plugin-scanner.
class GstreamerEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        g_setenv("GST_PLUGIN_PATH", PM5544_GST_PLUGIN_DIR, TRUE);
        g_setenv("GST_REGISTRY", PM5544_GST_REGISTRY, TRUE);
        g_setenv("GST_REGISTRY_FORK", "no", TRUE);
        const pid_t scanner = fork();
        if (scanner == 0) {
            gst_init(nullptr, nullptr);
            _exit(0);
        }
        if (scanner > 0) waitpid(scanner, nullptr, 0);
        gst_init(nullptr, nullptr);
    }
    void TearDown() override { gst_deinit(); }
};
[[maybe_unused]] ::testing::Environment* const gstreamer =
    ::testing::AddGlobalTestEnvironment(new GstreamerEnvironment);

template <auto Free>
struct Unref {
    template <typename T>
    void operator()(T* object) const {
        Free(object);
    }
};
using Caps = std::unique_ptr<GstCaps, Unref<gst_caps_unref>>;
using Buffer = std::unique_ptr<GstBuffer, Unref<gst_buffer_unref>>;
using Element = std::unique_ptr<GstElement, Unref<gst_object_unref>>;
using Sample = std::unique_ptr<GstSample, Unref<gst_sample_unref>>;
using Harness = std::unique_ptr<GstHarness, Unref<gst_harness_teardown>>;

constexpr GstClockTime kWaitLimit = 30 * GST_SECOND;

// What a pipeline's bus carried until the end, the time limit or (if asked) the first error.
struct BusRecord {
    bool ended = false, error = false;
    GQuark domain = 0;  // the first error's
    int code = 0;
    std::string message, debug;
    std::vector<std::string> errors, warnings;
};

BusRecord recordBus(GstElement* pipeline, GstClockTime limit, bool untilError = false) {
    BusRecord record;
    GstBus* bus = gst_element_get_bus(pipeline);
    const GstClockTime deadline = gst_util_get_timestamp() + limit;
    for (GstClockTime now;
         !record.ended && !(untilError && record.error) && (now = gst_util_get_timestamp()) < deadline;) {
        GstMessage* message = gst_bus_timed_pop_filtered(
            bus, deadline - now, GstMessageType(GST_MESSAGE_EOS | GST_MESSAGE_ERROR | GST_MESSAGE_WARNING));
        if (message == nullptr) break;
        GError* error = nullptr;
        gchar* debug = nullptr;
        if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
            gst_message_parse_error(message, &error, &debug);
            if (!record.error) {
                record.error = true, record.domain = error->domain, record.code = error->code;
                record.message = error->message, record.debug = debug != nullptr ? debug : "";
            }
            record.errors.push_back(error->message);
        } else if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_WARNING) {
            gst_message_parse_warning(message, &error, nullptr);
            record.warnings.push_back(error->message);
        } else {
            record.ended = true;
        }
        if (error != nullptr) g_error_free(error);
        g_free(debug);
        gst_message_unref(message);
    }
    gst_object_unref(bus);
    return record;
}

class Pipeline {
public:
    explicit Pipeline(const std::string& description) {
        GError* error = nullptr;
        pipeline_.reset(gst_parse_launch(description.c_str(), &error));
        if (error != nullptr) {
            ADD_FAILURE() << description << ": " << error->message;
            g_error_free(error);
        }
    }
    ~Pipeline() {
        if (pipeline_) gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
    }
    GstElement* get() const { return pipeline_.get(); }
    Element byName(const char* name) const { return Element(gst_bin_get_by_name(GST_BIN(get()), name)); }

    // Plays until the end of the stream or an error; the pipeline stays playing.
    BusRecord playToEnd() {
        gst_element_set_state(get(), GST_STATE_PLAYING);
        BusRecord record = recordBus(get(), kWaitLimit, true);
        if (!record.ended && !record.error) ADD_FAILURE() << "neither the end nor an error within the time limit";
        return record;
    }
    // Plays and takes the next sample from the appsink named "sink"; none at the end.
    Sample pullSample() {
        gst_element_set_state(get(), GST_STATE_PLAYING);
        GstSample* sample = nullptr;
        g_signal_emit_by_name(byName("sink").get(), "pull-sample", &sample);
        return Sample(sample);
    }
    // The caps on the sink's pad (named "sink") once data has flowed.
    Caps sinkCaps() const {
        Element sink = byName("sink");
        GstPad* pad = gst_element_get_static_pad(sink.get(), "sink");
        Caps caps(gst_pad_get_current_caps(pad));
        gst_object_unref(pad);
        return caps;
    }

private:
    Element pipeline_;
};

struct Format {
    const char* name;
    pm5544_layout layout;
    bool ycbcr;
    int sampling;
};

const Format kFormats[] = {
    {"I420", PM5544_LAYOUT_I420_8, true, 420},         {"I420_10LE", PM5544_LAYOUT_I420_10, true, 420},
    {"I420_12LE", PM5544_LAYOUT_I420_12, true, 420},   {"Y42B", PM5544_LAYOUT_I422_8, true, 422},
    {"I422_10LE", PM5544_LAYOUT_I422_10, true, 422},   {"I422_12LE", PM5544_LAYOUT_I422_12, true, 422},
    {"Y444", PM5544_LAYOUT_I444_8, true, 444},         {"Y444_10LE", PM5544_LAYOUT_I444_10, true, 444},
    {"Y444_12LE", PM5544_LAYOUT_I444_12, true, 444},   {"Y444_16LE", PM5544_LAYOUT_I444_16, true, 444},
    {"v210", PM5544_LAYOUT_V210, true, 422},           {"UYVY", PM5544_LAYOUT_UYVY, true, 422},
    {"RGBA64_LE", PM5544_LAYOUT_RGBA16, false, 444},   {"GBR_10LE", PM5544_LAYOUT_GBR_10, false, 444},
    {"GBR_12LE", PM5544_LAYOUT_GBR_12, false, 444},    {"NV12", PM5544_LAYOUT_NV12, true, 420},
    {"P010_10LE", PM5544_LAYOUT_P010_10LE, true, 420}, {"P016_LE", PM5544_LAYOUT_P016_LE, true, 420},
    {"YUY2", PM5544_LAYOUT_YUY2, true, 422},           {"RGBA", PM5544_LAYOUT_RGBA, false, 444},
    {"BGRA", PM5544_LAYOUT_BGRA, false, 444},          {"RGBx", PM5544_LAYOUT_RGBX, false, 444},
    {"BGRx", PM5544_LAYOUT_BGRX, false, 444},
};

const Format& formatNamed(const std::string& name) {
    for (const Format& format : kFormats)
        if (name == format.name) return format;
    throw std::invalid_argument(name);
}

std::string text(const GstStructure* s, const char* field) {
    const gchar* value = gst_structure_get_string(s, field);
    return value != nullptr ? value : "";
}

// Colorimetry as GStreamer parses it (BT.2020's transfer named by bit depth, S-Log3 without a curve);
// chroma sited at the left pixel, and the top row in 4:2:0.
TEST(Pm5544Src, NegotiatesEachEncodingsTaggingAndChromaSiting) {
    constexpr auto studio = GST_VIDEO_COLOR_RANGE_16_235;
    const struct {
        const char *encoding, *format;
        GstVideoColorRange range;
        GstVideoColorMatrix matrix;
        GstVideoTransferFunction transfer;
        GstVideoColorPrimaries primaries;
        const char* name;  // the colorimetry's name in caps, where GStreamer has one
        GstVideoChromaSite site;
    } cases[] = {
        {"709", "I420", studio, GST_VIDEO_COLOR_MATRIX_BT709, GST_VIDEO_TRANSFER_BT709, GST_VIDEO_COLOR_PRIMARIES_BT709,
         "bt709", GST_VIDEO_CHROMA_SITE_COSITED},
        {"601", "Y42B", studio, GST_VIDEO_COLOR_MATRIX_BT601, GST_VIDEO_TRANSFER_BT601,
         GST_VIDEO_COLOR_PRIMARIES_SMPTE170M, "bt601", GST_VIDEO_CHROMA_SITE_H_COSITED},
        {"2020", "I420_10LE", studio, GST_VIDEO_COLOR_MATRIX_BT2020, GST_VIDEO_TRANSFER_BT2020_10,
         GST_VIDEO_COLOR_PRIMARIES_BT2020, "bt2020-10", GST_VIDEO_CHROMA_SITE_COSITED},
        {"2020", "Y444_12LE", studio, GST_VIDEO_COLOR_MATRIX_BT2020, GST_VIDEO_TRANSFER_BT2020_12,
         GST_VIDEO_COLOR_PRIMARIES_BT2020, "bt2020", GST_VIDEO_CHROMA_SITE_UNKNOWN},
        {"PQ", "v210", studio, GST_VIDEO_COLOR_MATRIX_BT2020, GST_VIDEO_TRANSFER_SMPTE2084,
         GST_VIDEO_COLOR_PRIMARIES_BT2020, "bt2100-pq", GST_VIDEO_CHROMA_SITE_H_COSITED},
        {"HLG-Mapped", "P010_10LE", studio, GST_VIDEO_COLOR_MATRIX_BT2020, GST_VIDEO_TRANSFER_ARIB_STD_B67,
         GST_VIDEO_COLOR_PRIMARIES_BT2020, "bt2100-hlg", GST_VIDEO_CHROMA_SITE_COSITED},
        {"S-Log3", "Y444_16LE", studio, GST_VIDEO_COLOR_MATRIX_BT2020, GST_VIDEO_TRANSFER_UNKNOWN,
         GST_VIDEO_COLOR_PRIMARIES_BT2020, nullptr, GST_VIDEO_CHROMA_SITE_UNKNOWN},
        {"RGB", "RGBA", GST_VIDEO_COLOR_RANGE_0_255, GST_VIDEO_COLOR_MATRIX_RGB, GST_VIDEO_TRANSFER_BT709,
         GST_VIDEO_COLOR_PRIMARIES_BT709, nullptr, GST_VIDEO_CHROMA_SITE_UNKNOWN},
        {"RGB-PQ", "GBR_12LE", studio, GST_VIDEO_COLOR_MATRIX_RGB, GST_VIDEO_TRANSFER_SMPTE2084,
         GST_VIDEO_COLOR_PRIMARIES_BT2020, nullptr, GST_VIDEO_CHROMA_SITE_UNKNOWN},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.format) + " " + c.encoding);
        Pipeline pipeline(std::string("pm5544src num-buffers=1 encoding=") + c.encoding +
                          " ! video/x-raw,format=" + c.format + ",width=64,height=64 ! fakesink name=sink");
        const BusRecord ending = pipeline.playToEnd();
        ASSERT_FALSE(ending.error) << ending.message << "\n" << ending.debug;
        Caps caps = pipeline.sinkCaps();
        ASSERT_TRUE(caps);
        const GstStructure* s = gst_caps_get_structure(caps.get(), 0);
        GstVideoColorimetry colorimetry;
        ASSERT_TRUE(gst_video_colorimetry_from_string(&colorimetry, gst_structure_get_string(s, "colorimetry")));
        EXPECT_EQ(std::make_tuple(c.range, c.matrix, c.transfer, c.primaries),
                  std::make_tuple(colorimetry.range, colorimetry.matrix, colorimetry.transfer, colorimetry.primaries));
        EXPECT_TRUE(c.name == nullptr || c.name == text(s, "colorimetry")) << text(s, "colorimetry");
        const std::string site = text(s, "chroma-site");
        EXPECT_EQ(c.site,
                  site.empty() ? GST_VIDEO_CHROMA_SITE_UNKNOWN : gst_video_chroma_site_from_string(site.c_str()))
            << site;
        EXPECT_EQ("progressive", text(s, "interlace-mode"));
    }
}

TEST(Pm5544Src, RefusesCapsItCannotMakeWithAnErrorOnTheBus) {
    const struct {
        const char* properties;
        const char* caps;
    } refusals[] = {
        {"encoding=709", "video/x-raw,format=RGBA64_LE"},        // R'G'B' format, Y'CbCr encoding
        {"encoding=RGB", "video/x-raw,format=v210"},             // and the other way round
        {"", "video/x-raw,format=I420,width=20000"},             // wider than the card's limit
        {"", "video/x-raw,format=I420,pixel-aspect-ratio=5/1"},  // pixel aspect beyond 4/1
        {"", "video/x-raw,format=I420,framerate=1000001/2"},     // a rate term beyond the card's
        {"", "video/x-raw,format=I420,width=1920,height=1080,pixel-aspect-ratio=2147483647/2147483646"},
    };
    for (const auto& refusal : refusals) {
        SCOPED_TRACE(refusal.caps);
        // Caps set after linking, as a sink would insist on them.
        Pipeline pipeline(std::string("pm5544src num-buffers=1 ") + refusal.properties +
                          " ! capsfilter name=filter ! fakesink name=sink");
        Caps caps(gst_caps_from_string(refusal.caps));
        g_object_set(pipeline.byName("filter").get(), "caps", caps.get(), nullptr);
        const BusRecord ending = pipeline.playToEnd();
        ASSERT_TRUE(ending.error);
        EXPECT_EQ(std::make_pair(GST_CORE_ERROR, int(GST_CORE_ERROR_NEGOTIATION)),
                  std::make_pair(ending.domain, ending.code));
        EXPECT_FALSE(ending.message.empty());
        EXPECT_FALSE(pipeline.sinkCaps()) << "nothing reached the sink";
    }
}

// A frame's planes one after another, each row only its samples, whatever strides the buffer has.
Bytes packedFrame(const GstVideoInfo& info, GstBuffer* buffer, pm5544_layout layout) {
    pm5544_plane planes[PM5544_MAX_PLANES];
    const int count = pm5544_layout_planes(layout, info.width, info.height, planes);
    GstVideoFrame frame;
    Bytes bytes;
    if (count < 1 || !gst_video_frame_map(&frame, &info, buffer, GST_MAP_READ)) return bytes;
    for (int p = 0; p < count; ++p) {
        const auto* data = static_cast<const uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, p));
        const size_t stride = size_t(GST_VIDEO_FRAME_PLANE_STRIDE(&frame, p));
        for (int r = 0; r < planes[p].rows; ++r)
            bytes.insert(bytes.end(), data + r * stride, data + r * stride + planes[p].row_bytes);
    }
    gst_video_frame_unmap(&frame);
    return bytes;
}

Bytes frameOf(GstSample* sample, pm5544_layout layout) {
    GstVideoInfo info;
    if (!gst_video_info_from_caps(&info, gst_sample_get_caps(sample))) return Bytes();
    return packedFrame(info, gst_sample_get_buffer(sample), layout);
}

constexpr int kWidth = 250, kHeight = 180;  // strides of every format padded beyond the samples
constexpr const char* kTimecode = "10:00:00:00";

std::string videoCaps(const std::string& format, int width = kWidth, int height = kHeight,
                      const std::string& rate = "25/1") {
    return "video/x-raw,format=" + format + ",width=" + std::to_string(width) + ",height=" + std::to_string(height) +
           ",framerate=" + rate;
}

// The library's card for the element's defaults at a raster: square pixels, the encoding, the layout.
pm5544::TestCard cardAt(const std::string& encoding, pm5544_layout layout, int width = kWidth, int height = kHeight) {
    const int divisor = std::gcd(width, height);
    pm5544::TestCard card;
    card.raster(width, height).aspect(width / divisor, height / divisor).encoding(encoding).layout(layout);
    return card;
}
// The same with a clock from `timecode` at a rate.
pm5544::TestCard clockCard(const char* timecode, int rate_n, int rate_d, pm5544_layout layout = PM5544_LAYOUT_I420_8) {
    pm5544::TestCard card = cardAt("709", layout);
    card.clock(true).timecode(timecode).frameRate(rate_n, rate_d);
    return card;
}

// The library's frame n, planes one after another.
Bytes libraryFrame(const pm5544::TestCard& card, int64_t n, pm5544_layout layout = PM5544_LAYOUT_I420_8,
                   int width = kWidth, int height = kHeight) {
    return renderLayout(card.get(), layout, width, height, n).packed();
}

Bytes captionFrame(const char* encoding, const char* caption) {
    pm5544::TestCard card = cardAt(encoding, PM5544_LAYOUT_I420_8);
    card.caption(caption);
    return libraryFrame(card, 0);
}

// The card keeps its circle round: the display aspect it draws for is the raster times the pixel aspect.
TEST(Pm5544Src, DrawsForTheDisplayAspectOfRasterAndPixelAspect) {
    Pipeline pipeline(
        "pm5544src ! video/x-raw,format=I420,width=256,height=144,pixel-aspect-ratio=4/3 ! "
        "appsink name=sink sync=false");
    Sample sample = pipeline.pullSample();
    ASSERT_TRUE(sample);
    const Bytes pulled = frameOf(sample.get(), PM5544_LAYOUT_I420_8);
    pm5544::TestCard card;
    card.raster(256, 144).aspect(256 * 4, 144 * 3).encoding("709").layout(PM5544_LAYOUT_I420_8);
    EXPECT_EQ(libraryFrame(card, 0, PM5544_LAYOUT_I420_8, 256, 144), pulled);
    card.aspect(16, 9);
    EXPECT_NE(libraryFrame(card, 0, PM5544_LAYOUT_I420_8, 256, 144), pulled) << "the pixel aspect matters";
}

// A source in a harness; paced, it waits for each pull so few buffers leave the pool however slow the test.
Harness sourceHarness(const std::string& properties, const std::string& caps, bool paced = false) {
    Harness h(gst_harness_new_parse(("pm5544src " + properties).c_str()));
    if (paced) gst_harness_set_blocking_push_mode(h.get());
    gst_harness_set_sink_caps_str(h.get(), caps.c_str());
    // Downstream reads strides from the video meta, as a real sink would.
    gst_harness_add_propose_allocation_meta(h.get(), GST_VIDEO_META_API_TYPE, nullptr);
    gst_harness_play(h.get());
    return h;
}

// A live source with these properties in a harness whose test clock hands each buffer over.
Harness liveHarness(const std::string& properties, const std::string& caps) {
    Harness h(gst_harness_new_parse(("pm5544src is-live=true " + properties).c_str()));
    gst_harness_use_testclock(h.get());
    gst_harness_set_sink_caps_str(h.get(), caps.c_str());
    gst_harness_play(h.get());
    return h;
}

// A buffer pulled from a harness, packed as packedFrame does.
Bytes harnessFrame(GstHarness* h, GstBuffer* buffer, pm5544_layout layout = PM5544_LAYOUT_I420_8) {
    GstVideoInfo info;
    gst_video_info_init(&info);
    Caps caps(gst_pad_get_current_caps(h->sinkpad));
    if (caps) gst_video_info_from_caps(&info, caps.get());
    return packedFrame(info, buffer, layout);
}

// A pool buffer downstream wrote into must not be updated in place as if it still held the frame before.
TEST(Pm5544Src, FramesStayRightAfterDownstreamWritesIntoBuffers) {
    Harness h = sourceHarness(std::string("clock=true timecode=") + kTimecode, videoCaps("I420"), true);
    const pm5544::TestCard card = clockCard(kTimecode, 25, 1);
    std::set<const void*> memories;
    const int frames = 40;
    for (int n = 0; n < frames; ++n) {
        Buffer buffer(gst_harness_pull(h.get()));
        ASSERT_TRUE(buffer);
        ASSERT_EQ(libraryFrame(card, n), harnessFrame(h.get(), buffer.get())) << "frame " << n;
        GstMemory* memory = gst_buffer_peek_memory(buffer.get(), 0);
        ASSERT_TRUE(gst_memory_is_type(memory, "pm5544-memory")) << "the element's own memory, which tracks writes";
        memories.insert(memory);
        // Every other buffer scribbled on in rows the clock never changes (first row's middle, last row).
        if (n % 2 == 0) {
            GstMapInfo map;
            ASSERT_TRUE(gst_buffer_map(buffer.get(), &map, GST_MAP_WRITE));
            map.data[kWidth / 2] ^= 0xff;
            map.data[size_t(kWidth) * (kHeight - 1)] ^= 0xff;
            gst_buffer_unmap(buffer.get(), &map);
        }
    }
    EXPECT_LT(memories.size(), size_t(frames)) << "the pool reused its buffers";
}

GstClockTime frameTime(uint64_t n, int rate_n, int rate_d) {
    return gst_util_uint64_scale(n, uint64_t(rate_d) * GST_SECOND, uint64_t(rate_n));
}

struct Stamp {
    GstClockTime pts, duration;
    uint64_t offset;
    bool timecode;
};

GstPadProbeReturn recordStamp(GstPad*, GstPadProbeInfo* info, gpointer stamps) {
    const GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
    static_cast<std::vector<Stamp>*>(stamps)->push_back(
        {GST_BUFFER_PTS(buffer), GST_BUFFER_DURATION(buffer), GST_BUFFER_OFFSET(buffer),
         gst_buffer_get_video_time_code_meta(const_cast<GstBuffer*>(buffer)) != nullptr});
    return GST_PAD_PROBE_OK;
}

// The stamps of the buffers leaving the element named "src".
void recordStamps(const Pipeline& pipeline, std::vector<Stamp>& stamps) {
    GstPad* pad = gst_element_get_static_pad(pipeline.byName("src").get(), "src");
    gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, recordStamp, &stamps, nullptr);
    gst_object_unref(pad);
}

// Timestamps are each frame's exact instant and durations add up: no drift at fractional rates.
TEST(Pm5544Src, TimestampsAreExactOverAHundredThousandFrames) {
    const uint64_t frames = 100000;
    const struct {
        int rate_n, rate_d;
        GstClockTime offset;
    } rates[] = {{30000, 1001, 0}, {60000, 1001, 3600 * GST_SECOND + 1}};
    for (const auto& rate : rates) {
        SCOPED_TRACE(rate.rate_n);
        Pipeline pipeline("pm5544src name=src num-buffers=" + std::to_string(frames) +
                          " timestamp-offset=" + std::to_string(rate.offset) + " ! " +
                          videoCaps("I420", 64, 64, std::to_string(rate.rate_n) + "/" + std::to_string(rate.rate_d)) +
                          " ! fakesink name=sink sync=false");
        std::vector<Stamp> stamps;
        stamps.reserve(frames);
        recordStamps(pipeline, stamps);
        ASSERT_FALSE(pipeline.playToEnd().error);
        ASSERT_EQ(frames, stamps.size());
        GstClockTime sum = 0;
        for (uint64_t n = 0; n < frames; ++n) {
            const Stamp& stamp = stamps[n];
            const GstClockTime at = frameTime(n, rate.rate_n, rate.rate_d);
            ASSERT_EQ(std::make_tuple(rate.offset + at, frameTime(n + 1, rate.rate_n, rate.rate_d) - at, n),
                      std::make_tuple(stamp.pts, stamp.duration, stamp.offset))
                << "frame " << n;
            sum += stamp.duration;
        }
        // 100,000 frames at 30000/1001 take exactly 3336.6666... s, at 60000/1001 half that.
        EXPECT_EQ(frameTime(frames, rate.rate_n, rate.rate_d), sum);
        EXPECT_EQ(rate.rate_n == 30000 ? 3336666666666u : 1668333333333u, sum);
    }
}

// A live source hands each frame over at its clock time and reports one frame of latency.
TEST(Pm5544Src, LiveBuffersWaitForTheClockAndLatencyIsOneFrame) {
    Harness h = liveHarness("", "video/x-raw,format=I420,width=64,height=64,framerate=30000/1001");
    GstTestClock* clock = gst_harness_get_testclock(h.get());
    for (uint64_t n = 0; n < 3; ++n) {
        ASSERT_TRUE(gst_harness_wait_for_clock_id_waits(h.get(), 1, 10));
        GstClockID pending = nullptr;
        ASSERT_TRUE(gst_test_clock_peek_next_pending_id(clock, &pending));
        EXPECT_EQ(frameTime(n, 30000, 1001), gst_clock_id_get_time(pending)) << "frame " << n << "'s wait";
        gst_clock_id_unref(pending);
        EXPECT_EQ(n, gst_harness_buffers_received(h.get())) << "frame " << n << " held until its time";
        ASSERT_TRUE(gst_harness_crank_single_clock_wait(h.get()));
        Buffer buffer(gst_harness_pull(h.get()));
        ASSERT_TRUE(buffer);
        EXPECT_EQ(frameTime(n, 30000, 1001), GST_BUFFER_PTS(buffer.get()));
    }
    gst_object_unref(clock);

    GstQuery* query = gst_query_new_latency();
    ASSERT_TRUE(gst_pad_peer_query(h->sinkpad, query));
    gboolean live = FALSE;
    GstClockTime min = 0, max = 0;
    gst_query_parse_latency(query, &live, &min, &max);
    gst_query_unref(query);
    EXPECT_EQ(std::make_pair(gboolean(TRUE), GstClockTime(33366666)), std::make_pair(live, min));  // 1001/30000 s
    EXPECT_TRUE(max == GST_CLOCK_TIME_NONE || max >= min);
}

std::string timecodeOf(GstBuffer* buffer) {
    GstVideoTimeCodeMeta* meta = gst_buffer_get_video_time_code_meta(buffer);
    if (meta == nullptr) return "no time code";
    gchar* text = gst_video_time_code_to_string(&meta->tc);
    std::string result = text;
    g_free(text);
    return result;
}

// Drop-frame: 00:00:59;29 is followed by 00:01:00;02, and the card shows the still of that time code.
TEST(Pm5544Src, TimeCodeMetaCountsDropFrameAndMatchesTheClockOnTheCard) {
    const char* first = "00:00:59;29";
    Harness h =
        sourceHarness(std::string("clock=true timecode=") + first, videoCaps("I420", kWidth, kHeight, "30000/1001"));
    std::vector<Buffer> buffers;
    for (int n = 0; n < 20; ++n) buffers.emplace_back(gst_harness_pull(h.get()));
    ASSERT_TRUE(buffers.back());
    EXPECT_EQ(first, timecodeOf(buffers[0].get()));
    EXPECT_EQ("00:01:00;02", timecodeOf(buffers[1].get()));
    EXPECT_EQ("00:01:00;20", timecodeOf(buffers[19].get()));

    GstVideoTimeCodeMeta* meta = gst_buffer_get_video_time_code_meta(buffers[0].get());
    EXPECT_EQ(std::make_tuple(30000u, 1001u, true),
              std::make_tuple(meta->tc.config.fps_n, meta->tc.config.fps_d,
                              bool(meta->tc.config.flags & GST_VIDEO_TIME_CODE_FLAGS_DROP_FRAME)));
    for (int n = 0; n < 20; ++n) {
        GstVideoTimeCode* expected = gst_video_time_code_copy(&meta->tc);
        gst_video_time_code_add_frames(expected, n);
        EXPECT_EQ(0, gst_video_time_code_compare(expected,
                                                 &gst_buffer_get_video_time_code_meta(buffers[size_t(n)].get())->tc))
            << "frame " << n;
        gst_video_time_code_free(expected);
    }

    const Bytes expected = libraryFrame(clockCard("00:01:00;02", 30000, 1001), 0);
    EXPECT_EQ(expected, harnessFrame(h.get(), buffers[1].get()));
    EXPECT_NE(expected, harnessFrame(h.get(), buffers[0].get()));
}

// Counts the critical warnings GLib logs meanwhile (a g_return_if_fail that failed).
class CriticalCount {
public:
    CriticalCount() : previous_(g_log_set_default_handler(count, &count_)) {}
    ~CriticalCount() { g_log_set_default_handler(previous_, nullptr); }
    int operator()() const { return count_; }

private:
    static void count(const gchar*, GLogLevelFlags level, const gchar* message, gpointer counter) {
        if (level & G_LOG_LEVEL_CRITICAL) ++*static_cast<int*>(counter), ADD_FAILURE() << message;
    }
    int count_ = 0;
    GLogFunc previous_;
};

// Rates a time code cannot count still stream; their buffers carry no time code.
TEST(Pm5544Src, AnyFrameRateStreams) {
    for (const char* rate : {"25000/1001", "1/2", "7/3", "1000000/1"}) {
        SCOPED_TRACE(rate);
        CriticalCount criticals;
        Pipeline pipeline("pm5544src name=src num-buffers=3 clock=true timecode=10:00:00:00 ! " +
                          videoCaps("I420", 64, 64, rate) + " ! fakesink name=sink");
        std::vector<Stamp> stamps;
        recordStamps(pipeline, stamps);
        const BusRecord ending = pipeline.playToEnd();
        EXPECT_FALSE(ending.error) << ending.message;
        EXPECT_EQ(0, criticals());
        ASSERT_EQ(3u, stamps.size());
        for (const Stamp& stamp : stamps) EXPECT_FALSE(stamp.timecode);
    }
}

// A seek lands on the first frame at or after its position: its timestamp, its time code, its picture.
TEST(Pm5544Src, SeekGivesTheFrameAtThatTime) {
    Pipeline pipeline(std::string("pm5544src clock=true timecode=") + kTimecode + " ! " +
                      videoCaps("I420", kWidth, kHeight, "30000/1001") +
                      " ! appsink name=sink sync=false max-buffers=1");
    ASSERT_EQ(GST_STATE_CHANGE_ASYNC, gst_element_set_state(pipeline.get(), GST_STATE_PAUSED));
    ASSERT_EQ(GST_STATE_CHANGE_SUCCESS, gst_element_get_state(pipeline.get(), nullptr, nullptr, kWaitLimit));
    // 1 s is between frames 29 and 30 (at 0.967 s and 1.001 s).
    ASSERT_TRUE(gst_element_seek_simple(pipeline.get(), GST_FORMAT_TIME,
                                        GstSeekFlags(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE), GST_SECOND));
    ASSERT_EQ(GST_STATE_CHANGE_SUCCESS, gst_element_get_state(pipeline.get(), nullptr, nullptr, kWaitLimit));
    GstSample* preroll = nullptr;
    g_signal_emit_by_name(pipeline.byName("sink").get(), "pull-preroll", &preroll);
    const Sample sample(preroll);
    ASSERT_TRUE(sample);
    GstBuffer* buffer = gst_sample_get_buffer(sample.get());
    EXPECT_EQ(frameTime(30, 30000, 1001), GST_BUFFER_PTS(buffer));
    EXPECT_EQ("10:00:01:00", timecodeOf(buffer));
    EXPECT_EQ(libraryFrame(clockCard(kTimecode, 30000, 1001), 30), frameOf(sample.get(), PM5544_LAYOUT_I420_8));
}

// 8-bit R'G'B' samples of an image as ffmpeg decodes it (through `filters`, if any).
Bytes rgb24(const std::string& path, const std::string& filters = "") {
    return ffmpegRaw("-i '" + path + "'", (filters.empty() ? "" : "-vf " + filters) + " -pix_fmt rgb24");
}

// Whether the 5x5 pixels around (x, y) all have the colour of (x, y).
bool uniformAround(const Bytes& rgb, int width, int x, int y) {
    const uint8_t* centre = &rgb[(size_t(y) * width + x) * 3];
    for (int dy = -2; dy <= 2; ++dy)
        for (int dx = -2; dx <= 2; ++dx)
            if (std::memcmp(centre, &rgb[(size_t(y + dy) * width + x + dx) * 3], 3) != 0) return false;
    return true;
}

// gst-launch's PNG equals the program's Y4M as ffmpeg converts it, within a few codes where the card is
// flat (the converters round and interpolate chroma differently).
TEST(Pm5544Src, GstLaunchMakesAPngOfTheCard) {
    const std::string launch = gstreamerTool("gst-launch-1.0");
    if (launch.empty()) GTEST_SKIP() << "gst-launch-1.0 or the sanitizer's runtime for it is missing";
    if (std::system("command -v ffmpeg >/dev/null 2>&1") != 0) GTEST_SKIP() << "ffmpeg is missing";
    ScratchDir dir;
    const std::string command = launch +
                                " -q pm5544src num-buffers=50 ! videoconvert ! pngenc snapshot=true ! "
                                "filesink location='" +
                                dir.path("gst.png") + "' >/dev/null 2>&1";
    ASSERT_EQ(0, std::system(command.c_str())) << command;
    ASSERT_EQ(0, runProgram(dir.path(""), "-c 709 -b 8 -s 420 card.y4m"));
    const int width = 1920, height = 1080;
    const Bytes gst = rgb24(dir.path("gst.png"));
    const Bytes card = rgb24(dir.path("card.y4m"), "scale=in_color_matrix=bt709:in_range=tv");
    ASSERT_EQ(size_t(width) * height * 3, card.size());
    ASSERT_EQ(card.size(), gst.size());
    int flat = 0, off = 0;
    for (int y = 2; y < height - 2; y += 4)
        for (int x = 2; x < width - 2; x += 4) {
            if (!uniformAround(card, width, x, y)) continue;
            ++flat;
            const size_t at = (size_t(y) * width + x) * 3;
            for (int c = 0; c < 3; ++c)
                if (std::abs(int(gst[at + c]) - int(card[at + c])) > 4) {
                    if (++off <= 5)
                        ADD_FAILURE() << "at " << x << "," << y << " channel " << c << ": " << int(gst[at + c])
                                      << " against " << int(card[at + c]);
                    break;
                }
        }
    EXPECT_GT(flat, width / 4 * height / 4 / 2) << "most of the card is flat";
    EXPECT_EQ(0, off) << "of " << flat << " flat places";
}

// The next buffer of a live source in a harness with a test clock, handed over when its time comes.
Buffer nextLiveBuffer(GstHarness* h) {
    EXPECT_TRUE(gst_harness_wait_for_clock_id_waits(h, 1, 10));
    EXPECT_TRUE(gst_harness_crank_single_clock_wait(h));
    return Buffer(gst_harness_pull(h));
}

// Rendering runs one frame ahead: a property shows from the frame after the waiting one.
TEST(Pm5544Src, PropertyChangesShowInTheFollowingFrames) {
    Harness h = liveHarness("caption=One", videoCaps("I420"));
    auto nextFrame = [&] {
        Buffer buffer = nextLiveBuffer(h.get());
        return buffer ? harnessFrame(h.get(), buffer.get()) : Bytes();
    };
    const auto card = captionFrame;
    Element src(gst_harness_find_element(h.get(), "pm5544src"));
    EXPECT_EQ(card("709", "One"), nextFrame());
    g_object_set(src.get(), "caption", "Two", nullptr);
    nextFrame();  // rendered before the change, waiting for its time
    EXPECT_EQ(card("709", "Two"), nextFrame());

    // A later property that needs no new card does not undo the change before it.
    g_object_set(src.get(), "caption", "Three", "timestamp-offset", gint64(0), nullptr);
    nextFrame();
    EXPECT_EQ(card("709", "Three"), nextFrame());

    gst_util_set_object_arg(G_OBJECT(src.get()), "encoding", "PQ");
    nextFrame();
    EXPECT_EQ(card("PQ", "Three"), nextFrame());
    Caps caps(gst_pad_get_current_caps(h->sinkpad));
    EXPECT_EQ("bt2100-pq", text(gst_caps_get_structure(caps.get(), 0), "colorimetry"));
}

// Every format at odd sides, with a clock and without: the first frame whole, then rows updated in place.
TEST(Pm5544Src, EveryFormatAtOddSidesEqualsTheLibrarysFrames) {
    const struct { int width, height; } rasters[] = {{65, 65}, {369, 481}, {250, 181}};
    for (const Format& format : kFormats)
        for (const auto& raster : rasters)
            for (bool clock : {false, true}) {
                SCOPED_TRACE(std::string(format.name) + " " + std::to_string(raster.width) + "x" +
                             std::to_string(raster.height) + (clock ? " clock" : ""));
                const std::string encoding = format.ycbcr ? "709" : "RGB";
                Harness h = sourceHarness("encoding=" + encoding + (clock ? " clock=true timecode=10:00:00:00" : ""),
                                          videoCaps(format.name, raster.width, raster.height), true);
                pm5544::TestCard card = cardAt(encoding, format.layout, raster.width, raster.height);
                if (clock) card.clock(true).timecode("10:00:00:00").frameRate(25, 1);
                for (int n = 0; n < 3; ++n) {
                    Buffer buffer(gst_harness_pull(h.get()));
                    ASSERT_TRUE(buffer);
                    ASSERT_NE(nullptr, gst_buffer_get_video_meta(buffer.get()));
                    ASSERT_EQ(libraryFrame(card, n, format.layout, raster.width, raster.height),
                              harnessFrame(h.get(), buffer.get(), format.layout))
                        << "frame " << n;
                }
            }
}

// Interleaved: field order in flags and caps, drop-frame at 59.94 fields, 4:2:0 chroma by field.
TEST(Pm5544Src, InterleavedFramesCarryTheirFieldOrder) {
    const struct {
        const char* format;
        const char* order;
        pm5544_scan scan;
    } cases[] = {{"v210", "top-field-first", PM5544_SCAN_INTERLACED_TFF},
                 {"UYVY", "bottom-field-first", PM5544_SCAN_INTERLACED_BFF},
                 {"I420", "top-field-first", PM5544_SCAN_INTERLACED_TFF},
                 {"NV12", "bottom-field-first", PM5544_SCAN_INTERLACED_BFF}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.format) + " " + c.order);
        const Format& format = formatNamed(c.format);
        Harness h =
            sourceHarness("clock=true timecode=10:00:00;00", videoCaps(c.format, kWidth, kHeight, "30000/1001") +
                                                                 ",interlace-mode=interleaved,field-order=" + c.order);
        const pm5544::TestCard progressive = clockCard("10:00:00;00", 30000, 1001, format.layout);
        pm5544::TestCard card = clockCard("10:00:00;00", 30000, 1001, format.layout);
        card.scan(c.scan);
        for (int n = 0; n < 2; ++n) {
            Buffer buffer(gst_harness_pull(h.get()));
            ASSERT_TRUE(buffer);
            EXPECT_TRUE(GST_BUFFER_FLAG_IS_SET(buffer.get(), GST_VIDEO_BUFFER_FLAG_INTERLACED));
            EXPECT_EQ(c.scan == PM5544_SCAN_INTERLACED_TFF,
                      GST_BUFFER_FLAG_IS_SET(buffer.get(), GST_VIDEO_BUFFER_FLAG_TFF));
            GstVideoTimeCodeMeta* meta = gst_buffer_get_video_time_code_meta(buffer.get());
            ASSERT_NE(nullptr, meta);
            EXPECT_TRUE(meta->tc.config.flags & GST_VIDEO_TIME_CODE_FLAGS_INTERLACED);
            EXPECT_EQ(n == 0 ? "10:00:00;00" : "10:00:00;01", timecodeOf(buffer.get()));
            const Bytes pulled = harnessFrame(h.get(), buffer.get(), format.layout);
            EXPECT_EQ(libraryFrame(card, n, format.layout), pulled) << "frame " << n;
            EXPECT_TRUE(format.sampling != 420 || libraryFrame(progressive, n, format.layout) != pulled)
                << "4:2:0 chroma by fields, not frames";
        }
        const GstStructure* s = gst_caps_get_structure(Caps(gst_pad_get_current_caps(h->sinkpad)).get(), 0);
        EXPECT_EQ(c.order, text(s, "field-order"));
    }
}

// A refused timecode gives one error with the library's reason, and the pipeline stops cleanly.
TEST(Pm5544Src, ARefusedTimecodeGivesOneErrorWithTheLibrarysReason) {
    for (const char* timecode : {"10:00:00", "10:00:00;00"}) {
        std::string reason;
        try {
            cardAt("709", PM5544_LAYOUT_I420_8, 64, 64).clock(true).frameRate(25, 1).timecode(timecode).prepare();
        } catch (const pm5544::Error& error) {
            reason = error.what();
        }
        ASSERT_FALSE(reason.empty()) << timecode;
        for (int attempt = 0; attempt < 3; ++attempt) {
            SCOPED_TRACE(std::string(timecode) + ", attempt " + std::to_string(attempt));
            Pipeline pipeline(std::string("pm5544src num-buffers=2 clock=true timecode=\"") + timecode + "\" ! " +
                              videoCaps("I420", 64, 64) + " ! fakesink");
            gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
            const BusRecord record = recordBus(pipeline.get(), GST_SECOND);
            ASSERT_EQ(1u, record.errors.size());
            EXPECT_EQ(reason, record.errors[0]);
            EXPECT_EQ(GST_STATE_CHANGE_SUCCESS, gst_element_set_state(pipeline.get(), GST_STATE_NULL));
        }
    }
}

// A refused property while live is a warning and given back; the picture goes on; encoding toggles
// between Y'CbCr and R'G'B' renegotiate without ending the stream.
TEST(Pm5544Src, ABadSettingWhilePlayingIsRefusedAndTheStreamGoesOn) {
    Pipeline pipeline("pm5544src name=src is-live=true caption=Before ! " + videoCaps("I420") +
                      " ! appsink name=sink max-buffers=2 drop=true");
    Element src = pipeline.byName("src");
    ASSERT_TRUE(pipeline.pullSample());
    auto latest = [&] {
        Bytes frame;
        for (int n = 0; n < 4; ++n) {  // past the frames already rendered before the change
            Sample next = pipeline.pullSample();
            if (!next) return Bytes();
            frame = frameOf(next.get(), PM5544_LAYOUT_I420_8);
        }
        return frame;
    };
    const auto card = [](const char* caption) { return captionFrame("709", caption); };

    g_object_set(src.get(), "timecode", "garbage", nullptr);
    EXPECT_EQ(card("Before"), latest());
    gchar* timecode = nullptr;
    g_object_get(src.get(), "timecode", &timecode, nullptr);
    EXPECT_EQ(nullptr, timecode) << "the refused value is given back";
    g_free(timecode);
    const BusRecord record = recordBus(pipeline.get(), GST_SECOND);
    EXPECT_TRUE(record.errors.empty());
    ASSERT_FALSE(record.warnings.empty());
    EXPECT_NE(std::string::npos, record.warnings[0].find("garbage")) << record.warnings[0];

    g_object_set(src.get(), "caption", "After", nullptr);
    EXPECT_EQ(card("After"), latest());

    // The sink takes I420 only through videoconvert's R'G'B' to Y'CbCr in this second pipeline.
    Pipeline toggled("pm5544src name=src is-live=true ! videoconvert ! " + videoCaps("I420", 64, 64) +
                     " ! appsink name=sink max-buffers=2 drop=true");
    Element toggledSrc = toggled.byName("src");
    ASSERT_TRUE(toggled.pullSample());
    for (int n = 0; n < 20; ++n) {
        gst_util_set_object_arg(G_OBJECT(toggledSrc.get()), "encoding", n % 2 == 0 ? "RGB" : "709");
        ASSERT_TRUE(toggled.pullSample()) << "the stream ended at toggle " << n;
    }
    EXPECT_TRUE(recordBus(toggled.get(), 0).errors.empty());
}

// Backwards from a stop gives the frames before it, last first; without a stop it is refused.
TEST(Pm5544Src, PlaysBackwardsFromTheStop) {
    Pipeline pipeline("pm5544src clock=true timecode=10:00:00:00 ! " + videoCaps("I420", 64, 64) +
                      " ! appsink name=sink sync=false");
    ASSERT_EQ(GST_STATE_CHANGE_ASYNC, gst_element_set_state(pipeline.get(), GST_STATE_PAUSED));
    ASSERT_EQ(GST_STATE_CHANGE_SUCCESS, gst_element_get_state(pipeline.get(), nullptr, nullptr, kWaitLimit));
    EXPECT_FALSE(gst_element_seek(pipeline.get(), -1.0, GST_FORMAT_TIME, GST_SEEK_FLAG_FLUSH, GST_SEEK_TYPE_SET, 0,
                                  GST_SEEK_TYPE_NONE, GST_CLOCK_TIME_NONE));
    ASSERT_TRUE(gst_element_seek(pipeline.get(), -1.0, GST_FORMAT_TIME, GST_SEEK_FLAG_FLUSH, GST_SEEK_TYPE_SET,
                                 GST_SECOND / 5, GST_SEEK_TYPE_SET, GST_SECOND / 2));
    gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
    std::vector<std::string> timecodes;
    while (Sample sample = pipeline.pullSample()) {
        timecodes.push_back(timecodeOf(gst_sample_get_buffer(sample.get())));
        ASSERT_LT(timecodes.size(), 100u) << "frames without end";
    }
    // 0.2 s to 0.5 s at 25 fps: frames 12 down to 5.
    const std::vector<std::string> expected = {"10:00:00:12", "10:00:00:11", "10:00:00:10", "10:00:00:09",
                                               "10:00:00:08", "10:00:00:07", "10:00:00:06", "10:00:00:05"};
    EXPECT_EQ(expected, timecodes);
}

// A still (frame rate 0/1) is one buffer and the end; without a rate there is no duration to give.
TEST(Pm5544Src, StillCapsGiveOneBuffer) {
    Harness h = sourceHarness("", "video/x-raw,format=I420,width=64,height=64,framerate=0/1");
    Buffer buffer(gst_harness_pull(h.get()));
    ASSERT_TRUE(buffer);
    EXPECT_FALSE(GST_BUFFER_DURATION_IS_VALID(buffer.get()));
    pm5544::TestCard card = cardAt("709", PM5544_LAYOUT_I420_8, 64, 64);
    EXPECT_EQ(libraryFrame(card, 0, PM5544_LAYOUT_I420_8, 64, 64), harnessFrame(h.get(), buffer.get()));
    GstEvent* event = nullptr;
    while ((event = gst_harness_pull_event(h.get())) != nullptr && GST_EVENT_TYPE(event) != GST_EVENT_EOS)
        gst_event_unref(event);
    ASSERT_NE(nullptr, event) << "the end follows the one buffer";
    gst_event_unref(event);
    EXPECT_EQ(1u, gst_harness_buffers_received(h.get()));
}

// Open caps: 1920x1080, 25 fps, square pixels, one side fixes the other at 16:9, HDR at 10 bits or more;
// a Y'CbCr encoding before R'G'B'-only caps is told which encoding to set.
TEST(Pm5544Src, OpenCapsFixateAsAUserExpects) {
    const struct {
        const char* properties;
        const char* caps;
        const char* format;
        int width, height;
    } cases[] = {
        {"", "video/x-raw,format=v210", "v210", 1920, 1080},
        {"", "video/x-raw", "I420", 1920, 1080},
        {"", "video/x-raw,width=3840", "I420", 3840, 2160},
        {"", "video/x-raw,height=720", "I420", 1280, 720},
        {"encoding=PQ", "video/x-raw", "I420_10LE", 1920, 1080},
        {"encoding=2020", "video/x-raw", "I420_10LE", 1920, 1080},
        {"encoding=S-Log3", "video/x-raw", "I420_10LE", 1920, 1080},
        {"encoding=RGB", "video/x-raw", "RGBA", 1920, 1080},
        {"encoding=RGB-HLG", "video/x-raw", "GBR_10LE", 1920, 1080},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.properties) + " " + c.caps);
        Pipeline pipeline(std::string("pm5544src num-buffers=1 ") + c.properties + " ! " + c.caps +
                          " ! fakesink name=sink");
        ASSERT_FALSE(pipeline.playToEnd().error);
        GstVideoInfo info;
        ASSERT_TRUE(gst_video_info_from_caps(&info, pipeline.sinkCaps().get()));
        EXPECT_EQ(std::make_tuple(std::string(c.format), c.width, c.height, 25, 1, 1, 1),
                  std::make_tuple(std::string(gst_video_format_to_string(GST_VIDEO_INFO_FORMAT(&info))), info.width,
                                  info.height, info.fps_n, info.fps_d, info.par_n, info.par_d));
    }

    // Through videoconvert to P010, the card goes out at 10 bits, not as 8-bit codes padded.
    Pipeline hdr(
        "pm5544src num-buffers=1 encoding=PQ ! capsfilter name=sink ! videoconvert ! "
        "video/x-raw,format=P010_10LE ! fakesink");
    ASSERT_FALSE(hdr.playToEnd().error);
    GstVideoInfo info;
    ASSERT_TRUE(gst_video_info_from_caps(&info, hdr.sinkCaps().get()));
    EXPECT_GE(GST_VIDEO_FORMAT_INFO_DEPTH(info.finfo, 0), 10u);

    Pipeline refused("pm5544src num-buffers=1 ! capsfilter name=filter ! fakesink");
    Caps rgba(gst_caps_from_string("video/x-raw,format=RGBA"));
    g_object_set(refused.byName("filter").get(), "caps", rgba.get(), nullptr);
    const BusRecord ending = refused.playToEnd();
    ASSERT_TRUE(ending.error);
    EXPECT_NE(std::string::npos, ending.debug.find("set an R'G'B' encoding")) << ending.debug;
}

// A conversion asked before the caps are known is refused quietly, not with a critical warning.
TEST(Pm5544Src, ConvertBeforeNegotiationIsRefusedQuietly) {
    CriticalCount criticals;
    Element src(gst_element_factory_make("pm5544src", nullptr));
    ASSERT_TRUE(src);
    gst_object_ref_sink(src.get());
    gint64 bytes = 0;
    EXPECT_FALSE(gst_element_query_convert(src.get(), GST_FORMAT_TIME, GST_SECOND, GST_FORMAT_BYTES, &bytes));
    EXPECT_EQ(0, criticals());
}

// A timecode set while playing starts at the next frame rendered, not at the frames counted so far.
TEST(Pm5544Src, ATimecodeSetWhilePlayingStartsAtTheNextFrame) {
    Harness h = liveHarness("clock=true timecode=10:00:00:00", videoCaps("I420"));
    auto next = [&] {
        Buffer buffer = nextLiveBuffer(h.get());
        return buffer ? timecodeOf(buffer.get()) : "";
    };
    EXPECT_EQ("10:00:00:00", next());
    EXPECT_EQ("10:00:00:01", next());
    Element src(gst_harness_find_element(h.get(), "pm5544src"));
    g_object_set(src.get(), "timecode", "11:00:00:00", nullptr);
    std::string first = next();
    if (first == "10:00:00:02") first = next();  // rendered before the change, waiting for its time
    EXPECT_EQ("11:00:00:00", first);
    EXPECT_EQ("11:00:00:01", next());
}

int secondsOfDay(const std::string& timecode) {
    return std::stoi(timecode.substr(0, 2)) * 3600 + std::stoi(timecode.substr(3, 2)) * 60 +
           std::stoi(timecode.substr(6, 2));
}

// After a pause, a time-of-day clock shows the time of day again rather than running late by the pause.
TEST(Pm5544Src, ATimeOfDayClockCatchesUpAfterAPause) {
    Pipeline pipeline("pm5544src is-live=true clock=true ! " + videoCaps("I420", 64, 64) + " ! appsink name=sink");
    auto latest = [&] {
        std::string timecode;
        for (int n = 0; n < 3; ++n) {
            Sample sample = pipeline.pullSample();
            if (!sample) return std::string();
            timecode = timecodeOf(gst_sample_get_buffer(sample.get()));
        }
        return timecode;
    };
    auto now = [] {
        GDateTime* time = g_date_time_new_now_local();
        const int seconds =
            g_date_time_get_hour(time) * 3600 + g_date_time_get_minute(time) * 60 + g_date_time_get_second(time);
        g_date_time_unref(time);
        return seconds;
    };
    gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
    ASSERT_FALSE(latest().empty());
    gst_element_set_state(pipeline.get(), GST_STATE_PAUSED);
    g_usleep(4 * G_USEC_PER_SEC);
    gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
    const std::string shown = latest();
    ASSERT_FALSE(shown.empty());
    const int late = (now() - secondsOfDay(shown) + 86400) % 86400;
    EXPECT_LE(late, 2) << shown << " after a 4 s pause";
}

}  // namespace
