// The printed colour self-test of the "-u" option.
#pragma once

#include "colour/ColourSpace.h"
#include "messages/Messages.h"

namespace UnitTests {

// Prints the check of scaling, rounding and conversions, as progress lines of messages; always returns 1.
int runUnitTests(int width, int height, int aspectW, int aspectH, PatternGen::colorAxes_e axes,
                 const MessageSink& messages);

}  // namespace UnitTests
