// A stream that plays, to a target that says what it likes and when: datagrams of every sender,
// requests to send again, feedback, floods, a link that fails, a thread that is held up. The audio
// arrives once and in order, nothing makes the worker send more than its plan allows, and when the
// session is over it ends within bounds.
#include <cstdio>

#include "fuzz/Flow.h"
#include "sync/StreamWorker.h"
#include "tests/sync/StreamHarness.h"

using namespace velmora_fuzz;
using VELMORA::Sync;
using velmora_test::Session;

namespace {

constexpr std::size_t mostDatagrams = 1500;       // of one script
constexpr std::uint64_t longest = 4 * second;     // a script has come to its end by then,
constexpr std::uint64_t longestPolling = second;  // or by then, where each µs is looked at
constexpr std::uint32_t polls = 0x806;  // the modes that look at the clock again and again

VELMORA::TransferProfile rowFrom(Input& input) {
    const std::uint32_t cycle = 2000 + input.upTo(30'000);
    const auto packets = static_cast<std::uint16_t>(1 + input.byte() % 4);
    if (input.flag()) return Session::varRow(cycle, packets, 4 * (1 + input.upTo(400) % 357));
    return Session::fixRow(cycle, packets, 16384 + input.upTo(40'000) * 4u);
}

// How long `bytes` of audio last by a row, in µs, when the flow is at its lowest.
std::uint64_t lasts(std::uint64_t bytes, const VELMORA::TransferProfile& row) {
    const std::uint64_t perBurst =
        std::uint64_t{row.packetCount} * std::max(row.fixedBytes, (row.framesQ14 >> 14) * 4);
    return (bytes / std::max<std::uint64_t>(1, perBurst) + 2) * row.cycle * 12 / 10;
}

// The target's side of the script, booked ahead.
class Script {
public:
    Script(Session& session, World& speaker, Input& input, std::uint64_t lasts)
        : session_(session), speaker_(speaker), input_(input), longest_(lasts) {}

    // Gives when the last thing happens, in µs behind the first turn.
    std::uint64_t book() {
        while (!input_.isEmpty() && at_ < longest_ && datagrams_ < mostDatagrams) bookOne();
        return std::min(at_, longest_);
    }

private:
    void bookOne() {
        const std::uint8_t kind = input_.byte();
        at_ += input_.word() * 4u;
        switch (kind % 8) {
            case 0:
                sayBytes(speaker_.speech(1 + (kind >> 5) % 7, lastPacket_), sender(kind >> 3 & 3));
                break;
            case 1:
                askAgain(input_.byte());
                break;
            case 2: {
                const std::uint16_t flags = input_.word();
                const Bytes arg = input_.bytes(8);
                sayBytes(message(11, flags, arg, {}), session_.stream);
                break;
            }
            case 3:
                repeat(input_.byte(), input_.word());
                break;
            case 4:
                session_.at(at_, [this, bits = input_.byte()] {
                    session_.sync.playing = bits & 1;
                    session_.sync.phaseInvert = bits >> 1 & 1;
                });
                break;
            case 5:
                session_.at(at_, [this, bits = input_.byte()] { breakLink(bits); });
                break;
            case 6:
                session_.at(at_, [this, micros = input_.word() * 4u] {
                    session_.network.time.advance(micros);
                });
                break;
            default:
                session_.at(at_, [this] { session_.sync.enterDisconnecting(); });
                break;
        }
    }

    IPAddress sender(unsigned who) const {
        IPAddress from = session_.stream;
        if (who == 1) return session_.stranger;
        if (who == 2) return session_.control;
        if (who == 3) from.scope = 4;
        return from;
    }
    void sayBytes(Bytes data, const IPAddress& from) {
        said_ = [this, from, data = std::move(data)] {
            session_.network.send(from, session_.hostAddress(), data);
        };
        happen(at_);
    }
    // From so many packets before the newest on.
    void askAgain(std::uint8_t back) {
        said_ = [this, back] {
            const auto from = static_cast<std::uint16_t>(newest_ - back);
            session_.network.send(session_.stream, session_.hostAddress(),
                                  velmora_test::resendFrom(from, newest_));
        };
        happen(at_);
    }
    // The last datagram again and again, `period` in 16 µs.
    void repeat(std::uint8_t times, std::uint16_t period) {
        for (unsigned i = 0; said_ && i < times && datagrams_ < mostDatagrams; ++i) {
            at_ += period * 16u;
            happen(at_);
        }
    }
    void happen(std::uint64_t when) {
        ++datagrams_;
        session_.at(when, said_);
    }
    void breakLink(std::uint8_t bits) {
        session_.network.sendFullTimes = bits & 7;
        session_.network.receiveFails = (bits & 0x38) == 0x08;
        session_.network.waitFails = (bits & 0x38) == 0x10;
        session_.network.sendError = (bits & 0x38) == 0x18 ? 10051 : 0;
    }

public:
    void onPacket(const Datagram& datagram) {
        const std::uint16_t sequence = velmora_test::word16(datagram.data, 8);
        if (static_cast<std::int16_t>(sequence - newest_) > 0) newest_ = sequence;
    }

private:
    Session& session_;
    World& speaker_;  // gives the words only
    Input& input_;
    const std::uint64_t longest_;
    const Bytes lastPacket_ = message(10, 0x40, {}, {});
    std::function<void()> said_;
    std::uint64_t at_ = 0;
    std::size_t datagrams_ = 0;
    std::uint16_t newest_ = 0;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const std::uint8_t choices = input.byte();
    const EveryLine lines((choices & 1) != 0);
    const std::uint32_t threadMode = threadModeFrom(input);
    const std::uint32_t infoCycle = 20'000 + input.upTo(60'000) * 2;
    World speaker(input);
    Session session(threadMode, infoCycle);
    Sync& sync = session.sync;
    sync.latency = input.word();
    session.prepare(rowFrom(input), static_cast<std::uint16_t>((choices & 2) != 0 ? 0x100 : 0));
    if ((choices & 4) != 0) {
        sync.profiles[1] = rowFrom(input);
        sync.profileCount = 2;
        sync.lowCpu = choices >> 3 & 1;
    }
    if ((choices & 16) != 0) sync.sinkConfig = sync.hostFormat = Session::dsdLsb;
    if (!VELMORA::isRunnable(sync.profiles[0], sync.sinkConfig, sync.maxPacketSize)) return 0;
    const bool isPolling = (threadMode & polls) != 0;
    if (isPolling) session.network.time.tickPerRead = microsPerLook;
    session.network.time.yieldCost = 20;
    sync.playing = 1;
    // An honest target answers what it is asked, beside all that it says unasked.
    if ((choices & 32) != 0) {
        session.target.on(10, [](const Bytes& request) {
            velmora_test::Datagrams answers;
            if ((request[6] & 0x20) != 0) answers.push_back(velmora_test::datagram(11, 1));
            return answers;
        });
    }
    if ((choices & 64) != 0) session.target.on(12, velmora_test::datagram(13, 1));

    const std::size_t block = 16 + input.upTo(2000);
    Flow flow(sync, block);
    session.sync.supply = [&](VELMORA::StreamRef& out) { return flow.lend(out); };
    Script script(session, speaker, input, isPolling ? longestPolling : longest);
    session.network.fate = [&](const Datagram& datagram) {
        if (datagram.toPeer && datagram.data[4] == 10) script.onPacket(datagram);
        return velmora_test::Fate{{session.network.delay, std::nullopt}};
    };
    const std::uint64_t end = script.book() + 50'000;
    // A session that is still connecting is ended once it has connected.
    const std::function<void()> finish = [&] {
        if (sync.state == Sync::Connecting) {
            session.network.time.in(10'000, finish);
            return;
        }
        session.sync.enterDisconnecting();
        // What is in hand goes out, held up by requests for as long again; then more of them,
        // silence and the last exchange.
        const std::uint64_t limit = VELMORA::noAnswerLimitFor(infoCycle);
        const std::uint64_t inHand =
            std::max(lasts(block, sync.profiles[0]), lasts(block, sync.profiles[1]));
        session.network.time.in(3 * inHand + 6 * limit + 3 * second, [] {
            std::fprintf(stderr, "the stream does not end\n");
            require(false);
        });
    };
    session.at(end, finish);
    const bool ended = session.sync.streamWorker();
    require(!ended || sync.state == Sync::Idle);
    flow.check(session.network.sent);
    return 0;
}
