#include "bench/Micro.h"

#include <benchmark/benchmark.h>

namespace velmora_bench {
namespace {

constexpr double leastSeconds = 0.01;  // of one measurement

class Collector final : public benchmark::BenchmarkReporter {
public:
    std::map<std::string, double> nanos;  // of one run, by name

    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred || run.iterations == 0) continue;
            nanos[run.run_name.function_name] =
                run.cpu_accumulated_time * 1e9 / static_cast<double>(run.iterations);
        }
    }
};

}  // namespace

std::map<std::string, std::vector<double>> measurePieces(const std::vector<Piece>& pieces,
                                                         int rounds,
                                                         const std::function<void(int)>& onRound) {
    benchmark::ClearRegisteredBenchmarks();
    for (const Piece& piece : pieces) {
        benchmark::RegisterBenchmark(piece.name.c_str(), [&piece](benchmark::State& state) {
            for (auto turn : state) piece.run();
        })->MinTime(leastSeconds);
    }
    std::map<std::string, std::vector<double>> nanos;
    for (int round = 1; round <= rounds; ++round) {
        onRound(round);
        Collector collector;
        benchmark::RunSpecifiedBenchmarks(&collector);
        for (const Piece& piece : pieces) {
            nanos[piece.name].push_back(collector.nanos[piece.name] /
                                        static_cast<double>(piece.calls));
        }
    }
    benchmark::ClearRegisteredBenchmarks();
    return nanos;
}

}  // namespace velmora_bench
