/* pm5544src: the PM5544 test card as a GStreamer source, rendered by libpm5544.
 *
 * The card is rendered once into a reference frame held by the element; each later frame brings the
 * reference up to date (only the rows of a moving clock change) and copies it into the outgoing buffer.
 * A buffer from the element's own pool that comes back holding the frame before (nobody mapped it for
 * writing meanwhile) is brought up to date in place instead, which costs only the changed rows. */
#include <gst/base/gstpushsrc.h>
#include <gst/gst.h>
#include <gst/video/video.h>
#include <stdio.h>
#include <string.h>

#include "gstpm5544allocator.h"
#include "pm5544/pm5544.h"

GST_DEBUG_CATEGORY_STATIC(pm5544_src_debug);
#define GST_CAT_DEFAULT pm5544_src_debug

#define GST_TYPE_PM5544_SRC (gst_pm5544_src_get_type())
G_DECLARE_FINAL_TYPE(GstPm5544Src, gst_pm5544_src, GST, PM5544_SRC, GstPushSrc)

/* The GStreamer formats that have a library layout. */
typedef struct {
    GstVideoFormat format;
    pm5544_layout layout;
} FormatLayout;

static const FormatLayout format_layouts[] = {
    {GST_VIDEO_FORMAT_I420, PM5544_LAYOUT_I420_8},       {GST_VIDEO_FORMAT_I420_10LE, PM5544_LAYOUT_I420_10},
    {GST_VIDEO_FORMAT_I420_12LE, PM5544_LAYOUT_I420_12}, {GST_VIDEO_FORMAT_Y42B, PM5544_LAYOUT_I422_8},
    {GST_VIDEO_FORMAT_I422_10LE, PM5544_LAYOUT_I422_10}, {GST_VIDEO_FORMAT_I422_12LE, PM5544_LAYOUT_I422_12},
    {GST_VIDEO_FORMAT_Y444, PM5544_LAYOUT_I444_8},       {GST_VIDEO_FORMAT_Y444_10LE, PM5544_LAYOUT_I444_10},
    {GST_VIDEO_FORMAT_Y444_12LE, PM5544_LAYOUT_I444_12}, {GST_VIDEO_FORMAT_Y444_16LE, PM5544_LAYOUT_I444_16},
    {GST_VIDEO_FORMAT_v210, PM5544_LAYOUT_V210},         {GST_VIDEO_FORMAT_UYVY, PM5544_LAYOUT_UYVY},
    {GST_VIDEO_FORMAT_RGBA64_LE, PM5544_LAYOUT_RGBA16},  {GST_VIDEO_FORMAT_GBR_10LE, PM5544_LAYOUT_GBR_10},
    {GST_VIDEO_FORMAT_GBR_12LE, PM5544_LAYOUT_GBR_12},
};

/* The card's limits, as the library checks them. */
#define MIN_SIDE 64
#define MAX_SIDE 16384
#define MAX_RATE_TERM 1000000

/* What caps fix when downstream leaves them open. */
#define PREFERRED_WIDTH 1920
#define PREFERRED_HEIGHT 1080
#define PREFERRED_RATE_N 25
#define PREFERRED_RATE_D 1

#define DEFAULT_ENCODING PM5544_ENCODING_709

enum {
    PROP_0,
    PROP_ENCODING,
    PROP_IDENT,
    PROP_CAPTION,
    PROP_CLOCK,
    PROP_TIMECODE,
    PROP_FONT,
    PROP_EDGE_TAPER,
    PROP_IS_LIVE,
    PROP_TIMESTAMP_OFFSET,
};

struct _GstPm5544Src {
    GstPushSrc parent;

    /* Properties, under the object lock; a change takes effect from the next frame. */
    pm5544_encoding encoding;
    gchar* ident;
    gchar* caption;
    gboolean clock;
    gchar* timecode;
    gchar* font;
    gboolean edge_taper;
    gint64 timestamp_offset;
    gboolean settings_changed;

    /* Streaming thread. */
    GstVideoInfo info;
    pm5544_layout layout;
    pm5544_card* card;
    GstVideoTimeCode* first_timecode; /* frame 0's */
    GstBuffer* reference;             /* the frame last rendered, never sent */
    gint64 reference_frame;           /* which; -1: none yet */
    guint64 generation;               /* of the card: counts the cards built */
    GstAllocator* allocator;          /* of our own pool's buffers, which says whether one was written */
    gint64 n_frames;                  /* the next frame */
};

G_DEFINE_TYPE(GstPm5544Src, gst_pm5544_src, GST_TYPE_PUSH_SRC)

/* ---- Formats and caps ---- */

static const FormatLayout* format_layout(GstVideoFormat format) {
    for (guint i = 0; i < G_N_ELEMENTS(format_layouts); ++i)
        if (format_layouts[i].format == format) return &format_layouts[i];
    return NULL;
}

