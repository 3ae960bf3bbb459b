// EnumerateInstances of 20,000 Bench_Item instances through each back end, on
// one fixture in one run: over HTTP against the mock object manager (live
// replies on loopback), and through the local broker (the mock broker
// library, loaded by name from the directory this bench was built next to).
//
// Printed at the end: records per second for each back end and their ratio
// (the local back end does no XML work; target: at least 2x).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <unistd.h>

#include "bench_items.h"
#include "best_reporter.h"
#include "cimmock/server.h"
#include "cimxml/client.h"
#include "cimxml/lifecycle.h"

namespace {

constexpr int kInstances = 20000;

struct Setup {
    std::unique_ptr<cimmock::Server> server;
    ClientHandle* handle[2] = {};
    ClassName* className = nullptr;
};

Setup& setup() {
    static Setup* s = nullptr;
    if (s) return *s;
    s = new Setup;
    // One fixture folder for both: the mock broker reads it from the
    // environment on its first use, the HTTP mock loads it now.
    std::string dir = "/tmp/cimxml_local_bench_" + std::to_string(::getpid());
    std::filesystem::create_directories(dir);
    std::ofstream(dir + "/items.mof") << bench::generateMof(kInstances);
    ::setenv("CIMMOCK_BROKER_REPO", dir.c_str(), 1);
    cimmock::ServerOptions options;
    options.repoDir = dir;
    s->server = std::make_unique<cimmock::Server>(options);
    std::string err;
    if (!s->server->start(&err)) {
        std::fprintf(stderr, "mock did not start: %s\n", err.c_str());
        std::abort();
    }
    for (int b : {0, 1}) {
        s->handle[b] = client_Configuration("127.0.0.1", s->server->port(), "root/cimv2", 60000, "u", "p");
        s->handle[b]->interfaceType = b;
    }
    s->className = static_cast<ClassName*>(std::calloc(1, sizeof(ClassName)));
    s->className->name = strdup("Bench_Item");
    return *s;
}

void enumerate(benchmark::State& state, int backend) {
    Setup& s = setup();
    int got = 0;
    for (auto _ : state) {
        Error* error = nullptr;
        NamedInstance* list = EnumerateInstances(s.handle[backend], s.className, 2, 1, 0, 0, nullptr, &error);
        got = 0;
        for (const NamedInstance* n = list; n; n = n->next) ++got;
        Free_NamedInstance(list);
        Free_Error(error);
    }
    if (got != kInstances) state.SkipWithError("wrong number of instances");
    state.SetItemsProcessed(state.iterations() * got);
}

void BM_EnumerateInstancesHttp(benchmark::State& state) { enumerate(state, 0); }
void BM_EnumerateInstancesLocal(benchmark::State& state) { enumerate(state, 1); }

BENCHMARK(BM_EnumerateInstancesHttp)->Unit(benchmark::kMillisecond)->UseRealTime()->Repetitions(3);
BENCHMARK(BM_EnumerateInstancesLocal)->Unit(benchmark::kMillisecond)->UseRealTime()->Repetitions(3);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    bench::BestReporter reporter(true);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    double http = reporter.seconds("BM_EnumerateInstancesHttp");
    double local = reporter.seconds("BM_EnumerateInstancesLocal");
    if (http > 0 && local > 0)
        std::printf("EnumerateInstances of %d instances: HTTP %.0f records/s, local broker %.0f records/s "
                    "(local/HTTP %.2f, %s)\n",
                    kInstances, kInstances / http, kInstances / local, http / local,
                    http / local >= 2.0 ? "at least 2x" : "UNDER 2x");
    benchmark::Shutdown();
    return 0;
}
