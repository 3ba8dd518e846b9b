// The render driver: reads the command line, renders the pattern and writes the file.
#pragma once

#include <cstddef>
#include <cstdint>

#include "CommandLine.h"
#include "pattern/PatternWrapper.h"

namespace PatternRender {

// Rounds every sample of a full frame (four samples a pixel) to the output depth, in place,
// staying on the 16-bit scale.
void roundFrame(uint16_t* frame, size_t pixels, PatternGen::colorAxes_e axes, int bits);

// Returns the exit status: 0 after a file was written, 1 after an error, or the self-test's result.
int renderPattern(int argc, char** argv, PatternSpec& spec);

}  // namespace PatternRender