static GstVideoColorimetry colorimetry_of(pm5544_encoding encoding, int bits) {
    pm5544_colorimetry c;
    GstVideoColorimetry g;
    pm5544_encoding_colorimetry(encoding, &c);
    g.range = c.full_range ? GST_VIDEO_COLOR_RANGE_0_255 : GST_VIDEO_COLOR_RANGE_16_235;
    switch (c.matrix) {
        case PM5544_MATRIX_RGB:
            g.matrix = GST_VIDEO_COLOR_MATRIX_RGB;
            break;
        case PM5544_MATRIX_BT601:
            g.matrix = GST_VIDEO_COLOR_MATRIX_BT601;
            break;
        case PM5544_MATRIX_BT709:
            g.matrix = GST_VIDEO_COLOR_MATRIX_BT709;
            break;
        default:
            g.matrix = GST_VIDEO_COLOR_MATRIX_BT2020;
            break;
    }
    switch (c.primaries) {
        case PM5544_PRIMARIES_BT601:
            g.primaries = GST_VIDEO_COLOR_PRIMARIES_SMPTE170M;
            break;
        case PM5544_PRIMARIES_BT709:
            g.primaries = GST_VIDEO_COLOR_PRIMARIES_BT709;
            break;
        default:
            g.primaries = GST_VIDEO_COLOR_PRIMARIES_BT2020;
            break;
    }
    switch (c.transfer) {
        case PM5544_TRANSFER_PQ:
            g.transfer = GST_VIDEO_TRANSFER_SMPTE2084;
            break;
        case PM5544_TRANSFER_HLG:
            g.transfer = GST_VIDEO_TRANSFER_ARIB_STD_B67;
            break;
        /* GStreamer names no S-Log3 transfer: the stream says "unknown" rather than a wrong curve. */
        case PM5544_TRANSFER_SLOG3:
            g.transfer = GST_VIDEO_TRANSFER_UNKNOWN;
            break;
        default:
            /* One SDR curve, which GStreamer names after each standard. */
            if (c.primaries == PM5544_PRIMARIES_BT2020)
                g.transfer = bits > 10 ? GST_VIDEO_TRANSFER_BT2020_12 : GST_VIDEO_TRANSFER_BT2020_10;
            else
                g.transfer = c.matrix == PM5544_MATRIX_BT601 ? GST_VIDEO_TRANSFER_BT601 : GST_VIDEO_TRANSFER_BT709;
            break;
    }
    return g;
}

/* Where the card takes the chroma of a pair: its left pixel, and its top row in 4:2:0. */
static const gchar* chroma_site_of(int sampling) {
    return sampling == 420 ? "cosited" : sampling == 422 ? "mpeg2" : NULL;
}

/* The caps of every format the encoding can have. */
static GstCaps* caps_for_encoding(pm5544_encoding encoding) {
    GstCaps* caps = gst_caps_new_empty();
    for (guint i = 0; i < G_N_ELEMENTS(format_layouts); ++i) {
        if (pm5544_layout_allows(format_layouts[i].layout, encoding) != 1) continue;
        int bits = 0, sampling = 0;
        pm5544_layout_format(format_layouts[i].layout, &bits, &sampling);
        GstVideoColorimetry colorimetry = colorimetry_of(encoding, bits);
        gchar* colorimetry_text = gst_video_colorimetry_to_string(&colorimetry);
        GstStructure* s = gst_structure_new(
            "video/x-raw", "format", G_TYPE_STRING, gst_video_format_to_string(format_layouts[i].format), "width",
            GST_TYPE_INT_RANGE, MIN_SIDE, MAX_SIDE, "height", GST_TYPE_INT_RANGE, MIN_SIDE, MAX_SIDE, "framerate",
            GST_TYPE_FRACTION_RANGE, 1, MAX_RATE_TERM, MAX_RATE_TERM, 1, "pixel-aspect-ratio", GST_TYPE_FRACTION_RANGE,
            1, 4, 4, 1, "interlace-mode", G_TYPE_STRING, "progressive", NULL);
        if (colorimetry_text != NULL) gst_structure_set(s, "colorimetry", G_TYPE_STRING, colorimetry_text, NULL);
        if (chroma_site_of(sampling) != NULL)
            gst_structure_set(s, "chroma-site", G_TYPE_STRING, chroma_site_of(sampling), NULL);
        g_free(colorimetry_text);
        gst_caps_append_structure(caps, s);
    }
    return caps;
}

static GstCaps* template_caps(void) {
    GstCaps* caps = gst_caps_new_empty();
    for (int encoding = PM5544_ENCODING_RGB; encoding <= PM5544_ENCODING_RGB_SLOG3_LIVE_MAPPED; ++encoding)
        caps = gst_caps_merge(caps, caps_for_encoding((pm5544_encoding)encoding));
    return gst_caps_simplify(caps);
}

