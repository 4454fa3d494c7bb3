// A session on the clock and the network in memory, with a scripted target at the other end. The
// datagrams of the target, and those expected of the host, are put together here by hand.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <system_error>
#include <vector>

#include "sync/Sync.h"
#include "tests/support/FakeNetwork.h"
#include "tests/support/LogCapture.h"

namespace velmora_test {

using VELMORA::SinkConfig;
using VELMORA::StreamRef;
using VELMORA::Sync;

using Datagrams = std::vector<Bytes>;

inline std::uint16_t word16(const Bytes& data, std::size_t at) {
    return static_cast<std::uint16_t>(data[at] | data[at + 1] << 8);
}

// magic, sizeWord, id, flags, arg, payload, filler: little-endian, a multiple of 8.
inline Bytes datagram(std::uint16_t id, std::uint16_t flags, std::array<std::uint16_t, 4> arg = {},
                      const Bytes& payload = {}) {
    const auto filler = static_cast<std::uint16_t>((8 - payload.size() % 8) % 8);
    const auto length = static_cast<std::uint16_t>(16 + payload.size() + filler);
    Bytes out(length);
    std::size_t at = 0;
    const auto put = [&](unsigned v) {
        out[at++] = static_cast<std::uint8_t>(v);
        out[at++] = static_cast<std::uint8_t>(v >> 8);
    };
    put(100);
    put(length | filler);
    put(id);
    put(flags);
    for (const std::uint16_t word : arg) put(word);
    for (const std::uint8_t byte : payload) out[at++] = byte;
    return out;
}

// Cores, classes and refusals as a test wants them. Threads do not run: what would have run in
// them is kept.
class FakeMachine final : public VELMORA::Machine {
public:
    std::int32_t physicalCoreCount() noexcept override { return cores; }
    std::uint32_t processPriorityClass() noexcept override { return priorityClass; }
    bool setThreadPriority(ZENNO::platform::Priority priority) noexcept override {
        priorities.push_back(static_cast<int>(priority));
        return priorityWorks;
    }
    bool setThreadAffinity(std::uint64_t mask) noexcept override {
        threadMasks.push_back(mask);
        return (mask & processors) != 0;
    }
    bool setProcessAffinity(std::uint64_t mask) noexcept override {
        processMasks.push_back(mask);
        return processAffinityWorks;
    }
    std::thread startThread(std::function<void()> entry) override {
        if (refusesThreads) throw std::system_error(std::make_error_code(std::errc{EAGAIN}));
        entries.push_back(std::move(entry));
        return {};
    }

    std::int32_t cores = 4;
    std::uint32_t priorityClass = 32;
    std::uint64_t processors = ~0ull;
    bool priorityWorks = true, processAffinityWorks = true, refusesThreads = false;
    std::vector<int> priorities;
    std::vector<std::uint64_t> threadMasks, processMasks;
    std::vector<std::function<void()>> entries;
};

class TestSync final : public Sync {
public:
    using Sync::connectWaitLimit_;
    using Sync::enterDisconnecting;
    using Sync::streamWorker;
    using Sync::Sync;
    using Sync::workerEntry;

    bool getNewStream(StreamRef& out) override {
        ++fetches;
        if (supply) return supply(out);
        if (blocks.empty()) return false;
        lent_ = std::move(blocks.front());
        blocks.pop_front();
        out = {lent_.data(), lent_.size()};
        return true;
    }
    bool getNewStreamDone() override {
        ++dones;
        return true;
    }

    std::deque<Bytes> blocks;
    std::function<bool(StreamRef&)> supply;
    int fetches = 0, dones = 0;

private:
    Bytes lent_;
};

// Answers each id by its script, from the port that was asked.
class ScriptedTarget final : public Peer {
public:
    using Answers = std::function<Datagrams(const Bytes& request)>;

    void onDatagram(FakeNetwork& network, const Datagram& request) override {
        requests.push_back(request.data);
        const auto found = answers.find(word16(request.data, 4));
        if (found == answers.end()) return;
        for (Bytes& answer : found->second(request.data)) {
            network.send(request.to, request.from, std::move(answer));
        }
    }
    void on(std::uint16_t id, Bytes answer) {
        answers[id] = [answer](const Bytes&) { return Datagrams{answer}; };
    }
    void on(std::uint16_t id, Answers script) { answers[id] = std::move(script); }
    std::vector<std::uint16_t> ids() const {
        std::vector<std::uint16_t> out;
        for (const Bytes& request : requests) out.push_back(word16(request, 4));
        return out;
    }

