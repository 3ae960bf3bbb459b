#include "transport/kept_block.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace cimxml::transport {
namespace {

// The block lives on the heap behind a plain pointer: a call made while the
// thread's destructors run (from another one's, at exit) finds the pointer
// cleared instead of an object whose lifetime has ended.
thread_local KeptBlock* t_block = nullptr;
thread_local bool t_ending = false;

struct Reaper {
    bool armed = false;
    ~Reaper() {
        t_ending = true;
        delete t_block;
        t_block = nullptr;
    }
};
thread_local Reaper t_reaper;

}  // namespace

KeptBlock* KeptBlock::ofThread() noexcept {
    if (t_ending) return nullptr;
    if (!t_block) {
        t_reaper.armed = true;  // its first use registers its destructor for this thread
        t_block = new (std::nothrow) KeptBlock;
    }
    return t_block;
}

KeptBlock::~KeptBlock() { std::free(block_); }

char* KeptBlock::take(std::size_t n) noexcept {
    if (n > kLimit) return static_cast<char*>(std::calloc(n, 1));
    if (n > capacity_ || !block_) {
        // Rounded up, so requests of slightly varying size reuse one block.
        const std::size_t capacity = (n / 4096 + 1) * 4096;
        char* grown = static_cast<char*>(std::malloc(capacity));
        if (!grown) return nullptr;
        std::free(block_);
        block_ = grown;
        capacity_ = capacity;
    }
    std::memset(block_, 0, n);
    return block_;
}

void KeptBlock::release(char* p) noexcept {
    if (p != block_) std::free(p);
}

char* takeZeroed(KeptBlock* kept, std::size_t n) noexcept {
    return kept ? kept->take(n) : static_cast<char*>(std::calloc(n, 1));
}

void releaseTaken(KeptBlock* kept, char* p) noexcept {
    if (kept) kept->release(p);
    else std::free(p);
}

}  // namespace cimxml::transport