static GstCaps* gst_pm5544_src_get_caps(GstBaseSrc* base, GstCaps* filter) {
    GstPm5544Src* src = GST_PM5544_SRC(base);
    GST_OBJECT_LOCK(src);
    const pm5544_encoding encoding = src->encoding;
    GST_OBJECT_UNLOCK(src);
    GstCaps* caps = caps_for_encoding(encoding);
    if (filter != NULL) {
        GstCaps* both = gst_caps_intersect_full(filter, caps, GST_CAPS_INTERSECT_FIRST);
        gst_caps_unref(caps);
        caps = both;
    }
    return caps;
}

static GstCaps* gst_pm5544_src_fixate(GstBaseSrc* base, GstCaps* caps) {
    caps = gst_caps_truncate(gst_caps_make_writable(caps));
    GstStructure* s = gst_caps_get_structure(caps, 0);
    gst_structure_fixate_field_nearest_int(s, "width", PREFERRED_WIDTH);
    gst_structure_fixate_field_nearest_int(s, "height", PREFERRED_HEIGHT);
    gst_structure_fixate_field_nearest_fraction(s, "framerate", PREFERRED_RATE_N, PREFERRED_RATE_D);
    if (gst_structure_has_field(s, "pixel-aspect-ratio"))
        gst_structure_fixate_field_nearest_fraction(s, "pixel-aspect-ratio", 1, 1);
    return GST_BASE_SRC_CLASS(gst_pm5544_src_parent_class)->fixate(base, caps);
}

/* Caps downstream insists on that the card cannot make are refused with what it can make. */
static gboolean gst_pm5544_src_negotiate(GstBaseSrc* base) {
    if (GST_BASE_SRC_CLASS(gst_pm5544_src_parent_class)->negotiate(base)) return TRUE;
    GstPm5544Src* src = GST_PM5544_SRC(base);
    GstCaps* wanted = gst_pad_peer_query_caps(GST_BASE_SRC_PAD(base), NULL);
    GST_OBJECT_LOCK(src);
    const pm5544_encoding encoding = src->encoding;
    GST_OBJECT_UNLOCK(src);
    gchar* wanted_text = gst_caps_to_string(wanted);
    GST_ELEMENT_ERROR(src, CORE, NEGOTIATION, ("The card cannot make what downstream accepts"),
                      ("The encoding %s comes in %s formats, %dx%d to %dx%d, pixel aspect 1/4 to 4/1; downstream "
                       "accepts %s",
                       pm5544_encoding_name(encoding), pm5544_encoding_is_ycbcr(encoding) ? "Y'CbCr" : "R'G'B'",
                       MIN_SIDE, MIN_SIDE, MAX_SIDE, MAX_SIDE, wanted_text));
    g_free(wanted_text);
    gst_caps_unref(wanted);
    return FALSE;
}

/* ---- The card ---- */

static void forward_message(void* user_data, pm5544_message_kind kind, const char* line) {
    GstPm5544Src* src = user_data;
    if (kind == PM5544_MESSAGE_WARNING)
        GST_ELEMENT_WARNING(src, RESOURCE, SETTINGS, ("%s", line), (NULL));
    else
        GST_INFO_OBJECT(src, "%s", line);
}

/* The display aspect the negotiated pixel aspect gives the raster, in lowest terms. */
static void display_aspect(const GstVideoInfo* info, gint64* num, gint64* den) {
    const gint64 n = (gint64)info->width * info->par_n, d = (gint64)info->height * info->par_d;
    gint64 a = n, b = d;
    while (b != 0) {
        const gint64 r = a % b;
        a = b, b = r;
    }
    *num = n / a, *den = d / a;
}

/* The timecode of frame 0: the property's, else the time of day the clock starts from. */
static GstVideoTimeCode* first_timecode_of(const gchar* timecode, const GstVideoInfo* info, GDateTime* now) {
    guint h = 0, m = 0, s = 0, f = 0;
    char separator = ':';
    GstVideoTimeCodeFlags flags = GST_VIDEO_TIME_CODE_FLAGS_NONE;
    if (timecode != NULL && sscanf(timecode, "%2u:%2u:%2u%c%2u", &h, &m, &s, &separator, &f) == 5) {
        if (separator == ';') flags |= GST_VIDEO_TIME_CODE_FLAGS_DROP_FRAME;
    } else {
        h = (guint)g_date_time_get_hour(now), m = (guint)g_date_time_get_minute(now);
        s = (guint)MIN(g_date_time_get_second(now), 59);
    }
    return gst_video_time_code_new((guint)info->fps_n, (guint)info->fps_d, NULL, flags, h, m, s, f, 0);
}

/* Whether GstVideoTimeCode can count at the code's rate: whole rates or the 1001 rates it names (it
 * refuses others), and no more frames an hour than a gint holds (its arithmetic overflows past that). */
static gboolean timecode_countable(const GstVideoTimeCode* tc) {
    if (!gst_video_time_code_is_valid(tc)) return FALSE;
    const guint64 nominal = ((guint64)tc->config.fps_n + tc->config.fps_d / 2) / tc->config.fps_d;
    return nominal * 3600 <= G_MAXINT;
}

