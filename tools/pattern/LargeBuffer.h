// Frame-sized buffers. Their first touch page-faults hundreds of megabytes at 4K and 8K; asking
// for transparent huge pages cuts the number of faults by a factor of 512 where the system
// allows it. Elsewhere the advice is simply ignored.
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>

namespace LargeBuffer {

constexpr size_t hugePageSize = size_t(2) << 20;
constexpr size_t pageSize = 4096;

// Advises huge pages for the whole pages inside [data, data + bytes).
inline void adviseHugePages(void* data, size_t bytes) {
#ifdef MADV_HUGEPAGE
    const uintptr_t begin = (reinterpret_cast<uintptr_t>(data) + pageSize - 1) & ~uintptr_t(pageSize - 1);
    const uintptr_t end = (reinterpret_cast<uintptr_t>(data) + bytes) & ~uintptr_t(pageSize - 1);
    if (end > begin) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
#else
    (void)data;
    (void)bytes;
#endif
}

struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};

template <typename T>
using Ptr = std::unique_ptr<T[], FreeDeleter>;

// count uninitialised elements, aligned to a huge page; throws std::bad_alloc on failure.
template <typename T>
Ptr<T> allocate(size_t count) {
    const size_t bytes = ((count * sizeof(T) + hugePageSize - 1) / hugePageSize) * hugePageSize;
    void* data = std::aligned_alloc(hugePageSize, bytes == 0 ? hugePageSize : bytes);
    if (data == nullptr) throw std::bad_alloc();
    adviseHugePages(data, bytes);
    return Ptr<T>(static_cast<T*>(data));
}

}  // namespace LargeBuffer
