// Helpers for tests that write files and read them back, run the program, and capture output.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace TestFiles {

using Bytes = std::vector<uint8_t>;

// A fresh directory under /tmp, removed with its contents when the object goes.
class ScratchDir {
public:
    ScratchDir() {
        char pattern[] = "/tmp/pm5544_test_XXXXXX";
        if (mkdtemp(pattern) == nullptr) ADD_FAILURE() << "mkdtemp failed";
        dir_ = pattern;
    }
    ~ScratchDir() {
        std::error_code ignored;
        std::filesystem::remove_all(dir_, ignored);
    }
    std::string path(const std::string& name) const { return (dir_ / name).string(); }

private:
    std::filesystem::path dir_;
};

inline Bytes readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}
inline void writeFile(const std::string& path, const Bytes& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}
inline bool exists(const std::string& path) { return std::filesystem::exists(path); }
inline std::string text(const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }

// Bytes written as hex digits; anything else (spaces, '|') only groups them for the reader.
inline Bytes hex(const std::string& text) {
    std::string digits;
    for (char c : text)
        if (std::isxdigit(static_cast<unsigned char>(c))) digits += c;
    Bytes bytes;
    for (size_t i = 0; i + 1 < digits.size(); i += 2) bytes.push_back(uint8_t(std::stoul(digits.substr(i, 2), 0, 16)));
    return bytes;
}
// The unsigned number of `size` bytes at `at`, least significant byte first.
inline uint32_t littleEndian(const Bytes& bytes, size_t at, int size = 4) {
    uint32_t value = 0;
    for (int i = size - 1; i >= 0; --i) value = value << 8 | bytes.at(at + i);
    return value;
}
// Everything read from a descriptor until its end.
inline Bytes readAll(int fd) {
    Bytes bytes;
    uint8_t chunk[4096];
    for (ssize_t count; (count = ::read(fd, chunk, sizeof chunk)) > 0;) bytes.insert(bytes.end(), chunk, chunk + count);
    return bytes;
}
// What a shell command writes to its standard output.
inline std::string commandOutput(const std::string& command) {
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return output;
    char chunk[4096];
    for (size_t count; (count = fread(chunk, 1, sizeof chunk, pipe)) > 0;) output.append(chunk, count);
    pclose(pipe);
    return output;
}
// The bytes ffmpeg writes as raw video for an input ("-i 'file'", or raw video described before it) and
// output options ("-pix_fmt yuv420p", "-c:v v210").
inline Bytes ffmpegRaw(const std::string& input, const std::string& outputOptions) {
    const std::string raw =
        commandOutput("ffmpeg -nostdin -v error " + input + " " + outputOptions + " -f rawvideo - 2>/dev/null");
    return Bytes(raw.begin(), raw.end());
}
// The 16-bit words ffmpeg decodes from `path` into `pixelFormat` (rgba64be, rgb48le, ...) through
// `filters`, if any, read in the byte order the format names.
inline std::vector<uint16_t> ffmpegSamples(const std::string& path, const std::string& pixelFormat, bool bigEndianWords,
                                           const std::string& filters = "") {
    const Bytes raw =
        ffmpegRaw("-i '" + path + "'", (filters.empty() ? "" : "-vf " + filters) + " -pix_fmt " + pixelFormat);
    std::vector<uint16_t> samples;
    for (size_t i = 0; i + 1 < raw.size(); i += 2) {
        const uint16_t first = raw[i], second = raw[i + 1];
        samples.push_back(uint16_t(bigEndianWords ? first << 8 | second : second << 8 | first));
    }
    return samples;
}
// ffmpeg converts the raw samples in `dir` (file "raw", `size` pixels) to `file`, in `format` unless told
// another; its exit status.
inline int ffmpegFromRaw(const ScratchDir& dir, const std::string& format, const char* size, const std::string& file,
                         const std::string& extra = "", const std::string& outFormat = "") {
    return std::system(("cd '" + dir.path("") + "' && ffmpeg -nostdin -v error -f rawvideo -pix_fmt " + format +
                        " -s " + size + " -i raw -pix_fmt " + (outFormat.empty() ? format : outFormat) + " " + extra +
                        " " + file)
                           .c_str());
}
#ifdef PM5544_EXE
// Runs `program` (the built program unless told) in `dir`, its standard output and error to the files
// "stdout" and "stderr" there, its input what the shell command `input` writes (nothing if none).
inline int runProgram(const std::string& dir, const std::string& args, const std::string& program = PM5544_EXE,
                      const std::string& input = "") {
    const std::string from = input.empty() ? "" : input + " | ", to = input.empty() ? " </dev/null" : "";
    const int raw =
        std::system(("cd '" + dir + "' && " + from + "'" + program + "' " + args + " >stdout 2>stderr" + to).c_str());
    return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
}