/* Builds the card for the negotiated format and the properties; FALSE after posting why not. */
static gboolean configure_card(GstPm5544Src* src) {
    const GstVideoInfo* info = &src->info;
    pm5544_card* card = pm5544_card_new();
    if (card == NULL) {
        GST_ELEMENT_ERROR(src, RESOURCE, NO_SPACE_LEFT, ("Not enough memory for the card"), (NULL));
        return FALSE;
    }
    gint64 aspect_num = 0, aspect_den = 0;
    display_aspect(info, &aspect_num, &aspect_den);
    GDateTime* now = g_date_time_new_now_local();
    pm5544_set_message_callback(card, forward_message, src);
    GST_OBJECT_LOCK(src);
    pm5544_status status = pm5544_set_raster(card, info->width, info->height);
    if (aspect_num > G_MAXINT || aspect_den > G_MAXINT) aspect_num = aspect_den = 0; /* refused below */
    if (status == PM5544_OK) status = pm5544_set_aspect(card, (int)aspect_num, (int)aspect_den);
    if (status == PM5544_OK) status = pm5544_set_encoding(card, src->encoding);
    if (status == PM5544_OK) status = pm5544_use_layout(card, src->layout);
    if (status == PM5544_OK) status = pm5544_set_edge_taper(card, src->edge_taper);
    if (status == PM5544_OK) status = pm5544_set_ident(card, src->ident);
    if (status == PM5544_OK) status = pm5544_set_caption(card, src->caption);
    if (status == PM5544_OK) status = pm5544_set_clock(card, src->clock);
    if (status == PM5544_OK) status = pm5544_set_frame_rate(card, info->fps_n, info->fps_d);
    if (status == PM5544_OK) status = pm5544_set_timecode(card, src->timecode);
    if (status == PM5544_OK)
        status = pm5544_set_time_of_day(card, g_date_time_get_hour(now), g_date_time_get_minute(now),
                                        MIN(g_date_time_get_second(now), 59));
    if (status == PM5544_OK) status = pm5544_set_font(card, src->font);
    GstVideoTimeCode* first = first_timecode_of(src->timecode, info, now);
    if (!timecode_countable(first)) {
        GST_INFO_OBJECT(src, "no time code meta at %d/%d frames a second", info->fps_n, info->fps_d);
        gst_video_time_code_free(first);
        first = NULL;
    }
    src->settings_changed = FALSE;
    GST_OBJECT_UNLOCK(src);
    g_date_time_unref(now);

    if (status == PM5544_OK) status = pm5544_prepare(card);
    if (status != PM5544_OK) {
        GST_ELEMENT_ERROR(src, CORE, NEGOTIATION, ("%s", pm5544_last_error(card)), (NULL));
        pm5544_card_free(card);
        if (first != NULL) gst_video_time_code_free(first);
        return FALSE;
    }
    if (src->card != NULL) pm5544_card_free(src->card);
    if (src->first_timecode != NULL) gst_video_time_code_free(src->first_timecode);
    src->card = card;
    src->generation += 1;
    src->first_timecode = first;
    src->reference_frame = -1;
    return TRUE;
}

static gboolean gst_pm5544_src_set_caps(GstBaseSrc* base, GstCaps* caps) {
    GstPm5544Src* src = GST_PM5544_SRC(base);
    GstVideoInfo info;
    if (!gst_video_info_from_caps(&info, caps)) return FALSE;
    const FormatLayout* format = format_layout(GST_VIDEO_INFO_FORMAT(&info));
    if (format == NULL || info.fps_n <= 0) return FALSE;
    src->info = info;
    src->layout = format->layout;
    gst_clear_buffer(&src->reference);
    src->reference = gst_buffer_new_allocate(NULL, info.size, NULL);
    return src->reference != NULL && configure_card(src);
}

/* ---- Buffers ---- */

/* The base class gives the pool the query's first allocator: ours, unless downstream asks for memory other
 * than system memory (which ours is), keeping the alignment and padding it asks for. */
static void use_own_allocator(GstQuery* query, GstAllocator* own) {
    GstAllocator* theirs = NULL;
    GstAllocationParams params;
    gst_allocation_params_init(&params);
    const gboolean offered = gst_query_get_n_allocation_params(query) > 0;
    if (offered) gst_query_parse_nth_allocation_param(query, 0, &theirs, &params);
    const gboolean system_memory =
        theirs == NULL || theirs == own || g_strcmp0(theirs->mem_type, GST_ALLOCATOR_SYSMEM) == 0;
    if (system_memory) {
        if (offered)
            gst_query_set_nth_allocation_param(query, 0, own, &params);
        else
            gst_query_add_allocation_param(query, own, &params);
    }
    if (theirs != NULL) gst_object_unref(theirs);
}

