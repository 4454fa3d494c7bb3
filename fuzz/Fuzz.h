// What all fuzzers share: the entry that libFuzzer and Replay.cpp call, and a check that no build
// leaves out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

inline void require(bool holds) {
    if (!holds) std::abort();
}
