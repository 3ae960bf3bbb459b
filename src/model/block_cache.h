// Small blocks a thread frees, kept for its next allocations. Freeing a
// reply's records and building the next reply's costs glibc about 100
// instructions a block once its own per-thread cache (seven blocks a size)
// is full; a GetInstance frees and takes some 150 blocks. Kept blocks are
// plain malloc blocks: whatever a caller frees with free() stays valid.
#pragma once

#include <malloc.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "model/thread_owned.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define CIMXML_ASAN 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define CIMXML_ASAN 1
#endif
#ifdef CIMXML_ASAN
#include <sanitizer/asan_interface.h>
// A kept block is poisoned past its link, so a use after Free_ is still reported.
#define CIMXML_POISON(p, n) ASAN_POISON_MEMORY_REGION(p, n)
#define CIMXML_UNPOISON(p, n) ASAN_UNPOISON_MEMORY_REGION(p, n)
#else
#define CIMXML_POISON(p, n) ((void)(p), (void)(n))
#define CIMXML_UNPOISON(p, n) ((void)(p), (void)(n))
#endif

namespace cimxml::model {

class BlockCache {
public:
    // Requests up to this many bytes are served, and blocks up to about as
    // large kept; a thread keeps at most kKeepBytes, and kPerSize blocks of
    // one size, so that a size freed more often than taken (a string some
    // other code allocated) stops growing soon.
    static constexpr std::size_t kLargest = 1024;
    static constexpr std::size_t kKeepBytes = 256u << 10;
    static constexpr unsigned kPerSize = 64;

    // A kept block of at least n bytes (contents left over), or NULL.
    void* take(std::size_t n) noexcept {
        // glibc's smallest block holds 24 bytes, class 2: the tiniest
        // requests are served from there.
        const std::size_t c = n <= 24 ? 2 : (n + 8 + 15) / 16;
        if (c >= kClasses) return nullptr;
        Link* block = head_[c];
        if (!block) return nullptr;
        head_[c] = block->next;
        CIMXML_UNPOISON(block, n);
        --count_[c];
        bytes_ -= c * 16;
        return block;
    }

    // Keeps p (not NULL) for a later take; false when it is not kept (too
    // large, or the thread keeps enough), and the caller frees it.
    bool keep(void* p) noexcept {
        if (bytes_ >= kKeepBytes) return false;
        const std::size_t usable = malloc_usable_size(p);
        const std::size_t c = (usable + 8) / 16;
        if (c == 0 || c >= kClasses || count_[c] == kPerSize) return false;
        Link* block = static_cast<Link*>(p);
        block->next = head_[c];
        // The link stays readable: the leak checker does not follow pointers
        // kept in poisoned memory and would report the blocks behind it.
        CIMXML_POISON(static_cast<char*>(p) + sizeof(Link), usable - sizeof(Link));
        head_[c] = block;
        ++count_[c];
        bytes_ += c * 16;
        return true;
    }

    BlockCache() = default;
    ~BlockCache();
    BlockCache(const BlockCache&) = delete;
    BlockCache& operator=(const BlockCache&) = delete;

private:
    struct Link {
        Link* next;
    };
    // Class c holds blocks whose usable size u has (u + 8) / 16 == c, so
    // u >= 16c - 8: enough for any request n with c == ceil((n + 8) / 16).
    // With glibc's chunk sizes a block returns to the class it was taken for.
    static constexpr std::size_t kClasses = (kLargest + 8 + 15) / 16 + 1;
    Link* head_[kClasses] = {};
    std::uint8_t count_[kClasses] = {};
    std::size_t bytes_ = 0;
};

// Through the calling thread's cache, or plain malloc and free when it has
// none (its destructors are running).
inline void* takeBlock(std::size_t n) noexcept {
    BlockCache* cache = ThreadOwned<BlockCache>::get();
    void* p = cache ? cache->take(n) : nullptr;
    return p ? p : std::malloc(n == 0 ? 1 : n);
}

inline void releaseBlock(void* p) noexcept {
    if (!p) return;
    BlockCache* cache = ThreadOwned<BlockCache>::get();
    if (!cache || !cache->keep(p)) std::free(p);
}

}  // namespace cimxml::model