static gboolean gst_pm5544_src_decide_allocation(GstBaseSrc* base, GstQuery* query) {
    GstPm5544Src* src = GST_PM5544_SRC(base);
    GstBufferPool* pool = NULL;
    guint size = src->info.size, min = 0, max = 0;
    gboolean update = gst_query_get_n_allocation_pools(query) > 0;
    if (update) {
        gst_query_parse_nth_allocation_pool(query, 0, &pool, &size, &min, &max);
        size = MAX(size, (guint)src->info.size);
    }
    /* Our own pool unless downstream offers one: its memory tells when anyone writes into it. */
    if (pool == NULL) pool = gst_video_buffer_pool_new();
    GstStructure* config = gst_buffer_pool_get_config(pool);
    GstCaps* caps = NULL;
    gst_query_parse_allocation(query, &caps, NULL);
    gst_buffer_pool_config_set_params(config, caps, size, min, max);
    if (gst_query_find_allocation_meta(query, GST_VIDEO_META_API_TYPE, NULL))
        gst_buffer_pool_config_add_option(config, GST_BUFFER_POOL_OPTION_VIDEO_META);
    GstAllocator* allocator = NULL;
    gst_buffer_pool_config_get_allocator(config, &allocator, NULL);
    if (allocator == NULL || GST_IS_PM5544_ALLOCATOR(allocator)) {
        if (src->allocator == NULL) src->allocator = gst_pm5544_allocator_new();
        gst_buffer_pool_config_set_allocator(config, src->allocator, NULL);
        use_own_allocator(query, src->allocator);
    }
    gst_buffer_pool_set_config(pool, config);
    if (update)
        gst_query_set_nth_allocation_pool(query, 0, pool, size, min, max);
    else
        gst_query_add_allocation_pool(query, pool, size, min, max);
    gst_object_unref(pool);
    return GST_BASE_SRC_CLASS(gst_pm5544_src_parent_class)->decide_allocation(base, query);
}

static GstClockTime time_of_frame(const GstPm5544Src* src, gint64 frame) {
    return gst_util_uint64_scale((guint64)frame, (guint64)src->info.fps_d * GST_SECOND, (guint64)src->info.fps_n);
}

/* Brings the reference to frame n. */
static gboolean update_reference(GstPm5544Src* src, gint64 n) {
    GstVideoFrame frame;
    if (!gst_video_frame_map(&frame, &src->info, src->reference, GST_MAP_WRITE)) return FALSE;
    void* planes[GST_VIDEO_MAX_PLANES];
    size_t strides[GST_VIDEO_MAX_PLANES];
    for (guint p = 0; p < GST_VIDEO_FRAME_N_PLANES(&frame); ++p) {
        planes[p] = GST_VIDEO_FRAME_PLANE_DATA(&frame, p);
        strides[p] = (size_t)GST_VIDEO_FRAME_PLANE_STRIDE(&frame, p);
    }
    const pm5544_status status =
        pm5544_update_frame(src->card, n, src->reference_frame, src->layout, planes, strides, NULL);
    gst_video_frame_unmap(&frame);
    if (status != PM5544_OK) {
        GST_ELEMENT_ERROR(src, LIBRARY, FAILED, ("%s", pm5544_last_error(src->card)), (NULL));
        return FALSE;
    }
    src->reference_frame = n;
    return TRUE;
}

/* Copies into the buffer the rows of the reference from first_row on, count of them (all: -1). */
static gboolean copy_reference(GstPm5544Src* src, GstBuffer* buffer, int first_row, int count) {
    GstVideoFrame from, to;
    if (!gst_video_frame_map(&from, &src->info, src->reference, GST_MAP_READ)) return FALSE;
    if (!gst_video_frame_map(&to, &src->info, buffer, GST_MAP_WRITE)) {
        gst_video_frame_unmap(&from);
        return FALSE;
    }
    gboolean copied = TRUE;
    if (count < 0) {
        copied = gst_video_frame_copy(&to, &from);
    } else {
        for (guint p = 0; p < GST_VIDEO_FRAME_N_PLANES(&to); ++p) {
            /* A plane's rows against the frame's: 4:2:0 chroma has one for each pair. */
            const int rows_step = GST_VIDEO_FRAME_HEIGHT(&to) / GST_VIDEO_FRAME_COMP_HEIGHT(&to, p == 0 ? 0 : 1);
            const int step = rows_step > 1 ? 2 : 1;
            const int first = first_row / step, end = (first_row + count + step - 1) / step;
            const gint from_stride = GST_VIDEO_FRAME_PLANE_STRIDE(&from, p);
            const gint to_stride = GST_VIDEO_FRAME_PLANE_STRIDE(&to, p);
            const gsize row_bytes = (gsize)MIN(from_stride, to_stride);
            for (int r = first; r < end; ++r)
                memcpy((guint8*)GST_VIDEO_FRAME_PLANE_DATA(&to, p) + (gsize)r * to_stride,
                       (const guint8*)GST_VIDEO_FRAME_PLANE_DATA(&from, p) + (gsize)r * from_stride, row_bytes);
        }
    }
    gst_video_frame_unmap(&to);
    gst_video_frame_unmap(&from);
    return copied;
}

