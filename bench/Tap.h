// A look at the wire where it enters the target's network namespace, by a process of its own.
#pragma once

#include <cstdint>
#include <string>

#include "bench/Child.h"

namespace velmora_bench {

// Waits for the first audio packet that holds more than zeros.
class Tap {
public:
    explicit Tap(const std::string& space);  // listens when it stands
    // When that packet came, CLOCK_REALTIME; throws std::runtime_error after some seconds without.
    std::int64_t firstAudioNanos();

private:
    Child child_;
};

}  // namespace velmora_bench
