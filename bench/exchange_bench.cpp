// GetInstance through the library against a bare exchange with the same mock
// object manager: a minimal client that connects, sends the very bytes the
// library sent, reads the reply up to its Content-Length and closes, with no
// writing, parsing or freeing of records. The difference is the library's
// own cost per call.
//
// Each repetition runs 1,000 calls of each kind, in alternating slices of
// 100; the ratio printed is the median over the repetitions of library /
// bare (wall-clock time per call, since the mock serves on its own thread).
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "bench_items.h"
#include "bench_stats.h"
#include "cimmock/server.h"
#include "cimxml/client.h"
#include "cimxml/lifecycle.h"

namespace {

constexpr int kCalls = 1000;
constexpr int kRepetitions = 5;
constexpr int kSlice = 100;

// CPU time of the calling thread: the mock serves on its own thread, so this
// is the client's own share of a call, kernel time included.
double threadSeconds() {
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

bool libraryCall(ClientHandle* handle, InstanceName* name) {
    Error* error = nullptr;
    Instance* inst = GetInstance(handle, name, 2, 2, 2, nullptr, &error);
    Free_Error(error);
    if (!inst) return false;
    Free_Instance(inst);
    return true;
}

// Returns the reply's length, or 0 on a failure.
std::size_t bareCall(int port, const std::string& request, std::vector<char>& buffer) {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (fd < 0 || ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        if (fd >= 0) ::close(fd);
        return 0;
    }
    for (std::size_t sent = 0; sent < request.size();) {
        ssize_t n = ::send(fd, request.data() + sent, request.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) {
            ::close(fd);
            return 0;
        }
        sent += static_cast<std::size_t>(n);
    }
    std::size_t got = 0, want = 0;
    for (;;) {
        if (got == buffer.size()) buffer.resize(buffer.size() * 2);
        ssize_t n = ::recv(fd, buffer.data() + got, buffer.size() - got, 0);
        if (n <= 0) break;
        got += static_cast<std::size_t>(n);
        if (!want) {
            const char* head = buffer.data();
            const char* end = static_cast<const char*>(memmem(head, got, "\r\n\r\n", 4));
            const char* length = static_cast<const char*>(memmem(head, got, "Content-Length:", 15));
            if (end && length) want = static_cast<std::size_t>(end + 4 - head) + std::strtoul(length + 15, nullptr, 10);
        }
        if (want && got >= want) break;
    }
    ::close(fd);
    return want && got >= want ? got : 0;
}

}  // namespace

int main() {
    std::string path = "/tmp/cimxml_exchange_bench_" + std::to_string(::getpid()) + ".mof";
    std::ofstream(path) << bench::generateMof(100);
    cimmock::ServerOptions options;
    options.mofFiles = {path};
    cimmock::Server server(options);
    std::string err;
    bool started = server.start(&err);
    std::remove(path.c_str());
    if (!started) {
        std::fprintf(stderr, "mock did not start: %s\n", err.c_str());
        return 1;
    }
    ClientHandle* handle = client_Configuration("127.0.0.1", server.port(), "root/cimv2", 60000, "u", "p");
    handle->interfaceType = 0;
    InstanceName* name = bench::itemName();

    if (!libraryCall(handle, name)) {
        std::fprintf(stderr, "GetInstance failed\n");
        return 1;
    }
    const std::string request = server.lastRequest();
    std::vector<char> buffer(4096);
    std::size_t replySize = bareCall(server.port(), request, buffer);
    if (!replySize) {
        std::fprintf(stderr, "bare exchange failed\n");
        return 1;
    }
    std::printf("request %zu bytes, reply %zu bytes\n", request.size(), replySize);

    std::vector<double> library, bare, ratio, cpuExtra;
    // The two kinds alternate in slices within a repetition, so that a change
    // in the machine's load weighs on both alike.
    for (int rep = 0; rep < kRepetitions; ++rep) {
        double libWall = 0, libCpu = 0, bareWall = 0, bareCpu = 0;
        for (int slice = 0; slice < kCalls / kSlice; ++slice) {
            double t0 = bench::wallSeconds(), c0 = threadSeconds();
            for (int i = 0; i < kSlice; ++i)
                if (!libraryCall(handle, name)) return 1;
            double t1 = bench::wallSeconds(), c1 = threadSeconds();
            for (int i = 0; i < kSlice; ++i)
                if (!bareCall(server.port(), request, buffer)) return 1;
            double t2 = bench::wallSeconds(), c2 = threadSeconds();
            libWall += t1 - t0;
            libCpu += c1 - c0;
            bareWall += t2 - t1;
            bareCpu += c2 - c1;
        }
        library.push_back(libWall / kCalls);
        bare.push_back(bareWall / kCalls);
        ratio.push_back(libWall / bareWall);
        cpuExtra.push_back((libCpu - bareCpu) / kCalls);
        std::printf("rep %d: library %.1f us per call (client CPU %.1f), bare %.1f us (client CPU %.1f)\n", rep,
                    library.back() * 1e6, libCpu / kCalls * 1e6, bare.back() * 1e6, bareCpu / kCalls * 1e6);
    }
    std::printf("median: library %.1f us (%.0f calls/s), bare %.1f us\n", bench::median(library) * 1e6,
                1 / bench::median(library), bench::median(bare) * 1e6);
    bench::result("getinstance_over_bare", bench::median(ratio));
    bench::result("getinstance_per_s", 1 / bench::median(library));
    bench::result("getinstance_client_cpu_extra_us", bench::median(cpuExtra) * 1e6);

    Free_InstanceName(name);
    Free_client_Configuration(handle);
    return 0;
}
