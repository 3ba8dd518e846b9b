/* pm5544src: the PM5544 test card as a GStreamer source, rendered by libpm5544.
 *
 * The card is rendered once into a reference frame held by the element; each later frame brings the
 * reference up to date (only the rows of a moving clock change) and copies it into the outgoing buffer.
 * A buffer from the element's own pool that comes back holding the frame before (nobody mapped it for
 * writing meanwhile) is brought up to date in place instead, which costs only the changed rows.
 *
 * A channel on air never stops for a setting: a property the card refuses while streaming is reported
 * on the bus and the card goes on with the settings before it. */
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

/* The GStreamer formats that have a library layout, in the order offered at each depth. */
typedef struct {
    GstVideoFormat format;
    pm5544_layout layout;
} FormatLayout;

static const FormatLayout format_layouts[] = {
    {GST_VIDEO_FORMAT_I420, PM5544_LAYOUT_I420_8},
    {GST_VIDEO_FORMAT_NV12, PM5544_LAYOUT_NV12},
    {GST_VIDEO_FORMAT_I420_10LE, PM5544_LAYOUT_I420_10},
    {GST_VIDEO_FORMAT_P010_10LE, PM5544_LAYOUT_P010_10LE},
    {GST_VIDEO_FORMAT_I420_12LE, PM5544_LAYOUT_I420_12},
    {GST_VIDEO_FORMAT_P016_LE, PM5544_LAYOUT_P016_LE},
    {GST_VIDEO_FORMAT_Y42B, PM5544_LAYOUT_I422_8},
    {GST_VIDEO_FORMAT_UYVY, PM5544_LAYOUT_UYVY},
    {GST_VIDEO_FORMAT_YUY2, PM5544_LAYOUT_YUY2},
    {GST_VIDEO_FORMAT_I422_10LE, PM5544_LAYOUT_I422_10},
    {GST_VIDEO_FORMAT_v210, PM5544_LAYOUT_V210},
    {GST_VIDEO_FORMAT_I422_12LE, PM5544_LAYOUT_I422_12},
    {GST_VIDEO_FORMAT_Y444, PM5544_LAYOUT_I444_8},
    {GST_VIDEO_FORMAT_Y444_10LE, PM5544_LAYOUT_I444_10},
    {GST_VIDEO_FORMAT_Y444_12LE, PM5544_LAYOUT_I444_12},
    {GST_VIDEO_FORMAT_Y444_16LE, PM5544_LAYOUT_I444_16},
    {GST_VIDEO_FORMAT_RGBA, PM5544_LAYOUT_RGBA},
    {GST_VIDEO_FORMAT_BGRA, PM5544_LAYOUT_BGRA},
    {GST_VIDEO_FORMAT_RGBx, PM5544_LAYOUT_RGBX},
    {GST_VIDEO_FORMAT_BGRx, PM5544_LAYOUT_BGRX},
    {GST_VIDEO_FORMAT_GBR_10LE, PM5544_LAYOUT_GBR_10},
    {GST_VIDEO_FORMAT_GBR_12LE, PM5544_LAYOUT_GBR_12},
    {GST_VIDEO_FORMAT_RGBA64_LE, PM5544_LAYOUT_RGBA16},
};

/* What caps fix when downstream leaves them open: HD at 25 frames, square pixels, 16:9. */
#define PREFERRED_WIDTH 1920
#define PREFERRED_RATE_N 25
#define PREFERRED_RATE_D 1
#define PREFERRED_ASPECT_N 16
#define PREFERRED_ASPECT_D 9

/* Wide colour and high dynamic range lose steps below 10 bits. */
#define WHOLE_WIDE_BITS 10

#define DEFAULT_ENCODING PM5544_ENCODING_709

enum {
    PROP_0,
    PROP_ENCODING,
    PROP_IDENT,
    PROP_CAPTION,
    PROP_CLOCK,
    PROP_TIMECODE,
    PROP_FONT,
    PROP_IS_LIVE,
    PROP_TIMESTAMP_OFFSET,
};

/* The properties a card is built from. */
typedef struct {
    pm5544_encoding encoding;
    gchar* ident;
    gchar* caption;
    gboolean clock;
    gchar* timecode;
    gchar* font;
} CardProperties;

struct _GstPm5544Src {
    GstPushSrc parent;

    /* Under the object lock: the properties as set, which reach the card from the next frame, and what
     * queries on other threads read. */
    CardProperties wanted;
    gboolean wanted_changed;
    gboolean clock_resync; /* playing again: a time-of-day clock is to show the time of day again */
    gint64 timestamp_offset;
    GstVideoInfo info;

    /* Streaming thread. */
    CardProperties applied; /* the card's */
    pm5544_layout layout;
    gboolean caps_changed; /* the card is to be built for new caps */
    gchar* caps_fault;     /* why the last caps were refused */
    pm5544_card* card;
    guint64 generation;               /* of the card: unique in the process */
    gint64 clock_base;                /* the stream's frame that is the card's frame 0 */
    GstVideoTimeCode* first_timecode; /* the card's frame 0's */
    GstBuffer* reference;             /* the frame last rendered, never sent */
    gint64 reference_frame;           /* which of the card's; -1: none yet */
    GstAllocator* allocator;          /* of our own pool's buffers, which says whether one was written */
    gint64 n_frames;                  /* the stream's next frame */
    gboolean reverse;                 /* frames count down */
};

G_DEFINE_TYPE(GstPm5544Src, gst_pm5544_src, GST_TYPE_PUSH_SRC)

/* ---- Card properties ---- */

static void properties_clear(CardProperties* p) {
    g_clear_pointer(&p->ident, g_free);
    g_clear_pointer(&p->caption, g_free);
    g_clear_pointer(&p->timecode, g_free);
    g_clear_pointer(&p->font, g_free);
}