struct Outcome {
    int status = -1;
    std::string out, err;
};

// Runs the built program in a scratch directory, both streams collected apart.
class ProgramTest : public ::testing::Test {
protected:
    Outcome run(const std::string& args, const std::string& program = PM5544_EXE, const std::string& input = "") {
        const int status = runProgram(dir.path(""), args, program, input);
        return {status, file("stdout"), file("stderr")};
    }
    std::string file(const std::string& name) const { return text(readFile(dir.path(name))); }
    ScratchDir dir;
};
#endif
// A GStreamer command-line tool that loads this build's plugin: a sanitized plugin needs the sanitizer's
// runtime loaded first, which the tool lacks. "" when the tool or the runtime is missing.
inline std::string gstreamerTool(const std::string& tool) {
    if (std::system(("command -v " + tool + " >/dev/null 2>&1").c_str()) != 0) return "";
#if defined(__SANITIZE_ADDRESS__)
    std::string runtime = commandOutput("gcc -print-file-name=libasan.so 2>/dev/null");
    runtime.erase(runtime.find_last_not_of(" \n") + 1);
    if (runtime.empty() || runtime[0] != '/' || !exists(runtime)) return "";
    return "LD_PRELOAD='" + runtime + "' ASAN_OPTIONS=detect_leaks=0 " + tool;
#else
    return tool;
#endif
}
// What `action` prints to standard output, or to standard error.
template <typename Action>
std::string stdoutOf(Action&& action) {
    testing::internal::CaptureStdout();
    action();
    return testing::internal::GetCapturedStdout();
}
template <typename Action>
std::string stderrOf(Action&& action) {
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
}
// Planes at `bits` from the program's PNG (Cr Y' Cb or R' G' B' as R G B): Y' all, chroma of even columns/rows.
inline Bytes planesOfPng(const std::vector<uint16_t>& rgba, int width, int height, int bits, int sampling) {
    const int columnStep = sampling == 444 ? 1 : 2, rowStep = sampling == 420 ? 2 : 1;
    Bytes bytes;
    const auto put = [&](uint16_t sample) {
        const unsigned code = sample >> (16 - bits);
        bytes.push_back(uint8_t(code));
        if (bits > 8) bytes.push_back(uint8_t(code >> 8));
    };
    for (size_t i = 0; i < size_t(width) * height; ++i) put(rgba[i * 4 + 1]);
    for (int channel : {2, 0})
        for (int y = 0; y < height; y += rowStep)
            for (int x = 0; x < width; x += columnStep) put(rgba[(size_t(y) * width + x) * 4 + channel]);
    return bytes;
}
// A test frame: samples all different and spread over the 16-bit range.
inline std::vector<uint16_t> distinctSamples(size_t count, uint16_t offset = 0x0102) {
    std::vector<uint16_t> samples(count);
    for (size_t i = 0; i < count; ++i) samples[i] = static_cast<uint16_t>(i * 40503u + offset);
    return samples;
}
}  // namespace TestFiles
