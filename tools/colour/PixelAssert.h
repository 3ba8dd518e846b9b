// Assertion for unsupported colour conversions, in release builds too. A failure is a programming
// error; it is thrown rather than ending the process, so that a host of the library survives it.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>

namespace PixelAssert {

// Every conversion reports under one source name, whichever file of the colour library it sits
// in, so that reports stay comparable across builds and reorganisations.
constexpr const char* sourceName = "tools/Pixel.cpp";

// what() is the report a failed standard assertion prints after the program's name:
// "tools/Pixel.cpp:LINE: FUNCTION: Assertion `EXPRESSION' failed." A conversion that explains itself
// first leaves that explanation in note(), a whole line (empty if none).
class Failure : public std::logic_error {
public:
    Failure(const std::string& report, std::string note) : std::logic_error(report), note_(std::move(note)) {}
    const std::string& note() const { return note_; }

private:
    std::string note_;
};

[[noreturn]] inline void fail(const char* expression, const char* file, unsigned line, const char* function,
                              std::string note = {}) {
    throw Failure(
        std::string(file) + ":" + std::to_string(line) + ": " + function + ": Assertion `" + expression + "' failed.",
        std::move(note));
}

}  // namespace PixelAssert

#define PIXEL_ASSERT(expression)         \
    ((expression) ? static_cast<void>(0) \
                  : PixelAssert::fail(#expression, PixelAssert::sourceName, __LINE__, __PRETTY_FUNCTION__))
