// Reduction of 16-bit samples to fewer significant bits; results stay on the input's scale.
#include "colour/rounding.h"

namespace {

constexpr unsigned sampleMax = 0xFFFF;
// Highest code a legal luma sample may reach on the 16-bit scale.
constexpr unsigned lumaCeiling = 0xFEFF;

// Bits to drop, kept within 0..16 so no shift is negative or wider than the type.
unsigned dropBits(int s) {
    if (s < 0) return 0;
    if (s > 16) return 16;
    return static_cast<unsigned>(s);
}

// Half a step of the output depth; nothing to add when no bits are dropped.
unsigned long long halfStep(unsigned s) { return s == 0 ? 0 : 1ULL << (s - 1); }

// Clears the dropped low bits, within 16 bits.
unsigned keepMask(unsigned s) { return (sampleMax << s) & sampleMax; }

unsigned long long saturatedSum(unsigned value, unsigned long long half) {
    const unsigned long long sum = value + half;
    return sum > sampleMax ? sampleMax : sum;
}

}  // namespace

uint16_t Rounding::roundTo(int s, unsigned value) {
    const unsigned bits = dropBits(s);
    return static_cast<uint16_t>(saturatedSum(value, halfStep(bits)) & keepMask(bits));
}

uint16_t Rounding::roundLumaTo(int /*inBits*/, int s, unsigned value) {
    const unsigned bits = dropBits(s);
    const unsigned long long ceiling = lumaCeiling & keepMask(bits);
    const unsigned long long t = value + halfStep(bits);
    if (t <= ceiling) return static_cast<uint16_t>(t & keepMask(bits));
    return static_cast<uint16_t>(ceiling);
}

// At or above the chroma zero (bit inBits - 1 set) the value rounds half up; below it, it is
// truncated. A sum past 65535 saturates rather than wrapping round to zero.
uint16_t Rounding::roundChromaTo(int inBits, int s, unsigned value) {
    const unsigned bits = dropBits(s);
    const bool atOrAboveZero = inBits >= 1 && inBits <= 32 && ((value >> (inBits - 1)) & 1u) != 0;
    if (atOrAboveZero) return static_cast<uint16_t>(saturatedSum(value, halfStep(bits)) & keepMask(bits));
    return static_cast<uint16_t>(value & keepMask(bits));
}
