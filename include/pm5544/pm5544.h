/* libpm5544: the PM5544 test card rendered bit-exactly into caller memory. C99 or later, or C++.
 *
 * A handle (pm5544_card) holds the settings of one card and what rendering it keeps between frames.
 * Separate handles are independent and may be used on separate threads at the same time; one handle
 * is used from one thread at a time. Functions that can fail return PM5544_OK (0) or a negative
 * pm5544_status, and leave a message for pm5544_last_error(). Nothing is printed: the lines the
 * command-line program prints while it renders reach the caller through pm5544_set_message_callback().
 *
 * Typical use (error checks left out):
 *
 *     pm5544_card* card = pm5544_card_new();
 *     pm5544_set_raster(card, 1920, 1080);
 *     pm5544_set_encoding(card, PM5544_ENCODING_709);
 *     pm5544_use_layout(card, PM5544_LAYOUT_V210);           (10 bits, 4:2:2)
 *     pm5544_plane plane[PM5544_MAX_PLANES];
 *     pm5544_layout_planes(PM5544_LAYOUT_V210, 1920, 1080, plane);
 *     void* data[1] = {malloc(plane[0].bytes)};
 *     size_t stride[1] = {plane[0].row_bytes};
 *     if (pm5544_render_frame(card, 0, PM5544_LAYOUT_V210, data, stride) != PM5544_OK)
 *         fprintf(stderr, "%s\n", pm5544_last_error(card));
 *     pm5544_card_free(card);
 */
#ifndef PM5544_PM5544_H
#define PM5544_PM5544_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(PM5544_BUILDING_LIBRARY)
#define PM5544_API __attribute__((visibility("default")))
#else
#define PM5544_API
#endif

/* The library's version, as numbers and as "MAJOR.MINOR.PATCH". */
#define PM5544_VERSION_MAJOR 1
#define PM5544_VERSION_MINOR 2
#define PM5544_VERSION_PATCH 0
PM5544_API const char* pm5544_version(void);

typedef enum pm5544_status {
    PM5544_OK = 0,
    PM5544_ERROR_ARGUMENT = -1,   /* a null pointer, an unknown value, a short stride, a misaligned plane */
    PM5544_ERROR_SETTINGS = -2,   /* settings the card cannot have, or a layout they do not allow */
    PM5544_ERROR_MEMORY = -3,     /* not enough memory */
    PM5544_ERROR_FAILED = -4,     /* anything else (a message callback that threw, an impossible colour
                                     conversion: its assertion's report); the message says what */
    PM5544_ERROR_IN_CALLBACK = -5, /* a call on the card from inside its own message callback */
    PM5544_ERROR_NO_CARD = -6      /* an analysed picture shows no PM5544 card of the settings */
} pm5544_status;

