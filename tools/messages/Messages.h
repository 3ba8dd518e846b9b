// The lines a pattern reports while it is set up (geometry, the font found, warnings). They go to a
// sink its owner chooses: the program prints them, a library host gets them through its callback.
#pragma once

#include <functional>
#include <string>

enum class MessageKind { Progress, Warning };

// Takes one line at a time, ending in '\n'.
using MessageSink = std::function<void(MessageKind kind, const std::string& line)>;

// Formats a line as printf does and hands it to the sink (if any).
void report(const MessageSink& sink, MessageKind kind, const char* format, ...) __attribute__((format(printf, 3, 4)));
