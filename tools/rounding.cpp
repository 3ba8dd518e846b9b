// Placeholder definitions; replaced by the colour library.
#include "rounding.h"
uint16_t Rounding::roundTo(int, unsigned v) { return v; }
uint16_t Rounding::roundLumaTo(int, int, unsigned v) { return v; }
uint16_t Rounding::roundChromaTo(int, int, unsigned v) { return v; }