    std::map<std::uint16_t, Answers> answers;
    Datagrams requests;
};

// A machine, a target at two addresses and somebody else, on a network whose time is moved.
struct Scene {
    FakeNetwork network;
    FakeMachine machine;
    ScriptedTarget target;
    IPAddress control = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 0x77}, 5000, 3);
    IPAddress stream = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 0x77}, 6000, 3);
    IPAddress stranger = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 0x78}, 6000, 3);
    std::uint64_t begin = 0;  // of the stream: the first turn

    Scene() {
        for (const IPAddress& address : {control, stream, stranger}) {
            network.attach(address, &target);
        }
    }
    // The target takes the stream at its stream port, by `phase`.
    void connectPhase(std::uint16_t phase) {
        target.on(8, datagram(9, static_cast<std::uint16_t>(phase | 1), {6000}));
    }
    // From now on times count from the stream that is opened next.
    void settle() { begin = network.time.time() + 2 * network.delay; }
    void at(std::uint64_t sinceBegin, std::function<void()> what) {
        network.time.at(begin + sinceBegin, std::move(what));
    }
    // The target speaks: it is at the host `sinceBegin` the first turn.
    void say(std::uint64_t sinceBegin, Bytes data) { sayFrom(stream, sinceBegin, std::move(data)); }
    void sayFrom(const IPAddress& from, std::uint64_t sinceBegin, Bytes data) {
        at(sinceBegin - network.delay,
           [this, from, data = std::move(data)] { network.send(from, hostAddress(), data); });
    }
    IPAddress hostAddress() const {
        for (const Datagram& d : network.sent) {
            if (d.toPeer) return d.from;
        }
        return {};
    }
};

struct Session : Scene {
    TestSync sync{network};

    explicit Session(std::uint32_t threadMode = 1, std::uint32_t infoCycle = 100000) {
        sync.setMachine(machine);
        EXPECT_TRUE(sync.open(threadMode, infoCycle, 3, "host", 0x4554'4e45'5652'4f4b));
        sync.target = control;
    }

    // Two channels of 16 bits at 48000: frames of 4 bytes.
    static constexpr SinkConfig stereo16{0x2 | SinkConfig::pcm16 | SinkConfig::family48000 |
                                         1ull << 35};
    // Two channels of DSD at 2822400, 32-bit words, oldest bit first.
    static constexpr SinkConfig dsdLsb{0x2 | SinkConfig::dsdLsbLittle | SinkConfig::family44100 |
                                       1ull << 41};

    static VELMORA::TransferProfile fixRow(std::uint32_t cycle, std::uint16_t packetCount,
                                           std::uint32_t framesQ14 = 4 << 14) {
        return {.cycle = cycle,
                .packetBytes = 1428,
                .framesQ14 = framesQ14,
                .packetCount = packetCount,
                .mode = VELMORA::modeFix};
    }
    static VELMORA::TransferProfile varRow(std::uint32_t cycle, std::uint16_t packetCount,
                                           std::uint32_t bytes = 16) {
        return {.cycle = cycle,
                .fixedBytes = bytes,
                .packetBytes = bytes,
                .framesQ14 = bytes / 4 << 14,
                .packetCount = packetCount};
    }

    // Ready for streamWorker: the target takes the stream at its stream port, by `phase`.
    void prepare(const VELMORA::TransferProfile& row, std::uint16_t phase = 0) {
        sync.sinkConfig = sync.hostFormat = stereo16;
        sync.profiles[0] = row;
        sync.profileCount = 1;
        sync.state = Sync::Connecting;
        connectPhase(phase);
        settle();
    }
    // Keeps the target alive, by a word that changes nothing.
    void keepAlive(std::uint64_t until) {
        for (std::uint64_t t = 500000; t < until; t += 500000) say(t, datagram(99, 0));
    }
    // The session is over at that moment: a stranger's word wakes the worker from its wait.
    void leaveAt(std::uint64_t sinceBegin) {
        at(sinceBegin, [this] { sync.state = Sync::Idle; });
        sayFrom(stranger, sinceBegin, datagram(99, 0));
    }

    struct Sent {
        std::uint64_t at;  // since the first turn
        std::uint16_t flags, sequence;
        Bytes payload;  // by sizeWord
        Bytes data;
    };
    // The data packets that went out, in order.
    std::vector<Sent> packets() const {
        std::vector<Sent> out;
        for (const Datagram& d : network.sent) {
            if (!d.toPeer || word16(d.data, 4) != 10) continue;
            const std::size_t length = word16(d.data, 2) & 0xfff8u, filler = word16(d.data, 2) & 7u;
            const auto first = d.data.begin() + 16;
            out.push_back({d.time - begin, word16(d.data, 6), word16(d.data, 8),
                           Bytes(first, d.data.begin() + static_cast<long>(length - filler)),
                           d.data});
        }
        return out;
    }
    std::vector<std::uint64_t> packetTimes() const {
        std::vector<std::uint64_t> out;
        for (const Sent& p : packets()) out.push_back(p.at);
        return out;
    }
};

// INFO_ANS, by hand.
inline Bytes feedbackSays(std::int16_t value, std::uint16_t phase = 0) {
    const auto coded = static_cast<std::uint16_t>(0x8000 | (value & 0x7fff));
    return datagram(11, phase, {coded});
}
inline Bytes resendFrom(std::uint16_t from, std::uint16_t last = 0) {
    return datagram(11, 0x0008, {0, from, last});
}

}  // namespace velmora_test
