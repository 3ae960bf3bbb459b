// Timing helpers for the benches that print ratios: CPU and wall clocks, the
// median of a few repetitions, and the "RESULT name value" lines that
// bench/run-all.sh collects into its table.
#pragma once

#include <time.h>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace bench {

inline double cpuSeconds() {
    timespec t;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

inline double wallSeconds() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

inline double median(std::vector<double> v) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    std::size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

inline void result(const char* name, double value) {
    std::printf("RESULT %s %.4g\n", name, value);
    std::fflush(stdout);
}

}  // namespace bench
