// velmora-bench: is the driver as punctual, as cheap and as small as it must be?
//
// Each row is a ratio of two figures from one run on one machine: the driver's and its limit's,
// taken in turn, round by round; what is shown is the median of the rounds' ratios. A ratio of 1.00
// is the limit itself. Lateness is told by its 99th percentile: a mean says nothing about a stream.
//
//   lateness    the burst's arrival as the receiver's kernel stamps it, behind its place in the
//   grid of
//               cycles; beside a bare loop of select and sendto, of the same thread priority
//   cpu         processor time of the whole process while it streams; beside the bare loop that
//   sends
//               the same datagrams at the same times
//   discovery   Find::search, beside the waits that the protocol itself prescribes (needs
//   --interface,
//               with one target on the other end)
//   memory      what a playing stream holds on the heap, beside the ring of sent packets, the
//   sample ring
//               and 2 MiB

#include <malloc.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <map>
#include <new>
#include <nlohmann/json.hpp>
#include <thread>

#include "base/Clock.h"
#include "bench/Receiver.h"
#include "bench/Stats.h"
#include "find/Find.h"
#include "platform/Thread.h"
#include "src/Network/Environment.h"
#include "sync/SyncBuffer.h"
#include "wire/StreamMessage.h"

namespace {

std::atomic<std::int64_t> heapBytes{0};

}  // namespace

// Every byte on the heap is counted, by what the allocator really gives.
void* operator new(std::size_t size) {
    void* at = std::malloc(size);
    if (at == nullptr) throw std::bad_alloc();
    heapBytes += static_cast<std::int64_t>(malloc_usable_size(at));
    return at;
}
void operator delete(void* at) noexcept {
    heapBytes -= static_cast<std::int64_t>(malloc_usable_size(at));
    std::free(at);
}
void operator delete(void* at, std::size_t) noexcept {
    operator delete(at);
}

