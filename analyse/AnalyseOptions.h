// pm5544-analyse's command line: what was sent, in pm5544's words and with its defaults, the capture and
// what to write. --help, the manual page and the completion are written from the one option table.
#pragma once

#include <pm5544/pm5544.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Analyse {

// What a run asks for. The sent card's settings go straight to the card handle.
struct Request {
    pm5544_card* card = nullptr;
    std::string capture;  // "-": Y4M on standard input
    bool haveCapture = false;
    int width = 0, height = 0;  // -d; 0: the capture's own
    int64_t frame = 0;          // --frame
    std::string json;           // --json; "-": standard output
    std::string annotate;       // --annotate
};

struct Option {
    const char* name;          // "-d", "--json"
    const char* value;         // the value's name in the usage; nullptr for an option without one
    const char* defaultValue;  // nullptr when there is none to show
    const char* help;          // one sentence, no full stop
    bool (*apply)(const char* option, const char* value, Request& request);  // false after printing an error
    std::vector<std::string> (*words)();  // the value's words for completion; nullptr: free text or a file
};

const std::vector<Option>& options();
std::vector<std::string> encodingWords();

// Prints --help or --version and returns 0, or returns -1 when the run goes on (1 after a failed print).
int handleInformationalOptions(int argc, char** argv);
// Reads the options into the request and the card; false after printing an error.
bool parseCommandLine(int argc, char** argv, Request& request);

std::string usageText();
std::string versionText();

// The exit statuses, as --help and the manual page give them.
struct ExitStatus {
    int code;
    const char* meaning;
};
const std::vector<ExitStatus>& exitStatuses();
constexpr int exitAsSent = 0, exitError = 1, exitChanged = 2;

}  // namespace Analyse
