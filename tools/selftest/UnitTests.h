// The printed colour self-test of the "-u" option.
#pragma once

#include "colour/ColourSpace.h"

namespace UnitTests {

// Prints the check of scaling, rounding and conversions; always returns 1.
int runUnitTests(int width, int height, int aspectW, int aspectH, PatternGen::colorAxes_e axes);

}  // namespace UnitTests