namespace {

using namespace velmora_bench;
using VELMORA::SinkConfig;

struct Shape {  // of a stream
    std::uint32_t rate, channels;
    std::uint64_t format;
    std::uint32_t cycle = 1000;  // µs
};

struct Cost {
    double cpuSeconds = 0;
    Reception seen;
};

double processSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& t) {
        return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void pause(double seconds) {
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

// The engine with a supply that costs nothing: one block, lent again and again.
class BenchStream final : public VELMORA::Sync {
public:
    BenchStream() : Sync(ZENNO::systemEnvironment()) {}
    ~BenchStream() override { close(); }

    bool getNewStream(VELMORA::StreamRef& out) override {
        if (state.load() == Disconnecting) return false;
        out = {block_.data(), block_.size()};
        return true;
    }

    bool prepare(const Shape& shape, const ZENNO::IPAddress& to) {
        const std::uint32_t info = 100000;
        if (!open(/*threadMode=*/1, info, 0, "bench", 0)) return false;
        sinkConfig = SinkConfig(shape.format);
        if (!sinkConfig.setRate(shape.rate) || !sinkConfig.setChannels(shape.channels))
            return false;
        hostFormat = sinkConfig;
        target = to;
        block_.assign(sinkConfig.frameBytes() * 512, 0x55);
        return configTransferFix(shape.cycle, 0);
    }

private:
    ZENNO::Bytes block_;
};

Cost runProduct(const Shape& shape, double seconds) {
    Receiver receiver;
    BenchStream stream;
    if (!stream.prepare(shape, receiver.address()) || !stream.connect() || !stream.connectWait() ||
        !stream.is_connect()) {
        throw std::runtime_error("the stream does not start");
    }
    stream.play();
    Cost cost;
    const double before = processSeconds();
    pause(seconds);
    cost.cpuSeconds = processSeconds() - before;
    stream.disconnect();
    cost.seen = receiver.finish();
    return cost;
}

// What a program with nothing to decide would do: wait, send the cycle's datagrams, go on.
Cost runBare(const Shape& shape, double seconds) {
    Receiver receiver;
    BenchStream sized;  // for the packets' number and size alone
    if (!sized.prepare(shape, receiver.address())) throw std::runtime_error("no such stream");
    const VELMORA::TransferProfile row = sized.profiles[0];
    const std::size_t payload = (row.framesQ14 >> 14) * sized.sinkConfig.frameBytes();
    ZENNO::Bytes packet(VELMORA::wire::packetBytes(payload));
    VELMORA::wire::writeStreamHeader(packet, {}, payload);

    Cost cost;
    const double before = processSeconds();
    std::thread loop([&] {
        ZENNO::platform::setThreadPriority(ZENNO::platform::Priority::timeCritical);
        const auto link = ZENNO::systemEnvironment().makeLink();
        ZENNO::IPAddress local{};
        link->open(ZENNO::SocketKind::udpV6);
        link->bindV6(local);
        const ZENNO::IPAddress to = receiver.address();
        const int waiter =
            ::socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0);  // nothing ever comes here
        const std::uint32_t start = ZENNO::nowMicros();
        std::uint32_t deadline = start + shape.cycle;
        const auto end = static_cast<std::uint32_t>(seconds * 1e6);
        while (ZENNO::nowMicros() - start < end) {
            const std::uint32_t now = ZENNO::nowMicros();
            if (!ZENNO::hasReached(now, deadline)) {
                fd_set set;
                FD_ZERO(&set);
                FD_SET(waiter, &set);
                timeval time{0, static_cast<suseconds_t>(deadline - now)};
                select(waiter + 1, &set, nullptr, nullptr, &time);
                continue;
            }
            for (std::uint16_t i = 1; i <= row.packetCount; ++i) {
                VELMORA::wire::rewriteStreamFlags(packet, i == row.packetCount ? 0x40 : 0);
                link->sendOnce(packet, to);
            }
            deadline += shape.cycle;
            if (ZENNO::hasReached(ZENNO::nowMicros(), deadline))
                deadline = ZENNO::nowMicros() + shape.cycle;
        }
        ::close(waiter);
    });
    loop.join();
    cost.cpuSeconds = processSeconds() - before;
    cost.seen = receiver.finish();
    return cost;
}

struct Row {
    std::string name, unit;
    double ours = 0, limit = 0, ratio = 0, allowed = 0;
    std::string how;
};

void show(const std::vector<Row>& rows) {
    std::printf("%-44s %12s %12s %8s %8s\n", "", "driver", "limit", "ratio", "allowed");
    for (const Row& row : rows) {
        std::printf("%-44s %9.2f %-2s %9.2f %-2s %8.2f %8.2f %s\n", row.name.c_str(), row.ours,
                    row.unit.c_str(), row.limit, row.unit.c_str(), row.ratio, row.allowed,
                    row.ratio <= row.allowed ? "" : "  over");
    }
    for (const Row& row : rows) std::printf("\n%s: %s", row.name.c_str(), row.how.c_str());
    std::printf("\n");
}

// Bursts that the grid has and the receiver did not see.
std::uint64_t missing(const Reception& seen, std::uint32_t cycle) {
    std::uint64_t gaps = 0;
    for (std::size_t k = 1; k < seen.burstNanos.size(); ++k) {
        const auto gap = static_cast<double>(seen.burstNanos[k] - seen.burstNanos[k - 1]) / 1000.0;
        gaps += static_cast<std::uint64_t>(std::max(0.0, std::round(gap / cycle) - 1));
    }
    return gaps;
}

std::vector<Row> benchLateness(int rounds, double seconds) {
    const Shape shape{44100, 2, SinkConfig::pcm32};
    std::vector<double> ours, bare, ratios;
    std::uint64_t lost = 0;
    for (int i = 0; i < rounds; ++i) {
        const Cost a = runProduct(shape, seconds);
        const Cost b = runBare(shape, seconds);
        lost += missing(a.seen, shape.cycle);
        ours.push_back(percentile(lateness(a.seen.burstNanos, shape.cycle), 0.99));
        bare.push_back(percentile(lateness(b.seen.burstNanos, shape.cycle), 0.99));
        ratios.push_back(ours.back() / bare.back());
    }
    return {{"lateness p99, cycle 1000 us, mode 1", "us", median(ours), median(bare),
             median(ratios), 1.5,
             "44.1 kHz, 2 channels, 32 bits; kernel stamps of the receiver; the bare loop waits "
             "with select. Cycles "
             "that passed without a burst, all rounds: " +
                 std::to_string(lost)}};
}

std::vector<Row> benchCpu(int rounds, double seconds) {
    const Shape shape{192000, 8, SinkConfig::pcm32};
    std::vector<double> ours, bare, ratios;
    for (int i = 0; i < rounds; ++i) {
        const Cost a = runProduct(shape, seconds);
        const Cost b = runBare(shape, seconds);
        ours.push_back(a.cpuSeconds / seconds * 1000);
        bare.push_back(b.cpuSeconds / seconds * 1000);
        ratios.push_back(ours.back() / bare.back());
    }
    return {{"cpu, 192 kHz, 8 channels, 32 bits", "ms", median(ours), median(bare), median(ratios),
             1.5,
             "processor time for each second of stream; the bare loop sends as many datagrams of "
             "the same size"}};
}

std::vector<Row> benchDiscovery(int rounds, std::uint32_t interfaces) {
    std::vector<double> ours, ratios;
    const double prescribed = 3 * 30.0 * interfaces;
    for (int i = 0; i < rounds; ++i) {
        VELMORA::FindSetting setting;
        setting.maxVersion = 1;
        setting.clientName = "bench";
        VELMORA::Find find(setting, ZENNO::systemEnvironment());
        VELMORA::TargetMap found;
        if (!find.open()) throw std::runtime_error("discovery does not open");
        const auto before = std::chrono::steady_clock::now();
        if (!find.search(found) || found.empty())
            throw std::runtime_error("no target answers on this network");
        ours.push_back(
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - before)
                .count());
        ratios.push_back(ours.back() / prescribed);
    }
    return {{"discovery of one target", "ms", median(ours), prescribed, median(ratios), 1.1,
             "Find::search; the protocol waits three times 30 ms on each interface"}};
}

