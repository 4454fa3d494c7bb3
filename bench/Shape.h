// A stream to be measured, and what one run of it gave.
#pragma once

#include <cstdint>
#include <string>

#include "bench/Receiver.h"
#include "driver/SinkConfig.h"
#include "sync/ThreadMode.h"

namespace velmora_bench {

struct Shape {
    std::uint32_t rate = 44100, channels = 2;
    std::uint64_t format = VELMORA::SinkConfig::pcm32;
    std::uint32_t cycle = 1000;                    // µs
    std::uint32_t threadMode = VELMORA::CRITICAL;  // ThreadMode flags

    VELMORA::SinkConfig config() const;  // throws std::runtime_error for a shape that is none
};

// How a thread waits for its turn.
enum class Wait { select, selectThenPoll, polling };

// The class that the system's scheduler has a thread in; what one thread has, another can take.
struct Scheduling {
    int policy = 0, rank = 0;
    unsigned long timerSlack = 50'000;  // ns
    bool isSet = false;

    static Scheduling ofThisThread();
    void apply() const;  // to the calling thread, as far as the process may
    std::string text() const;
};

struct Run {
    Reception seen;              // bursts from the second on, see secondDue
    std::int64_t secondDue = 0;  // when the second burst was due, CLOCK_REALTIME
    std::uint32_t cycle = 0;     // µs
    double seconds = 0;          // that the costs below were counted for
    double workerCpu = 0;        // seconds of processor time of who sends
    double processCpu = 0;       // of all threads
    std::uint64_t streamAllocations = 0, streamLocks = 0;  // of who sends
    std::uint64_t bufferAllocations = 0, bufferLocks = 0;  // of who fills
    std::int64_t cacheMisses = -1;  // of who sends; -1: the system does not tell
    Scheduling scheduling;          // of who sends

    // How late each burst was, µs, from shortly behind the start on.
    std::vector<double> late() const;
    double bursts() const { return seconds * 1e6 / cycle; }
};

// The driver's engine, whole: ring, buffer worker with the host's half interleaved, stream worker.
Run runProduct(const Shape& shape, double seconds, const std::string& space);
// What a program with nothing to decide would do: wait, send the cycle's datagrams, go on.
Run runBare(const Shape& shape, Wait wait, const Scheduling& scheduling, double seconds,
            const std::string& space);

}  // namespace velmora_bench
