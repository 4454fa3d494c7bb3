// A whole session whose target is the fuzzer: it answers each step of the negotiation, the connect
// and the stream as its bytes say. Whatever it says, each step ends in time and sends no more than
// its tries; a row that could not be run starts no stream; and one that started ends within bounds.
#include "fuzz/Flow.h"
#include "sync/PacketRing.h"
#include "tests/sync/StreamHarness.h"

using namespace velmora_fuzz;
using VELMORA::SinkConfig;
using VELMORA::Sync;

namespace {

constexpr std::uint64_t formats[] = {
    0x0000'000c'0000'0202,  // 48000 Hz, 16 bits, two channels
    0x0000'000a'0000'0402,  // 44100 Hz, 24 bits, two channels
    0x0000'0024'0000'0810,  // 192000 Hz, 32 bits, eight channels
    0x0000'0202'0251'0002,  // DSD, oldest bit first
    0x0000'0202'0291'0002,  // the same, bytes the other way round
    0x0000'0202'02a1'0002,  // oldest bit last
};

// No step asks more than it has tries for.
class Steps {
public:
    explicit Steps(World& world) : world_(world) {}
    // So many exchanges at the most, whose tries wait so long.
    template <class What>
    bool take(std::size_t exchanges, std::uint64_t waitMicros, What what) {
        const std::size_t sent = world_.sent();
        world_.mustEndIn(exchanges * (4 * waitMicros + 5 * second) + second);
        const bool result = what();
        require(world_.sent() - sent <= 3 * exchanges);
        return result;
    }

private:
    World& world_;
};

bool configure(velmora_test::TestSync& sync, Input& input) {
    const std::uint8_t operation = input.byte() % 8;
    const std::uint32_t cycle = 400 + input.upTo(50'000), less = input.upTo(10'000);
    const std::uint16_t count = input.byte();
    switch (operation) {
        case 0:
        case 1:
        case 2:
            return sync.configTransferProfile(400 + less, 0, cycle);
        case 3:
            return sync.configTransferFix(cycle, count);
        case 4:
            return sync.configTransferFixAuto(cycle);
        case 5:
            return sync.configTransferVar(cycle, count);
        case 6:
            return sync.configTransferVarAuto(cycle);
        default:
            return sync.configTransferVarASIO(4000 + cycle);
    }
}

// Bytes of the packets that the stream would keep.
std::uint64_t ringBytes(const Sync& sync) {
    return VELMORA::PacketRing::bytesFor(sync.rowsInUse(), sync.maxPacketSize,
                                         static_cast<std::uint16_t>(sync.sinkConfig.frameBytes()));
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const std::uint8_t choices = input.byte();
    const EveryLine lines((choices & 1) != 0);
    const bool nopBreak = (choices & 2) != 0, plays = (choices & 4) == 0;
    const bool showsLog = (choices & 8) != 0;
    const std::uint32_t threadMode = threadModeFrom(input);
    const std::uint32_t infoCycle = 20'000 + input.upTo(130'000 / 2) * 2;
    const std::uint32_t latency = input.word() * 10u;
    const std::uint8_t chosen = input.byte();
    const std::size_t known = std::size(formats);
    const SinkConfig format(chosen < known ? formats[chosen] : input.number(8));

    World world(input);
    Steps steps(world);
    velmora_test::FakeMachine machine;
    velmora_test::TestSync sync(world.network);
    sync.setMachine(machine);
    require(sync.open(threadMode, infoCycle, 3, "fuzzer", 0x4554'4e45'5652'4f4b));
    const IPAddress control = linkLocal(0x77, 5000);

    if (!steps.take(9, 10'000, [&] { return sync.getInfo(control, latency, nopBreak); })) return 0;
    require((sync.pcmSupport | sync.dsdLsbSupport | sync.dsdMsbSupport) != 0);
    if (showsLog && !machine.entries.empty()) {
        // The target's own lines come on a socket of their own, until that is closed.
        world.mustEndIn(20 * second);
        world.network.time.in(second, [&] { sync.close(); });
        machine.entries.front()();
        return 0;
    }
    if (!sync.setStreamFormat(format)) return 0;
    require(sync.isSupported(sync.sinkConfig));
    if (!configure(sync, input)) return 0;
    require(sync.profileCount >= 1 && sync.profileCount <= 2);
    for (std::int32_t i = 0; i < sync.profileCount; ++i) {
        require(sync.profiles[static_cast<std::size_t>(i)].cycle != 0);
    }
    std::uint16_t mtu = input.word();
    steps.take(1, 10'000, [&] { return sync.checkPacketSize(control, mtu); });
    steps.take(1, 10'000, [&] { return sync.checkAlive(); });
    if (!steps.take(2, 10'000'000, [&] { return sync.connectPrepare(); })) return 0;
    const std::uint64_t bytesPerSecond =
        std::uint64_t{sync.sinkConfig.rate()} * sync.sinkConfig.frameBytes();
    const std::uint64_t ring = ringBytes(sync);
    const std::uint64_t slots = VELMORA::PacketRing::sizeFor(sync.profiles[0]);
    const bool runs = slots != 0 && ring <= VELMORA::PacketRing::mostBytesFor(bytesPerSecond);
    if ((runs && ring > 2'000'000) || sync.profiles[0].packetCount > 40) return 0;

    // The stream plays for as long as a script may be interesting, and is ended then.
    Flow flow(sync);
    sync.supply = [&](VELMORA::StreamRef& out) { return flow.lend(out); };
    const std::uint64_t playing = 50 * std::uint64_t{sync.profiles[0].cycle};
    bool streams = false;
    world.onSent = [&](const Datagram& datagram) {
        if (datagram.data[4] == 10 && !streams) {
            streams = true;
            world.network.time.in(std::min<std::uint64_t>(playing, second),
                                  [&] { sync.enterDisconnecting(); });
            world.mustEndIn(playing + 60 * second);
        }
    };
    if ((sync.threadMode & 0x806) != 0) world.network.time.tickPerRead = microsPerLook;
    const std::size_t entries = machine.entries.size();
    const bool started = sync.connect();
    require(runs || !started);
    if (!started) return 0;
    if (plays) sync.play();
    require(machine.entries.size() == entries + 1);
    world.mustEndIn(51 * second);  // the driver waits for 50
    machine.entries.back()();
    require(sync.state == Sync::Idle);
    flow.check(world.network.sent);
    return 0;
}
