// Writes the manual page pm5544.1 and the bash completion script pm5544.bash into the directory given,
// from the same tables as --help, so that the three cannot disagree. Run by the build.
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "OutputFormats.h"

using namespace PatternRender;

namespace {

// Text for roff: backslashes and quotes made literal, every "-" a minus so that options can be copied,
// and a line never starting with a control character.
std::string roff(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '\\')
            out += "\\e";
        else if (c == '-')
            out += "\\-";
        else if (c == '\'')
            out += "\\(aq";
        else
            out += c;
    }
    return out.empty() || out[0] != '.' ? out : "\\&" + out;
}

void writeOptions(std::ostream& out, Rows<Option> options) {
    for (const Option& option : options) {
        out << ".TP\n";
        if (option.value)
            out << ".BI " << roff(option.name) << " \" " << roff(option.value) << "\"\n";
        else
            out << ".B " << roff(option.name) << "\n";
        out << roff(option.help) << ".";
        if (option.defaultValue) out << "\nDefault: " << roff(option.defaultValue) << ".";
        out << "\n";
    }
}

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

std::string quotedWords(const std::vector<std::string>& words) {
    std::string list;
    for (const std::string& word : words) list += (list.empty() ? "" : " ") + word;
    return "'" + list + "'";
}

// Values: a list of words, files (the value's name says FILE, maybe with an extension), or free text.
void writeValueCompletions(std::ostream& out, const std::vector<Option>& options) {
    std::string freeText;
    for (const Option& option : options) {
        const std::string value = option.value ? option.value : "";
        const size_t dot = value.find('.');
        if (option.words)
            out << "        " << option.name << ") COMPREPLY=($(compgen -W " << quotedWords(option.words())
                << " -- \"$cur\")); return ;;\n";
        else if (value.find("FILE") != std::string::npos)
            out << "        " << option.name << ") _filedir"
                << (dot == std::string::npos ? "" : " " + value.substr(dot + 1)) << "; return ;;\n";
        else if (!value.empty())
            freeText += (freeText.empty() ? "" : " | ") + std::string(option.name);
    }
    if (!freeText.empty()) out << "        " << freeText << ") return ;;\n";
}

template <typename Options>
std::vector<std::string> names(const Options& options) {
    std::vector<std::string> list;
    for (const Option& option : options) list.push_back(option.name);
    return list;
}

void writeCompletion(std::ostream& out) {
    std::vector<Option> options(shortOptions().begin(), shortOptions().end());
    options.insert(options.end(), longOptions().begin(), longOptions().end());
    out << "# bash completion for pm5544, written from the program's option tables   -*- shell-script -*-\n"
        << "_pm5544() {\n"
        << "    local cur prev words cword split\n"
        << "    _init_completion -s || return\n"
        << "    case $prev in\n";
    writeValueCompletions(out, options);
    out << "    esac\n"
        << "    $split && return\n"
        << "    case $cur in\n"
        << "        --*)\n"
        << "            COMPREPLY=($(compgen -W " << quotedWords(names(longOptions())) << " -- \"$cur\"))\n"
        << "            ;;\n"
        << "        -*)\n"
        << "            COMPREPLY=($(compgen -W " << quotedWords(names(options)) << " -- \"$cur\"))\n"
        << "            ;;\n"
        << "        *)\n"
        << "            _filedir\n"
        << "            ;;\n"
        << "    esac\n"
        << "} && complete -F _pm5544 pm5544\n";
}

bool writeFile(const std::string& path, void (*write)(std::ostream&)) {
    std::ofstream file(path);
    write(file);
    file.close();
    if (!file) std::cerr << "write-docs: cannot write " << path << "\n";
    return bool(file);
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
