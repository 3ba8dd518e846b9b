// Writes the manual page pm5544.1 and the bash completion script pm5544.bash into the directory given,
// from the same tables as --help, so that the three cannot disagree. Run by the build.
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "DocWriting.h"
#include "OutputFormats.h"

using namespace PatternRender;
using DocWriting::roff;
using DocWriting::writeFile;
using DocWriting::writeOptions;

namespace {

void writeManPage(std::ostream& out) {
    out << ".TH PM5544 1 \"\" \"pm5544 " << programVersion() << "\" \"User Commands\"\n"
        << ".nh\n.ad l\n.SH NAME\npm5544 \\- render the Philips PM5544 test card as one still image\n"
        << ".SH SYNOPSIS\n.B pm5544\n.RI [ option ]... \" file\"\n.br\n.B pm5544 \\-u\n.RI [ option ]...\n"
        << ".br\n.B pm5544\n.BR \\-\\-help \" | \" \\-\\-version\n"
        << ".SH DESCRIPTION\n.B pm5544\n"
        << roff(
               "renders the Philips PM5544 broadcast test card as one bit-exact still frame, for loading into a "
               "signal generator, a video server or a grading system. The options choose the raster, the aspect "
               "ratio, the bit depth, the chroma sampling and the colour encoding; the extension of the output "
               "file chooses the format, unless --format names one.")
        << "\n.PP\n"
        << roff(
               "Every word that is not an option is the output file name, words such as -h and help included; a "
               "later one replaces an earlier one, and after -- every word is a file name. The file name - "
               "is standard output. Options and encoding words are case-sensitive. Long options take their "
               "value as the next word or after an =, as in --format=dpx.")
        << "\n.SH OPTIONS\n";
    writeOptions(out, shortOptions());
    out << ".SS Long options\n";
    writeOptions(out, longOptions());
    out << ".SH COLOUR ENCODINGS\n" << roff("The words that -c takes:") << "\n";
    for (const EncodingName& row : encodingNames())
        out << ".TP\n.B " << roff(row.word) << "\n" << roff(row.meaning) << ".\n";
    out << ".SH FORMATS\n" << roff("By the extension of the output file, or --format:") << "\n";
    for (const OutputFormat& row : formats()) out << ".TP\n.B " << roff(row.name) << "\n" << roff(row.writes) << ".\n";
    out << ".SH LIMITS\n";
    for (const std::string& line : limitLines()) out << ".IP \\(bu 2\n" << roff(line) << ".\n";
    out << ".SH EXIT STATUS\n.TP\n.B 0\n"
        << roff("A file was written, or --help or --version printed their text.") << "\n.TP\n.B 1\n"
        << roff(
               "An error: a command-line error, settings the format cannot take, or a failed write. No file is "
               "left behind.")
        << "\n.PP\n"
        << roff("With -u the status is the self-test's result.") << "\n.SH DIAGNOSTICS\n"
        << roff(
               "Progress lines go to standard output, or to standard error when the output file is -. "
               "Warnings (\"Warning: \"), about values read differently than they look or that the format "
               "treats differently, and errors (\"Error: \") go to standard error; the errors about the "
               "settings of a signal-generator device file go to standard output.")
        << "\n.SH EXAMPLES\n";
    for (const Example& row : examples())
        out << ".TP\n.B pm5544 " << roff(row.arguments) << "\n" << roff(row.meaning) << ".\n";
    out << ".SH SEE ALSO\n.BR ffmpeg (1),\n.BR pngcheck (1),\n.BR tiffinfo (1)\n";
}

void writeCompletion(std::ostream& out) {
    std::vector<Option> options(shortOptions().begin(), shortOptions().end());
    options.insert(options.end(), longOptions().begin(), longOptions().end());
    DocWriting::writeCompletion(out, "pm5544", options);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: write-docs DIRECTORY\n";
        return 2;
    }
    const std::string directory = argv[1];
    const bool written =
        writeFile(directory + "/pm5544.1", writeManPage) && writeFile(directory + "/pm5544.bash", writeCompletion);
    return written ? 0 : 1;
}
