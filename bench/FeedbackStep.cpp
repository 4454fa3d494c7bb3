// How does the flow follow a target whose clock is off?
//
// A simulation: the stream worker and the software target on a network in memory, on a clock that
// moves as they wait. "settled" is the time from which on the target's fill stays within one packet
// of what it wants, in s; "furthest" is the most that it ever was away, in packets. "swing" is how
// far the fill moves in the last minute of two, in packets: a flow that oscillated would show here;
// one packet is the limit. "flow" is by how much what is sent differs from what the target's clock
// takes, in ppm over 5 s, at its lowest and its highest.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <stdexcept>

#include "bench/Context.h"
#include "bench/Shape.h"
#include "sync/Sync.h"
#include "target/Target.h"
#include "tests/support/FakeNetwork.h"
#include "wire/StreamMessage.h"

namespace velmora_bench {
namespace {

namespace wire = VELMORA::wire;
using velmora_test::Datagram;
using velmora_test::FakeNetwork;
using ZENNO::IPAddress;

constexpr std::uint16_t sinkPort = 20001;
constexpr double simulatedSeconds = 120;

struct Sample {
    double seconds = 0;       // since the stream began to play
    double excessMicros = 0;  // of the target's fill
    double frames = 0;        // that have come
};

// A target at its address on the network in memory, with its own clock.
class SimulatedTarget final : public velmora_test::Peer {
public:
    SimulatedTarget(FakeNetwork& network, const Shape& shape, double ppm)
        : network_(network),
          frameBytes_(shape.config().frameBytes()),
          target_(settingsFor(shape, ppm), [](const std::string&, std::uint16_t) {
              return std::make_unique<velmora_target::NoOutput>();
          }) {
        address.setPortNumber(sinkPort);
        network.attach(address, this);
        tick();
    }

    IPAddress address = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 0x77}, 0, 3);
    std::vector<Sample> samples;  // one for each question for the fill

    void onDatagram(FakeNetwork& network, const Datagram& datagram) override {
        const auto packet = wire::readPacket(datagram.data);
        velmora_target::Mail mail;
        const std::uint64_t now = network.time.time();
        target_.onDatagram({now, now, sinkPort, datagram.from, datagram.data}, mail);
        if (packet && packet->id() == wire::STREAM_DATA::id) onAudio(*packet, now);
        deliver(mail);
        network.clearSent();
    }

private:
    static velmora_target::TargetSettings settingsFor(const Shape& shape, double ppm) {
        velmora_target::TargetSettings settings;
        settings.name = "bench";
        settings.sinks = {{"Main", sinkPort, sinkPort, 1}};
        settings.formats.pcm = shape.config().word;
        settings.clockPpm = ppm;
        settings.announces = false;
        return settings;
    }
    void onAudio(const wire::PacketView& packet, std::uint64_t now) {
        frames_ += static_cast<double>(packet.payload().size() / frameBytes_);
        if ((packet.flags() & wire::STREAM_DATA::asksInfo) == 0) return;
        const auto figures = target_.figures();
        if (figures.empty() || figures[0].state != "playing") return;
        if (samples.empty()) begin_ = now;
        samples.push_back({static_cast<double>(now - begin_) * 1e-6,
                           figures[0].fillMicros - figures[0].targetMicros, frames_});
    }
    void deliver(velmora_target::Mail& mail) {
        for (auto& out : mail.datagrams) {
            IPAddress from = address;
            from.setPortNumber(out.localPort);
            network_.send(from, out.to, std::move(out.data));
        }
    }
    void tick() {
        const std::uint64_t now = network_.time.time();
        velmora_target::Mail mail;
        target_.onTime(now, mail);
        deliver(mail);
        network_.time.at(std::max(now + 1, target_.nextTime(now)), [this] { tick(); });
    }

    FakeNetwork& network_;
    std::size_t frameBytes_;
    velmora_target::Target target_;
    double frames_ = 0;
    std::uint64_t begin_ = 0;
};

class SimulatedStream final : public VELMORA::Sync {
public:
    explicit SimulatedStream(FakeNetwork& network) : Sync(network), network_(network) {}

