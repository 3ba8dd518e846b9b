// The render driver: reads the command line, renders the pattern and writes the file.
#pragma once

#include <cstddef>
#include <cstdint>

#include "CommandLine.h"
#include "pattern/PatternWrapper.h"

namespace PatternRender {

// Seconds spent in the stages of one render, for the benchmark. Rows are rendered on a worker while
// the writer encodes the rows before them, so render and write overlap within stream.
struct StageTimes {
    double setup = 0;   // pattern initialisation, set-up and text
    double render = 0;  // worker: rows rendered and rounded
    double write = 0;   // writer: rows encoded and written, file committed
    double stream = 0;  // from the first row to the committed file
};

// Returns the exit status: 0 after a file was written, 1 after an error, or the self-test's result.
// With times, the stages are timed into it.
int renderPattern(int argc, char** argv, PatternSpec& pattern, StageTimes* times = nullptr);

}  // namespace PatternRender
