// The per-thread blocks the exchange reuses: every take is zero however the
// block was used before, large requests are never kept, and each thread has
// its own, freed when it ends (the sanitizer run sees a leak or double free).
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>

#include "transport/kept_block.h"

namespace {

using namespace cimxml::transport;

bool allZero(const char* p, std::size_t n) { return p && std::string(p, n) == std::string(n, '\0'); }

TEST(KeptBlock, EveryTakeIsZeroAndOnlySmallBlocksAreKept) {
    KeptBlock kept;
    EXPECT_NE(kept.take(0), nullptr);
    char* first = kept.take(3000);
    std::memset(first, 'x', 3000);
    EXPECT_EQ(kept.take(2000), first);  // the same block, cleared again
    EXPECT_TRUE(allZero(first, 2000));
    std::memset(first, 'y', 2000);
    EXPECT_TRUE(allZero(kept.take(9000), 9000));
    char* large = kept.take(KeptBlock::kLimit + 1);
    EXPECT_TRUE(allZero(large, KeptBlock::kLimit + 1));
    EXPECT_NE(large, kept.take(10));
    kept.release(large);  // not its own: freed
}

// A call from a thread's own destructors, after its blocks are gone, falls
// back to plain allocation.
struct AtThreadEnd {
    bool* fellBack = nullptr;
    ~AtThreadEnd() {
        KeptBlock* none = KeptBlock::ofThread();
        char* p = takeZeroed(none, 64);
        *fellBack = !none && allZero(p, 64);
        releaseTaken(none, p);
    }
};
thread_local AtThreadEnd t_atEnd;  // made before the blocks, so destroyed after them

TEST(KeptBlock, EachThreadHasItsOwnUntilItEnds) {
    KeptBlock* mine = KeptBlock::ofThread();
    KeptBlock* other = nullptr;
    bool fellBack = false;
    std::thread([&] {
        t_atEnd.fellBack = &fellBack;
        other = KeptBlock::ofThread();
        takeZeroed(other, 100);
    }).join();
    EXPECT_NE(other, mine);
    EXPECT_TRUE(fellBack);
}

}  // namespace
