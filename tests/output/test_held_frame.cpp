// The held frame written again and again: what a pipe was given stays as it was given, however the
// frame changes afterwards; other destinations get the same bytes by plain writes; failures say why.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "output/HeldFrame.h"

namespace {

using Bytes = std::vector<uint8_t>;

size_t pageBytes() { return static_cast<size_t>(sysconf(_SC_PAGESIZE)); }

Bytes filled(size_t size, uint8_t seed) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(seed + i * 7 + i / 251);
    return bytes;
}

Bytes readAll(int fd) {
    Bytes all;
    uint8_t chunk[4096];
    for (ssize_t got; (got = read(fd, chunk, sizeof chunk)) > 0;) all.insert(all.end(), chunk, chunk + got);
    return all;
}

// Three frames of a little over two pages: the first whole, then a change across a page boundary,
// then one within the last, partial page. The expected stream and the frame are kept side by side.
struct Clip {
    size_t size = 2 * pageBytes() + 100;
    HeldFrame frame{size};
    Bytes current = filled(size, 1), expected;

    void change(size_t at, size_t length, uint8_t seed) {
        const Bytes bytes = filled(length, seed);
        frame.place(bytes.data(), length, at);
        std::copy(bytes.begin(), bytes.end(), current.begin() + long(at));
    }
    bool send(int fd) {
        expected.insert(expected.end(), current.begin(), current.end());
        return frame.writeTo(fd);
    }
    // Writes the three frames to fd, none read before the last is written.
    bool writeAll(int fd) {
        frame.place(current.data(), size, 0);
        if (!send(fd)) return false;
        change(pageBytes() - 10, 30, 90);
        if (!send(fd)) return false;
        change(2 * pageBytes() + 5, 50, 170);
        return send(fd);
    }
};

}  // namespace

// Into a pipe nobody reads yet, the pages of the first frame are given by reference; changing them
// afterwards must not change what the pipe holds.
TEST(HeldFrame, APipeKeepsWhatItWasGiven) {
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    Clip clip;
    ASSERT_TRUE(clip.writeAll(fds[1]));
    close(fds[1]);
    const Bytes read = readAll(fds[0]);
    close(fds[0]);
    ASSERT_EQ(clip.expected.size(), read.size());
    for (int frame = 0; frame < 3; ++frame) {
        const auto at = long(size_t(frame) * clip.size);
        EXPECT_TRUE(std::equal(read.begin() + at, read.begin() + at + long(clip.size), clip.expected.begin() + at))
            << "frame " << frame;
    }
}

// A regular file gets the same bytes, written plainly.
TEST(HeldFrame, AFileGetsTheSameBytes) {
    FILE* file = std::tmpfile();
    ASSERT_NE(nullptr, file);
    Clip clip;
    ASSERT_TRUE(clip.writeAll(fileno(file)));
    ASSERT_EQ(0, lseek(fileno(file), 0, SEEK_SET));
    EXPECT_TRUE(clip.expected == readAll(fileno(file)));
    std::fclose(file);
}

// A pipe whose reader has gone: the write fails with the system's reason.
TEST(HeldFrame, AClosedPipeFailsWithItsReason) {
    const auto previous = std::signal(SIGPIPE, SIG_IGN);
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    close(fds[0]);
    Clip clip;
    errno = 0;
    EXPECT_FALSE(clip.writeAll(fds[1]));
    EXPECT_EQ(EPIPE, errno);
    close(fds[1]);
    std::signal(SIGPIPE, previous);
}