/* The colour encodings, as the command line's -c names them (pm5544_set_encoding_name takes the names). */
typedef enum pm5544_encoding {
    PM5544_ENCODING_RGB = 0,                    /* "RGB": R'G'B', full range */
    PM5544_ENCODING_RGB_HEADROOM = 1,           /* "RGB-headroom": R'G'B', studio range */
    PM5544_ENCODING_601 = 2,                    /* "601": Y'CbCr, BT.601 */
    PM5544_ENCODING_709 = 3,                    /* "709": Y'CbCr, BT.709 */
    PM5544_ENCODING_PQ = 4,                     /* "PQ": Y'CbCr, BT.2020, PQ */
    PM5544_ENCODING_PQ_MAPPED = 5,              /* "PQ-Mapped" */
    PM5544_ENCODING_HLG = 6,                    /* "HLG": Y'CbCr, BT.2020, HLG */
    PM5544_ENCODING_HLG_MAPPED = 7,             /* "HLG-Mapped" */
    PM5544_ENCODING_2020 = 8,                   /* "2020": Y'CbCr, BT.2020, standard dynamic range */
    PM5544_ENCODING_SLOG3 = 9,                  /* "S-Log3": Y'CbCr, BT.2020, S-Log3 */
    PM5544_ENCODING_SLOG3_MAPPED = 10,          /* "S-Log3-Mapped" */
    PM5544_ENCODING_SLOG3_LIVE = 11,            /* "S-Log3-Live" */
    PM5544_ENCODING_SLOG3_LIVE_MAPPED = 12,     /* "S-Log3-Live-Mapped" */
    PM5544_ENCODING_RGB_PQ = 13,                /* "RGB-PQ": R'G'B', studio range, PQ */
    PM5544_ENCODING_RGB_HLG = 14,               /* "RGB-HLG" */
    PM5544_ENCODING_RGB_SLOG3 = 15,             /* "RGB-S-Log3" */
    PM5544_ENCODING_RGB_SLOG3_LIVE = 16,        /* "RGB-S-Log3-Live" */
    PM5544_ENCODING_RGB_PQ_MAPPED = 17,         /* "RGB-PQ-Mapped" */
    PM5544_ENCODING_RGB_HLG_MAPPED = 18,        /* "RGB-HLG-Mapped" */
    PM5544_ENCODING_RGB_SLOG3_MAPPED = 19,      /* "RGB-S-Log3-Mapped" */
    PM5544_ENCODING_RGB_SLOG3_LIVE_MAPPED = 20, /* "RGB-S-Log3-Live-Mapped" */
    /* Not encodings: they make the type hold any int a caller may pass, which is then refused. */
    PM5544_ENCODING_INT_MIN_ = -2147483647 - 1,
    PM5544_ENCODING_INT_MAX_ = 2147483647
} pm5544_encoding;
#define PM5544_ENCODING_COUNT 21

/* The card's limits, which the settings are checked against: each side of the raster, each term of the
 * frame rate, and the pixel aspect (the display aspect over the raster's), from 1/4 to 4/1. */
#define PM5544_MIN_SIDE 64
#define PM5544_MAX_SIDE 16384
#define PM5544_MAX_RATE_TERM 1000000
#define PM5544_MIN_PIXEL_ASPECT_N 1
#define PM5544_MIN_PIXEL_ASPECT_D 4
#define PM5544_MAX_PIXEL_ASPECT_N 4
#define PM5544_MAX_PIXEL_ASPECT_D 1

/* Whether the encoding is Y'CbCr (1) or R'G'B' (0); -1 for a value that is no encoding. */
PM5544_API int pm5544_encoding_is_ycbcr(pm5544_encoding encoding);
/* The -c name of an encoding, and its one-line description as --help gives it; NULL for a value that
 * is no encoding. */
PM5544_API const char* pm5544_encoding_name(pm5544_encoding encoding);
PM5544_API const char* pm5544_encoding_description(pm5544_encoding encoding);

/* How an encoding's codes are to be tagged downstream. */
typedef enum pm5544_matrix {
    PM5544_MATRIX_RGB = 0, /* R'G'B': no matrix */
    PM5544_MATRIX_BT601 = 1,
    PM5544_MATRIX_BT709 = 2,
    PM5544_MATRIX_BT2020_NCL = 3
} pm5544_matrix;
typedef enum pm5544_transfer {
    PM5544_TRANSFER_BT709 = 0, /* the SDR curve of BT.601, BT.709 and BT.2020 */
    PM5544_TRANSFER_PQ = 1,    /* SMPTE ST 2084 */
    PM5544_TRANSFER_HLG = 2,   /* ARIB STD-B67, BT.2100 */
    PM5544_TRANSFER_SLOG3 = 3  /* S-Log3, which most tagging schemes cannot name */
} pm5544_transfer;
typedef enum pm5544_primaries {
    PM5544_PRIMARIES_BT601 = 0, /* SMPTE 170M, which tagging schemes give BT.601 by default */
    PM5544_PRIMARIES_BT709 = 1,
    PM5544_PRIMARIES_BT2020 = 2
} pm5544_primaries;
typedef struct pm5544_colorimetry {
    pm5544_matrix matrix;
    pm5544_transfer transfer;
    pm5544_primaries primaries;
    int full_range; /* 1: codes 0 to 2^bits - 1; 0: studio range (black 16, white 235 at 8 bits) */
} pm5544_colorimetry;
PM5544_API pm5544_status pm5544_encoding_colorimetry(pm5544_encoding encoding, pm5544_colorimetry* colorimetry);