/* Frame n into the buffer: only the changed rows when it is one of ours still holding an earlier frame
 * untouched, else the whole reference. */
static gboolean render_into(GstPm5544Src* src, GstBuffer* buffer, gint64 n) {
    if (!update_reference(src, n)) return FALSE;
    GstMemory* memory = gst_buffer_n_memory(buffer) == 1 ? gst_buffer_peek_memory(buffer, 0) : NULL;
    const gint64 held = memory != NULL ? gst_pm5544_memory_held_frame(memory, src->generation) : -1;
    gboolean copied;
    if (held >= 0) {
        pm5544_rows changed = {0, 0};
        if (pm5544_changed_rows(src->card, held, n, &changed) != PM5544_OK) return FALSE;
        copied = changed.row_count == 0 || copy_reference(src, buffer, changed.first_row, changed.row_count);
    } else {
        copied = copy_reference(src, buffer, 0, -1);
    }
    if (copied && memory != NULL) gst_pm5544_memory_set_held_frame(memory, src->generation, n);
    return copied;
}

static void add_timecode_meta(GstPm5544Src* src, GstBuffer* buffer, gint64 n) {
    if (src->first_timecode == NULL) return;
    GstVideoTimeCode* tc = gst_video_time_code_copy(src->first_timecode);
    gst_video_time_code_add_frames(tc, n);
    gst_buffer_add_video_time_code_meta(buffer, tc);
    gst_video_time_code_free(tc);
}

static GstFlowReturn gst_pm5544_src_fill(GstPushSrc* push, GstBuffer* buffer) {
    GstPm5544Src* src = GST_PM5544_SRC(push);
    if (src->card == NULL) return GST_FLOW_NOT_NEGOTIATED;
    GST_OBJECT_LOCK(src);
    const gboolean changed = src->settings_changed;
    const GstClockTime offset = (GstClockTime)src->timestamp_offset;
    GST_OBJECT_UNLOCK(src);
    if (changed && !configure_card(src)) return GST_FLOW_ERROR;

    const gint64 n = src->n_frames;
    if (!render_into(src, buffer, n)) return GST_FLOW_ERROR;
    const GstClockTime start = time_of_frame(src, n), end = time_of_frame(src, n + 1);
    GST_BUFFER_PTS(buffer) = offset + start;
    GST_BUFFER_DTS(buffer) = GST_CLOCK_TIME_NONE;
    GST_BUFFER_DURATION(buffer) = end - start;
    GST_BUFFER_OFFSET(buffer) = (guint64)n;
    GST_BUFFER_OFFSET_END(buffer) = (guint64)n + 1;
    add_timecode_meta(src, buffer, n);
    src->n_frames = n + 1;
    return GST_FLOW_OK;
}

/* A live source is paced by the pipeline clock: each buffer is due at its timestamp. */
static void gst_pm5544_src_get_times(GstBaseSrc* base, GstBuffer* buffer, GstClockTime* start, GstClockTime* end) {
    *start = *end = GST_CLOCK_TIME_NONE;
    if (!gst_base_src_is_live(base) || !GST_BUFFER_PTS_IS_VALID(buffer)) return;
    *start = GST_BUFFER_PTS(buffer);
    if (GST_BUFFER_DURATION_IS_VALID(buffer)) *end = *start + GST_BUFFER_DURATION(buffer);
}

static gboolean gst_pm5544_src_query(GstBaseSrc* base, GstQuery* query) {
    GstPm5544Src* src = GST_PM5544_SRC(base);
    if (GST_QUERY_TYPE(query) == GST_QUERY_LATENCY && src->info.fps_n > 0) {
        /* A frame is ready one frame's time after its first instant. */
        const GstClockTime latency = time_of_frame(src, 1);
        gst_query_set_latency(query, gst_base_src_is_live(base), latency, GST_CLOCK_TIME_NONE);
        return TRUE;
    }
    if (GST_QUERY_TYPE(query) == GST_QUERY_CONVERT) {
        GstFormat from_format, to_format;
        gint64 from_value, to_value;
        gst_query_parse_convert(query, &from_format, &from_value, &to_format, &to_value);
        if (gst_video_info_convert(&src->info, from_format, from_value, to_format, &to_value)) {
            gst_query_set_convert(query, from_format, from_value, to_format, to_value);
            return TRUE;
        }
        return FALSE;
    }
    return GST_BASE_SRC_CLASS(gst_pm5544_src_parent_class)->query(base, query);
}

static gboolean gst_pm5544_src_is_seekable(GstBaseSrc* base) {
    (void)base;
    return TRUE;
}

/* A seek goes to the first frame at or after the position. */
static gboolean gst_pm5544_src_do_seek(GstBaseSrc* base, GstSegment* segment) {
    GstPm5544Src* src = GST_PM5544_SRC(base);
    segment->time = segment->start;
    if (src->info.fps_n <= 0) return TRUE;
    const guint64 frame_time = (guint64)src->info.fps_d * GST_SECOND;
    src->n_frames = (gint64)gst_util_uint64_scale_ceil(segment->position, (guint64)src->info.fps_n, frame_time);
    return TRUE;
}

