// The held frame written again and again: what a pipe was given stays as it was given, however the
// frame changes afterwards; failures say why.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <vector>

#include "output/HeldFrame.h"

namespace {

using Bytes = std::vector<uint8_t>;

// A frame of a little over two pages, sent twice with a change across a page boundary in between,
// nothing read meanwhile; the bytes the two sends should deliver.
Bytes sendTwice(int fd, bool& sent) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE)), size = 2 * page + 100;
    Bytes frame(size), change(30, 0xEE);
    for (size_t i = 0; i < size; ++i) frame[i] = static_cast<uint8_t>(i * 7 + i / 251);
    HeldFrame held(size);
    held.place(frame.data(), size, 0);
    Bytes expected = frame;
    sent = held.writeTo(fd);
    held.place(change.data(), change.size(), page - 10);
    std::copy(change.begin(), change.end(), frame.begin() + long(page - 10));
    expected.insert(expected.end(), frame.begin(), frame.end());
    sent = sent && held.writeTo(fd);
    return expected;
}

}  // namespace

// The first send hands the pipe its pages by reference: the change must not reach them.
TEST(HeldFrame, APipeKeepsWhatItWasGiven) {
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    bool sent = false;
    const Bytes expected = sendTwice(fds[1], sent);
    ASSERT_TRUE(sent);
    close(fds[1]);
    Bytes read(expected.size() + 1);
    size_t got = 0;
    for (ssize_t n; (n = ::read(fds[0], read.data() + got, read.size() - got)) > 0;) got += size_t(n);
    close(fds[0]);
    read.resize(got);
    EXPECT_TRUE(expected == read);
}

// A pipe whose reader has gone: the write fails with the system's reason.
TEST(HeldFrame, AClosedPipeFailsWithItsReason) {
    const auto previous = std::signal(SIGPIPE, SIG_IGN);
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    close(fds[0]);
    bool sent = true;
    errno = 0;
    sendTwice(fds[1], sent);
    EXPECT_FALSE(sent);
    EXPECT_EQ(EPIPE, errno);
    close(fds[1]);
    std::signal(SIGPIPE, previous);
}