/* Memory layouts a frame can be rendered in. Rows run top to bottom; each plane has its own stride in
 * bytes (at least the plane's row bytes, see pm5544_layout_planes). "LE" samples are little-endian
 * whatever the machine; a 10-, 12- or 16-bit sample in a 16-bit word sits in its low bits, except in
 * P010_10LE and P016_LE, which keep it in the high bits.
 * Every layout but FRAME16 fixes the bit depth and chroma sampling (pm5544_use_layout sets them).
 *
 * FRAME16      one plane, four uint16_t a pixel in machine byte order: Cr, Y', Cb, A for Y'CbCr
 *              encodings, R', G', B', A for R'G'B'; each the code at the card's bit depth shifted into
 *              the high bits (code << (16 - bits)). Any depth and sampling; the subsampled chroma is
 *              repeated over the pixels that share it. The frame the PNG and DPX files are written from.
 * I420_n, I422_n, I444_n
 *              three planes Y', Cb, Cr; n = 8: one byte a sample; 10, 12, 16: uint16_t LE. Chroma planes
 *              are (width + 1) / 2 wide in 4:2:2 and 4:2:0, (height + 1) / 2 high in 4:2:0; the chroma
 *              of a pair is that of its left (top-left) pixel. The samples the Y4M files hold.
 * V210         one plane, 10-bit 4:2:2: each group of six pixels is four uint32_t LE words of three
 *              10-bit fields (bits 0-9, 10-19, 20-29): Cb0 Y0 Cr0 | Y1 Cb2 Y2 | Cr2 Y3 Cb4 | Y4 Cr4 Y5.
 *              A row is ((width + 5) / 6) * 16 bytes, the last group padded with zeros; the stride must
 *              be a multiple of 4 (SDI cards and GStreamer use ((width + 47) / 48) * 128).
 * UYVY         one plane, 8-bit 4:2:2: Cb0 Y0 Cr0 Y1 per pixel pair; a row is 2 * width bytes
 *              (odd widths round up to whole pairs).
 * RGBA16       one plane, 16-bit R'G'B'A, four uint16_t LE a pixel: R', G', B' as in FRAME16 at 16 bits,
 *              and A 65535, opaque (R'G'B' encodings).
 * GBR_n        three planes G', B', R', n = 10, 12, 16, uint16_t LE (R'G'B' encodings).
 * NV12, P010_10LE, P016_LE
 *              4:2:0 in two planes: Y', then Cb and Cr interleaved (Cb0 Cr0 Cb2 Cr2 ...), (width + 1) / 2
 *              pairs a row and (height + 1) / 2 rows, sited as in I420_n. NV12: 8 bits, one byte a sample;
 *              P010_10LE: 10 bits, P016_LE: 16 bits, uint16_t LE with the code in the high bits
 *              (code << (16 - bits), the low bits zero).
 * YUY2         one plane, 8-bit 4:2:2: Y0 Cb0 Y1 Cr0 per pixel pair; rows as in UYVY.
 * RGBA, BGRA   one plane, 8-bit R'G'B'A, four bytes a pixel in the order named; A 255, opaque
 *              (R'G'B' encodings).
 * RGBx, BGRx   as RGBA and BGRA, the x byte 255 too: a reader that takes it as alpha sees an opaque
 *              card, and it is what converters fill it with.
 * Planes of 16-bit samples must be 2-byte aligned and their strides even; V210 wants 4 bytes. */
