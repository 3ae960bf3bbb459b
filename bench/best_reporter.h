// The console table, plus the best time per iteration of each benchmark
// over its repetitions, for the summary lines a bench prints at the end.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace bench {

class BestReporter : public benchmark::ConsoleReporter {
public:
    struct Best {
        double seconds = 0;  // 0: the benchmark did not run, or failed
        double bytesPerSecond = 0;
    };

    // Wall-clock time for benches whose peer works on another thread,
    // CPU time otherwise.
    explicit BestReporter(bool wallClock) : wallClock_(wallClock) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration || run.iterations == 0 || run.error_occurred) continue;
            double total = wallClock_ ? run.real_accumulated_time : run.cpu_accumulated_time;
            double seconds = total / static_cast<double>(run.iterations);
            auto bps = run.counters.find("bytes_per_second");
            std::string name = run.run_name.function_name;
            if (!run.run_name.args.empty()) name += "/" + run.run_name.args;
            Best& b = best_[name];
            if (b.seconds == 0 || seconds < b.seconds)
                b = Best{seconds, bps != run.counters.end() ? static_cast<double>(bps->second) : 0.0};
        }
        ConsoleReporter::ReportRuns(runs);
    }

    // "BM_Name", or "BM_Name/arg" for a benchmark with an argument.
    Best best(const std::string& name) const {
        auto it = best_.find(name);
        return it == best_.end() ? Best{} : it->second;
    }
    double seconds(const std::string& name) const { return best(name).seconds; }

private:
    bool wallClock_;
    std::map<std::string, Best> best_;
};

}  // namespace bench
