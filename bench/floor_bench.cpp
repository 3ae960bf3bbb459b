// parseXML and Free_CIM against the allocation floor of the record layout,
// on the ~50 MB EnumerateInstances reply of cim_reply.h.
//
// The floor is what any parser into these records must at least pay: the
// copy of the text, pugixml's in-place parse of it, and exactly the heap
// blocks the record tree of that reply holds (same count, same sizes, same
// allocation order and allocation call), each text copied from the parsed
// buffer. Its free is the release of those blocks in the order Free_CIM
// releases them. The blocks are learnt once, before timing, from a parse
// with every malloc, calloc, realloc and free of the process observed (this
// file replaces them with forwarders to glibc; outside of that learning
// parse they only forward).
//
// Each repetition times parseXML, the floor, Free_CIM and the floor's free
// one after the other, in CPU time; the ratios printed are medians over the
// repetitions. Peak memory is the growth of the resident high-water mark
// over the resident size just before the call (the reply text is already
// resident then and so not counted), over the reply's size in bytes.
#include <malloc.h>
#include <sys/mman.h>

#include <pugixml.hpp>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "bench_stats.h"
#include "cim_reply.h"
#include "cimxml/lifecycle.h"
#include "cimxml/parser.h"
#include "model/block_cache.h"
#include "model/record_table.h"

extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void __libc_free(void*);
}

namespace {

enum class Call : std::uint8_t { Malloc, Calloc, Realloc };

struct Event {
    void* p;
    std::size_t size;
    Call call;
};

// Fixed mmap'd logs: recording must not allocate.
constexpr std::size_t kLogCapacity = 64u << 20;
Event* g_allocs = nullptr;
std::size_t g_allocCount = 0;
void** g_frees = nullptr;
std::size_t g_freeCount = 0;
bool g_recordAllocs = false;
bool g_recordFrees = false;

void noteAlloc(void* p, std::size_t size, Call call) {
    if (g_recordAllocs && p && g_allocCount < kLogCapacity) g_allocs[g_allocCount++] = Event{p, size, call};
}

}  // namespace

extern "C" {
void* malloc(size_t n) {
    void* p = __libc_malloc(n);
    noteAlloc(p, n, Call::Malloc);
    return p;
}
void* calloc(size_t n, size_t size) {
    void* p = __libc_calloc(n, size);
    noteAlloc(p, n * size, Call::Calloc);
    return p;
}
void* realloc(void* old, size_t n) {
    void* p = __libc_realloc(old, n);
    noteAlloc(p, n, Call::Realloc);
    return p;
}
void free(void* p) {
    if (g_recordFrees && p && g_freeCount < kLogCapacity) g_frees[g_freeCount++] = p;
    __libc_free(p);
}
}