typedef enum pm5544_layout {
    PM5544_LAYOUT_FRAME16 = 0,
    PM5544_LAYOUT_I420_8 = 1,
    PM5544_LAYOUT_I420_10 = 2,
    PM5544_LAYOUT_I420_12 = 3,
    PM5544_LAYOUT_I420_16 = 4,
    PM5544_LAYOUT_I422_8 = 5,
    PM5544_LAYOUT_I422_10 = 6,
    PM5544_LAYOUT_I422_12 = 7,
    PM5544_LAYOUT_I422_16 = 8,
    PM5544_LAYOUT_I444_8 = 9,
    PM5544_LAYOUT_I444_10 = 10,
    PM5544_LAYOUT_I444_12 = 11,
    PM5544_LAYOUT_I444_16 = 12,
    PM5544_LAYOUT_V210 = 13,
    PM5544_LAYOUT_UYVY = 14,
    PM5544_LAYOUT_RGBA16 = 15,
    PM5544_LAYOUT_GBR_10 = 16,
    PM5544_LAYOUT_GBR_12 = 17,
    PM5544_LAYOUT_GBR_16 = 18,
    PM5544_LAYOUT_NV12 = 19,
    PM5544_LAYOUT_P010_10LE = 20,
    PM5544_LAYOUT_P016_LE = 21,
    PM5544_LAYOUT_YUY2 = 22,
    PM5544_LAYOUT_RGBA = 23,
    PM5544_LAYOUT_BGRA = 24,
    PM5544_LAYOUT_RGBX = 25,
    PM5544_LAYOUT_BGRX = 26,
    /* Not layouts: they make the type hold any int a caller may pass, which is then refused. */
    PM5544_LAYOUT_INT_MIN_ = -2147483647 - 1,
    PM5544_LAYOUT_INT_MAX_ = 2147483647
} pm5544_layout;
#define PM5544_LAYOUT_COUNT 27
#define PM5544_MAX_PLANES 3

/* A layout's name ("FRAME16", "I422_10", "V210", ...); NULL for a value that is no layout. */
PM5544_API const char* pm5544_layout_name(pm5544_layout layout);
/* The bit depth and sampling (444, 422 or 420) a layout fixes; 0 for both with FRAME16, which takes
 * the card's. PM5544_ERROR_ARGUMENT for an unknown layout or null pointers. */
PM5544_API pm5544_status pm5544_layout_format(pm5544_layout layout, int* bits, int* sampling);
/* Whether frames of this encoding can be rendered in the layout: 1 or 0 (-1: unknown values). */
PM5544_API int pm5544_layout_allows(pm5544_layout layout, pm5544_encoding encoding);

/* One plane of a layout at a raster: the least stride, its rows and its bytes at that stride. */
typedef struct pm5544_plane {
    size_t row_bytes;
    int rows;
    size_t bytes; /* row_bytes * rows */
} pm5544_plane;

/* Fills planes[0 .. count - 1] for the layout at width x height and returns the count (1, 2 or 3), or a
 * negative pm5544_status (PM5544_ERROR_ARGUMENT too for a plane of more bytes than size_t holds). */
PM5544_API int pm5544_layout_planes(pm5544_layout layout, int width, int height,
                                    pm5544_plane planes[PM5544_MAX_PLANES]);

/* ---- The card ---- */

typedef struct pm5544_card pm5544_card;

/* A card with the command line's defaults: 1920x1080, 16:9, 12 bits, 4:4:4, "RGB", 25 frames a
 * second, no text. NULL when memory runs out. */
PM5544_API pm5544_card* pm5544_card_new(void);
PM5544_API void pm5544_card_free(pm5544_card* card);

/* The message of the last failing call on this handle ("" if none has failed yet): calls that succeed
 * leave it. Valid until the next failing call on the handle. */