static void properties_copy(CardProperties* to, const CardProperties* from) {
    if (to == from) return;
    properties_clear(to);
    *to = *from;
    to->ident = g_strdup(from->ident);
    to->caption = g_strdup(from->caption);
    to->timecode = g_strdup(from->timecode);
    to->font = g_strdup(from->font);
}

/* A changed timecode, or a clock turned on or off, starts the clock again. */
static gboolean clock_restarts(const CardProperties* before, const CardProperties* after) {
    return before->clock != after->clock || g_strcmp0(before->timecode, after->timecode) != 0;
}

static gboolean shows_time_of_day(const CardProperties* p) {
    return p->clock && (p->timecode == NULL || p->timecode[0] == '\0');
}

/* After a refusal, each wanted property that is still the refused one goes back to the card's. */
static void properties_revert(CardProperties* wanted, const CardProperties* refused, const CardProperties* kept) {
    if (wanted->encoding == refused->encoding) wanted->encoding = kept->encoding;
    if (wanted->clock == refused->clock) wanted->clock = kept->clock;
    struct {
        gchar** wanted;
        const gchar* refused;
        const gchar* kept;
    } texts[] = {{&wanted->ident, refused->ident, kept->ident},
                 {&wanted->caption, refused->caption, kept->caption},
                 {&wanted->timecode, refused->timecode, kept->timecode},
                 {&wanted->font, refused->font, kept->font}};
    for (guint i = 0; i < G_N_ELEMENTS(texts); ++i) {
        if (g_strcmp0(*texts[i].wanted, texts[i].refused) != 0) continue;
        g_free(*texts[i].wanted);
        *texts[i].wanted = g_strdup(texts[i].kept);
    }
}

/* ---- Formats and caps ---- */

static const FormatLayout* format_layout(GstVideoFormat format) {
    for (guint i = 0; i < G_N_ELEMENTS(format_layouts); ++i)
        if (format_layouts[i].format == format) return &format_layouts[i];
    return NULL;
}

static int layout_bits(pm5544_layout layout) {
    int bits = 0, sampling = 0;
    pm5544_layout_format(layout, &bits, &sampling);
    return bits;
}