static gboolean gst_pm5544_src_start(GstBaseSrc* base) {
    GstPm5544Src* src = GST_PM5544_SRC(base);
    src->n_frames = 0;
    src->reference_frame = -1;
    gst_video_info_init(&src->info);
    return TRUE;
}

static gboolean gst_pm5544_src_stop(GstBaseSrc* base) {
    GstPm5544Src* src = GST_PM5544_SRC(base);
    if (src->card != NULL) pm5544_card_free(src->card);
    src->card = NULL;
    if (src->first_timecode != NULL) gst_video_time_code_free(src->first_timecode);
    src->first_timecode = NULL;
    gst_clear_buffer(&src->reference);
    return TRUE;
}

/* ---- Properties ---- */

static GType encoding_type(void) {
    static gsize type = 0;
    static GEnumValue values[PM5544_ENCODING_RGB_SLOG3_LIVE_MAPPED + 2];
    if (g_once_init_enter(&type)) {
        for (int e = 0; e <= PM5544_ENCODING_RGB_SLOG3_LIVE_MAPPED; ++e) {
            values[e].value = e;
            values[e].value_name = pm5544_encoding_description((pm5544_encoding)e);
            values[e].value_nick = pm5544_encoding_name((pm5544_encoding)e);
        }
        g_once_init_leave(&type, g_enum_register_static("GstPm5544Encoding", values));
    }
    return (GType)type;
}

typedef struct {
    guint id;
    const gchar* name;
    const gchar* nick;
    const gchar* blurb;
} StringProperty;

static const StringProperty string_properties[] = {
    {PROP_IDENT, "ident", "Ident", "Station identification in the box at the top of the circle"},
    {PROP_CAPTION, "caption", "Caption", "Text in the black bar below the grey scale (unless clock)"},
    {PROP_TIMECODE, "timecode", "Timecode",
     "The first frame's timecode, HH:MM:SS:FF, or HH:MM:SS;FF counted drop-frame"},
    {PROP_FONT, "font", "Font", "Fontconfig name of the text's font (default DejaVu Sans)"},
};

typedef struct {
    guint id;
    const gchar* name;
    const gchar* nick;
    const gchar* blurb;
    gboolean default_value;
} BooleanProperty;

static const BooleanProperty boolean_properties[] = {
    {PROP_CLOCK, "clock", "Clock", "A clock in the bar below the grey scale: the timecode if set, else the time of day",
     FALSE},
    {PROP_EDGE_TAPER, "edge-taper", "Edge taper", "Taper the two outermost columns towards black", TRUE},
    {PROP_IS_LIVE, "is-live", "Is live", "Act as a live source, paced by the pipeline clock", FALSE},
};

static void replace_string(gchar** field, const GValue* value) {
    g_free(*field);
    *field = g_value_dup_string(value);
}

static void gst_pm5544_src_set_property(GObject* object, guint id, const GValue* value, GParamSpec* spec) {
    GstPm5544Src* src = GST_PM5544_SRC(object);
    if (id == PROP_IS_LIVE) {
        gst_base_src_set_live(GST_BASE_SRC(src), g_value_get_boolean(value));
        return;
    }
    GST_OBJECT_LOCK(src);
    switch (id) {
        case PROP_ENCODING:
            src->encoding = (pm5544_encoding)g_value_get_enum(value);
            break;
        case PROP_IDENT:
            replace_string(&src->ident, value);
            break;
        case PROP_CAPTION:
            replace_string(&src->caption, value);
            break;
        case PROP_CLOCK:
            src->clock = g_value_get_boolean(value);
            break;
        case PROP_TIMECODE:
            replace_string(&src->timecode, value);
            break;
        case PROP_FONT:
            replace_string(&src->font, value);
            break;
        case PROP_EDGE_TAPER:
            src->edge_taper = g_value_get_boolean(value);
            break;
        case PROP_TIMESTAMP_OFFSET:
            src->timestamp_offset = g_value_get_int64(value);
            break;
        default:
            G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
            break;
    }
    if (src->card != NULL && id != PROP_TIMESTAMP_OFFSET) src->settings_changed = TRUE;
    GST_OBJECT_UNLOCK(src);
    /* Another encoding may need other caps. */
    if (id == PROP_ENCODING) gst_pad_mark_reconfigure(GST_BASE_SRC_PAD(src));
}

