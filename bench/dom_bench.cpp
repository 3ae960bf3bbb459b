// XMLParser throughput and memory on a ~50 MB EnumerateInstances-like reply
// (20,000 VALUE.NAMEDINSTANCE, each an INSTANCENAME with 2 KEYBINDINGs and an
// INSTANCE with 20 PROPERTY and 1 PROPERTY.ARRAY), against pugixml loading the
// same text with the same options.
//
// BM_Memory reports the node count and memory as multiples of the size.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <pugixml.hpp>

#include <cstring>
#include <fstream>
#include <string>

#include "XMLParser.h"
#include "cim_reply.h"

namespace {

using bench::reply;
using bench::resetPeak;
using bench::statusKb;

using bench::kPugiOptions;

size_t countNodes(const XMLNode* root) {
    size_t count = 0;
    for (const XMLNode* n = root; n;) {
        ++count;
        for (const XMLNode* a = n->attributes; a; a = a->nextSibling) ++count;
        if (n->firstChild) {
            n = n->firstChild;
            continue;
        }
        while (n && !n->nextSibling) n = n->parent;
        if (n) n = n->nextSibling;
    }
    return count;
}

// One parse measured by the resident memory high-water mark: peak_x is the
// growth during the parse, kept_x what the finished document holds, both as
// multiples of the document size; pugi_peak_x is pugixml's load alone.
void BM_Memory(benchmark::State& state) {
    const std::string& text = reply();
    const double kb = text.size() / 1024.0;
    for (auto _ : state) {
        long base = resetPeak();
        XMLDoc* doc = parseTextLength(nullptr, text.data(), text.size());
        long peak = statusKb("VmHWM"), kept = statusKb("VmRSS");
        state.counters["nodes"] = doc ? static_cast<double>(countNodes(doc->root)) : 0;
        freeXMLDoc(doc);
        state.counters["peak_x"] = (peak - base) / kb;
        state.counters["kept_x"] = (kept - base) / kb;

        base = resetPeak();
        {
            pugi::xml_document pdoc;
            pdoc.load_buffer(text.data(), text.size(), kPugiOptions, pugi::encoding_utf8);
            peak = statusKb("VmHWM");
        }
        state.counters["pugi_peak_x"] = (peak - base) / kb;
    }
    state.counters["doc_MB"] = text.size() / 1e6;
}
BENCHMARK(BM_Memory)->Iterations(1)->Unit(benchmark::kMillisecond);

void BM_ParseText(benchmark::State& state) {
    const std::string& text = reply();
    for (auto _ : state) {
        XMLDoc* doc = parseTextLength(nullptr, text.data(), text.size());
        if (!doc) state.SkipWithError("parse failed");
        benchmark::DoNotOptimize(doc);
        freeXMLDoc(doc);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_ParseText)->Unit(benchmark::kMillisecond);

void BM_PugixmlLoad(benchmark::State& state) { bench::pugixmlLoad(state); }
BENCHMARK(BM_PugixmlLoad)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
