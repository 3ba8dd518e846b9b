// pm5544-analyse: reads a capture of the card back and says what the chain did to it, through the
// library's C API. Exit status 0: the card as sent; 2: changed; 1: any error, and then no file written.
#include <pm5544/pm5544.h>

#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "AnalyseOptions.h"
#include "AnnotationPng.h"
#include "CommandLineReading.h"
#include "OutputFiles.h"

using namespace Analyse;
using PatternRender::CommandLineReading::error;

namespace {

constexpr size_t errorSize = 1024;
constexpr int rgbBytes = 3;

struct Free {
    void operator()(pm5544_card* card) const { pm5544_card_free(card); }
    void operator()(pm5544_capture* capture) const { pm5544_capture_free(capture); }
    void operator()(pm5544_analysis* analysis) const { pm5544_analysis_free(analysis); }
};
template <typename T>
using Owned = std::unique_ptr<T, Free>;

// The card's warnings (a font that falls back) go to standard error; its progress lines are left out.
void onMessage(void*, pm5544_message_kind kind, const char* line) {
    if (kind == PM5544_MESSAGE_WARNING) std::fputs(line, stderr);
}

// The sent raster: -d's sides, else the capture's own.
bool setSentRaster(const Request& request, const pm5544_capture* capture) {
    int width = 0, height = 0, bits = 0, ycbcr = 0;
    pm5544_capture_format(capture, &width, &height, &bits, &ycbcr);
    const bool own = request.width == 0 && request.height == 0;
    const int sentWidth = request.width != 0 ? request.width : width;
    const int sentHeight = request.height != 0 ? request.height : height;
    if (own &&
        (width < PM5544_MIN_SIDE || height < PM5544_MIN_SIDE || width > PM5544_MAX_SIDE || height > PM5544_MAX_SIDE))
        return error(
            "no PM5544 card found: %s is %dx%d, a raster the card is not made at (%dx%d to %dx%d); -d gives "
            "the sent one",
            request.capture.c_str(), width, height, PM5544_MIN_SIDE, PM5544_MIN_SIDE, PM5544_MAX_SIDE, PM5544_MAX_SIDE);
    return pm5544_set_raster(request.card, sentWidth, sentHeight) == PM5544_OK ||
           error("%s", pm5544_last_error(request.card));
}

bool writeJson(OutputFiles& files, const std::string& name, const pm5544_analysis* analysis) {
    FILE* stream = files.open(name);
    return stream != nullptr && std::fputs(pm5544_analysis_json(analysis), stream) != EOF;
}

bool writeAnnotation(OutputFiles& files, const std::string& name, const pm5544_analysis* analysis,
                     const pm5544_capture* capture) {
    int width = 0, height = 0;
    pm5544_analysis_annotation_size(analysis, &width, &height);
    const size_t stride = size_t(width) * rgbBytes;
    std::vector<uint8_t> rgb(stride * size_t(height));
    if (pm5544_analysis_annotate(analysis, capture, rgb.data(), stride) != PM5544_OK)
        return error("Cannot draw the annotated capture for %s", name.c_str());
    FILE* stream = files.open(name);
    return stream != nullptr && writeAnnotationPng(stream, name, rgb.data(), width, height, stride);
}

int run(Request& request) {
    // With the sent raster given, the card is rendered on a second thread while the capture is read; a
    // failure there is met again, and reported, by the analysis.
    std::thread reference;
    if (request.width != 0 && request.height != 0 && pm5544_set_raster(request.card, request.width, request.height) == PM5544_OK)
        reference = std::thread([&] { pm5544_prepare_analysis(request.card, request.frame); });
    char reason[errorSize] = {};
    const Owned<pm5544_capture> capture(
        pm5544_capture_read(request.capture.c_str(), request.frame, reason, sizeof reason));
    if (reference.joinable()) reference.join();
    if (!capture) return error("%s", reason), exitError;
    if (!setSentRaster(request, capture.get())) return exitError;
    const Owned<pm5544_analysis> analysis(pm5544_analyse(request.card, capture.get(), request.frame));
    if (!analysis) return error("%s", pm5544_last_error(request.card)), exitError;
    OutputFiles files;
    if (!request.json.empty() && !writeJson(files, request.json, analysis.get())) return exitError;
    if (!request.annotate.empty() && !writeAnnotation(files, request.annotate, analysis.get(), capture.get()))
        return exitError;
    if (!files.commit()) return exitError;
    // With the JSON on standard output, the text report goes to standard error.
    std::fputs(pm5544_analysis_text(analysis.get()), request.json == "-" ? stderr : stdout);
    if (std::fflush(stdout) != 0) return error("Cannot write the report to standard output"), exitError;
    return pm5544_analysis_verdict(analysis.get()) == PM5544_VERDICT_CHANGED ? exitChanged : exitAsSent;
}

}  // namespace

int main(int argc, char** argv) {
    if (const int informational = handleInformationalOptions(argc, argv); informational >= 0) return informational;
    const Owned<pm5544_card> card(pm5544_card_new());
    if (!card) return error("Not enough memory"), exitError;
    pm5544_set_message_callback(card.get(), onMessage, nullptr);
    Request request;
    request.card = card.get();
    if (!parseCommandLine(argc, argv, request)) return exitError;
    if (request.json == "-" && request.annotate == "-")
        return error("--json - and --annotate - cannot both go to standard output"), exitError;
    return run(request);
}