static void gst_pm5544_src_get_property(GObject* object, guint id, GValue* value, GParamSpec* spec) {
    GstPm5544Src* src = GST_PM5544_SRC(object);
    if (id == PROP_IS_LIVE) {
        g_value_set_boolean(value, gst_base_src_is_live(GST_BASE_SRC(src)));
        return;
    }
    GST_OBJECT_LOCK(src);
    switch (id) {
        case PROP_ENCODING:
            g_value_set_enum(value, src->encoding);
            break;
        case PROP_IDENT:
            g_value_set_string(value, src->ident);
            break;
        case PROP_CAPTION:
            g_value_set_string(value, src->caption);
            break;
        case PROP_CLOCK:
            g_value_set_boolean(value, src->clock);
            break;
        case PROP_TIMECODE:
            g_value_set_string(value, src->timecode);
            break;
        case PROP_FONT:
            g_value_set_string(value, src->font);
            break;
        case PROP_EDGE_TAPER:
            g_value_set_boolean(value, src->edge_taper);
            break;
        case PROP_TIMESTAMP_OFFSET:
            g_value_set_int64(value, src->timestamp_offset);
            break;
        default:
            G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
            break;
    }
    GST_OBJECT_UNLOCK(src);
}

static void gst_pm5544_src_finalize(GObject* object) {
    GstPm5544Src* src = GST_PM5544_SRC(object);
    g_free(src->ident);
    g_free(src->caption);
    g_free(src->timecode);
    g_free(src->font);
    if (src->allocator != NULL) gst_object_unref(src->allocator);
    G_OBJECT_CLASS(gst_pm5544_src_parent_class)->finalize(object);
}

static void gst_pm5544_src_class_init(GstPm5544SrcClass* klass) {
    GObjectClass* object_class = G_OBJECT_CLASS(klass);
    GstElementClass* element_class = GST_ELEMENT_CLASS(klass);
    GstBaseSrcClass* base_class = GST_BASE_SRC_CLASS(klass);
    GstPushSrcClass* push_class = GST_PUSH_SRC_CLASS(klass);

    object_class->set_property = gst_pm5544_src_set_property;
    object_class->get_property = gst_pm5544_src_get_property;
    object_class->finalize = gst_pm5544_src_finalize;

    const GParamFlags flags = G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS;
    g_object_class_install_property(
        object_class, PROP_ENCODING,
        g_param_spec_enum("encoding", "Encoding", "Colour encoding, by the names pm5544 -c takes", encoding_type(),
                          DEFAULT_ENCODING, flags));
    for (guint i = 0; i < G_N_ELEMENTS(string_properties); ++i) {
        const StringProperty* p = &string_properties[i];
        g_object_class_install_property(object_class, p->id,
                                        g_param_spec_string(p->name, p->nick, p->blurb, NULL, flags));
    }
    for (guint i = 0; i < G_N_ELEMENTS(boolean_properties); ++i) {
        const BooleanProperty* p = &boolean_properties[i];
        g_object_class_install_property(object_class, p->id,
                                        g_param_spec_boolean(p->name, p->nick, p->blurb, p->default_value, flags));
    }
    g_object_class_install_property(
        object_class, PROP_TIMESTAMP_OFFSET,
        g_param_spec_int64("timestamp-offset", "Timestamp offset", "Added to every buffer's timestamp, in ns", 0,
                           G_MAXINT64, 0, flags));

    gst_element_class_set_static_metadata(element_class, "PM5544 test card", "Source/Video",
                                          "The Philips PM5544 test card, bit-exact, SDR and HDR", "pm5544 developers");
    GstCaps* caps = template_caps();
    gst_element_class_add_pad_template(element_class, gst_pad_template_new("src", GST_PAD_SRC, GST_PAD_ALWAYS, caps));
    gst_caps_unref(caps);

    base_class->get_caps = gst_pm5544_src_get_caps;
    base_class->fixate = gst_pm5544_src_fixate;
    base_class->negotiate = gst_pm5544_src_negotiate;
    base_class->set_caps = gst_pm5544_src_set_caps;
    base_class->decide_allocation = gst_pm5544_src_decide_allocation;
    base_class->get_times = gst_pm5544_src_get_times;
    base_class->query = gst_pm5544_src_query;
    base_class->is_seekable = gst_pm5544_src_is_seekable;
    base_class->do_seek = gst_pm5544_src_do_seek;
    base_class->start = gst_pm5544_src_start;
    base_class->stop = gst_pm5544_src_stop;
    push_class->fill = gst_pm5544_src_fill;

    gst_type_mark_as_plugin_api(encoding_type(), 0);
}

static void gst_pm5544_src_init(GstPm5544Src* src) {
    src->encoding = DEFAULT_ENCODING;
    src->edge_taper = TRUE;
    src->reference_frame = -1;
    gst_base_src_set_format(GST_BASE_SRC(src), GST_FORMAT_TIME);
}

static gboolean plugin_init(GstPlugin* plugin) {
    GST_DEBUG_CATEGORY_INIT(pm5544_src_debug, "pm5544src", 0, "PM5544 test card source");
    return gst_element_register(plugin, "pm5544src", GST_RANK_NONE, GST_TYPE_PM5544_SRC);
}

#define PACKAGE "pm5544"
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, pm5544, "The PM5544 test card as a video source", plugin_init,
                  PM5544_PLUGIN_VERSION, GST_LICENSE_UNKNOWN, "pm5544", "Unknown package origin")
