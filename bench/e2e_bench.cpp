// End to end on loopback against the mock object manager:
//  - EnumerateInstances of 20,000 instances (2 keys, 20 scalar properties and
//    one array property each), compared with parseXML alone on the same
//    body. "canned" replays the mock's reply bytes, so the figure is the
//    client's whole cost (request, exchange, parse, walk, free) over the
//    parse; "live" also includes the mock building the reply.
//  - Small GetInstance round trips per second.
//
// Printed at the end: the canned and live ratios to parseXML (target <= 1.3)
// and the GetInstance rate.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <unistd.h>

#include "cimmock/server.h"
#include "cimxml/client.h"
#include "cimxml/lifecycle.h"
#include "cimxml/parser.h"
#include "bench_items.h"
#include "bench_stats.h"
#include "best_reporter.h"

namespace {

constexpr int kInstances = 20000;

using bench::generateMof;

const char* const kEnumerateRequest =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?><CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\"><MESSAGE ID=\"1234\" "
    "PROTOCOLVERSION=\"1.0\"><SIMPLEREQ><IMETHODCALL NAME=\"EnumerateInstances\"><LOCALNAMESPACEPATH><NAMESPACE "
    "NAME=\"root/cimv2\"/></LOCALNAMESPACEPATH><IPARAMVALUE NAME=\"ClassName\"><CLASSNAME NAME=\"Bench_Item\"/>"
    "</IPARAMVALUE></IMETHODCALL></SIMPLEREQ></MESSAGE></CIM>";

struct Setup {
    std::unique_ptr<cimmock::Server> server;
    std::string body;          // the mock's EnumerateInstances reply body
    std::string cannedReply;   // the same, with its HTTP head
    ClientHandle* handle = nullptr;
    ClassName* className = nullptr;
    InstanceName* oneItem = nullptr;
};

Setup& setup() {
    static Setup* s = nullptr;
    if (s) return *s;
    s = new Setup;
    std::string path = "/tmp/cimxml_e2e_bench_" + std::to_string(::getpid()) + ".mof";
    std::ofstream(path) << generateMof(kInstances);
    cimmock::ServerOptions options;
    options.mofFiles = {path};
    s->server = std::make_unique<cimmock::Server>(options);
    std::string err;
    bool started = s->server->start(&err);
    std::remove(path.c_str());
    if (!started) {
        std::fprintf(stderr, "mock did not start: %s\n", err.c_str());
        std::abort();
    }
    s->body = s->server->handleCimXml(kEnumerateRequest);
    s->cannedReply = "HTTP/1.1 200 OK\r\nContent-Type: application/xml; charset=\"utf-8\"\r\nContent-Length: " +
                     std::to_string(s->body.size()) + "\r\nCIMOperation: MethodResponse\r\n\r\n" + s->body;
    s->handle = client_Configuration("127.0.0.1", s->server->port(), "root/cimv2", 60000, "u", "p");
    s->handle->interfaceType = 0;
    s->className = static_cast<ClassName*>(std::calloc(1, sizeof(ClassName)));
    s->className->name = strdup("Bench_Item");

    s->oneItem = bench::itemName();
    return *s;
}

int countInstances(const NamedInstance* n) {
    int c = 0;
    for (; n; n = n->next) ++c;
    return c;
}

void BM_ParseXML(benchmark::State& state) {
    Setup& s = setup();
    for (auto _ : state) {
        CIM* tree = parseXML(s.body.c_str());
        benchmark::DoNotOptimize(tree);
        Free_CIM(tree);
    }
    state.counters["body_MB"] = static_cast<double>(s.body.size()) / 1e6;
}

void enumerate(benchmark::State& state, bool canned) {
    Setup& s = setup();
    cimmock::FaultOptions faults;
    if (canned) faults.cannedReply = s.cannedReply;
    s.server->setFaults(faults);
    int got = 0;
    for (auto _ : state) {
        Error* error = nullptr;
        NamedInstance* list = EnumerateInstances(s.handle, s.className, 2, 2, 2, 2, nullptr, &error);
        got = countInstances(list);
        Free_NamedInstance(list);
        Free_Error(error);
    }
    s.server->setFaults({});
    if (got != kInstances) state.SkipWithError("wrong number of instances");
    state.counters["instances"] = got;
}

void BM_EnumerateInstancesCanned(benchmark::State& state) { enumerate(state, true); }
void BM_EnumerateInstancesLive(benchmark::State& state) { enumerate(state, false); }

void BM_GetInstanceRoundTrip(benchmark::State& state) {
    Setup& s = setup();
    for (auto _ : state) {
        Error* error = nullptr;
        Instance* inst = GetInstance(s.handle, s.oneItem, 2, 2, 2, nullptr, &error);
        if (!inst) {
            state.SkipWithError("GetInstance failed");
            Free_Error(error);
            break;
        }
        Free_Instance(inst);
    }
    state.SetItemsProcessed(state.iterations());
}

// Wall-clock time: the mock serves on its own thread. Best of the repetitions.
BENCHMARK(BM_ParseXML)->Unit(benchmark::kMillisecond)->UseRealTime()->Repetitions(5);
BENCHMARK(BM_EnumerateInstancesCanned)->Unit(benchmark::kMillisecond)->UseRealTime()->Repetitions(5);
BENCHMARK(BM_EnumerateInstancesLive)->Unit(benchmark::kMillisecond)->UseRealTime()->Repetitions(3);
BENCHMARK(BM_GetInstanceRoundTrip)->Unit(benchmark::kMicrosecond)->UseRealTime()->Repetitions(3);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    bench::BestReporter reporter(true);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    double parse = reporter.seconds("BM_ParseXML");
    double canned = reporter.seconds("BM_EnumerateInstancesCanned");
    double live = reporter.seconds("BM_EnumerateInstancesLive");
    double round = reporter.seconds("BM_GetInstanceRoundTrip");
    if (parse > 0 && canned > 0)
        std::printf("EnumerateInstances of %d instances (%.1f MB): parseXML %.0f ms, end to end %.0f ms canned "
                    "(ratio %.2f, %s) and %.0f ms live (ratio %.2f)\n",
                    kInstances, static_cast<double>(setup().body.size()) / 1e6, parse * 1e3, canned * 1e3,
                    canned / parse, canned / parse <= 1.3 ? "within 1.3" : "OVER 1.3", live * 1e3, live / parse);
    if (parse > 0 && canned > 0) bench::result("enumerate_over_parse", canned / parse);
    if (round > 0) std::printf("GetInstance round trips: %.0f per second\n", 1.0 / round);
    benchmark::Shutdown();
    return 0;
}