PM5544_API const char* pm5544_last_error(const pm5544_card* card);

/* Lines the command line prints while it renders: the geometry, the font found, warnings. */
typedef enum pm5544_message_kind {
    PM5544_MESSAGE_PROGRESS = 0, /* the program prints these on standard output */
    PM5544_MESSAGE_WARNING = 1   /* ... and these on standard error */
} pm5544_message_kind;
/* Called on the calling thread with one line at a time, ending in '\n', one call a line. NULL: messages
 * are dropped (the default).
 * The card is in the middle of a call while its callback runs: the callback may read pm5544_last_error
 * but must not free the card, and any other call on the card from inside it is refused with
 * PM5544_ERROR_IN_CALLBACK, changing nothing. Other cards may be used. A callback written in C++ must not
 * let an exception out (pm5544.hpp's handlers may throw: the wrapper rethrows once the call returns);
 * if one does, the library catches it, goes on, and the call returns PM5544_ERROR_FAILED. */
typedef void (*pm5544_message_fn)(void* user_data, pm5544_message_kind kind, const char* line);
PM5544_API pm5544_status pm5544_set_message_callback(pm5544_card* card, pm5544_message_fn callback, void* user_data);

/* Settings. A setter refuses a value the card can never have (PM5544_ERROR_SETTINGS, or
 * PM5544_ERROR_ARGUMENT for a value outside its enumeration) and leaves the setting as it was. What
 * depends on several settings (the pixel aspect ratio the raster and the aspect ratio give, a timecode's
 * frames against the frame rate) is checked when the card is next prepared (explicitly or by the first
 * render after a change). The messages name the setting: "(raster)", "(frame rate)". A setter that gives
 * a setting the value it has keeps the prepared card (and where a time-of-day clock started). */
PM5544_API pm5544_status pm5544_set_raster(pm5544_card* card, int width, int height);          /* -d, 64 to 16384 */
PM5544_API pm5544_status pm5544_set_aspect(pm5544_card* card, int numerator, int denominator); /* -a, display */
PM5544_API pm5544_status pm5544_set_encoding(pm5544_card* card, pm5544_encoding encoding);     /* -c */
PM5544_API pm5544_status pm5544_set_encoding_name(pm5544_card* card, const char* name);        /* -c word */
PM5544_API pm5544_status pm5544_set_bits(pm5544_card* card, int bits);                         /* -b, 8 to 16 */
PM5544_API pm5544_status pm5544_set_sampling(pm5544_card* card, int sampling);                 /* -s 444/422/420 */
/* The bit depth and sampling a layout fixes (FRAME16 changes nothing). */
PM5544_API pm5544_status pm5544_use_layout(pm5544_card* card, pm5544_layout layout);
/* Kept for compatibility: this card shapes its own edges, so the taper never runs and changes no sample;
 * the setting is kept and the prepared card with it. */
PM5544_API pm5544_status pm5544_set_edge_taper(pm5544_card* card, int enabled);
PM5544_API pm5544_status pm5544_set_ident(pm5544_card* card, const char* utf8);   /* NULL or "": none */
PM5544_API pm5544_status pm5544_set_caption(pm5544_card* card, const char* utf8); /* NULL or "": none */
/* A clock in the lower box instead of the caption: the time of day when the card is prepared, or the
 * timecode if one is set, advancing frame by frame at the frame rate. */
PM5544_API pm5544_status pm5544_set_clock(pm5544_card* card, int enabled);
/* The clock's first frame as "HH:MM:SS:FF", or "HH:MM:SS;FF" counted drop-frame (at 30000/1001 and
 * 60000/1001); NULL or "" returns to the time of day. */
PM5544_API pm5544_status pm5544_set_timecode(pm5544_card* card, const char* timecode);
/* The time of day a clock without a timecode starts from (hours 0 to 23); hours < 0 returns to the
 * local time when the card is prepared. */
