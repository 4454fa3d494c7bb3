// Google Benchmark as a source of rows: small pieces of code, measured in turn, round by round.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace velmora_bench {

struct Piece {
    std::string name;
    std::uint64_t bytes = 0;    // that one call handles; 0: none to speak of
    std::function<void()> run;  // one call; what it writes has to be kept from the optimiser
    std::uint64_t calls = 1;    // that one run stands for
};

// Nanoseconds of processor time of one call, by name, one for each round. Each round goes through
// all pieces in their order, so that neighbours meet the same machine.
std::map<std::string, std::vector<double>> measurePieces(const std::vector<Piece>& pieces,
                                                         int rounds,
                                                         const std::function<void(int)>& onRound);

// A place whose content counts as read.
inline void keep(const void* at) noexcept {
    asm volatile("" : : "g"(at) : "memory");
}

}  // namespace velmora_bench
