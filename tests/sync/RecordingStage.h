// Where recorded streams play: a session, its machine, its target and a network on a clock that is
// moved; and the list of what is played.
#pragma once

#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "tests/sync/Recording.h"
#include "tests/sync/StreamHarness.h"

namespace velmora_test {

struct Script {
    std::string name;
    bool hearsTheLog;  // its times are others while the log is on, as they are meant to be
    std::function<void(Take&)> play;
};

class Scripts {
public:
    // A new one; what it plays is assigned.
    std::function<void(Take&)>& operator()(std::string name, bool hearsTheLog = false) {
        return all.emplace_back(Script{std::move(name), hearsTheLog, {}}).play;
    }
    std::vector<Script> all;
};

// tests/sync/RecordedFlow.cpp
void addTransfers(Scripts& out);
void addConversions(Scripts& out);
void addFeedback(Scripts& out);
void addModes(Scripts& out);
// tests/sync/RecordedTrouble.cpp
void addResends(Scripts& out);
void addLateness(Scripts& out);
void addEnds(Scripts& out);
// tests/sync/RecordedSessions.cpp
void addRings(Scripts& out);
void addSessions(Scripts& out);
void addWeather(Scripts& out);

// Moves with the network's. For a thread that polls, time goes on by a µs at every sixteenth
// reading: a turn may read the clock once more or once less without another time being seen.
class GrainedClock final : public ZENNO::Clock {
public:
    explicit GrainedClock(FakeClock& time) : time_(time) {}
    std::uint32_t now() noexcept override {
        if (time_.time() != lastRead_) reads_ = 0;
        if (isPolled && ++reads_ > 16) {
            reads_ = 1;
            time_.advance(1);
        }
        lastRead_ = time_.time();
        return time_.now();
    }
    void sleep(std::uint64_t micros) override { time_.sleep(micros); }
    void yield() noexcept override { time_.yield(); }

    bool isPolled = false;

private:
    FakeClock& time_;
    std::uint64_t lastRead_ = 0;
    std::uint32_t reads_ = 0;  // at this time
};

class RecordedEnvironment final : public ZENNO::Environment {
public:
    explicit RecordedEnvironment(FakeNetwork& network) : grained(network.time), network_(network) {}
    ZENNO::Clock& clock() noexcept override { return grained; }
    std::unique_ptr<ZENNO::Link> makeLink() override { return network_.makeLink(); }
    bool localAddressesV6(ZENNO::LocalInterfaceMap& out) override {
        return network_.localAddressesV6(out);
    }

    GrainedClock grained;

private:
    FakeNetwork& network_;
};

// A machine, a target and a session between them, whose doings go into a take. The target takes
// every stream, answers requests for feedback by `answers`, one after the other and again from the
// first, and parts when asked.
template <class S>
struct Stage : Scene {
    Take& take;
    LogCapture log{take.logLevel};
    RecordedEnvironment environment{network};
    Datagrams answers{feedbackSays(0)};
    std::size_t answered = 0;
    std::uint16_t newest = 0;  // number that the target has seen
    S sync{environment};

