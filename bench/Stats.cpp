#include "bench/Stats.h"

namespace velmora_bench {

std::vector<double> lateness(const std::vector<std::int64_t>& stampNanos,
                             std::uint32_t cycleMicros) {
    std::vector<double> late;
    const std::int64_t cycle = std::int64_t{cycleMicros} * 1000;
    std::size_t begin = 0;
    while (begin < stampNanos.size()) {
        // One grid: until a gap of two cycles and more. Its origin is where no burst comes early.
        std::size_t end = begin + 1;
        while (end < stampNanos.size() && stampNanos[end] - stampNanos[end - 1] < 2 * cycle) ++end;
        std::int64_t origin = stampNanos[begin];
        for (std::size_t k = begin; k < end; ++k) {
            origin = std::min(origin, stampNanos[k] - static_cast<std::int64_t>(k - begin) * cycle);
        }
        for (std::size_t k = begin; k < end; ++k) {
            const std::int64_t due = origin + static_cast<std::int64_t>(k - begin) * cycle;
            late.push_back(static_cast<double>(stampNanos[k] - due) / 1000.0);
        }
        begin = end;
    }
    return late;
}

}  // namespace velmora_bench
