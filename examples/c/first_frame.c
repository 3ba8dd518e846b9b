#include <pm5544/pm5544.h>
#include <stdio.h>
#include <stdlib.h>

int main(void) { /* frame 0 as 10-bit 4:2:2 planes (Y', Cb, Cr) on standard output */
    pm5544_card* card = pm5544_card_new();
    pm5544_set_encoding(card, PM5544_ENCODING_709); /* 1920x1080 unless pm5544_set_raster says */
    pm5544_use_layout(card, PM5544_LAYOUT_I422_10);
    pm5544_plane plane[PM5544_MAX_PLANES];
    int count = pm5544_layout_planes(PM5544_LAYOUT_I422_10, 1920, 1080, plane);
    void* data[PM5544_MAX_PLANES];
    size_t stride[PM5544_MAX_PLANES];
    for (int i = 0; i < count; i++) {
        data[i] = malloc(plane[i].bytes);
        stride[i] = plane[i].row_bytes;
    }
    int status = pm5544_render_frame(card, 0, PM5544_LAYOUT_I422_10, data, stride);
    if (status != PM5544_OK) fprintf(stderr, "%s\n", pm5544_last_error(card));
    for (int i = 0; i < count && status == PM5544_OK; i++) fwrite(data[i], 1, plane[i].bytes, stdout);
    pm5544_card_free(card);
    return status == PM5544_OK ? 0 : 1;
}