// The whole buffer engine, playing.
class BenchBuffer final : public VELMORA::SyncBuffer {
public:
    BenchBuffer() : SyncBuffer(ZENNO::systemEnvironment()) {}
    ~BenchBuffer() override {
        disconnect();
        closeSession();
    }
    void fillStream(ZENNO::Bytes&, bool) override {}
};

std::vector<Row> benchMemory() {
    const std::uint64_t frames = 512, blocks = 6;
    Receiver receiver;
    const std::int64_t before = heapBytes;
    BenchBuffer stream;
    const std::uint32_t infoCycle = 100000;
    bool good = stream.open(1, infoCycle, 0, "bench", 0);
    stream.sinkConfig = SinkConfig(SinkConfig::pcm32);
    good = good && stream.sinkConfig.setRate(192000) && stream.sinkConfig.setChannels(8);
    stream.hostFormat = stream.sinkConfig;
    stream.target = receiver.address();
    good = good && stream.configTransferFix(1000, 0);
    stream.setupBuffers(frames, blocks);
    good = good && stream.connect() && stream.connectWait();
    if (!good) throw std::runtime_error("the stream does not start");
    stream.play();
    pause(1.0);
    const auto held = static_cast<double>(heapBytes - before);
    const VELMORA::TransferProfile row = stream.profiles[0];
    double packets = 32;
    while (packets < row.packetCount * (1000000.0 / row.cycle)) packets *= 2;
    const double sent =
        packets * static_cast<double>(VELMORA::wire::packetBytes(stream.maxPacketSize));
    const double ring = static_cast<double>((blocks + 1) * frames * stream.hostFormat.frameBytes());
    const double limit = sent + ring + (2 << 20);
    stream.disconnect();
    receiver.finish();
    return {{"memory of a playing stream", "MB", held / 1e6, limit / 1e6, held / limit, 1.0,
             "192 kHz, 8 channels, 32 bits; ring of sent packets plus sample ring plus 2 MiB"}};
}

}  // namespace

int main(int argc, char** argv) {
    int rounds = 9;
    double seconds = 2.0;
    std::uint32_t interfaces = 0;
    bool asJson = false;
    std::vector<std::string> only;
    CLI::App app("Is the driver as punctual, as cheap and as small as it must be?");
    app.footer(
        "Each row is a ratio against a limit measured in the same run, the median of the rounds.\n"
        "Exit codes: 0 all rows within what is allowed; 1 a row is over; 2 a bench could not run.");
    app.add_option("--rounds", rounds, "rounds of each row")
        ->check(CLI::Range(1, 99))
        ->capture_default_str();
    app.add_option("--seconds", seconds, "of stream, each round")
        ->check(CLI::Range(0.2, 60.0))
        ->capture_default_str();
    app.add_option("--interfaces", interfaces,
                   "with discovery, over so many interfaces; one target must be there");
    app.add_option("--only", only, "rows: lateness, cpu, discovery, memory")
        ->check(CLI::IsMember({"lateness", "cpu", "discovery", "memory"}));
    app.add_flag("--json", asJson, "one JSON object instead of the table");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : 2;
    }
    const auto wanted = [&](const char* name) {
        return only.empty() || std::find(only.begin(), only.end(), name) != only.end();
    };
    try {
        std::vector<Row> rows;
        const auto add = [&](std::vector<Row> more) {
            rows.insert(rows.end(), more.begin(), more.end());
        };
        if (wanted("lateness")) add(benchLateness(rounds, seconds));
        if (wanted("cpu")) add(benchCpu(rounds, seconds));
        if (wanted("discovery") && interfaces != 0) add(benchDiscovery(rounds, interfaces));
        if (wanted("memory")) add(benchMemory());
        if (asJson) {
            nlohmann::json out = nlohmann::json::array();
            for (const Row& r : rows) {
                out.push_back({{"name", r.name},
                               {"unit", r.unit},
                               {"driver", r.ours},
                               {"limit", r.limit},
                               {"ratio", r.ratio},
                               {"allowed", r.allowed},
                               {"how", r.how}});
            }
            std::cout << out.dump(2) << '\n';
        } else {
            show(rows);
        }
        return std::all_of(rows.begin(), rows.end(),
                           [](const Row& r) { return r.ratio <= r.allowed; })
                   ? 0
                   : 1;
    } catch (const std::exception& e) {
        std::cerr << e.what() << '\n';
        return 2;
    }
}
