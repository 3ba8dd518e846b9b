// The render driver: reads the command line, renders the pattern and writes the file.
#pragma once

#include <cstddef>
#include <cstdint>

#include "CommandLine.h"
#include "StageTiming.h"
#include "messages/Messages.h"
#include "pattern/PatternWrapper.h"

namespace PatternRender {

// Returns the exit status: 0 after a file was written, 1 after an error, or the self-test's result.
// With times, the stages are timed into it.
int renderPattern(int argc, char** argv, PatternSpec& pattern, StageTimes* times = nullptr);

// The program's sink for the library's lines: progress lines on standard output, warnings on standard
// error after what is pending on standard output, so that the two keep their order on a terminal.
MessageSink printingSink();

}  // namespace PatternRender
