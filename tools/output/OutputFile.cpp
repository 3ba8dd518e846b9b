// Output files written in place.
#include "output/OutputFile.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

OutputFile::OutputFile(std::string name) : name_(std::move(name)), toStandardOutput_(name_ == "-") {}

OutputFile::~OutputFile() {
    if (stream_ != nullptr) abandon();
}

bool OutputFile::open(bool /*needSeek*/) {
    stream_ = toStandardOutput_ ? stdout : std::fopen(name_.c_str(), "wb");
    if (stream_ == nullptr) fail(errno);
    return stream_ != nullptr;
}

bool OutputFile::write(const void* data, size_t bytes) {
    if (failed() || stream_ == nullptr) return false;
    if (bytes != 0 && std::fwrite(data, 1, bytes, stream_) != bytes) fail(errno);
    return !failed();
}

void OutputFile::fail(int error) {
    if (failed()) return;
    reason_ = error != 0 ? std::strerror(error) : "write error";
}

bool OutputFile::commit() {
    if (stream_ == nullptr) return false;
    if (std::fflush(stream_) != 0) fail(errno);
    if (!toStandardOutput_ && std::fclose(stream_) != 0) fail(errno);
    stream_ = nullptr;
    if (failed()) removeIncomplete(name_);
    return !failed();
}

void OutputFile::abandon() {
    if (stream_ != nullptr && !toStandardOutput_) std::fclose(stream_);
    stream_ = nullptr;
    removeIncomplete(name_);
}

void OutputFile::removeIncomplete(const std::string& fileName) {
    std::error_code error;
    if (std::filesystem::is_regular_file(fileName, error)) std::filesystem::remove(fileName, error);
}