    // Plays so long, on the calling thread.
    void run(const Shape& shape, bool var, const IPAddress& to) {
        const std::uint32_t questionsEvery = 100000;  // µs
        sinkConfig = hostFormat = shape.config();
        target = to;
        if (!open(shape.threadMode, questionsEvery, static_cast<std::uint16_t>(to.scope), "bench",
                  0) ||
            !(var ? configTransferVar(shape.cycle, 0) : configTransferFix(shape.cycle, 0))) {
            throw std::runtime_error("the simulated stream cannot be prepared");
        }
        end_ = network_.time.time() + static_cast<std::uint64_t>((simulatedSeconds + 1) * 1e6);
        playing = 1;
        state = Connecting;
        streamWorker();
    }
    bool getNewStream(VELMORA::StreamRef& out) override {
        if (network_.time.time() >= end_) state = Idle;
        out = {block_.data(), block_.size()};
        return true;
    }

private:
    FakeNetwork& network_;
    std::uint64_t end_ = 0;
    ZENNO::Bytes block_ = ZENNO::Bytes(4096, 0x55);
};

struct Outcome {
    double settled = 0, furthest = 0, swing = 0, lowest = 1e9, highest = -1e9;
};

Outcome judge(const std::vector<Sample>& samples, const Shape& shape, double ppm) {
    if (samples.empty() || samples.back().seconds < simulatedSeconds * 0.9) {
        throw std::runtime_error("the simulated stream ended early");
    }
    Outcome outcome;
    double low = 1e9, high = -1e9;
    std::size_t before = 0;  // a sample some 5 s earlier
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const Sample& s = samples[i];
        const double away = std::abs(s.excessMicros) / shape.cycle;
        outcome.furthest = std::max(outcome.furthest, away);
        if (away > 1) outcome.settled = s.seconds;
        if (s.seconds < simulatedSeconds / 2) continue;
        low = std::min(low, s.excessMicros);
        high = std::max(high, s.excessMicros);
        while (s.seconds - samples[before].seconds > 5) ++before;
        const Sample& b = samples[before];
        if (s.seconds - b.seconds < 4) continue;
        const double rate = (s.frames - b.frames) / (s.seconds - b.seconds);
        const double flow = (rate / (shape.rate * (1 + ppm * 1e-6)) - 1) * 1e6;
        outcome.lowest = std::min(outcome.lowest, flow);
        outcome.highest = std::max(outcome.highest, flow);
    }
    outcome.swing = (high - low) / shape.cycle;
    return outcome;
}

Outcome simulate(bool var, double ppm) {
    const Shape shape{44100, 2, VELMORA::SinkConfig::pcm32};  // one packet a cycle of 1000 µs
    FakeNetwork network;
    SimulatedTarget target(network, shape, ppm);
    SimulatedStream stream(network);
    stream.run(shape, var, target.address);
    return judge(target.samples, shape, ppm);
}

}  // namespace

std::vector<Row> benchFeedbackStep(Context& context) {
    constexpr double deviations[] = {-200, -100, 0, 100, 200};
    std::vector<Row> rows;
    int step = 0;
    for (const bool var : {false, true}) {
        for (const double ppm : deviations) {
            context.progress.round(++step, 2 * static_cast<int>(std::size(deviations)));
            const Outcome outcome = simulate(var, ppm);
            char name[48];
            std::snprintf(name, sizeof name, "%s, target %+.0f ppm", var ? "Var" : "Fix", ppm);
            rows.push_back({"feedback",
                            name,
                            "",
                            {{"settled, s", outcome.settled},
                             {"furthest, packets", outcome.furthest},
                             {"swing, packets", outcome.swing, 1, outcome.swing, 1},
                             {"flow, lowest ppm", outcome.lowest},
                             {"flow, highest ppm", outcome.highest}},
                            "simulated, two minutes of 44.1 kHz stereo, a packet of 1 ms, a "
                            "question for the fill every 100 ms"});
        }
    }
    return rows;
}

}  // namespace velmora_bench
