// A video frame held in memory in its file form, written out whole as often as asked.
//
// Into a pipe, pages that no longer change are handed to the pipe by reference (vmsplice) rather than
// copied: a page given is never written again, because the reader (or a pipe it splices on to) may see
// it at any later time. A page that is to change after it was given is first replaced by a copy of
// itself at the same address, the pipe keeping the old page; from then on it counts as changing and
// is copied into the pipe with write, as is everything when vmsplice is refused or the descriptor is
// no pipe. Writes go in pieces that stay in the processor's cache on their way through the kernel.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

class HeldFrame {
public:
    // Zero bytes, page-aligned; throws std::bad_alloc when they cannot be mapped.
    explicit HeldFrame(size_t bytes);
    ~HeldFrame();
    HeldFrame(const HeldFrame&) = delete;
    HeldFrame& operator=(const HeldFrame&) = delete;

    size_t size() const { return bytes_; }
    // Copies `size` bytes into the frame at `at`. Throws std::bad_alloc when a given page cannot be
    // replaced.
    void place(const uint8_t* data, size_t size, size_t at);
    // Writes the whole frame to the descriptor; false with errno set.
    bool writeTo(int fd);

    // Bytes a write hands the kernel at most, and what a pipe is grown to (the most an unprivileged
    // process may ask by default), which vmsplice fills a call at a time.
    static constexpr size_t kWritePiece = size_t(64) << 10;
    static constexpr size_t kPipeBytes = size_t(1) << 20;

private:
    enum class Page : uint8_t { Fresh, Given, Changing };

    void replaceGivenPage(size_t page);
    bool sendPages(int fd, size_t firstPage, size_t endPage, bool byReference);
    bool spliceRange(int fd, const uint8_t* data, size_t size, size_t& sent);
    static bool writeRange(int fd, const uint8_t* data, size_t size);

    size_t bytes_;
    size_t pageBytes_;
    size_t mappedBytes_;
    uint8_t* data_;
    std::vector<Page> pages_;
    std::vector<uint8_t> pageCopy_;  // a page's bytes while it is replaced
    bool sentOnce_ = false;
    bool byReference_ = false;  // into a pipe, until vmsplice is refused
};
