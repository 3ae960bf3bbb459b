#include "transport/kept_block.h"

#include <cstdlib>
#include <cstring>

#include "model/thread_owned.h"

namespace cimxml::transport {

KeptBlock* KeptBlock::ofThread() noexcept { return ThreadOwned<KeptBlock>::get(); }

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
