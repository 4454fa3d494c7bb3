// What does the driver ask of the system while it streams?
//
// Calls: system calls of each thread for each burst; the limit is a bare loop's, one sendto a
// datagram and one wait. Allocations and locks: a second, of each worker; there may be none. Cache
// misses: of the thread that sends, for each burst, beside the bare loop's.
#include <sys/syscall.h>

#include <chrono>
#include <stdexcept>
#include <thread>

#include "bench/BareLoop.h"
#include "bench/BenchStream.h"
#include "bench/Context.h"
#include "bench/Tracer.h"

namespace velmora_bench {
namespace {

using VELMORA::SinkConfig;

constexpr double ownSeconds = 1.0;
constexpr int sender = 1, filler = 2;  // marks

struct Traffic {
    const char* name;
    Shape shape;
};
const Traffic traffics[] = {
    {"44.1 kHz, 2 ch, 16 bits", {44100, 2, SinkConfig::pcm16}},
    {"192 kHz, 8 ch, 32 bits", {192000, 8, SinkConfig::pcm32}},
};

void streamTraced(const Shape& shape, double seconds, const std::string& space) {
    Receiver receiver(space);
    WatchedEnvironment environment;
    BenchStream stream(environment);
    stream.onStreamWorker = [] { markThread(sender); };
    stream.onBufferWorker = [] { markThread(filler); };
    stream.prepare(shape, receiver.ipAddress());
    stream.begin();
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

void loopTraced(const Shape& shape, double seconds, const std::string& space) {
    Receiver receiver(space);
    BareLoop loop(shape, Wait::select, receiver.address());
    markThread(sender);
    loop.run(seconds);
    markThread(sender);
}

struct Counted {
    double all = 0;  // calls a burst
    std::vector<std::pair<std::string, double>> names;
};

// By the datagrams that went out: a burst has so many, whatever the tracing did to the times.
Counted perBurst(const std::vector<TracedThread>& threads, int who, std::uint16_t packets) {
    double bursts = 0;
    for (const TracedThread& thread : threads) {
        if (thread.mark != sender) continue;
        const auto sent = thread.calls.find(SYS_sendto);
        if (sent != thread.calls.end()) bursts = static_cast<double>(sent->second) / packets;
    }
    Counted counted;
    for (const TracedThread& thread : threads) {
        if (thread.mark != who || bursts == 0) continue;
        for (const auto& [number, count] : thread.calls) {
            const double each = static_cast<double>(count) / bursts;
            counted.all += each;
            if (each >= 0.005) counted.names.emplace_back(systemCallName(number), each);
        }
    }
    return counted;
}

std::string callsName(const Traffic& traffic) {
    return std::string("system calls, ") + traffic.name;
}

Row callsRow(const Traffic& traffic, double seconds, const Context& context) {
    const auto ours = traceCalls([&] { streamTraced(traffic.shape, seconds, context.space); });
    const auto bare = traceCalls([&] { loopTraced(traffic.shape, seconds, context.space); });
    sockaddr_in6 nobody{};
    const std::uint16_t packets = BareLoop(traffic.shape, Wait::select, nobody).packetsOfBurst();
    const Counted stream = perBurst(ours, sender, packets), fill = perBurst(ours, filler, packets),
                  limit = perBurst(bare, sender, packets);
    if (limit.all == 0) throw std::runtime_error("the traced loop was not seen");
    return {"calls",
            callsName(traffic),
            "",
            {{"worker", stream.all, limit.all, stream.all / limit.all, 0, stream.names},
             {"buffer worker", fill.all, 0, 0, 0, fill.names}},
            "for each burst of " + std::to_string(packets) +
                ", counted by the kernel's tracing of a process of its own (which makes them late, "
                "not more)"};
}

Row promiseRow(const char* name, const char* unit, double stream, double buffer) {
    return {"calls",
            name,
            unit,
            {{"worker", stream, 0, 0, 1}, {"buffer worker", buffer, 0, 0, 1}},
            "counted in this program while a stream of 192 kHz, 8 ch, 32 bits plays; there may be "
            "none"};
}

Row missesRow(const Run& ours, const Run& bare) {
    Row row{"calls", "cache misses, 192 kHz, 8 ch, 32 bits", "", {}, ""};
    if (ours.cacheMisses < 0 || bare.cacheMisses < 0) {
        row.how = "could not be told: this system hands out no count of cache misses";
        return row;
    }
    const double a = static_cast<double>(ours.cacheMisses) / ours.bursts();
    const double b = static_cast<double>(bare.cacheMisses) / bare.bursts();
    row.figures.push_back({"worker", a, b, b != 0 ? a / b : 0});
    row.how = "of the last level, for each burst, kernel included, by the processor's own count";
    return row;
}

}  // namespace

std::vector<Row> benchCalls(Context& context) {
    const double seconds = context.secondsOr(ownSeconds);
    std::vector<Row> rows;
    int step = 0;
    for (const Traffic& traffic : traffics) {
        context.progress.round(++step, 3);
        try {
            rows.push_back(callsRow(traffic, seconds, context));
        } catch (const std::exception& e) {
            rows.push_back({"calls",
                            callsName(traffic),
                            "",
                            {},
                            std::string("could not be told: ") + e.what()});
        }
    }
    context.progress.round(3, 3);
    const Shape& shape = traffics[1].shape;
    const Run ours = runProduct(shape, seconds, context.space);
    const Run bare = runBare(shape, Wait::select, ours.scheduling, seconds, context.space);
    const auto each = [&](std::uint64_t n) { return static_cast<double>(n) / ours.seconds; };
    rows.push_back(promiseRow("allocations a second", "/s", each(ours.streamAllocations),
                              each(ours.bufferAllocations)));
    rows.push_back(
        promiseRow("locks a second", "/s", each(ours.streamLocks), each(ours.bufferLocks)));
    // The buffer worker waits for room by a mutex; it is the one that sends that may not.
    rows.back().figures[1].allowed = 0;
    rows.back().how += " on the thread that sends";
    rows.push_back(missesRow(ours, bare));
    return rows;
}

}  // namespace velmora_bench
