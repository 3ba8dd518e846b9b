#include "output/HeldFrame.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

namespace {

uint8_t* mapZeroPages(void* at, size_t bytes, int extraFlags) {
    void* pages = mmap(at, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | extraFlags, -1, 0);
    if (pages == MAP_FAILED) throw std::bad_alloc();
    return static_cast<uint8_t*>(pages);
}

// A call that took nothing without saying why leaves errno as it was: say it is an I/O error.
bool failedWithout(ssize_t result) {
    if (result == 0) errno = EIO;
    return false;
}

bool isPipe(int fd) {
    struct stat status {};
    return fstat(fd, &status) == 0 && S_ISFIFO(status.st_mode);
}

// A pipe of 16 pages wakes its reader for every 64 KiB; a larger one lets both sides take long turns.
// Where the system will not grow it, it stays as it is.
void growPipe(int fd, size_t bytes) {
    const int current = fcntl(fd, F_GETPIPE_SZ);
    if (current >= 0 && static_cast<size_t>(current) < bytes) fcntl(fd, F_SETPIPE_SZ, static_cast<int>(bytes));
}

}  // namespace

HeldFrame::HeldFrame(size_t bytes) : bytes_(bytes), pageBytes_(static_cast<size_t>(sysconf(_SC_PAGESIZE))) {
    const size_t pageCount = std::max<size_t>(1, (bytes + pageBytes_ - 1) / pageBytes_);
    pages_.assign(pageCount, Page::Fresh);
    pageCopy_.resize(pageBytes_);
    mappedBytes_ = pageCount * pageBytes_;
    data_ = mapZeroPages(nullptr, mappedBytes_, 0);
    // Pages are given and replaced one by one: a huge page would only be split up.
    madvise(data_, mappedBytes_, MADV_NOHUGEPAGE);
}

// The pipe keeps its own references to the pages given to it, so unmapping them changes nothing it
// holds.
HeldFrame::~HeldFrame() { munmap(data_, mappedBytes_); }

void HeldFrame::place(const uint8_t* data, size_t size, size_t at) {
    if (size == 0) return;
    for (size_t page = at / pageBytes_; page <= (at + size - 1) / pageBytes_; ++page) {
        if (pages_[page] == Page::Given) replaceGivenPage(page);
        // What changes after the first frame will likely change again: it is copied from now on.
        if (sentOnce_) pages_[page] = Page::Changing;
    }
    std::memcpy(data_ + at, data, size);
}

// The page's bytes move to a fresh page mapped at the same address; the old one stays with the pipe.
void HeldFrame::replaceGivenPage(size_t page) {
    uint8_t* const at = data_ + page * pageBytes_;
    std::memcpy(pageCopy_.data(), at, pageBytes_);
    mapZeroPages(at, pageBytes_, MAP_FIXED);
    std::memcpy(at, pageCopy_.data(), pageBytes_);
    pages_[page] = Page::Changing;
}

bool HeldFrame::writeTo(int fd) {
    if (!sentOnce_) {
        byReference_ = isPipe(fd);
        if (byReference_) growPipe(fd, kPipeBytes);
    }
    sentOnce_ = true;
    // Runs of pages sent alike: by reference (those that do not change) or copied.
    const auto sentByReference = [&](size_t page) { return byReference_ && pages_[page] != Page::Changing; };
    for (size_t first = 0; first < pages_.size();) {
        const bool byReference = sentByReference(first);
        size_t end = first + 1;
        while (end < pages_.size() && sentByReference(end) == byReference) ++end;
        if (!sendPages(fd, first, end, byReference)) return false;
        first = end;
    }
    return true;
}

bool HeldFrame::sendPages(int fd, size_t firstPage, size_t endPage, bool byReference) {
    const size_t from = firstPage * pageBytes_, to = std::min(endPage * pageBytes_, bytes_);
    if (from >= to) return true;
    size_t sent = 0;
    const bool spliced = !byReference || spliceRange(fd, data_ + from, to - from, sent);
    // Every page the pipe took a reference to, even part of, is given, whatever happened next.
    for (size_t page = firstPage; page < endPage && page * pageBytes_ < from + sent; ++page) pages_[page] = Page::Given;
    return spliced && writeRange(fd, data_ + from + sent, to - from - sent);
}

// Hands the pipe references to the pages, counting what it took in `sent`. A descriptor that refuses
// (no pipe after all, or no vmsplice) leaves the rest to write from then on.
bool HeldFrame::spliceRange(int fd, const uint8_t* data, size_t size, size_t& sent) {
    while (sent < size) {
        const size_t piece = std::min(size - sent, kPipeBytes);
        iovec range{const_cast<uint8_t*>(data + sent), piece};
        const ssize_t taken = vmsplice(fd, &range, 1, 0);
        if (taken < 0 && errno == EINTR) continue;
        if (taken < 0 && (errno == EINVAL || errno == EBADF || errno == ENOSYS)) {
            byReference_ = false;
            return true;
        }
        if (taken <= 0) return failedWithout(taken);
        sent += static_cast<size_t>(taken);
    }
    return true;
}

bool HeldFrame::writeRange(int fd, const uint8_t* data, size_t size) {
    while (size > 0) {
        const ssize_t written = write(fd, data, std::min(size, kWritePiece));
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return failedWithout(written);
        data += written, size -= static_cast<size_t>(written);
    }
    return true;
}
