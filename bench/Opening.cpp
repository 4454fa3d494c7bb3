// How long do init, start and stop take, beside what the protocol and the settings prescribe?
//
// In ms, of the driver object itself, as a host holds it, against velmora-target in the other
// namespace. What is prescribed is worked out from the settings and a round trip to the target that
// is measured in each round: init: three waits of 30 ms on each interface and five questions; start
// to the first packet of the host's audio (seen where the wire enters the target's namespace):
// three questions, the 10 ms of every start, the ring of silence and the half buffer behind which
// the host's audio stands, a cycle; stop: at most the ring, and the wait for the next question for
// the fill.
#include <stdlib.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "bench/Context.h"
#include "bench/Stamp.h"
#include "bench/Tap.h"
#include "driver/AsioVelmora.h"
#include "wire/StreamMessage.h"

namespace velmora_bench {
namespace {

constexpr std::int32_t channels = 2, frames = 512;
constexpr double rate = 44100;

double millisSince(std::int64_t then) {
    return static_cast<double>(clockNanos(CLOCK_REALTIME) - then) * 1e-6;
}

// A host's side: callbacks are plain functions, so what they fill stands here.
std::array<ASIOBufferInfo, channels> buffers;

void onSwitch(std::int32_t half, ASIOBool) {
    for (const ASIOBufferInfo& info : buffers) std::memset(info.buffers[half], 0x55, frames * 4);
}
std::int32_t onMessage(std::int32_t, std::int32_t, void*, double*) {
    return 0;
}
ASIOCallbacks callbacks{onSwitch, [](ASIOSampleRate) {}, onMessage, nullptr};

// Folders without a file, so that every setting is what the driver has by itself.
class EmptyFolder {
public:
    EmptyFolder() {
        std::string pattern = std::filesystem::temp_directory_path() / "velmora-bench-XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no folder");
        path_ = pattern;
    }
    ~EmptyFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    EmptyFolder(const EmptyFolder&) = delete;
    EmptyFolder& operator=(const EmptyFolder&) = delete;

    // As the seam writes paths, without a final backslash.
    std::string name() const {
        std::string name = path_;
        for (char& c : name) c = c == '/' ? '\\' : c;
        return name;
    }

private:
    std::string path_;
};

// Of a question that changes nothing, ms.
double roundTrip(const ZENNO::IPAddress& target) {
    const auto link = ZENNO::systemEnvironment().makeLink();
    ZENNO::IPAddress local{}, from{};
    if (!link->open(ZENNO::SocketKind::udpV6) || !link->bindV6(local)) {
        throw std::runtime_error("no socket for the round trip");
    }
    const ZENNO::Bytes question = VELMORA::wire::write(VELMORA::wire::SUPPORT_REQ{});
    ZENNO::Bytes answer;
    std::vector<double> times;
    for (int i = 0; i < 9; ++i) {
        const std::int64_t before = clockNanos(CLOCK_REALTIME);
        if (!link->sendDatagramTo(question, target, /*retry=*/true) ||
            link->waitReadable(1'000'000) != ZENNO::waitReady || !link->receiveFrom(answer, from)) {
            throw std::runtime_error("the target does not answer");
        }
        times.push_back(millisSince(before));
    }
    return median(times);
}

struct Times {
    Pairs init, start, stop;
};

void measure(const Context& context, Times& times) {
    const EmptyFolder folder;
    auto* driver = new AsioVelmora(
        nullptr,
        Surroundings{ZENNO::systemEnvironment(), VELMORA::systemMachine(), folder.name() + "\\",
                     folder.name(), [] {},
                     [](const std::string&, const std::function<void()>&) { return false; }});
    driver->NonDelegatingAddRef();
    const auto release = [](AsioVelmora* d) { d->NonDelegatingRelease(); };
    const std::unique_ptr<AsioVelmora, decltype(release)> owner(driver, release);

    std::int64_t before = clockNanos(CLOCK_REALTIME);
    if (driver->init(nullptr) != ASIOTrue) throw std::runtime_error("the driver finds no target");
    const double init = millisSince(before);
    const double trip = roundTrip(driver->stream().target);
    times.init.add(init, 3 * 30.0 * context.interfaces + 5 * trip);

    for (std::int32_t c = 0; c < channels; ++c) {
        buffers[static_cast<std::size_t>(c)] = {ASIOFalse, c, {}};
    }
    if (driver->setSampleRate(rate) != ASE_OK ||
        driver->createBuffers(buffers.data(), channels, frames, &callbacks) != ASE_OK) {
        throw std::runtime_error("the driver makes no buffers");
    }
    Tap tap(context.space);
    before = clockNanos(CLOCK_REALTIME);
    if (driver->start() != ASE_OK) throw std::runtime_error("the driver does not start");
    const double start = static_cast<double>(tap.firstAudioNanos() - before) * 1e-6;
    const double block = frames / rate * 1e3;
    const double ring = driver->settings().syncBufferCount * block;
    const double cycle = driver->settings().cycleTime / 1e3;
    const double delay = driver->settings().startDelay / 1e3 + 10;
    times.start.add(start, 3 * trip + delay + ring + block + cycle);

    before = clockNanos(CLOCK_REALTIME);
    driver->stop();
    times.stop.add(millisSince(before), ring + driver->settings().infoCycle / 1e3 + trip);
}

}  // namespace

std::vector<Row> benchOpening(Context& context) {
    Times times;
    for (int i = 1; i <= context.rounds; ++i) {
        context.progress.round(i, context.rounds);
        measure(context, times);
    }
    return {{"opening",
             "init",
             "ms",
             {times.init.figure("")},
             "beside the search's waits and five round trips"},
            {"opening",
             "start to the host's first audio",
             "ms",
             {times.start.figure("")},
             "at the target's end of the wire, 44.1 kHz, buffers of 512 frames, the driver's own "
             "settings; beside three round trips, the 10 ms that every start waits, 6 blocks of "
             "silence, one half buffer and a cycle"},
            {"opening",
             "stop",
             "ms",
             {times.stop.figure("")},
             "beside the longest that is prescribed: the ring played out, and one interval of "
             "the questions for the fill"}};
}

}  // namespace velmora_bench
