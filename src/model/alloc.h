// Allocation used by every record-building path. Records are plain C blocks
// that callers may free with free(), so this wraps the C allocator, through
// the thread's kept blocks; the only other addition is a countdown the unit
// tests arm to fail the Nth allocation.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "model/block_cache.h"

namespace cimxml {

// Allocations left before one fails; negative = never fail. Test seam only:
// nothing in the shipped library sets it.
extern long g_allocFailCountdown;

inline bool allocShouldFail() {
    if (g_allocFailCountdown < 0) return false;
    if (g_allocFailCountdown == 0) return true;
    --g_allocFailCountdown;
    return false;
}

// glibc serves calloc without its per-thread cache; a record-sized block
// taken from the thread's kept blocks or malloc and cleared here costs a
// fraction of that. Large blocks keep calloc, which skips clearing fresh pages.
constexpr std::size_t kCacheableSize = 1024;

inline void* zalloc(std::size_t size) {
    if (allocShouldFail()) return nullptr;
    if (size > kCacheableSize) return std::calloc(1, size);
    void* p = model::takeBlock(size);
    if (p) std::memset(p, 0, size);
    return p;
}

inline void* xmalloc(std::size_t size) {
    if (allocShouldFail()) return nullptr;
    return model::takeBlock(size);
}

inline void* xrealloc(void* p, std::size_t size) {
    if (allocShouldFail()) return nullptr;
    return std::realloc(p, size == 0 ? 1 : size);
}

inline char* dupString(const char* s) {
    if (!s) return nullptr;
    std::size_t n = std::strlen(s) + 1;
    char* d = static_cast<char*>(xmalloc(n));
    if (d) std::memcpy(d, s, n);
    return d;
}

inline char* dupString(const char* s, std::size_t n) {
    char* d = static_cast<char*>(xmalloc(n + 1));
    if (d) {
        std::memcpy(d, s, n);
        d[n] = '\0';
    }
    return d;
}

template <typename T>
inline T* newRecord() {
    return static_cast<T*>(zalloc(sizeof(T)));
}

}  // namespace cimxml
