// Recorded sessions: with the ring of audio behind them, from the first question to the close, and
// in any weather.
#include "sync/SyncBuffer.h"
#include "sync/ThreadMode.h"
#include "tests/sync/RecordingStage.h"

namespace velmora_test {

using namespace VELMORA;

// ---- the ring of audio behind it ----

namespace {

struct RecordedBuffer final : SyncBuffer {
    using Sync::workerEntry;
    using SyncBuffer::SyncBuffer;
    ~RecordedBuffer() override { closeSession(); }
};

struct Ring : Stage<RecordedBuffer> {
    Ring(Take& into, std::uint64_t frames, std::uint64_t count) : Stage(into) {
        format(Session::stereo16);
        rows({fix(1000, 2, 24 << 14)});
        sync.setupBuffers(frames, count);
        sync.playing = 1;
    }
    // The buffer worker's part, at the network's time: a block every `micros` while there is room.
    void fillEvery(std::uint64_t micros, std::uint64_t from, std::uint64_t until) {
        for (std::uint64_t t = from + micros; t < until; t += micros) {
            at(t, [this] {
                if (sync.hasFreeSlot()) sync.pushBlock(dice_.noise(sync.blockBytes));
            });
        }
    }

private:
    Dice dice_{11};
};

}  // namespace

void addRings(Scripts& out) {
    const auto add = [&](const char* name, std::function<void(Ring&)> what) {
        out(std::string("ring-") + name) = [=](Take& take) {
            Ring s(take, 96, 4);
            what(s);
        };
    };
    const auto end = [](Ring& s, std::uint64_t at) {
        s.at(at, [&] { s.sync.disconnectOnBufferWorker(); });
        s.run();
    };
    add("kept-full", [=](Ring& s) {
        s.fillEvery(500, 0, 40000);
        end(s, 30000);
    });
    add("run-dry", [=](Ring& s) {
        s.fillEvery(500, 0, 9000);
        s.fillEvery(13000, 9000, 33000);
        s.fillEvery(400, 33000, 60000);
        end(s, 50000);
    });
    add("stopped-and-played-again", [=](Ring& s) {
        s.fillEvery(1900, 0, 12000);
        s.at(12000, [&] { s.sync.stopRequested = true; });
        s.at(32000, [&] { s.sync.Sync::stop(); });
        s.at(40000, [&] { s.sync.play(); });
        s.at(41000, [&] { s.sync.pushBlock(Bytes(384, 5)); });
        end(s, 50000);
    });
    add("of-blocks-of-every-size", [=](Ring& s) {
        for (const std::size_t bytes : {1u, 1000u, 7u, 333u}) s.sync.appendBlock(Bytes(bytes, 9));
        s.fillEvery(2100, 0, 30000);
        end(s, 30000);
    });
    add("sought-in", [=](Ring& s) {
        s.fillEvery(1000, 0, 30000);
        s.at(9000, [&] { s.sync.seekStream(2); });
        s.at(130000, [&] { s.sync.play(); });
        end(s, 140000);
    });
    add("of-dsd-run-dry", [=](Ring& s) {
        s.format(Session::dsdLsb);
        s.rows({var(1000, 1, 704)});
        s.sync.setupBuffers(512, 2);
        s.sync.copyStream = convertReverse32;
        s.connectPhase(0x100);
        s.fillEvery(6000, 0, 60000);
        end(s, 50000);
    });
}

// ---- whole sessions ----

namespace {

Bytes answer64(std::uint16_t id, std::uint64_t word) {
    const auto part = [word](int i) { return static_cast<std::uint16_t>(word >> (16 * i)); };
    return datagram(id, 1, {part(0), part(1), part(2), part(3)});
}

// From the first question to the closed socket, on rows by the target's own wishes.
void wholeSession(Take& take, std::uint16_t minCycle10, std::uint16_t maxCycle10,
                  std::uint16_t flags, SinkConfig config) {
    Play s(take, {}, CRITICAL | NOFASTFEEDBACK);
    s.target.on(42, datagram(5, 1));
    s.target.on(4, [](const Bytes& request) -> Datagrams {
        const std::uint32_t selector =
            word16(request, 8) | static_cast<std::uint32_t>(word16(request, 10)) << 16;
        if (selector == 0) return {answer64(5, 0x330e00)};
        if (selector == 0x100000) return {answer64(5, 0xffff'0251'003full)};
        if (selector == 0x200000) return {answer64(5, 0xffff'0261'003full)};
        return {answer64(5, 0xffff'0000'0e3full)};
    });
    s.target.on(20, datagram(21, 1, {minCycle10, maxCycle10, flags}));
    s.target.on(6, datagram(7, 1, {1200, 15}));
    s.target.on(14, datagram(15, 1, {1500, 15000, 936, 0}));
    s.target.on(18, datagram(19, 1, {0, 1300}));
    s.target.on(24, datagram(25, 1));
    EXPECT_TRUE(s.sync.getInfo(s.control, 120000, /*nopBreak=*/true));
    std::uint16_t mtu = 1000;
    s.sync.checkPacketSize(s.control, mtu);
    EXPECT_TRUE(s.sync.checkAlive());
    EXPECT_TRUE(s.sync.setStreamFormat(config));
    EXPECT_TRUE(s.sync.getInfo(s.control, 0, /*nopBreak=*/false));
    EXPECT_TRUE(s.sync.configTransferProfile(400, 1000, 2000));
    EXPECT_TRUE(s.sync.connectPrepare());
    if (!s.sync.connect()) return s.wrapUp();  // rows beyond what can be run
    s.settle();
    s.at(4000, [&] { s.sync.play(); });
    for (std::uint64_t t = 5300; t < 120000; t += 3000) s.stall(t, 2500);
    s.disconnectAt(160000);
    s.machine.entries.back()();
    EXPECT_TRUE(s.sync.checkAlive());
    s.sync.close();
    s.wrapUp();
}

}  // namespace

void addSessions(Scripts& out) {
    struct Wish {
        const char* name;
        std::uint16_t minCycle10, maxCycle10, flags;
    };
    constexpr Wish wishes[] = {
        {"none", 0, 0, 0},
        {"fix", 40, 300, 0},
        {"limit-only", 40, 300, 1},
        {"var", 40, 300, 2},
        {"var-too-short", 1, 2, 3},
        {"var-limit-only", 30, 60, 3},
        {"fix-sweep", 40, 500, 4},
        {"var-sweep", 40, 500, 6},
        {"fix-packets", 150, 400, 8},
        {"var-packets", 150, 400, 10},
        {"all", 60, 1000, 15},
        {"random", 60, 200, 0x12},
        {"impossible", 900, 100, 6},
    };
    const SinkConfig configs[] = {formatOf(SinkConfig::pcm32, 192000, 2),
                                  formatOf(SinkConfig::dsdLsbBig, 5644800, 2)};
    for (const Wish& wish : wishes) {
        for (const SinkConfig config : configs) {
            out(std::string(config.isDsd() ? "session-dsd-" : "session-pcm-") + wish.name,
                /*hearsTheLog=*/true) = [=](Take& take) {
                wholeSession(take, wish.minCycle10, wish.maxCycle10, wish.flags, config);
            };
        }
    }
    out("session-with-a-silent-target", /*hearsTheLog=*/true) = [](Take& take) {
        Play s(take, {fix(1000, 1)});
        s.target.answers.clear();
        EXPECT_FALSE(s.sync.getInfo(s.control, 0, /*nopBreak=*/true));
        EXPECT_FALSE(s.sync.checkAlive());
        s.sync.connectPrepare();
        s.run();
    };
    out("target's-log", /*hearsTheLog=*/true) = [](Take& take) {
        Play s(take, {fix(1000, 1)});
        const IPAddress logPort = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 0x77}, 19642, 3);
        s.network.attach(logPort, &s.target);
        s.target.on(40, [&](const Bytes&) {
            const std::string text = "clock locked";
            const Bytes line = datagram(41, 0, {2}, Bytes(text.begin(), text.end()));
            return Datagrams{datagram(41, 1), line, line};
        });
        TargetLog log(s.environment);
        EXPECT_TRUE(log.open(3));
        log.ask(s.control);
        s.at(700000, [&] { log.closeSocket(); });
        log.run();
        s.wrapUp();
    };
    // An hour and a half: the clock's 32 bits come round, early and late in it.
    out("clock-that-comes-round") = [](Take& take) {
        Play s(take, {var(2000000, 1, 20)}, 1, 60000000);
        s.audio({400});
        s.answers = {feedbackSays(40), feedbackSays(-30)};
        for (std::uint64_t t = 300; t < 5400; t += 300) {
            s.askAgain(t * 1000000 + 77, 5);
        }
        s.stall(4294900000, 5000000);
        s.run(5400000000);
    };
}

