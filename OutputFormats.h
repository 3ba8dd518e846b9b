// The output formats, one table keyed by the extension (and by the word --format takes): which settings
// the format needs, which writer writes it (the kind of rows that writer takes picks the loop that
// renders them) and the rules the driver follows around it.
#pragma once

#include <string>

#include "CommandLine.h"
#include "output/ImageWriter.h"

namespace PatternRender {

struct OutputFormat {
    const char* name;                      // the extension, and the word --format takes
    const char* writes;                    // one line for --help and the manual page
    bool (*settingsFit)(const Settings&);  // prints why not and returns false; nullptr: any settings
    AnyImageWriter (*makeWriter)(const Settings&);
    const char* failure;       // printf format taking the file name
    const char* cannotCreate;  // said first when the file cannot be created; nullptr: the failure line only
    bool needSeek;             // the writer seeks back into its file
    bool takesFrames;          // video: writes --frames frames; a still format writes one
    bool roundsToOutputDepth;  // rows are rounded to -b before the writer takes them (full-frame rows only)
    bool announcesFileName;    // "writing to: NAME" precedes the format's progress line
};

Rows<OutputFormat> formats();
// The preview's format: PNG, whose failure line a failing preview takes.
const OutputFormat& previewFormat();
// Interlaced frames are video: a still format has no field order to keep. Says why not on standard
// error and returns false.
bool fitsScan(const OutputFormat& format, const Settings& settings);
// nullptr for a name that is no format.
const OutputFormat* formatNamed(const std::string& name);
// The format a render writes: --format if given, PNG for "-", else by the name's extension exactly
// (case matters), PNG for none and for an extension that names no format.
const OutputFormat& formatFor(const Settings& settings);

}  // namespace PatternRender
