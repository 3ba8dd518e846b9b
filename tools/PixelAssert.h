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

// The path from the "tools/" directory on, so the report does not depend on the build tree.
inline const char* sourceName(const char* path) {
    const char* found = nullptr;
    for (const char* p = std::strstr(path, "tools/"); p != nullptr; p = std::strstr(p + 1, "tools/")) found = p;
    return found != nullptr ? found : path;
}

inline const char* programName() {
#if defined(__GLIBC__)
    return program_invocation_short_name;
#else
    return "pm5544";
#endif
}

[[noreturn]] inline void fail(const char* expression, const char* file, unsigned line, const char* function) {
    std::fflush(stdout);
    std::fprintf(stderr, "%s: %s:%u: %s: Assertion `%s' failed.\n", programName(), sourceName(file), line, function,
                 expression);
    std::fflush(stderr);
    std::abort();
}

}  // namespace PixelAssert

#define PIXEL_ASSERT(expression)         \
    ((expression) ? static_cast<void>(0) \
                  : PixelAssert::fail(#expression, PixelAssert::sourceName(__FILE__), __LINE__, __PRETTY_FUNCTION__))