void addWeather(Scripts& out) {
    // Whatever may happen, at times that nobody chose.
    for (std::uint32_t seed = 1; seed <= 12; ++seed) {
        out("weather-" + std::to_string(seed)) = [=](Take& take) {
            Dice dice(seed);
            const auto count = static_cast<std::uint16_t>(1 + dice.next(6));
            const std::uint32_t cycle = 400 + dice.next(1200);
            const TransferProfile last = seed % 3 == 0 ? randomRow(2 * cycle, cycle, count)
                                                       : var(2 * cycle, count, 1 + dice.next(1400));
            const TransferProfile first = seed % 2 == 0
                                              ? fix(cycle, count, 1 + dice.next(100 << 14))
                                              : var(cycle, count, 1 + dice.next(1400));
            const std::uint32_t mode = dice.next(8) << 5 |
                                       (dice.next(3) == 0 ? NOFASTFEEDBACK : 0u) |
                                       (dice.next(2) == 0 ? SOCKETNOBLOCK : 0u);
            Play s(take, {first, last}, mode, 1000 + dice.next(9000));
            s.sync.copyStream = seed % 4 == 0 ? convertReverse32 : convertCopy;
            s.audio({1 + dice.next(3000), dice.next(100), 1 + dice.next(500)});
            for (std::uint64_t t = 1000; t < 200000; t += 1 + dice.next(4000)) {
                const auto value = static_cast<std::int16_t>(dice.next(3000) - 1500);
                switch (dice.next(8)) {
                    case 0:
                        s.stall(t, dice.next(4 * cycle));
                        break;
                    case 1:
                        s.askAgain(t, 1 + dice.next(40));
                        break;
                    case 2:
                        s.say(t, feedbackSays(value, 0x100));
                        break;
                    case 3:
                        s.say(t, feedbackAsFill(40, 39));
                        break;
                    case 4:
                        s.at(t, [&] { s.sync.phaseInvert ^= 1; });
                        break;
                    case 5:
                        s.at(t, [&] { s.sync.playing ^= 1; });
                        break;
                    default:
                        s.say(t, feedbackSays(value));
                        break;
                }
            }
            s.run(210000);
        };
    }
}

}  // namespace velmora_test
