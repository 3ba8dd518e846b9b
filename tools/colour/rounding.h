// Reduction of 16-bit samples to an output bit depth, keeping the 16-bit scale.
// s is the number of low bits to drop (16 - output depth); s = 0 keeps the value.
#pragma once

#include <cstdint>

namespace Rounding {

uint16_t roundTo(int s, unsigned value);
uint16_t roundLumaTo(int inBits, int s, unsigned value);
uint16_t roundChromaTo(int inBits, int s, unsigned value);

}  // namespace Rounding
