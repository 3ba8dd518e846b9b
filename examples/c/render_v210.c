/* Renders frame 0 of the PM5544 card as v210, the 10-bit 4:2:2 layout of SDI playout and capture
 * cards, and writes the raw plane to a file.
 *
 *     render_v210 OUTPUT [WIDTHxHEIGHT [ENCODING]]      (defaults 1920x1080 and "709")
 *
 * Rows are written at the stride v210 readers expect, ((width + 47) / 48) * 128 bytes, the padding
 * zero, so that ffmpeg reads the file at any width (its image2 demuxer takes the whole file as the
 * frame; the rawvideo one would cut it by the size of a yuv420p frame):
 *     ffmpeg -f image2 -c:v v210 -video_size 1920x1080 -i card.v210 card.png
 * A failing run leaves OUTPUT as it was. */
#include <errno.h>
#include <pm5544/pm5544.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static const char program_name[] = "render_v210";

static int parse_raster(const char* text, int* width, int* height) {
    char rest;
    return sscanf(text, "%dx%d%c", width, height, &rest) == 2;
}

/* The row stride of v210 files, GStreamer buffers and SDI cards: whole groups of 48 pixels. */
static size_t v210_stride(int width) { return ((size_t)width + 47) / 48 * 128; }

/* Writes the frame to a temporary beside the path and renames it over the path when complete. */
static int write_file(const char* path, const void* data, size_t bytes) {
    size_t temporary_size = strlen(path) + sizeof(".partial");
    char* temporary = malloc(temporary_size);
    if (!temporary) return 0;
    snprintf(temporary, temporary_size, "%s.partial", path);
    FILE* file = fopen(temporary, "wb");
    int written = file && fwrite(data, 1, bytes, file) == bytes;
    if (file && fclose(file) != 0) written = 0;
    if (written && rename(temporary, path) != 0) written = 0;
    if (!written) {
        fprintf(stderr, "%s: cannot write %s: %s\n", program_name, path, strerror(errno));
        if (file) remove(temporary);
    }
    free(temporary);
    return written;
}

/* Renders the card's first frame into a zeroed buffer of `height` rows at `stride` bytes. */
static void* render_frame(pm5544_card* card, int width, int height, size_t stride) {
    pm5544_plane plane[PM5544_MAX_PLANES];
    if (pm5544_layout_planes(PM5544_LAYOUT_V210, width, height, plane) != 1) {
        fprintf(stderr, "%s: no v210 layout for %dx%d\n", program_name, width, height);
        return NULL;
    }
    void* data = calloc((size_t)height, stride);
    if (!data) {
        fprintf(stderr, "%s: not enough memory for a %dx%d frame\n", program_name, width, height);
        return NULL;
    }
    void* const planes[1] = {data};
    const size_t strides[1] = {stride};
    if (pm5544_render_frame(card, 0, PM5544_LAYOUT_V210, planes, strides) != PM5544_OK) {
        fprintf(stderr, "%s: %s\n", program_name, pm5544_last_error(card));
        free(data);
        return NULL;
    }
    return data;
}

static int configure(pm5544_card* card, int width, int height, const char* encoding) {
    if (pm5544_set_raster(card, width, height) == PM5544_OK && pm5544_set_encoding_name(card, encoding) == PM5544_OK &&
        pm5544_use_layout(card, PM5544_LAYOUT_V210) == PM5544_OK && pm5544_prepare(card) == PM5544_OK)
        return 1;
    fprintf(stderr, "%s: %s\n", program_name, pm5544_last_error(card));
    return 0;
}

int main(int argc, char** argv) {
    int width = 1920, height = 1080;
    const char* encoding = argc > 3 ? argv[3] : "709";
    if (argc < 2 || argc > 4 || (argc > 2 && !parse_raster(argv[2], &width, &height))) {
        fprintf(stderr, "usage: %s OUTPUT [WIDTHxHEIGHT [ENCODING]]\n", program_name);
        return 2;
    }
    pm5544_card* card = pm5544_card_new();
    if (!card) {
        fprintf(stderr, "%s: not enough memory\n", program_name);
        return 1;
    }
    int ok = 0;
    if (configure(card, width, height, encoding)) {
        size_t stride = v210_stride(width);
        void* frame = render_frame(card, width, height, stride);
        ok = frame && write_file(argv[1], frame, stride * (size_t)height);
        free(frame);
    }
    pm5544_card_free(card);
    return ok ? 0 : 1;
}
