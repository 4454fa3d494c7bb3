// A transfer to a target that answers well, unless the fuzzer meddles: with the form of its
// channels, with every answer, with what is lost on the way. A transfer ends within its rounds and
// their time; one that was told that all arrived, by a target that did not lie, has arrived byte
// for byte.
#include "tests/find/TransferPeer.h"

#include "fuzz/Asking.h"

using namespace velmora_fuzz;
using velmora_test::TransferPeer;

namespace {

// What the fuzzer makes of the target's answers.
class Meddler {
public:
    explicit Meddler(Input& input) : input_(input) {}

    void operator()(TransferPeer::Answer& answer) {
        if (input_.isEmpty()) return;
        switch (input_.byte() % 12) {
            case 0:
                answer.silence();
                break;
            case 1:
                answer.refuse();
                break;
            case 2:
                answer.echo();
                break;
            case 3: {
                const std::size_t offset = 2 * (input_.byte() % 8u);
                answer.set(offset, input_.word());
                hasLied_ = true;
                break;
            }
            case 4:
                answer.delay = input_.word() * 4u;
                break;
            case 5:
                answer.from.setPortNumber(input_.word());
                break;
            case 6:
                answer.datagrams.push_back(input_.bytes(input_.byte()));
                hasLied_ = true;
                break;
            case 7:
                answer.datagrams.insert(answer.datagrams.begin(), input_.byte(),
                                        answer.datagrams.front());
                break;
            default:
                break;  // as it should be
        }
    }
    bool hasLied() const { return hasLied_; }

private:
    Input& input_;
    bool hasLied_ = false;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    Input input(bytes, size);
    const std::uint8_t choices = input.byte();
    const EveryLine lines((choices & 1) != 0);
    velmora_test::FakeNetwork network;
    VELMORA::Find find({}, network);
    require(find.open());
    const IPAddress target = linkLocal(1, controlPort);
    TransferPeer peer(network, target);
    peer.geometry.channels = 1 + input.byte() % 4;
    peer.geometry.burstLimit = input.word();
    peer.geometry.packetBytes = 1 + input.upTo((choices & 2) != 0 ? 65'535 : 1500);
    peer.geometry.blockPackets = 1 + input.upTo((choices & 4) != 0 ? 65'534 : 40);
    peer.geometry.blocks = 1 + input.upTo((choices & 8) != 0 ? 65'534 : 40);
    Meddler meddler(input);
    const auto meddle = [&](TransferPeer::Answer& answer) { meddler(answer); };
    const Bytes data = velmora_test::pattern(input.upTo((choices & 16) != 0 ? 65'535 : 3000));
    if (data.size() / peer.geometry.packetBytes > 3000) return 0;
    const std::uint64_t limit = input.word();
    const int number = static_cast<int>(input.byte() % 5);
    const std::uint64_t fates = input.number(8);  // of the first packets: lost where a bit is set
    peer.onCount = peer.onChannel = peer.onBurst = peer.onEnd = meddle;

    std::size_t packets = 0, sent = 0;
    network.fate = [&](const Datagram& datagram) -> velmora_test::Fate {
        if (datagram.toPeer) ++sent;
        const bool isData = datagram.toPeer && datagram.data[4] == 28;
        if (isData && packets < 64 && (fates >> packets++ & 1) != 0) return {};
        return {{network.delay, std::nullopt}};
    };

    VELMORA::TransferFigures figures;
    std::size_t blocks = 0;
    const VELMORA::TransferProgress progress = [&](std::uint16_t, std::uint16_t) { ++blocks; };
    const std::uint64_t began = network.time.time();
    const bool whole = find.Transfer(target, number, data, limit, progress, figures);

    require(whole == (figures.end == VELMORA::TransferEnd::complete));
    // Each burst goes eleven times at the most, waits for its answer and lets the line go quiet.
    const std::uint64_t rounds = figures.bursts + figures.resends;
    require(figures.resends <= 10 * figures.bursts);
    require(network.time.time() - began <= (rounds + 4) * (5 * second + 200'000));
    require(figures.packets >= figures.bursts && figures.bytesSent <= data.size());
    require(sent <= figures.packets + figures.packetsResent + 3);
    require(figures.packetsResent <= figures.resends * VELMORA::transferSlots);
    require(blocks <= figures.packets + 1);
    if (!whole) return 0;
    require(figures.bytesSent == data.size());
    if (!meddler.hasLied()) require(peer.received() == data);
    return 0;
}