PM5544_API pm5544_status pm5544_set_time_of_day(pm5544_card* card, int hours, int minutes, int seconds);
PM5544_API pm5544_status pm5544_set_font(pm5544_card* card, const char* fontconfig_name);          /* NULL: default */
PM5544_API pm5544_status pm5544_set_frame_rate(pm5544_card* card, int numerator, int denominator); /* 1 to 1000000 */

/* ---- Scanning ----
 *
 * An interlaced frame is two fields, the top one holding rows 0, 2, 4, ... Both fields show the frame's
 * picture (a clock shows the frame's time in both, as a burnt-in timecode does), so a frame of 4:4:4 or
 * 4:2:2 is the progressive frame. In 4:2:0 each field's chroma is subsampled on its own: chroma row r
 * belongs to field r % 2 and takes the chroma of frame row (r / 2) * 4 + r % 2 (the top row of each pair
 * of the field's rows), and in FRAME16 frame rows y and y + 2 (y % 4 < 2) share it. The field order
 * changes no sample; it is for the caller to tag the frames with. pm5544_changed_rows and
 * pm5544_update_frame then give interlaced 4:2:0 spans in whole groups of four rows. */
typedef enum pm5544_scan {
    PM5544_SCAN_PROGRESSIVE = 0,
    PM5544_SCAN_INTERLACED_TFF = 1, /* the top field first in time */
    PM5544_SCAN_INTERLACED_BFF = 2, /* the bottom field first */
    /* Not scans: they make the type hold any int a caller may pass, which is then refused. */
    PM5544_SCAN_INT_MIN_ = -2147483647 - 1,
    PM5544_SCAN_INT_MAX_ = 2147483647
} pm5544_scan;
/* PM5544_ERROR_ARGUMENT for a value that is no scan (the setting is then left as it was). */
PM5544_API pm5544_status pm5544_set_scan(pm5544_card* card, pm5544_scan scan);

/* Checks the settings and builds the card (palette, geometry, text). Renders do it when needed; call it
 * to learn early whether the settings hold. */
PM5544_API pm5544_status pm5544_prepare(pm5544_card* card);

/* The picture of frame `frame` (0 for the first) in `layout`, into planes[0 .. count - 1] with their
 * strides in bytes: any frame from 0 to INT64_MAX, the clock going round once a day. Without a clock
 * every frame is frame 0. */
PM5544_API pm5544_status pm5544_render_frame(pm5544_card* card, int64_t frame, pm5544_layout layout,
                                             void* const planes[], const size_t strides[]);

/* Rows first_row .. first_row + row_count - 1 that differ between two frames. */
typedef struct pm5544_rows {
    int first_row;
    int row_count; /* 0: the frames are identical */
} pm5544_rows;

/* The rows in which frame `to` differs from frame `from`: only rows of the clock's text, and none
 * without a clock or where both show the same text. Rows outside the range are identical in every
 * layout; for 4:2:0 layouts the range starts and ends on whole row pairs. */
PM5544_API pm5544_status pm5544_changed_rows(pm5544_card* card, int64_t from, int64_t to, pm5544_rows* rows);

/* Brings planes that hold frame `held` (as this card rendered it, with its present settings, in the
 * same layout at these strides) to frame `frame`, rendering only the rows that differ; `written` (may
 * be NULL) says which. held < 0: the planes hold nothing yet (or a frame of earlier settings), and the
 * whole frame is rendered. So it is, whatever `held` says, by the first render or update after a
 * change of settings; planes rendered before the change and updated after that need held < 0. */
PM5544_API pm5544_status pm5544_update_frame(pm5544_card* card, int64_t frame, int64_t held, pm5544_layout layout,
                                             void* const planes[], const size_t strides[], pm5544_rows* written);

