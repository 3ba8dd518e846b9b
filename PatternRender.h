// The render driver: reads the command line, renders the pattern and writes the file.
#pragma once

#include "PatternWrapper.h"

namespace PatternRender {

// Returns the exit status: 0 after a file was written, 1 after an error, or the self-test's result.
int renderPattern(int argc, char** argv, PatternSpec& spec);

}  // namespace PatternRender
