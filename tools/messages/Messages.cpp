#include "messages/Messages.h"

#include <cstdarg>
#include <cstdio>
#include <vector>

void report(const MessageSink& sink, MessageKind kind, const char* format, ...) {
    if (!sink) return;
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(nullptr, 0, format, args);
    va_end(args);
    std::string line;
    if (length > 0) {
        std::vector<char> text(static_cast<size_t>(length) + 1);
        std::vsnprintf(text.data(), text.size(), format, again);
        line.assign(text.data(), static_cast<size_t>(length));
    }
    va_end(again);
    sink(kind, line);
}