static int layout_sampling(pm5544_layout layout) {
    int bits = 0, sampling = 0;
    pm5544_layout_format(layout, &bits, &sampling);
    return sampling;
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

/* The depth below which the encoding loses steps: 10 bits for wide colour and high dynamic range. */
static int whole_bits(pm5544_encoding encoding) {
    pm5544_colorimetry c;
    pm5544_encoding_colorimetry(encoding, &c);
    return c.primaries == PM5544_PRIMARIES_BT2020 || c.transfer != PM5544_TRANSFER_BT709 ? WHOLE_WIDE_BITS : 8;
}

/* Where the card takes the chroma of a pair: its left pixel, and its top row in 4:2:0. */
static const gchar* chroma_site_of(int sampling) {
    return sampling == 420 ? "cosited" : sampling == 422 ? "mpeg2" : NULL;
}

static GstStructure* format_structure(const FormatLayout* format, pm5544_encoding encoding, gboolean interleaved) {
    const int bits = layout_bits(format->layout), sampling = layout_sampling(format->layout);
    GstStructure* s = gst_structure_new(
        "video/x-raw", "format", G_TYPE_STRING, gst_video_format_to_string(format->format), "width",
        GST_TYPE_INT_RANGE, PM5544_MIN_SIDE, PM5544_MAX_SIDE, "height", GST_TYPE_INT_RANGE, PM5544_MIN_SIDE,
        PM5544_MAX_SIDE, "framerate", GST_TYPE_FRACTION_RANGE, 0, 1, PM5544_MAX_RATE_TERM, 1, "pixel-aspect-ratio",
        GST_TYPE_FRACTION_RANGE, PM5544_MIN_PIXEL_ASPECT_N, PM5544_MIN_PIXEL_ASPECT_D, PM5544_MAX_PIXEL_ASPECT_N,
        PM5544_MAX_PIXEL_ASPECT_D, "interlace-mode", G_TYPE_STRING, interleaved ? "interleaved" : "progressive", NULL);
    if (interleaved) {
        GValue orders = G_VALUE_INIT, order = G_VALUE_INIT;
        g_value_init(&orders, GST_TYPE_LIST);
        g_value_init(&order, G_TYPE_STRING);
        for (GstVideoFieldOrder o = GST_VIDEO_FIELD_ORDER_TOP_FIELD_FIRST; o <= GST_VIDEO_FIELD_ORDER_BOTTOM_FIELD_FIRST;
             ++o) {
            g_value_set_string(&order, gst_video_field_order_to_string(o));
            gst_value_list_append_value(&orders, &order);
        }
        gst_structure_take_value(s, "field-order", &orders);
        g_value_unset(&order);
    }
    GstVideoColorimetry colorimetry = colorimetry_of(encoding, bits);
    gchar* colorimetry_text = gst_video_colorimetry_to_string(&colorimetry);
    if (colorimetry_text != NULL) gst_structure_set(s, "colorimetry", G_TYPE_STRING, colorimetry_text, NULL);
    g_free(colorimetry_text);
    if (chroma_site_of(sampling) != NULL)
        gst_structure_set(s, "chroma-site", G_TYPE_STRING, chroma_site_of(sampling), NULL);
    return s;
}

/* The caps of every format the encoding can have: progressive before interlaced, and where downstream
 * leaves the choice, formats that carry the encoding whole before those that lose steps. */
static GstCaps* caps_for_encoding(pm5544_encoding encoding) {
    GstCaps* caps = gst_caps_new_empty();
    const int whole = whole_bits(encoding);
    for (int interleaved = 0; interleaved <= 1; ++interleaved)
        for (int whole_pass = 1; whole_pass >= 0; --whole_pass)
            for (guint i = 0; i < G_N_ELEMENTS(format_layouts); ++i) {
                const FormatLayout* format = &format_layouts[i];
                if (pm5544_layout_allows(format->layout, encoding) != 1) continue;
                if ((layout_bits(format->layout) >= whole) != whole_pass) continue;
                gst_caps_append_structure(caps, format_structure(format, encoding, interleaved));
            }
    return caps;
}

static GstCaps* template_caps(void) {
    GstCaps* caps = gst_caps_new_empty();
    for (int encoding = 0; encoding < PM5544_ENCODING_COUNT; ++encoding)
        caps = gst_caps_merge(caps, caps_for_encoding((pm5544_encoding)encoding));
    return gst_caps_simplify(caps);
}

/* The formats alone of one family (Y'CbCr or R'G'B'), to say which family downstream takes. */
static GstCaps* family_formats(gboolean ycbcr) {
    GstCaps* caps = gst_caps_new_empty();
    for (guint i = 0; i < G_N_ELEMENTS(format_layouts); ++i) {
        const pm5544_encoding example = ycbcr ? PM5544_ENCODING_709 : PM5544_ENCODING_RGB;
        if (pm5544_layout_allows(format_layouts[i].layout, example) != 1) continue;
        gst_caps_append_structure(caps, gst_structure_new("video/x-raw", "format", G_TYPE_STRING,
                                                          gst_video_format_to_string(format_layouts[i].format), NULL));
    }
    return caps;
}

static pm5544_encoding wanted_encoding(GstPm5544Src* src) {
    GST_OBJECT_LOCK(src);
    const pm5544_encoding encoding = src->wanted.encoding;
    GST_OBJECT_UNLOCK(src);
    return encoding;
}

static GstCaps* gst_pm5544_src_get_caps(GstBaseSrc* base, GstCaps* filter) {
    GstCaps* caps = caps_for_encoding(wanted_encoding(GST_PM5544_SRC(base)));
    if (filter != NULL) {
        GstCaps* both = gst_caps_intersect_full(filter, caps, GST_CAPS_INTERSECT_FIRST);
        gst_caps_unref(caps);
        caps = both;
    }
    return caps;
}

/* The side downstream leaves open follows from the other at the preferred display aspect. */
static void fixate_raster(GstStructure* s) {
    int par_n = 1, par_d = 1;
    gst_structure_get_fraction(s, "pixel-aspect-ratio", &par_n, &par_d);
    const GValue* width = gst_structure_get_value(s, "width");
    const GValue* height = gst_structure_get_value(s, "height");
    const gboolean width_fixed = width != NULL && G_VALUE_HOLDS_INT(width);
    const gboolean height_fixed = height != NULL && G_VALUE_HOLDS_INT(height);
    if (!width_fixed && !height_fixed) gst_structure_fixate_field_nearest_int(s, "width", PREFERRED_WIDTH);
    if (!height_fixed) {
        gint w = 0;
        gst_structure_get_int(s, "width", &w);
        const gint64 h = ((gint64)w * par_n * PREFERRED_ASPECT_D * 2 + (gint64)par_d * PREFERRED_ASPECT_N) /
                         ((gint64)par_d * PREFERRED_ASPECT_N * 2);
        gst_structure_fixate_field_nearest_int(s, "height", (int)CLAMP(h, 1, G_MAXINT));
    } else if (!width_fixed) {
        gint h = 0;
        gst_structure_get_int(s, "height", &h);
        const gint64 w = ((gint64)h * par_d * PREFERRED_ASPECT_N * 2 + (gint64)par_n * PREFERRED_ASPECT_D) /
                         ((gint64)par_n * PREFERRED_ASPECT_D * 2);
        gst_structure_fixate_field_nearest_int(s, "width", (int)CLAMP(w, 1, G_MAXINT));
    }
}

static GstCaps* gst_pm5544_src_fixate(GstBaseSrc* base, GstCaps* caps) {
    caps = gst_caps_truncate(gst_caps_make_writable(caps));
    GstStructure* s = gst_caps_get_structure(caps, 0);
    if (gst_structure_has_field(s, "pixel-aspect-ratio"))
        gst_structure_fixate_field_nearest_fraction(s, "pixel-aspect-ratio", 1, 1);
    fixate_raster(s);
    gst_structure_fixate_field_nearest_fraction(s, "framerate", PREFERRED_RATE_N, PREFERRED_RATE_D);
    if (gst_structure_has_field(s, "field-order"))
        gst_structure_fixate_field_string(
            s, "field-order", gst_video_field_order_to_string(GST_VIDEO_FIELD_ORDER_TOP_FIELD_FIRST));
    return GST_BASE_SRC_CLASS(gst_pm5544_src_parent_class)->fixate(base, caps);
}

/* Why the card cannot have the raster, rate or pixel aspect of these caps; NULL when it can. */
static gchar* caps_fault(const GstVideoInfo* info) {
    if (format_layout(GST_VIDEO_INFO_FORMAT(info)) == NULL)
        return g_strdup_printf("The card has no %s format", gst_video_format_to_string(GST_VIDEO_INFO_FORMAT(info)));
    if (info->fps_n < 0 || info->fps_n > PM5544_MAX_RATE_TERM || info->fps_d > PM5544_MAX_RATE_TERM)
        return g_strdup_printf("The frame rate %d/%d has a term beyond %d", info->fps_n, info->fps_d,
                               PM5544_MAX_RATE_TERM);
    const gint64 n = (gint64)info->width * info->par_n, d = (gint64)info->height * info->par_d;
    const gint64 divisor = n > 0 && d > 0 ? (gint64)gst_util_greatest_common_divisor_int64(n, d) : 1;
    if (n / divisor > G_MAXINT || d / divisor > G_MAXINT)
        return g_strdup_printf("The pixel aspect %d/%d gives %dx%d a display aspect of %" G_GINT64_FORMAT
                               ":%" G_GINT64_FORMAT ", beyond the terms the card takes",
                               info->par_n, info->par_d, info->width, info->height, n / divisor, d / divisor);
    return NULL;
}

/* Why downstream's caps suit no format of the encoding. */
static gchar* refusal_reason(GstPm5544Src* src, pm5544_encoding encoding, GstCaps* wanted) {
    if (src->caps_fault != NULL) return g_strdup(src->caps_fault);
    const gboolean ycbcr = pm5544_encoding_is_ycbcr(encoding) == 1;
    GstCaps* own = family_formats(ycbcr);
    GstCaps* other = family_formats(!ycbcr);
    const gboolean only_other = !gst_caps_can_intersect(wanted, own) && gst_caps_can_intersect(wanted, other);
    gst_caps_unref(own);
    gst_caps_unref(other);
    if (only_other)
        return g_strdup_printf("The encoding %s is %s and downstream takes only %s formats: set %s encoding (such as "
                               "encoding=%s)",
                               pm5544_encoding_name(encoding), ycbcr ? "Y'CbCr" : "R'G'B'", ycbcr ? "R'G'B'" : "Y'CbCr",
                               ycbcr ? "an R'G'B'" : "a Y'CbCr",
                               pm5544_encoding_name(ycbcr ? PM5544_ENCODING_RGB : PM5544_ENCODING_709));
    gchar* wanted_text = gst_caps_to_string(wanted);
    gchar* reason = g_strdup_printf(
        "The encoding %s comes in %s formats, %dx%d to %dx%d, pixel aspect %d/%d to %d/%d; downstream accepts %s",
        pm5544_encoding_name(encoding), ycbcr ? "Y'CbCr" : "R'G'B'", PM5544_MIN_SIDE, PM5544_MIN_SIDE,
        PM5544_MAX_SIDE, PM5544_MAX_SIDE, PM5544_MIN_PIXEL_ASPECT_N, PM5544_MIN_PIXEL_ASPECT_D,
        PM5544_MAX_PIXEL_ASPECT_N, PM5544_MAX_PIXEL_ASPECT_D, wanted_text);
    g_free(wanted_text);
    return reason;
}

/* Caps downstream insists on that the card cannot make are refused with what it can make. While
 * streaming, an encoding downstream cannot take is refused instead, and the card goes on as it was. */
static gboolean gst_pm5544_src_negotiate(GstBaseSrc* base) {
    GstPm5544Src* src = GST_PM5544_SRC(base);
    g_clear_pointer(&src->caps_fault, g_free);
    if (GST_BASE_SRC_CLASS(gst_pm5544_src_parent_class)->negotiate(base)) return TRUE;
    const pm5544_encoding encoding = wanted_encoding(src);
    GstCaps* wanted = gst_pad_peer_query_caps(GST_BASE_SRC_PAD(base), NULL);
    gchar* reason = refusal_reason(src, encoding, wanted);
    gst_caps_unref(wanted);
    gboolean negotiated = FALSE;
    if (src->card != NULL && encoding != src->applied.encoding) {
        GST_ELEMENT_WARNING(src, CORE, NEGOTIATION, ("Encoding %s refused: %s", pm5544_encoding_name(encoding), reason),
                            ("The card stays %s", pm5544_encoding_name(src->applied.encoding)));
        GST_OBJECT_LOCK(src);
        if (src->wanted.encoding == encoding) src->wanted.encoding = src->applied.encoding;
        GST_OBJECT_UNLOCK(src);
        negotiated = GST_BASE_SRC_CLASS(gst_pm5544_src_parent_class)->negotiate(base);
    } else {
        GST_ELEMENT_ERROR(src, CORE, NEGOTIATION, ("The card cannot make what downstream accepts"), ("%s", reason));
    }
    g_free(reason);
    return negotiated;
}

/* ---- The card ---- */

static void forward_message(void* user_data, pm5544_message_kind kind, const char* line) {
    GstPm5544Src* src = user_data;
    if (kind == PM5544_MESSAGE_WARNING)
        GST_ELEMENT_WARNING(src, RESOURCE, SETTINGS, ("%s", line), (NULL));
    else
        GST_INFO_OBJECT(src, "%s", line);
}

static gboolean is_still(const GstVideoInfo* info) { return info->fps_n == 0; }

static gboolean is_interleaved(const GstVideoInfo* info) {
    return GST_VIDEO_INFO_INTERLACE_MODE(info) == GST_VIDEO_INTERLACE_MODE_INTERLEAVED;
}

static gboolean bottom_field_first(const GstVideoInfo* info) {
    return GST_VIDEO_INFO_FIELD_ORDER(info) == GST_VIDEO_FIELD_ORDER_BOTTOM_FIELD_FIRST;
}

/* A still has no rate; its clock shows the first frame at any. */
static void rate_of(const GstVideoInfo* info, int* num, int* den) {
    *num = is_still(info) ? PREFERRED_RATE_N : info->fps_n;
    *den = is_still(info) ? PREFERRED_RATE_D : info->fps_d;
}

/* The display aspect the negotiated pixel aspect gives the raster, in lowest terms (caps_fault refused
 * terms beyond an int). */
static void display_aspect(const GstVideoInfo* info, int* num, int* den) {
    const gint64 n = (gint64)info->width * info->par_n, d = (gint64)info->height * info->par_d;
    const gint64 divisor = gst_util_greatest_common_divisor_int64(n, d);
    *num = (int)(n / divisor), *den = (int)(d / divisor);
}

/* The timecode of the card's frame 0: the property's, else the time of day the clock starts from. */
static GstVideoTimeCode* first_timecode_of(const gchar* timecode, const GstVideoInfo* info, GDateTime* now) {
    guint h = 0, m = 0, s = 0, f = 0;
    char separator = ':';
    GstVideoTimeCodeFlags flags = is_interleaved(info) ? GST_VIDEO_TIME_CODE_FLAGS_INTERLACED : 0;
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
    if (tc->config.fps_n == 0 || !gst_video_time_code_is_valid(tc)) return FALSE;
    const guint64 nominal = ((guint64)tc->config.fps_n + tc->config.fps_d / 2) / tc->config.fps_d;
    return nominal * 3600 <= G_MAXINT;
}

/* A card for the negotiated format and these properties; NULL with the library's reason in *fault. */
static pm5544_card* build_card(GstPm5544Src* src, const CardProperties* p, GDateTime* now, gchar** fault) {
    const GstVideoInfo* info = &src->info;
    pm5544_card* card = pm5544_card_new();
    if (card == NULL) {
        *fault = g_strdup("Not enough memory for the card");
        return NULL;
    }
    int aspect_num = 0, aspect_den = 0, rate_num = 0, rate_den = 0;
    display_aspect(info, &aspect_num, &aspect_den);
    rate_of(info, &rate_num, &rate_den);
    const pm5544_scan scan = !is_interleaved(info)       ? PM5544_SCAN_PROGRESSIVE
                             : bottom_field_first(info) ? PM5544_SCAN_INTERLACED_BFF
                                                        : PM5544_SCAN_INTERLACED_TFF;
    pm5544_set_message_callback(card, forward_message, src);
    pm5544_status status = pm5544_set_raster(card, info->width, info->height);
    if (status == PM5544_OK) status = pm5544_set_aspect(card, aspect_num, aspect_den);
    if (status == PM5544_OK) status = pm5544_set_encoding(card, p->encoding);
    if (status == PM5544_OK) status = pm5544_use_layout(card, src->layout);
    if (status == PM5544_OK) status = pm5544_set_scan(card, scan);
    if (status == PM5544_OK) status = pm5544_set_ident(card, p->ident);
    if (status == PM5544_OK) status = pm5544_set_caption(card, p->caption);
    if (status == PM5544_OK) status = pm5544_set_clock(card, p->clock);
    if (status == PM5544_OK) status = pm5544_set_frame_rate(card, rate_num, rate_den);
    if (status == PM5544_OK) status = pm5544_set_timecode(card, p->timecode);
    if (status == PM5544_OK)
        status = pm5544_set_time_of_day(card, g_date_time_get_hour(now), g_date_time_get_minute(now),
                                        MIN(g_date_time_get_second(now), 59));
    if (status == PM5544_OK) status = pm5544_set_font(card, p->font);
    if (status == PM5544_OK) status = pm5544_prepare(card);
    if (status != PM5544_OK) {
        *fault = g_strdup(pm5544_last_error(card));
        pm5544_card_free(card);
        return NULL;
    }
    return card;
}

static gboolean caps_suit(GstCaps* caps, pm5544_encoding encoding) {
    GstCaps* possible = caps_for_encoding(encoding);
    const gboolean suits = gst_caps_can_intersect(caps, possible);
    gst_caps_unref(possible);
    return suits;
}

/* The encoding the card can have in the negotiated caps: the wanted one when they suit it, else the
 * card's own (or, after a quick change back and forth, the one they were made for) until the
 * renegotiation the property asked for brings caps for the wanted one. */
static pm5544_encoding encoding_for_caps(GstPm5544Src* src, pm5544_encoding wanted) {
    GstCaps* current = gst_pad_get_current_caps(GST_BASE_SRC_PAD(src));
    if (current == NULL) return wanted;
    pm5544_encoding suited = wanted;
    if (!caps_suit(current, wanted)) {
        if (src->card != NULL && caps_suit(current, src->applied.encoding)) {
            suited = src->applied.encoding;
        } else {
            for (int e = 0; e < PM5544_ENCODING_COUNT; ++e)
                if (caps_suit(current, (pm5544_encoding)e)) {
                    suited = (pm5544_encoding)e;
                    break;
                }
        }
    }
    gst_caps_unref(current);
    return suited;
}

static gboolean properties_equal(const CardProperties* a, const CardProperties* b) {
    return a->encoding == b->encoding && a->clock == b->clock && g_strcmp0(a->ident, b->ident) == 0 &&
           g_strcmp0(a->caption, b->caption) == 0 && g_strcmp0(a->timecode, b->timecode) == 0 &&
           g_strcmp0(a->font, b->font) == 0;
}

/* Puts a new card in place of the old, its clock's frame 0 at the stream's frame `base`. */
static void replace_card(GstPm5544Src* src, pm5544_card* card, const CardProperties* p, GDateTime* now, gint64 base) {
    GstVideoTimeCode* timecode = first_timecode_of(p->timecode, &src->info, now);
    if (!timecode_countable(timecode)) {
        GST_INFO_OBJECT(src, "no time code meta at %d/%d frames a second", src->info.fps_n, src->info.fps_d);
        g_clear_pointer(&timecode, gst_video_time_code_free);
    }
    if (src->card != NULL) pm5544_card_free(src->card);
    g_clear_pointer(&src->first_timecode, gst_video_time_code_free);
    src->card = card;
    src->first_timecode = timecode;
    src->clock_base = base;
    src->generation = gst_pm5544_new_generation();
    src->reference_frame = -1;
    src->caps_changed = FALSE;
    properties_copy(&src->applied, p);
}

/* The stream's frame that is the clock's frame 0 in a new card shown from frame n: a time-of-day clock
 * shows the time of day from n on, a timecode set or a clock turned on starts at n, and a timecode clock
 * otherwise goes on counting from where it was. */
static gint64 clock_base_for(const GstPm5544Src* src, const CardProperties* p, gint64 n) {
    if (shows_time_of_day(p)) return n;
    if (src->card == NULL) return 0;
    return clock_restarts(&src->applied, p) ? n : MIN(src->clock_base, n);
}

/* Makes the card the one the caps and the properties ask for, frame n being the next. FALSE only when
 * there is no card to go on with, after posting why. */
static gboolean ensure_card(GstPm5544Src* src, gint64 n) {
    CardProperties next = {0};
    GST_OBJECT_LOCK(src);
    const gboolean changed = src->wanted_changed, resync = src->clock_resync;
    if (!changed && !resync && !src->caps_changed && src->card != NULL && n >= src->clock_base) {
        GST_OBJECT_UNLOCK(src);
        return TRUE;
    }
    src->wanted_changed = src->clock_resync = FALSE;
    properties_copy(&next, &src->wanted);
    GST_OBJECT_UNLOCK(src);

    const gboolean first = src->card == NULL;
    next.encoding = encoding_for_caps(src, next.encoding);
    const gboolean same = !first && properties_equal(&next, &src->applied);
    const gboolean time_of_day_again = shows_time_of_day(&next) && (resync || n < src->clock_base);
    if (same && !src->caps_changed && !time_of_day_again) {
        src->clock_base = MIN(src->clock_base, n); /* a timecode clock played backwards past its start */
        properties_clear(&next);
        return TRUE;
    }

    GDateTime* now = g_date_time_new_now_local();
    gchar* fault = NULL;
    pm5544_card* card = build_card(src, &next, now, &fault);
    gboolean ok = TRUE;
    if (card != NULL) {
        replace_card(src, card, &next, now, clock_base_for(src, &next, n));
    } else if (first || src->caps_changed) {
        GST_ELEMENT_ERROR(src, RESOURCE, SETTINGS, ("%s", fault), (NULL));
        ok = FALSE;
    } else {
        GST_ELEMENT_WARNING(src, RESOURCE, SETTINGS, ("Setting refused: %s", fault),
                            ("The card goes on with the settings before"));
        GST_OBJECT_LOCK(src);
        properties_revert(&src->wanted, &next, &src->applied);
        GST_OBJECT_UNLOCK(src);
    }
    g_free(fault);
    g_date_time_unref(now);
    properties_clear(&next);
    return ok;
}

static gboolean gst_pm5544_src_set_caps(GstBaseSrc* base, GstCaps* caps) {
    GstPm5544Src* src = GST_PM5544_SRC(base);
    GstVideoInfo info;
    if (!gst_video_info_from_caps(&info, caps)) return FALSE;
    g_clear_pointer(&src->caps_fault, g_free);
    src->caps_fault = caps_fault(&info);
    if (src->caps_fault != NULL) return FALSE;
    GST_OBJECT_LOCK(src);
    src->info = info;
    GST_OBJECT_UNLOCK(src);
    src->layout = format_layout(GST_VIDEO_INFO_FORMAT(&info))->layout;
    src->caps_changed = TRUE;
    gst_clear_buffer(&src->reference);
    src->reference = gst_buffer_new_allocate(NULL, info.size, NULL);
    return src->reference != NULL;
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

static GstClockTime time_of_frame(const GstVideoInfo* info, gint64 frame) {
    if (info->fps_n <= 0) return 0;
    return gst_util_uint64_scale((guint64)frame, (guint64)info->fps_d * GST_SECOND, (guint64)info->fps_n);
}

/* The first frame that starts at or after a time. */
static gint64 frame_at(const GstVideoInfo* info, GstClockTime time) {
    if (info->fps_n <= 0) return 0;
    return (gint64)gst_util_uint64_scale_ceil(time, (guint64)info->fps_n, (guint64)info->fps_d * GST_SECOND);
}

/* Brings the reference to the card's frame. */
static gboolean update_reference(GstPm5544Src* src, gint64 frame) {
    GstVideoFrame mapped;
    if (!gst_video_frame_map(&mapped, &src->info, src->reference, GST_MAP_WRITE)) return FALSE;
    void* planes[GST_VIDEO_MAX_PLANES];
    size_t strides[GST_VIDEO_MAX_PLANES];
    for (guint p = 0; p < GST_VIDEO_FRAME_N_PLANES(&mapped); ++p) {
        planes[p] = GST_VIDEO_FRAME_PLANE_DATA(&mapped, p);
        strides[p] = (size_t)GST_VIDEO_FRAME_PLANE_STRIDE(&mapped, p);
    }
    const pm5544_status status =
        pm5544_update_frame(src->card, frame, src->reference_frame, src->layout, planes, strides, NULL);
    gst_video_frame_unmap(&mapped);
    if (status != PM5544_OK) {
        GST_ELEMENT_ERROR(src, LIBRARY, FAILED, ("%s", pm5544_last_error(src->card)), (NULL));
        return FALSE;
    }
    src->reference_frame = frame;
    return TRUE;
}

/* Copies the frame's rows from first_row on, count of them, from the reference into the buffer, each
 * plane's rows as the library lays them out: a 4:2:0 chroma plane has a row for each pair of frame rows
 * (the library's changed rows start and end on whole pairs, or groups of four when interlaced). */
static gboolean copy_reference(GstPm5544Src* src, GstBuffer* buffer, int first_row, int count) {
    pm5544_plane planes[PM5544_MAX_PLANES];
    const int height = GST_VIDEO_INFO_HEIGHT(&src->info);
    const int n_planes = pm5544_layout_planes(src->layout, GST_VIDEO_INFO_WIDTH(&src->info), height, planes);
    GstVideoFrame from, to;
    if (n_planes < 1 || !gst_video_frame_map(&from, &src->info, src->reference, GST_MAP_READ)) return FALSE;
    if (!gst_video_frame_map(&to, &src->info, buffer, GST_MAP_WRITE)) {
        gst_video_frame_unmap(&from);
        return FALSE;
    }
    for (int p = 0; p < n_planes; ++p) {
        const gboolean halved = planes[p].rows < height;
        const int first = halved ? first_row / 2 : first_row;
        const int end = MIN(halved ? (first_row + count + 1) / 2 : first_row + count, planes[p].rows);
        const gsize from_stride = (gsize)GST_VIDEO_FRAME_PLANE_STRIDE(&from, p);
        const gsize to_stride = (gsize)GST_VIDEO_FRAME_PLANE_STRIDE(&to, p);
        const guint8* in = GST_VIDEO_FRAME_PLANE_DATA(&from, p);
        guint8* out = GST_VIDEO_FRAME_PLANE_DATA(&to, p);
        for (int r = first; r < end; ++r)
            memcpy(out + (gsize)r * to_stride, in + (gsize)r * from_stride, planes[p].row_bytes);
    }
    gst_video_frame_unmap(&to);
    gst_video_frame_unmap(&from);
    return TRUE;
}

/* The card's frame into the buffer: only the changed rows when it is one of ours still holding an
 * earlier frame of this card untouched, else the whole reference. */
static gboolean render_into(GstPm5544Src* src, GstBuffer* buffer, gint64 frame) {
    if (!update_reference(src, frame)) return FALSE;
    GstMemory* memory = gst_buffer_n_memory(buffer) == 1 ? gst_buffer_peek_memory(buffer, 0) : NULL;
    const gint64 held = memory != NULL ? gst_pm5544_memory_held_frame(memory, src->generation) : -1;
    gboolean copied;
    if (held >= 0) {
        pm5544_rows changed = {0, 0};
        if (pm5544_changed_rows(src->card, held, frame, &changed) != PM5544_OK) return FALSE;
        copied = changed.row_count == 0 || copy_reference(src, buffer, changed.first_row, changed.row_count);
    } else {
        copied = copy_reference(src, buffer, 0, GST_VIDEO_INFO_HEIGHT(&src->info));
    }
    if (copied && memory != NULL) gst_pm5544_memory_set_held_frame(memory, src->generation, frame);
    return copied;
}

static void add_timecode_meta(GstPm5544Src* src, GstBuffer* buffer, gint64 frame) {
    if (src->first_timecode == NULL) return;
    GstVideoTimeCode* tc = gst_video_time_code_copy(src->first_timecode);
    gst_video_time_code_add_frames(tc, frame);
    gst_buffer_add_video_time_code_meta(buffer, tc);
    gst_video_time_code_free(tc);
}

/* Both fields of an interleaved frame show its picture; the flags say which field comes first. */
static void set_field_flags(const GstVideoInfo* info, GstBuffer* buffer) {
    GST_BUFFER_FLAG_UNSET(buffer, GST_VIDEO_BUFFER_FLAG_INTERLACED | GST_VIDEO_BUFFER_FLAG_TFF |
                                      GST_VIDEO_BUFFER_FLAG_RFF | GST_VIDEO_BUFFER_FLAG_ONEFIELD);
    if (!is_interleaved(info)) return;
    GST_BUFFER_FLAG_SET(buffer, GST_VIDEO_BUFFER_FLAG_INTERLACED);
    if (!bottom_field_first(info)) GST_BUFFER_FLAG_SET(buffer, GST_VIDEO_BUFFER_FLAG_TFF);
}

static GstFlowReturn gst_pm5544_src_fill(GstPushSrc* push, GstBuffer* buffer) {
    GstPm5544Src* src = GST_PM5544_SRC(push);
    const GstVideoInfo* info = &src->info;
    if (GST_VIDEO_INFO_FORMAT(info) == GST_VIDEO_FORMAT_UNKNOWN) return GST_FLOW_NOT_NEGOTIATED;
    const gint64 n = src->n_frames;
    /* A still is one frame; backwards, the stream ends before its first frame. */
    if (n < 0 || (is_still(info) && n > 0)) return GST_FLOW_EOS;
    /* A setting refused before there is any card ends the stream, once, with the reason on the bus. */
    if (!ensure_card(src, n)) return GST_FLOW_EOS;
    GST_OBJECT_LOCK(src);
    const GstClockTime offset = (GstClockTime)src->timestamp_offset;
    GST_OBJECT_UNLOCK(src);

    const gint64 frame = n - src->clock_base;
    if (!render_into(src, buffer, frame)) return GST_FLOW_ERROR;
    GST_BUFFER_PTS(buffer) = offset + time_of_frame(info, n);
    GST_BUFFER_DTS(buffer) = GST_CLOCK_TIME_NONE;
    GST_BUFFER_DURATION(buffer) =
        is_still(info) ? GST_CLOCK_TIME_NONE : time_of_frame(info, n + 1) - time_of_frame(info, n);
    GST_BUFFER_OFFSET(buffer) = (guint64)n;
    GST_BUFFER_OFFSET_END(buffer) = (guint64)n + 1;
    set_field_flags(info, buffer);
    add_timecode_meta(src, buffer, frame);
    src->n_frames = src->reverse ? n - 1 : n + 1;
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
    GST_OBJECT_LOCK(src);
    const GstVideoInfo info = src->info;
    GST_OBJECT_UNLOCK(src);
    const gboolean negotiated = GST_VIDEO_INFO_FORMAT(&info) != GST_VIDEO_FORMAT_UNKNOWN;
    if (GST_QUERY_TYPE(query) == GST_QUERY_LATENCY && negotiated && !is_still(&info)) {
        /* A frame is ready one frame's time after its first instant. */
        gst_query_set_latency(query, gst_base_src_is_live(base), time_of_frame(&info, 1), GST_CLOCK_TIME_NONE);
        return TRUE;
    }
    if (GST_QUERY_TYPE(query) == GST_QUERY_CONVERT) {
        GstFormat from_format, to_format;
        gint64 from_value, to_value;
        gst_query_parse_convert(query, &from_format, &from_value, &to_format, &to_value);
        if (!negotiated || !gst_video_info_convert(&info, from_format, from_value, to_format, &to_value)) return FALSE;
        gst_query_set_convert(query, from_format, from_value, to_format, to_value);
        return TRUE;
    }
    return GST_BASE_SRC_CLASS(gst_pm5544_src_parent_class)->query(base, query);
}

static gboolean gst_pm5544_src_is_seekable(GstBaseSrc* base) {
    (void)base;
    return TRUE;
}

/* A seek goes to the first frame at or after the position; backwards, to the last frame that starts
 * before the segment's stop, which an endless stream needs. A timecode clock counts from the stream's
 * first frame again. */
static gboolean gst_pm5544_src_do_seek(GstBaseSrc* base, GstSegment* segment) {
    GstPm5544Src* src = GST_PM5544_SRC(base);
    const gboolean reverse = segment->rate < 0;
    if (reverse && !GST_CLOCK_TIME_IS_VALID(segment->stop)) {
        GST_WARNING_OBJECT(src, "playing backwards needs a stop position");
        return FALSE;
    }
    segment->time = segment->start;
    src->reverse = reverse;
    src->n_frames = reverse ? frame_at(&src->info, segment->stop) - 1 : frame_at(&src->info, segment->position);
    src->clock_base = 0;
    GST_OBJECT_LOCK(src);
    src->clock_resync = TRUE;
    GST_OBJECT_UNLOCK(src);
    return TRUE;
}

/* After a pause a time-of-day clock shows the time of day again, not where it stopped. */
static GstStateChangeReturn gst_pm5544_src_change_state(GstElement* element, GstStateChange transition) {
    GstPm5544Src* src = GST_PM5544_SRC(element);
    if (transition == GST_STATE_CHANGE_PAUSED_TO_PLAYING) {
        GST_OBJECT_LOCK(src);
        src->clock_resync = TRUE;
        GST_OBJECT_UNLOCK(src);
    }
    return GST_ELEMENT_CLASS(gst_pm5544_src_parent_class)->change_state(element, transition);
}

static gboolean gst_pm5544_src_start(GstBaseSrc* base) {
    GstPm5544Src* src = GST_PM5544_SRC(base);
    src->n_frames = 0;
    src->reverse = FALSE;
    src->reference_frame = -1;
    GST_OBJECT_LOCK(src);
    gst_video_info_init(&src->info);
    GST_OBJECT_UNLOCK(src);
    return TRUE;
}

static gboolean gst_pm5544_src_stop(GstBaseSrc* base) {
    GstPm5544Src* src = GST_PM5544_SRC(base);
    g_clear_pointer(&src->card, pm5544_card_free);
    g_clear_pointer(&src->first_timecode, gst_video_time_code_free);
    g_clear_pointer(&src->caps_fault, g_free);
    gst_clear_buffer(&src->reference);
    GST_OBJECT_LOCK(src);
    gst_video_info_init(&src->info);
    GST_OBJECT_UNLOCK(src);
    return TRUE;
}

/* ---- Properties ---- */

static GType encoding_type(void) {
    static gsize type = 0;
    static GEnumValue values[PM5544_ENCODING_COUNT + 1];
    if (g_once_init_enter(&type)) {
        for (int e = 0; e < PM5544_ENCODING_COUNT; ++e) {
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
     "The first frame's timecode, HH:MM:SS:FF, or HH:MM:SS;FF counted drop-frame; set while playing, the next "
     "frame's"},
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
    {PROP_IS_LIVE, "is-live", "Is live", "Act as a live source, paced by the pipeline clock", FALSE},
};

/* The card's field a string property sets. */
static gchar** string_field(CardProperties* p, guint id) {
    switch (id) {
        case PROP_IDENT:
            return &p->ident;
        case PROP_CAPTION:
            return &p->caption;
        case PROP_TIMECODE:
            return &p->timecode;
        case PROP_FONT:
            return &p->font;
        default:
            return NULL;
    }
}

static void gst_pm5544_src_set_property(GObject* object, guint id, const GValue* value, GParamSpec* spec) {
    GstPm5544Src* src = GST_PM5544_SRC(object);
    if (id == PROP_IS_LIVE) {
        gst_base_src_set_live(GST_BASE_SRC(src), g_value_get_boolean(value));
        return;
    }
    GST_OBJECT_LOCK(src);
    gchar** text = string_field(&src->wanted, id);
    if (text != NULL) {
        g_free(*text);
        *text = g_value_dup_string(value);
    } else if (id == PROP_ENCODING) {
        src->wanted.encoding = (pm5544_encoding)g_value_get_enum(value);
    } else if (id == PROP_CLOCK) {
        src->wanted.clock = g_value_get_boolean(value);
    } else if (id == PROP_TIMESTAMP_OFFSET) {
        src->timestamp_offset = g_value_get_int64(value);
    } else {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
    }
    if (id != PROP_TIMESTAMP_OFFSET) src->wanted_changed = TRUE;
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
    gchar** text = string_field(&src->wanted, id);
    if (text != NULL)
        g_value_set_string(value, *text);
    else if (id == PROP_ENCODING)
        g_value_set_enum(value, src->wanted.encoding);
    else if (id == PROP_CLOCK)
        g_value_set_boolean(value, src->wanted.clock);
    else if (id == PROP_TIMESTAMP_OFFSET)
        g_value_set_int64(value, src->timestamp_offset);
    else
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
    GST_OBJECT_UNLOCK(src);
}

static void gst_pm5544_src_finalize(GObject* object) {
    GstPm5544Src* src = GST_PM5544_SRC(object);
    properties_clear(&src->wanted);
    properties_clear(&src->applied);
    gst_object_unref(src->allocator);
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

    element_class->change_state = gst_pm5544_src_change_state;
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
    src->wanted.encoding = src->applied.encoding = DEFAULT_ENCODING;
    src->reference_frame = -1;
    src->allocator = gst_pm5544_allocator_get();
    gst_video_info_init(&src->info);
    gst_base_src_set_format(GST_BASE_SRC(src), GST_FORMAT_TIME);
}

static gboolean plugin_init(GstPlugin* plugin) {
    GST_DEBUG_CATEGORY_INIT(pm5544_src_debug, "pm5544src", 0, "PM5544 test card source");
    gst_pm5544_allocator_register();
    return gst_element_register(plugin, "pm5544src", GST_RANK_NONE, GST_TYPE_PM5544_SRC);
}

#define PACKAGE "pm5544"
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, pm5544, "The PM5544 test card as a video source", plugin_init,
                  PM5544_PLUGIN_VERSION, "MIT/X11", "pm5544", "Unknown package origin")