namespace {

using cimxml::model::FieldKind;
using cimxml::model::RecordId;

// Every block of the tree, and which of them are texts.
void walkTree(RecordId id, void* record, std::unordered_set<void*>& blocks, std::unordered_set<void*>& texts) {
    const auto& d = cimxml::model::describe(id);
    for (void* r = record; r;) {
        blocks.insert(r);
        for (std::uint8_t i = 0; i < d.fieldCount; ++i) {
            const auto& f = d.fields[i];
            void* field = *reinterpret_cast<void**>(static_cast<char*>(r) + f.offset);
            switch (f.kind) {
                case FieldKind::String:
                case FieldKind::StringFirst:
                case FieldKind::StringNoClone:
                    if (field) {
                        blocks.insert(field);
                        texts.insert(field);
                    }
                    break;
                case FieldKind::Record:
                    walkTree(f.child, field, blocks, texts);
                    break;
                default:
                    break;
            }
        }
        r = d.isList ? *reinterpret_cast<void**>(static_cast<char*>(r) + d.nextOffset) : nullptr;
    }
}

struct Block {
    std::size_t size;
    Call call;
    bool text;
    std::size_t from;    // offset of its text in the parsed buffer
    std::size_t length;  // bytes copied, terminator included
};

struct Floor {
    std::vector<Block> blocks;        // allocation order
    std::vector<std::size_t> frees;   // indexes in Free_CIM's order
    std::size_t heapBytes = 0;        // chunk bytes the tree holds
    std::vector<void*> live;
};

Floor learnHere(const std::string& text) {
    g_allocs = static_cast<Event*>(mmap(nullptr, kLogCapacity * sizeof(Event), PROT_READ | PROT_WRITE,
                                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    g_frees = static_cast<void**>(mmap(nullptr, kLogCapacity * sizeof(void*), PROT_READ | PROT_WRITE,
                                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    if (g_allocs == MAP_FAILED || g_frees == MAP_FAILED) std::abort();

    g_recordAllocs = true;
    CIM* tree = parseXML(text.c_str());
    g_recordAllocs = false;

    std::unordered_set<void*> inTree, texts;
    walkTree(RecordId::CIM, tree, inTree, texts);

    // The last allocation at each address that the tree still holds.
    std::vector<const Event*> kept;
    std::unordered_set<void*> seen;
    for (std::size_t i = g_allocCount; i-- > 0;) {
        const Event& e = g_allocs[i];
        if (inTree.count(e.p) && seen.insert(e.p).second) kept.push_back(&e);
    }
    std::reverse(kept.begin(), kept.end());
    if (kept.size() != inTree.size()) {
        std::fprintf(stderr, "floor: %zu tree blocks, %zu found among the allocations\n", inTree.size(), kept.size());
        std::exit(1);
    }

    // Where each text stands in the buffer after an in-place parse.
    std::vector<char> parsed(text.begin(), text.end());
    parsed.push_back('\0');
    {
        pugi::xml_document doc;
        doc.load_buffer_inplace(parsed.data(), text.size(), bench::kPugiOptions, pugi::encoding_utf8);
    }
    const char* begin = parsed.data();
    const std::size_t total = parsed.size();
    std::size_t cursor = 0;

    Floor f;
    std::unordered_map<void*, std::size_t> index;
    for (const Event* e : kept) {
        Block b{e->size, e->call, texts.count(e->p) > 0, 0, 0};
        if (b.text) {
            const char* s = static_cast<const char*>(e->p);
            b.length = std::strlen(s) + 1;
            const void* at = memmem(begin + cursor, total - cursor, s, b.length);
            if (!at) at = memmem(begin, total, s, b.length);
            if (at) {
                b.from = static_cast<std::size_t>(static_cast<const char*>(at) - begin);
                cursor = b.from + b.length;
            } else {
                b.from = cursor < total - b.length ? cursor : 0;  // not found: same amount copied
            }
        }
        index[e->p] = f.blocks.size();
        f.blocks.push_back(b);
        f.heapBytes += malloc_usable_size(e->p) + sizeof(std::size_t);
    }

    g_recordFrees = true;
    Free_CIM(tree);
    g_recordFrees = false;
    std::vector<bool> released(f.blocks.size());
    for (std::size_t i = 0; i < g_freeCount; ++i) {
        auto it = index.find(g_frees[i]);
        if (it != index.end() && !released[it->second]) {
            released[it->second] = true;
            f.frees.push_back(it->second);
        }
    }
    // Free_CIM keeps some small blocks for the thread's next records instead
    // of freeing them (glibc's smallest is 32 bytes); the floor frees those
    // too, last.
    if (f.blocks.size() - f.frees.size() <= cimxml::model::BlockCache::kKeepBytes / 32)
        for (std::size_t i = 0; i < f.blocks.size(); ++i)
            if (!released[i]) f.frees.push_back(i);
    if (f.frees.size() != f.blocks.size()) {
        std::fprintf(stderr, "floor: Free_CIM released %zu of %zu tree blocks\n", f.frees.size(), f.blocks.size());
        std::exit(1);
    }
    f.live.resize(f.blocks.size());
    munmap(g_allocs, kLogCapacity * sizeof(Event));
    munmap(g_frees, kLogCapacity * sizeof(void*));
    return f;
}

// On a thread of its own, so that every record block comes from malloc and
// none from the blocks an earlier parse left to the thread.
Floor learn(const std::string& text) {
    Floor f;
    std::thread([&] { f = learnHere(text); }).join();
    return f;
}

void buildFloor(const std::string& text, Floor& f) {
    char* buffer = static_cast<char*>(std::malloc(text.size() + 1));
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    {
        pugi::xml_document doc;
        if (!doc.load_buffer_inplace(buffer, text.size(), bench::kPugiOptions, pugi::encoding_utf8)) std::abort();
        void** out = f.live.data();
        for (const Block& b : f.blocks) {
            void* p = b.call == Call::Calloc ? std::calloc(1, b.size) : std::malloc(b.size);
            if (b.text) std::memcpy(p, buffer + b.from, b.length);
            *out++ = p;
        }
    }
    std::free(buffer);
}

void freeFloor(Floor& f) {
    for (std::size_t i : f.frees) std::free(f.live[i]);
}

}  // namespace

// Every timed section starts from the same heap: chunks freed before it
// merged (the first large request after many small frees pays for that,
// whoever makes it) and free memory given back, so each section pays for
// the fresh pages it touches.
void settleHeap() { malloc_trim(0); }

int main(int argc, char** argv) {
    const std::string& text = bench::reply();
    const double size = static_cast<double>(text.size());
    if (argc > 1 && std::strcmp(argv[1], "--parse-only") == 0) {  // for a profiler
        for (int i = 0; i < (argc > 2 ? std::atoi(argv[2]) : 10); ++i) {
            settleHeap();
            Free_CIM(parseXML(text.c_str()));
        }
        return 0;
    }
    Floor f = learn(text);
    std::printf("reply %.1f MB, tree of %zu heap blocks holding %.1f MB (%.2fx the reply)\n", size / 1e6,
                f.blocks.size(), static_cast<double>(f.heapBytes) / 1e6, static_cast<double>(f.heapBytes) / size);

    // Peak growth, each measured once after the heap is trimmed.
    long base = bench::resetPeak();
    CIM* tree = parseXML(text.c_str());
    double parsePeak = static_cast<double>(bench::statusKb("VmHWM") - base) * 1024.0 / size;
    Free_CIM(tree);
    base = bench::resetPeak();
    buildFloor(text, f);
    double floorPeak = static_cast<double>(bench::statusKb("VmHWM") - base) * 1024.0 / size;
    freeFloor(f);

    // Free times are taken twice: the free calls alone, and with the merging
    // of freed chunks that glibc defers (settled, settleHeap included):
    // Free_CIM pays much of it inline, the floor's free almost none.
    std::vector<double> parse, floor, freeTree, freeBlocks, parseRatio, freeRatio, settledRatio;
    for (int rep = 0; rep < 5; ++rep) {
        settleHeap();
        double t0 = bench::cpuSeconds();
        tree = parseXML(text.c_str());
        double t1 = bench::cpuSeconds();
        Free_CIM(tree);
        double t2 = bench::cpuSeconds();
        settleHeap();
        double t3 = bench::cpuSeconds();
        buildFloor(text, f);
        double t4 = bench::cpuSeconds();
        freeFloor(f);
        double t5 = bench::cpuSeconds();
        settleHeap();
        double t6 = bench::cpuSeconds();
        double parseT = t1 - t0, freeT = t2 - t1, floorT = t4 - t3, floorFreeT = t5 - t4;
        parse.push_back(parseT);
        freeTree.push_back(freeT);
        floor.push_back(floorT);
        freeBlocks.push_back(floorFreeT);
        parseRatio.push_back(parseT / floorT);
        freeRatio.push_back(freeT / floorFreeT);
        settledRatio.push_back((t3 - t1) / (t6 - t4));
        std::printf("rep %d: parseXML %.0f ms, floor %.0f ms, Free_CIM %.0f ms (settled %.0f), floor free %.0f ms "
                    "(settled %.0f)\n",
                    rep, parseT * 1e3, floorT * 1e3, freeT * 1e3, (t3 - t1) * 1e3, floorFreeT * 1e3, (t6 - t4) * 1e3);
    }
    std::printf("median CPU time: parseXML %.0f ms, floor %.0f ms, Free_CIM %.0f ms, floor free %.0f ms\n",
                bench::median(parse) * 1e3, bench::median(floor) * 1e3, bench::median(freeTree) * 1e3,
                bench::median(freeBlocks) * 1e3);
    bench::result("parse_over_floor", bench::median(parseRatio));
    bench::result("free_over_floor_free", bench::median(freeRatio));
    bench::result("free_over_floor_free_settled", bench::median(settledRatio));
    bench::result("parse_peak_x", parsePeak);
    bench::result("floor_peak_x", floorPeak);
    bench::result("tree_heap_x", static_cast<double>(f.heapBytes) / size);

    // A one-instance reply, the size of a GetInstance answer: what a parse
    // costs beyond its floor when the per-document work is not spread over
    // thousands of instances. Parse and free together, many times over.
    const std::string small = bench::makeReply(1);
    Floor sf = learn(small);
    constexpr int kSmallRounds = 20000;
    std::vector<double> smallRatio;
    for (int rep = 0; rep < 5; ++rep) {
        double t0 = bench::cpuSeconds();
        for (int i = 0; i < kSmallRounds; ++i) Free_CIM(parseXML(small.c_str()));
        double t1 = bench::cpuSeconds();
        for (int i = 0; i < kSmallRounds; ++i) {
            buildFloor(small, sf);
            freeFloor(sf);
        }
        double t2 = bench::cpuSeconds();
        smallRatio.push_back((t1 - t0) / (t2 - t1));
        std::printf("small reply (%zu bytes) rep %d: parseXML + Free_CIM %.2f us, floor %.2f us\n", small.size(), rep,
                    (t1 - t0) / kSmallRounds * 1e6, (t2 - t1) / kSmallRounds * 1e6);
    }
    bench::result("small_parse_over_floor", bench::median(smallRatio));
    return 0;
}
