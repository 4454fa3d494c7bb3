// Figures out of samples, and a table of them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace velmora_bench {

// The sample below which `part` of them lie; 0 of none.
inline double percentile(std::vector<double> samples, double part) {
    if (samples.empty()) return 0;
    std::sort(samples.begin(), samples.end());
    const auto at = static_cast<std::size_t>(part * static_cast<double>(samples.size() - 1) + 0.5);
    return samples[std::min(at, samples.size() - 1)];
}

inline double median(std::vector<double> samples) {
    return percentile(std::move(samples), 0.5);
}

// How late each burst came, µs, from the times at which they were seen. Bursts are due a cycle
// apart; a run that falls a whole cycle behind starts its grid anew, and so does this.
std::vector<double> lateness(const std::vector<std::int64_t>& stampNanos,
                             std::uint32_t cycleMicros);

}  // namespace velmora_bench
