// parseXML on a generated ~50 MB EnumerateInstances reply (20,000 instances,
// 2 key bindings, 20 scalar properties and one array property each), against
// pugixml loading the same text into its own DOM. Measured in one run:
//  - parseXML MB/s and pugixml MB/s, and their ratio (target >= 0.15);
//  - the time Free_CIM takes to release the tree;
//  - peak resident growth during parseXML, and what the tree keeps, as
//    multiples of the document size (target <= 5x).
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <string>

#include "bench_stats.h"
#include "best_reporter.h"
#include "cim_reply.h"
#include "cimxml/lifecycle.h"
#include "cimxml/parser.h"

namespace {

using bench::reply;

int countInstances(const CIM* cim) {
    if (!cim || !cim->message || !cim->message->simpleRsp || !cim->message->simpleRsp->iMethodResponse ||
        !cim->message->simpleRsp->iMethodResponse->iReturnValue)
        return -1;
    int n = 0;
    for (auto* i = cim->message->simpleRsp->iMethodResponse->iReturnValue->namedInstance; i; i = i->next) ++n;
    return n;
}

double g_freeSeconds = 0;

void BM_ParseXML(benchmark::State& state) {
    const std::string& text = reply();
    double freeTotal = 0;
    for (auto _ : state) {
        CIM* tree = parseXML(text.c_str());
        state.PauseTiming();
        if (countInstances(tree) != bench::kInstances) state.SkipWithError("wrong tree");
        auto t0 = std::chrono::steady_clock::now();
        Free_CIM(tree);
        freeTotal += std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        state.ResumeTiming();
    }
    double freeSeconds = freeTotal / static_cast<double>(state.iterations());
    if (g_freeSeconds == 0 || freeSeconds < g_freeSeconds) g_freeSeconds = freeSeconds;
    state.counters["free_ms"] = freeSeconds * 1e3;
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_ParseXML)->Unit(benchmark::kMillisecond)->Repetitions(3);

void BM_PugixmlLoad(benchmark::State& state) { bench::pugixmlLoad(state); }
BENCHMARK(BM_PugixmlLoad)->Unit(benchmark::kMillisecond)->Repetitions(3);

double g_peakX = 0, g_keptX = 0;

// One parse, measured by the resident high-water mark.
void BM_ParseXMLMemory(benchmark::State& state) {
    const std::string& text = reply();
    const double kb = static_cast<double>(text.size()) / 1024.0;
    for (auto _ : state) {
        long base = bench::resetPeak();
        CIM* tree = parseXML(text.c_str());
        long peak = bench::statusKb("VmHWM"), kept = bench::statusKb("VmRSS");
        Free_CIM(tree);
        g_peakX = static_cast<double>(peak - base) / kb;
        g_keptX = static_cast<double>(kept - base) / kb;
    }
    state.counters["peak_x"] = g_peakX;
    state.counters["kept_x"] = g_keptX;
}
BENCHMARK(BM_ParseXMLMemory)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    bench::BestReporter reporter(true);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    double mb = static_cast<double>(reply().size()) / 1e6;
    double ours = reporter.seconds("BM_ParseXML"), pugi = reporter.seconds("BM_PugixmlLoad");
    if (ours > 0 && pugi > 0) {
        double ratio = pugi / ours;
        std::printf("document %.1f MB: parseXML %.0f MB/s, pugixml load %.0f MB/s, ratio %.2f (target >= 0.15, %s)\n",
                    mb, mb / ours, mb / pugi, ratio, ratio >= 0.15 ? "met" : "MISSED");
        std::printf("Free_CIM of the tree: %.0f ms\n", g_freeSeconds * 1e3);
        bench::result("parse_over_pugixml_load", ratio);
    }
    if (g_peakX > 0)
        std::printf("parseXML peak memory growth %.2fx the document (target <= 5x, %s); the tree keeps %.2fx\n",
                    g_peakX, g_peakX <= 5 ? "met" : "MISSED", g_keptX);
    benchmark::Shutdown();
    return 0;
}
