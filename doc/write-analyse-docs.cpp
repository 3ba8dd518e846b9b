// Writes pm5544-analyse's manual page pm5544-analyse.1 and bash completion pm5544-analyse.bash into the
// directory given, from the option table --help is written from. Run by the build.
#include <string>

#include "AnalyseOptions.h"
#include "DocWriting.h"

using namespace Analyse;
using DocWriting::roff;

namespace {

void writeManPage(std::ostream& out) {
    out << ".TH PM5544-ANALYSE 1 \"\" \"pm5544-analyse " << roff(pm5544_version()) << "\" \"User Commands\"\n"
        << ".nh\n.ad l\n.SH NAME\npm5544\\-analyse \\- say what a chain did to the PM5544 test card\n"
        << ".SH SYNOPSIS\n.B pm5544\\-analyse\n.I capture\n.RI [ option ]...\n.br\n.B pm5544\\-analyse\n"
        << ".BR \\-\\-help \" | \" \\-\\-version\n"
        << ".SH DESCRIPTION\n.B pm5544\\-analyse\n"
        << roff(
               "reads a captured picture of the PM5544 card that came back from a chain (encoders, scalers, links, "
               "capture cards) and explains it against the card as it was sent: where the card lies in the "
               "capture (scale and offset, crops, bars, mirroring), how its levels and colours were changed (a "
               "range change, a matrix mismatch, swapped components, gain and offset), and what noise, depth and "
               "clipping the chain left. The options say what was sent, with the words and defaults of pm5544; "
               "without -d the sent raster is the capture's own size.")
        << "\n.PP\n"
        << roff(
               "The capture is a PNG (8 or 16 bits, grey, RGB or RGBA), a TIFF, a DPX or a Y4M file, told apart "
               "by their first bytes; - reads Y4M from standard input. Y4M and Y'CbCr DPX and TIFF files hold "
               "Y'CbCr, the others R'G'B'. The text report, one line per finding after the verdict, goes to "
               "standard output; with --json - the JSON goes there and the text to standard error.")
        << "\n.SH OPTIONS\n";
    DocWriting::writeOptions(out, options());
    out << ".SH COLOUR ENCODINGS\n" << roff("The words that -c takes, as pm5544's:") << "\n";
    for (int e = 0; e < PM5544_ENCODING_COUNT; ++e)
        out << ".TP\n.B " << roff(pm5544_encoding_name(pm5544_encoding(e))) << "\n"
            << roff(pm5544_encoding_description(pm5544_encoding(e))) << ".\n";
    out << ".SH JSON REPORT\n"
        << roff(
               "One object with the keys verdict (bit-exact, as-sent or changed), components, geometry (scale_x, "
               "scale_y, offset_x, offset_y: a sent pixel centre (x, y) lies at (scale_x x + offset_x, scale_y y + "
               "offset_y) in the capture), range (as-sent, expanded or compressed), matrix (null, or from and to), "
               "swap (none, Cb-Cr or R-B), levels (gain and offset per component, offsets in codes at the sent "
               "depth), psnr (raw and explained, dB; null where a component is exact), noise (sigma in codes), "
               "bit_depth, clipped (the share of the card clipped) and findings (kind and message).")
        << "\n.SH EXIT STATUS\n";
    for (const ExitStatus& status : exitStatuses())
        out << ".TP\n.B " << status.code << "\n" << roff(status.meaning) << ".\n";
    out << ".SH EXAMPLES\n.TP\n.B pm5544\\-analyse capture.png \\-c 709 \\-b 10 \\-\\-json report.json\n"
        << roff("A capture against a 10-bit BT.709 card of the capture's own size.") << "\n"
        << ".TP\n.B ffmpeg \\-i capture.mxf \\-f yuv4mpegpipe \\-strict \\-1 \\- | pm5544\\-analyse \\- \\-c 709 "
           "\\-b 10 \\-s 422\n"
        << roff("Any video ffmpeg reads, through a Y4M pipe.") << "\n"
        << ".SH SEE ALSO\n.BR pm5544 (1),\n.BR ffmpeg (1)\n";
}

void writeCompletion(std::ostream& out) { DocWriting::writeCompletion(out, "pm5544-analyse", options()); }

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: write-analyse-docs DIRECTORY\n";
        return 2;
    }
    const std::string directory = argv[1];
    return DocWriting::writeFile(directory + "/pm5544-analyse.1", writeManPage) &&
                   DocWriting::writeFile(directory + "/pm5544-analyse.bash", writeCompletion)
               ? 0
               : 1;
}
