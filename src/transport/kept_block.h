// A heap block a thread keeps from one call to the next, for the buffers a
// call needs one after the other (the request text, then the reply body). A
// fresh malloc of a kilobyte or more makes glibc merge every small chunk
// freed since, the records of the caller's last reply mostly, and the next
// reply's records are then carved out of the merged chunks at several times
// the cost.
#pragma once

#include <cstddef>

namespace cimxml::transport {

class KeptBlock {
public:
    // The calling thread's block; NULL once the thread is ending, when
    // callers fall back to plain allocation.
    static KeptBlock* ofThread() noexcept;

    // n zero bytes, or NULL when memory runs out. Up to kLimit bytes they
    // are this block's own and stay valid until its next take; a larger
    // request gets a calloc block of its own, so no thread holds on to a
    // large reply's memory.
    char* take(std::size_t n) noexcept;
    // Frees p unless it is this block's own. p may be NULL.
    void release(char* p) noexcept;

    static constexpr std::size_t kLimit = 256u << 10;

    KeptBlock() = default;
    ~KeptBlock();
    KeptBlock(const KeptBlock&) = delete;
    KeptBlock& operator=(const KeptBlock&) = delete;

private:
    char* block_ = nullptr;
    std::size_t capacity_ = 0;
};

// take() and release() through a thread's block, or calloc and free once
// the thread has none.
char* takeZeroed(KeptBlock* kept, std::size_t n) noexcept;
void releaseTaken(KeptBlock* kept, char* p) noexcept;

}  // namespace cimxml::transport
