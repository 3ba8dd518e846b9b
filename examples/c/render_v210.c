/* Renders frame 0 of the PM5544 card as v210, the 10-bit 4:2:2 layout of SDI playout and capture
 * cards, and writes the raw plane to a file.
 *
 *     render_v210 OUTPUT [WIDTHxHEIGHT [ENCODING]]      (defaults 1920x1080 and "709")
 *
 * Rows are written at the stride v210 readers expect, ((width + 47) / 48) * 128 bytes, the padding
 * zero, so that ffmpeg reads the file at any width (its image2 demuxer takes the whole file as the
 * frame; the rawvideo one would cut it by the size of a yuv420p frame):
 *     ffmpeg -f image2 -c:v v210 -video_size 1920x1080 -i card.v210 card.png
 * OUTPUT is written as the pm5544 program writes its files: a regular file (or a new name) through a
 * temporary beside it, renamed over it once complete, so a failing run leaves it as it was; a device or
 * a FIFO (/dev/null, a pipe to a player) in place, since renaming over it would put a regular file
 * where it was. */
#define _XOPEN_SOURCE 700 /* realpath, mkstemp, fchmod, fsync */
#include <errno.h>
#include <pm5544/pm5544.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

static const char program_name[] = "render_v210";

static int parse_raster(const char* text, int* width, int* height) {
    char rest;
    return sscanf(text, "%dx%d%c", width, height, &rest) == 2;
}

/* The row stride of v210 files, GStreamer buffers and SDI cards: whole groups of 48 pixels. */
static size_t v210_stride(int width) { return ((size_t)width + 47) / 48 * 128; }

static int report_failure(const char* path) {
    fprintf(stderr, "%s: cannot write %s: %s\n", program_name, path, strerror(errno));
    return 0;
}

/* Writes all bytes (synced to disk when asked) and closes the file. */
static int write_and_close(FILE* file, const void* data, size_t bytes, int sync) {
    int written = fwrite(data, 1, bytes, file) == bytes && fflush(file) == 0 && (!sync || fsync(fileno(file)) == 0);
    return fclose(file) == 0 && written;
}

/* A device or a FIFO takes the bytes where it is. */
static int write_in_place(const char* path, const void* data, size_t bytes) {
    FILE* file = fopen(path, "wb");
    return (file && write_and_close(file, data, bytes, 0)) || report_failure(path);
}

/* Fills the temporary `name` (from mkstemp) with `mode` and renames it to `target`. */
static int fill_and_rename(int descriptor, const char* name, mode_t mode, const char* target, const void* data,
                           size_t bytes) {
    fchmod(descriptor, mode);
    FILE* file = fdopen(descriptor, "wb");
    if (!file) close(descriptor);
    return file && write_and_close(file, data, bytes, 1) && rename(name, target) == 0;
}

/* A regular file (a symbolic link's target, which stays a link) or a new name: a temporary beside it
 * with the file's permission bits, or those fopen would give a new file, renamed over it. */
static int write_replacing(const char* path, const struct stat* existing, const void* data, size_t bytes) {
    if (existing && access(path, W_OK) != 0) return report_failure(path);
    mode_t mask = umask(0);
    umask(mask);
    mode_t mode = existing ? existing->st_mode & 07777 : 0666 & ~mask;
    char* target = existing ? realpath(path, NULL) : strdup(path);
    char* temporary = target ? malloc(strlen(target) + sizeof(".XXXXXX")) : NULL;
    int written = 0;
    if (temporary) {
        sprintf(temporary, "%s.XXXXXX", target);
        int descriptor = mkstemp(temporary);
        written = descriptor >= 0 && fill_and_rename(descriptor, temporary, mode, target, data, bytes);
        if (!written) report_failure(path);
        if (!written && descriptor >= 0) remove(temporary);
    } else {
        report_failure(path);
    }
    free(temporary);
    free(target);
    return written;
}

static int write_file(const char* path, const void* data, size_t bytes) {
    struct stat status;
    if (stat(path, &status) != 0) {
        if (errno != ENOENT) return report_failure(path);
        return write_replacing(path, NULL, data, bytes);
    }
    if (S_ISREG(status.st_mode)) return write_replacing(path, &status, data, bytes);
    return write_in_place(path, data, bytes);
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
