// parseXML on EnumerateInstances replies of 2,000, 20,000 and 200,000
// instances (about 5, 50 and 500 MB): CPU time (median of 5) and peak memory
// for each. Every size runs in a child process of its own, so one size's
// heap does not shape the next one's peak.
//
// Peak memory is the growth of the resident high-water mark during one
// parseXML over the resident size just before it (the reply text is already
// resident then and so not counted, nor is the parser's code: a small parse
// runs first), over the reply's size in bytes.
//
// Usage: scale_bench [instances ...]   (default 2000 20000 200000)
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "bench_stats.h"
#include "cim_reply.h"
#include "cimxml/lifecycle.h"
#include "cimxml/parser.h"

namespace {

struct Figures {
    double megabytes;
    double seconds;  // median parse time
    double peakX;
};

Figures measure(int instances) {
    const std::string text = bench::makeReply(instances);
    const double size = static_cast<double>(text.size());
    // A first parse of a one-instance reply maps the parser's code, about
    // 0.35 MB of it (RssFile), which is not memory the reply costs.
    Free_CIM(parseXML(bench::makeReply(1).c_str()));
    long base = bench::resetPeak();
    CIM* tree = parseXML(text.c_str());
    double peakX = static_cast<double>(bench::statusKb("VmHWM") - base) * 1024.0 / size;
    Free_CIM(tree);
    std::vector<double> times;
    for (int rep = 0; rep < 5; ++rep) {
        malloc_trim(0);  // each parse starts from the same heap
        double t0 = bench::cpuSeconds();
        tree = parseXML(text.c_str());
        times.push_back(bench::cpuSeconds() - t0);
        Free_CIM(tree);
    }
    return Figures{size / 1e6, bench::median(times), peakX};
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<int> sizes;
    for (int i = 1; i < argc; ++i) sizes.push_back(std::atoi(argv[i]));
    if (sizes.empty()) sizes = {2000, 20000, 200000};

    std::vector<Figures> all;
    for (int n : sizes) {
        int fds[2];
        if (pipe(fds) != 0) return 1;
        pid_t child = fork();
        if (child == 0) {
            close(fds[0]);
            Figures f = measure(n);
            ssize_t w = write(fds[1], &f, sizeof f);
            _exit(w == static_cast<ssize_t>(sizeof f) ? 0 : 1);
        }
        close(fds[1]);
        Figures f{};
        ssize_t r = read(fds[0], &f, sizeof f);
        close(fds[0]);
        int status = 0;
        waitpid(child, &status, 0);
        if (r != static_cast<ssize_t>(sizeof f) || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            std::fprintf(stderr, "scale_bench: the run of %d instances failed\n", n);
            return 1;
        }
        std::printf("%7d instances, %6.1f MB: parseXML %8.0f ms, peak %.2fx the reply\n", n, f.megabytes,
                    f.seconds * 1e3, f.peakX);
        std::fflush(stdout);
        all.push_back(f);
    }
    double worstPeak = 0;
    for (const Figures& f : all)
        if (f.peakX > worstPeak) worstPeak = f.peakX;
    bench::result("scale_peak_x_max", worstPeak);
    if (all.size() >= 2) {
        const Figures& last = all.back();
        const Figures& before = all[all.size() - 2];
        bench::result("scale_time_ratio", last.seconds / before.seconds);
    }
    return 0;
}
