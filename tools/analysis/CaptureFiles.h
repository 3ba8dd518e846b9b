// Captures read from files into a Picture: PNG, TIFF, DPX and Y4M, recognised by their first bytes, each
// at its own depth, components and chroma sampling. Every refusal is a std::runtime_error naming the file.
#pragma once

#include <cstdint>
#include <string>

#include "analysis/Picture.h"

namespace pm5544::analysis {

// The largest capture read: the analysis holds it and the card's picture whole, so the area is bounded
// before anything is allocated, and a side may be at most the card's largest.
namespace CaptureLimits {
constexpr int maximumSide = 16384;
constexpr int64_t maximumPixels = int64_t(8192) * 8192;
}  // namespace CaptureLimits

// The name standard input is read under (Y4M only).
constexpr const char* standardInputName = "-";

// Reads frame `frame` (0: the first; only Y4M holds more than one) of the file at `path`.
Picture readCapture(const std::string& path, int64_t frame);

}  // namespace pm5544::analysis
