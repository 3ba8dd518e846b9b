// The annotated capture as an 8-bit RGB PNG.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace Analyse {

// Writes width x height pixels of 3 bytes, `stride` bytes a row, into the stream; false after printing
// why not.
bool writeAnnotationPng(FILE* stream, const std::string& name, const uint8_t* rgb, int width, int height,
                        size_t stride);

}  // namespace Analyse