    explicit Stage(Take& into, std::uint32_t threadMode = 1, std::uint32_t infoCycle = 5000)
        : take(into) {
        sync.setMachine(machine);
        EXPECT_TRUE(sync.open(threadMode, infoCycle, 3, "host", 0x4554'4e45'5652'4f4b));
        sync.target = control;
        sync.latency = 3000;  // long enough to keep every flag of the mode
        target.on(10, [this](const Bytes& packet) {
            const std::uint16_t number = word16(packet, 8);
            if (static_cast<std::uint16_t>(number - newest) < 0x8000) newest = number;
            if ((word16(packet, 6) & 0x20) == 0 || answers.empty()) return Datagrams{};
            return Datagrams{answers[answered++ % answers.size()]};
        });
        target.on(12, datagram(13, 1));
        connectPhase(0);
        settle();
    }
    void format(SinkConfig config) { sync.sinkConfig = sync.hostFormat = config; }
    void rows(std::initializer_list<VELMORA::TransferProfile> list) {
        sync.profileCount = 0;
        for (const VELMORA::TransferProfile& row : list) {
            sync.profiles[static_cast<std::size_t>(sync.profileCount++)] = row;
        }
    }
    // The last `count` packets that the target has seen by then, please.
    void askAgain(std::uint64_t sinceBegin, unsigned count) {
        at(sinceBegin, [this, count] {
            const auto from = static_cast<std::uint16_t>(newest + 1 - count);
            network.send(stream, hostAddress(), resendFrom(from, newest));
        });
    }
    // The machine stands still in the middle of a wait.
    void stall(std::uint64_t sinceBegin, std::uint64_t micros) {
        at(sinceBegin, [this, micros] { network.time.advance(micros); });
    }
    void disconnectAt(std::uint64_t sinceBegin) {
        at(sinceBegin, [this] { sync.Sync::disconnect(); });
    }
    // The stream, on this thread: what it sends and says, and how it ends.
    void run() {
        sync.state = Sync::Connecting;
        sync.workerEntry();
        wrapUp();
    }
    void run(std::uint64_t disconnectAfter) {
        disconnectAt(disconnectAfter);
        run();
    }
    void wrapUp() {
        for (const Datagram& d : network.sent) {
            if (d.toPeer) take.addDatagram(d);
        }
        for (const LogCapture::Line& line : log.lines()) take.addLine(line.level, line.text);
        take.addLine(0, "state " + std::to_string(sync.state.load()) + " at " +
                            std::to_string(network.time.time() - begin));
        network.clearSent();
        log.clear();
    }
};

class Dice {  // the same on every machine
public:
    explicit Dice(std::uint32_t seed) : state_(seed) {}
    std::uint32_t next(std::uint32_t below) {
        state_ = state_ * 1664525 + 1013904223;
        return static_cast<std::uint32_t>((std::uint64_t{state_} * below) >> 32);
    }
    Bytes noise(std::size_t bytes) {
        Bytes out(bytes);
        for (std::uint8_t& byte : out) byte = static_cast<std::uint8_t>(next(256));
        return out;
    }

private:
    std::uint32_t state_;
};

// A stream with audio.
struct Play : Stage<TestSync> {
    // On these rows, and with audio in blocks of these lengths, one after the other and again.
    Play(Take& into, std::initializer_list<VELMORA::TransferProfile> list,
         std::uint32_t threadMode = 1, std::uint32_t infoCycle = 5000)
        : Stage(into, threadMode, infoCycle) {
        format(Session::stereo16);
        rows(list);
        sync.playing = 1;
        audio({512, 40, 1000, 0, 6});
    }
    void audio(std::vector<std::size_t> lengths) {
        sync.supply = [this, lengths = std::move(lengths), dice = Dice(7), next = std::size_t{0},
                       block = Bytes{}](StreamRef& out) mutable {
            if (sync.state == Sync::Disconnecting) return false;
            if (onFetch) onFetch(sync.fetches);
            block = dice.noise(lengths[next++ % lengths.size()]);
            out = {block.data(), block.size()};
            return true;
        };
    }
    std::function<void(int fetches)> onFetch;
};

using Words = std::initializer_list<std::uint16_t>;

inline SinkConfig formatOf(std::uint64_t sample, std::uint32_t rate, std::uint32_t channels) {
    SinkConfig config(sample);
    EXPECT_TRUE(config.setRate(rate));
    EXPECT_TRUE(config.setChannels(channels));
    return config;
}

inline VELMORA::TransferProfile fix(std::uint32_t cycle, std::uint16_t count,
                                    std::uint32_t framesQ14 = 4 << 14) {
    return Session::fixRow(cycle, count, framesQ14);
}
inline VELMORA::TransferProfile var(std::uint32_t cycle, std::uint16_t count,
                                    std::uint32_t bytes = 16) {
    return Session::varRow(cycle, count, bytes);
}
inline VELMORA::TransferProfile randomRow(std::uint32_t cycle, std::uint32_t cycleMin,
                                          std::uint16_t count) {
    VELMORA::TransferProfile row = fix(cycle, count, 722534u / count);
    row.cycleMin = cycleMin;
    row.mode = VELMORA::modeRandom;
    return row;
}

// Encoding 1 and 3 of a feedback, by hand; encoding 2 is feedbackSays.
inline Bytes feedbackInSteps(std::uint16_t word) {
    return datagram(11, 0, {word});
}
inline Bytes feedbackAsFill(std::uint16_t fill, std::uint16_t wanted) {
    return datagram(11, 0, {0, fill, wanted});
}

}  // namespace velmora_test
