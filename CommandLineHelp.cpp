// The texts of --help and --version, written from the option, encoding and format tables.
#include <cairo.h>
#include <pango/pango.h>
#include <png.h>
#include <tiffio.h>

#include <iterator>
#include <sstream>
#include <string>

#include "CommandLine.h"
#include "CommandLineReading.h"
#include "OutputFormats.h"

#ifndef PM5544_VERSION
#define PM5544_VERSION "(unversioned build)"  // the build passes the project's version
#endif

namespace PatternRender {

namespace {

using CommandLineReading::appendEntry;
using CommandLineReading::appendWrapped;

const Example exampleTable[] = {
    {"card.png", "the default card: 1920x1080, 16:9, full-range R'G'B', 12 bits, as a PNG"},
    {"-d 720x576 -a 4x3 -c 601 -b 10 sd.png", "625-line standard definition, BT.601, 10 bits"},
    {"-d 3840x2160 -c PQ -b 10 -s 422 uhd.dpx", "UHD with PQ as a 4:2:2 DPX file"},
    {"-c HLG-Mapped -b 10 hlg.tif", "HLG with BT.709 colours mapped into BT.2020, as TIFF"},
    {"-c 709 -s 422 card.pat", "a device file for the signal generators"},
    {"-c RGB-headroom cinema.xyz", "a DCI X'Y'Z' device file"},
    {"-d 1280x720 --format dpx - > card.dpx", "DPX on standard output; progress goes to standard error"},
    {"-u", "the colour-arithmetic self-test"},
};

void appendOptions(std::string& out, Rows<Option> options) {
    for (const Option& option : options) {
        const std::string term = std::string(option.name) + (option.value ? std::string(" ") + option.value : "");
        const std::string byDefault = option.defaultValue ? std::string(" (default ") + option.defaultValue + ")" : "";
        appendEntry(out, term, option.help + byDefault);
    }
}

// "LIBTIFF, Version 4.5.0\nCopyright ..." gives 4.5.0.
std::string tiffVersion() {
    const std::string text = TIFFGetVersion();
    const std::string marker = "Version ";
    const size_t at = text.find(marker);
    if (at == std::string::npos) return text.substr(0, text.find('\n'));
    const size_t from = at + marker.size();
    return text.substr(from, text.find_first_of(" \n", from) - from);
}

}  // namespace

Rows<Example> examples() { return {std::begin(exampleTable), std::end(exampleTable)}; }

const char* programVersion() { return PM5544_VERSION; }

std::string versionText() {
    return std::string("pm5544 ") + programVersion() + "\nlibpng " + png_get_libpng_ver(nullptr) + "\nlibtiff " +
           tiffVersion() + "\nCairo " + cairo_version_string() + "\nPango " + pango_version_string() + "\n";
}

std::vector<std::string> limitLines() {
    const std::string low = std::to_string(Limits::minimumSide), high = std::to_string(Limits::maximumSide);
    std::ostringstream pixelAspect;
    pixelAspect.precision(2);
    pixelAspect << std::fixed << "Pixel aspect ratio (from -a and -d): 1:" << Limits::minimumPixelAspect
                << " to 1:" << Limits::maximumPixelAspect;
    return {"Raster: " + low + "x" + low + " to " + high + "x" + high +
                " pixels; with -q the canvas, twice the raster each way, has to fit",
            "Bit depth: " + std::to_string(Limits::minimumBits) + " to " + std::to_string(Limits::maximumBits),
            pixelAspect.str(), "Signal-generator device files play at the line widths 1280, 1920 and 2048"};
}

std::string usageText() {
    std::string out = "Usage: pm5544 [OPTION]... FILE\n";
    appendWrapped(out,
                  "Renders the Philips PM5544 test card as one still frame into FILE, in the format that FILE's "
                  "extension names. FILE - is standard output. Every word that is not an option is FILE, -h and "
                  "help too; a later one replaces an earlier one. Options and encodings are case-sensitive.",
                  0, 0);
    out += "\nOptions:\n";
    appendOptions(out, shortOptions());
    out += "\nLong options (the value may also follow an =, as in --format=dpx):\n";
    appendOptions(out, longOptions());
    out += "\nColour encodings (-c):\n";
    for (const EncodingName& row : encodingNames()) appendEntry(out, row.word, row.meaning);
    out += "\nFormats (FILE's extension, or --format):\n";
    for (const OutputFormat& row : formats()) appendEntry(out, row.name, row.writes);
    out += "\nLimits:\n";
    for (const std::string& line : limitLines()) {
        out += "  ";
        appendWrapped(out, line, 2, 4);
    }
    out += "\nExamples:\n";
    for (const Example& row : examples()) {
        out += "  pm5544 " + std::string(row.arguments) + "\n" + std::string(6, ' ');
        appendWrapped(out, row.meaning, 6, 6);
    }
    out += '\n';
    appendWrapped(out,
                  "Exit status: 0 after a file was written, 1 after an error; with -u, the self-test's result. "
                  "Progress goes to standard output (to standard error when FILE is -), warnings and errors to "
                  "standard error.",
                  0, 0);
    return out;
}

}  // namespace PatternRender
