#include "model/block_cache.h"

namespace cimxml::model {

BlockCache::~BlockCache() {
    for (Link* block : head_) {
        while (block) {
            Link* next = block->next;
            std::free(block);
            block = next;
        }
    }
}

}  // namespace cimxml::model