/* ---- Analysing a capture ----
 *
 * A capture is a picture that came back from a chain the card was sent through: a file read by
 * pm5544_capture_read, or planes of the caller's in one of the layouts above. pm5544_analyse fits, against
 * the card of a handle's settings, where the card lies in the capture, how its levels and colours were
 * changed, and what noise and depth the chain left, and names the operations it finds. */
typedef struct pm5544_capture pm5544_capture;

/* Reads a capture: PNG (8 or 16 bits; grey, RGB, RGBA), TIFF, DPX or Y4M (frame `frame`, 0 for the
 * first); "-" reads Y4M from standard input. NULL on failure, with the reason in error[0 .. error_size - 1]
 * (error may be NULL). */
PM5544_API pm5544_capture* pm5544_capture_read(const char* path, int64_t frame, char* error, size_t error_size);
/* Wraps a copy of the caller's planes in a layout. `bits` is the depth of FRAME16's codes (ignored for the
 * other layouts, which fix theirs); `ycbcr` says whether FRAME16 holds Cr, Y', Cb (1) or R', G', B' (0).
 * NULL for bad arguments or when memory runs out. */
PM5544_API pm5544_capture* pm5544_capture_from_planes(pm5544_layout layout, int width, int height, int bits, int ycbcr,
                                                      const void* const planes[], const size_t strides[]);
PM5544_API void pm5544_capture_free(pm5544_capture* capture);
/* The capture's raster and depth, and 1 when it holds Y'CbCr, 0 for R'G'B'. */
PM5544_API pm5544_status pm5544_capture_format(const pm5544_capture* capture, int* width, int* height, int* bits,
                                               int* ycbcr);

typedef enum pm5544_verdict {
    PM5544_VERDICT_BIT_EXACT = 0, /* every sample as sent */
    PM5544_VERDICT_AS_SENT = 1,   /* the card as sent, within the analysis' tolerances */
    PM5544_VERDICT_CHANGED = 2    /* the chain changed it: the report says how */
} pm5544_verdict;

typedef struct pm5544_analysis pm5544_analysis;

/* Analyses the capture against frame `frame` of the card the handle's settings give (a raster of 0x0,
 * which no setter gives, is never needed: set the sent raster, or the capture's own size). NULL on
 * failure with pm5544_last_error: PM5544_ERROR_NO_CARD's message is "no PM5544 card found". */
PM5544_API pm5544_analysis* pm5544_analyse(pm5544_card* card, const pm5544_capture* capture, int64_t frame);
/* Renders the card that pm5544_analyse of frame `frame` compares with, ahead of it (say while the capture
 * is read on another thread). pm5544_analyse renders it when needed and keeps it in the handle until a
 * setting changes, for every frame whose lower box shows the same text. */
PM5544_API pm5544_status pm5544_prepare_analysis(pm5544_card* card, int64_t frame);
PM5544_API void pm5544_analysis_free(pm5544_analysis* analysis);
PM5544_API pm5544_verdict pm5544_analysis_verdict(const pm5544_analysis* analysis);
/* The report as JSON (one object), and as text lines for people, each ending in '\n'; both valid until
 * the analysis is freed. */
PM5544_API const char* pm5544_analysis_json(const pm5544_analysis* analysis);
PM5544_API const char* pm5544_analysis_text(const pm5544_analysis* analysis);
/* The capture annotated: the card's fitted outline and grid drawn on it, and beside it a map of the
 * differences the fitted chain does not explain, as 8-bit RGB (3 bytes a pixel) of
 * pm5544_analysis_annotation_size's raster into rgb with `stride` bytes a row. */
PM5544_API pm5544_status pm5544_analysis_annotation_size(const pm5544_analysis* analysis, int* width, int* height);
PM5544_API pm5544_status pm5544_analysis_annotate(const pm5544_analysis* analysis, const pm5544_capture* capture,
                                                  uint8_t* rgb, size_t stride);

#ifdef __cplusplus
}
#endif

#endif
