// What the tests of the watch stand on: a script of what happens on the network and when, and a log
// that keeps the time of each line.
//
// The network in memory is for one thread. So a test books everything first, targets that come, go
// and notify, and the end, and then lets the watch run: its thread moves the clock and meets the
// events on its way, while the test's own thread waits for it to end.
#pragma once

#include <functional>
#include <list>
#include <string>
#include <vector>

#include "tests/find/FindTest.h"

namespace velmora_test {

using Micros = std::uint64_t;
constexpr Micros second = 1'000'000;
constexpr Micros findTime = 90'000;  // of one findMulti on one interface
// The watch begins to listen here when a target answers at once and answers take no time.
constexpr Micros firstListen = 2 * findTime;

// A NOTIFY as it lies on the wire.
inline Bytes notifyBytes(std::uint16_t word) {
    const auto low = static_cast<std::uint8_t>(word);
    const auto high = static_cast<std::uint8_t>(word >> 8);
    return {0x64, 0, 0x10, 0, 0x01, 0x80, 0, 0, low, high, 0, 0, 0, 0, 0, 0};
}
// FIND_REQ as the watch sends it to everybody, and as it goes to one target.
inline const Bytes findReqMode1{0x64, 0, 0x10, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0};
inline const Bytes findReqToOne{0x64, 0, 0x10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};

// Stands before the LogCapture of FindTest for as long as it lives.
class TimedLog final : public ZENNO::LogSink {
public:
    struct Line {
        Micros time;  // since the clock's start
        int level;
        std::string text;
    };
    explicit TimedLog(FakeClock& clock)
        : clock_(clock), sinkBefore_(ZENNO::logger.exchange(this)) {}
    ~TimedLog() override { ZENNO::logger = sinkBefore_; }
    void deliver(ZENNO::LogRecord& record) noexcept override {
        lines.push_back({clock_.time() - FakeClock::start, record.priority & 7,
                         std::string(record.text + ZENNO::LogRecord::headerLength,
                                     record.length - ZENNO::LogRecord::headerLength)});
    }
    std::vector<Line> lines;

private:
    FakeClock& clock_;
    ZENNO::LogSink* sinkBefore_;
};

class WatchTest : public FindTest {
protected:
    WatchTest() { network.delay = 0; }  // answers take no time: what is left is the watch's own

    // ---- the script: times since the start of the watch ----
    void at(Micros time, std::function<void()> what) {
        network.time.at(FakeClock::start + time, std::move(what));
    }
    void sendAt(Micros time, const IPAddress& from, const Bytes& data) {
        at(time, [this, from, data] {
            network.send(from, IPAddress::allNodes(19643, from.scope), data);
        });
    }
    // To the host alone: it comes in from a link that the host has not joined the group on, too.
    void sendToHostAt(Micros time, const IPAddress& from, const Bytes& data) {
        at(time, [this, from, data] { network.send(from, linkLocal(0x102, 19643), data); });
    }
    void notifyAt(Micros time, const IPAddress& from, std::uint16_t word) {
        sendAt(time, from, notifyBytes(word));
    }
    void notifyEvery(Micros period, Micros begin, Micros end, const IPAddress& from,
                     std::uint16_t word) {
        for (Micros time = begin; time < end; time += period, ++word) notifyAt(time, from, word);
    }
    void comesAt(Micros time, const IPAddress& address, ScriptedTarget& target) {
        at(time, [this, address, &target] { network.attach(address, &target); });
    }
    void leavesAt(Micros time, const IPAddress& address) {
        at(time, [this, address] { network.attach(address, nullptr); });
    }
    void leaves(const IPAddress& address) { network.attach(address, nullptr); }

    // ---- the run ----
    // Open on every interface, and ready to watch.
    Find& openedForWatch() {
        find = &opened();
        EXPECT_TRUE(find->openWatch());
        timed.lines.clear();
        return *find;
    }
    void run() {
        if (find == nullptr) openedForWatch();
        find->startWatch();
        find->joinWatch();
        ended = network.time.time() - FakeClock::start;
    }
    void runUntil(Micros end) {
        if (find == nullptr) openedForWatch();
        at(end, [this] { find->stopWatch(); });
        run();
    }

    // ---- what came of it ----
    std::vector<std::string> texts(int level) const {
        std::vector<std::string> out;
        for (const auto& line : timed.lines) {
            if (line.level == level) out.push_back(line.text);
        }
        return out;
    }
    // Without the lines of the filter and of the searches: what the watch itself says at level 6,
    // and what becomes of the table.
    std::vector<std::string> story() const {
        std::vector<std::string> out;
        for (const auto& line : timed.lines) {
            if (line.level == 6 && !line.text.starts_with("Find ") &&
                !line.text.starts_with("Terget ")) {
                out.push_back(line.text);
            }
        }
        return out;
    }
    std::vector<Micros> times(int level, const std::string& text) const {
        std::vector<Micros> out;
        for (const auto& line : timed.lines) {
            if (line.level == level && line.text == text) out.push_back(line.time);
        }
        return out;
    }
    std::size_t count(int level, const std::string& text) const {
        return times(level, text).size();
    }
    std::list<IPAddress> lost() {
        std::list<IPAddress> out;
        find->takeLost(out);
        return out;
    }
    TargetMap added() {
        TargetMap out;
        find->takeAdded(out);
        return out;
    }
    // Unicast datagrams of one id that went to an address.
    std::vector<Micros> askedAt(const IPAddress& address, std::uint16_t id) const {
        std::vector<Micros> out;
        for (const Datagram& datagram : sentByHost()) {
            if (datagram.to == address && wire::load16(datagram.data, 4) == id) {
                out.push_back(datagram.time - FakeClock::start);
            }
        }
        return out;
    }
    // When everybody was asked, each three datagrams once.
    std::vector<Micros> polls(std::uint32_t scope = eth0) const {
        std::vector<Micros> out;
        int datagrams = 0;
        for (const Datagram& datagram : sentByHost()) {
            if (datagram.to.address[0] != 0xff || datagram.to.scope != scope) continue;
            if (datagrams++ % 3 == 0) out.push_back(datagram.time - FakeClock::start);
        }
        return out;
    }

    TimedLog timed{network.time};
    Find* find = nullptr;
    Micros ended = 0;
};

}  // namespace velmora_test
