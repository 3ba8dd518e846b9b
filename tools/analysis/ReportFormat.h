// The report in words and as JSON, and the annotated capture.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "analysis/Analysis.h"

namespace pm5544::analysis {

std::string reportJson(const Report& report);
std::string reportText(const Report& report);

// The annotated capture's raster: the capture and, beside it, the difference map.
void annotationSize(const Picture& capture, int& width, int& height);
// Draws it as 8-bit RGB, 3 bytes a pixel, `stride` bytes a row.
void annotate(const Report& report, const Picture& reference, const Picture& capture, uint8_t* rgb, size_t stride);

}  // namespace pm5544::analysis
