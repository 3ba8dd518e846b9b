// Assertion for unsupported colour conversions: reports like a failed standard assertion and
// aborts, in release builds too.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>

#if defined(__GLIBC__)
#include <errno.h>  // program_invocation_short_name
#endif

namespace PixelAssert {

// Every conversion reports under one source name, whichever file of the colour library it sits
// in, so that reports stay comparable across builds and reorganisations.
constexpr const char* sourceName = "tools/Pixel.cpp";

inline const char* programName() {
#if defined(__GLIBC__)
    return program_invocation_short_name;
#else
    return "pm5544";
#endif
}

[[noreturn]] inline void fail(const char* expression, const char* file, unsigned line, const char* function) {
    std::fflush(stdout);
    std::fprintf(stderr, "%s: %s:%u: %s: Assertion `%s' failed.\n", programName(), file, line, function,
                 expression);
    std::fflush(stderr);
    std::abort();
}

}  // namespace PixelAssert

#define PIXEL_ASSERT(expression)         \
    ((expression) ? static_cast<void>(0) \
                  : PixelAssert::fail(#expression, PixelAssert::sourceName, __LINE__, __PRETTY_FUNCTION__))
