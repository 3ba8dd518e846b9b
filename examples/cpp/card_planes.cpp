// Frame 0 of the card as 10-bit 4:2:2 planes (Y', Cb, Cr, the samples of ffmpeg's yuv422p10le) on
// standard output, through the C++ wrapper, whose errors arrive as exceptions:
//
//     card_planes [WIDTHxHEIGHT [ENCODING]]      (defaults 1920x1080 and "709")
//     card_planes 1280x720 601 | ffmpeg -f rawvideo -pix_fmt yuv422p10le -video_size 1280x720 -i - card.png
#include <cstdio>
#include <iostream>
#include <pm5544/pm5544.hpp>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr pm5544_layout kLayout = PM5544_LAYOUT_I422_10;

struct Settings {
    int width = 1920;
    int height = 1080;
    std::string encoding = "709";
};

bool readSettings(int argc, char** argv, Settings& settings) {
    char rest;
    if (argc > 3) return false;
    if (argc > 1 && std::sscanf(argv[1], "%dx%d%c", &settings.width, &settings.height, &rest) != 2) return false;
    if (argc > 2) settings.encoding = argv[2];
    return true;
}

// Renders frame 0 into planes of the layout's sizes and writes them one after another.
void writePlanes(const Settings& settings, std::FILE* output) {
    pm5544::TestCard card;
    card.raster(settings.width, settings.height).encoding(settings.encoding).layout(kLayout);
    pm5544_plane sizes[PM5544_MAX_PLANES];
    const int count = pm5544_layout_planes(kLayout, settings.width, settings.height, sizes);
    if (count < 1) throw std::runtime_error("no planes for this raster");
    std::vector<std::vector<unsigned char>> planes(count);
    void* data[PM5544_MAX_PLANES];
    size_t strides[PM5544_MAX_PLANES];
    for (int i = 0; i < count; ++i) {
        planes[i].resize(sizes[i].bytes);
        data[i] = planes[i].data();
        strides[i] = sizes[i].row_bytes;
    }
    card.render(0, kLayout, data, strides);
    for (const std::vector<unsigned char>& plane : planes)
        if (std::fwrite(plane.data(), 1, plane.size(), output) != plane.size()) throw std::runtime_error("write error");
    if (std::fflush(output) != 0) throw std::runtime_error("write error");
}

}  // namespace

int main(int argc, char** argv) {
    Settings settings;
    if (!readSettings(argc, argv, settings)) {
        std::cerr << "usage: card_planes [WIDTHxHEIGHT [ENCODING]]\n";
        return 2;
    }
    try {
        writePlanes(settings, stdout);
    } catch (const std::exception& error) {
        std::cerr << "card_planes: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
