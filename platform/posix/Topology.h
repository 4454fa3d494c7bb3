// Where logical processors sit, and how many cores that makes.
#pragma once

#include <cstdint>
#include <set>
#include <utility>
#include <vector>

namespace ZENNO::platform {

struct ProcessorPlace {
    int package = 0;
    int core = 0;  // numbered anew in every package
};

inline std::int32_t distinctCores(const std::vector<ProcessorPlace>& places) {
    std::set<std::pair<int, int>> cores;
    for (const ProcessorPlace& place : places) cores.emplace(place.package, place.core);
    return static_cast<std::int32_t>(cores.size());
}

}  // namespace ZENNO::platform
