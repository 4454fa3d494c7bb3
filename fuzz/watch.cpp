// The watch: minutes of simulated time in which the fuzzer notifies, answers, forges and falls
// silent. It ends when it is told to, within what its longest step takes, and its table stays in
// bounds and is what its two lists tell.
#include "fuzz/Asking.h"

using namespace velmora_fuzz;
using namespace VELMORA;

namespace {

constexpr std::uint64_t longest = 250 * second;  // watched
constexpr std::size_t mostDatagrams = 500;       // booked ahead

// The longest that a stop may go unseen: a first search, or two steps that ask targets, the last of
// which has its sinks walked.
constexpr std::uint64_t unseen = 120 * second + 2 * (60 * second + greetingLimit + sinkWalkLimit);

// What comes unasked, by itself: at the port of notifications, or where answers are waited for.
class Script {
public:
    Script(Asking& asking, Input& input) : world_(asking.world), input_(input) {}

    std::uint64_t book() {
        for (std::uint8_t left = input_.byte(); left != 0 && !input_.isEmpty(); --left) bookOne();
        return std::min(at_, longest);
    }

private:
    void bookOne() {
        const std::uint8_t kind = input_.byte();
        at_ += input_.word() * 1000ull;
        IPAddress from = linkLocal(1 + (kind >> 3 & 3), controlPort, 3 + (kind >> 5 & 1));
        switch (kind & 7) {
            case 0:
            case 1:
            case 2:
                notify(from, input_.word());
                break;
            case 3: {  // again and again, the word going up
                std::uint16_t word = input_.word();
                const std::uint64_t period = input_.word() * 1000ull;
                for (std::uint8_t times = input_.byte(); times != 0; --times, at_ += period) {
                    notify(from, word++);
                }
                break;
            }
            case 4: {  // ever more senders
                const std::uint8_t senders = input_.byte();
                for (std::uint16_t i = 0; i < senders; ++i) {
                    from.setWord(6, i);
                    notify(from, i);
                }
                break;
            }
            case 5:
                toNotify(from, world_.speech(1 + (kind >> 6) % 7, message(0x8000, 0, {}, {})));
                break;
            case 6:
                from.scope = input_.byte();
                toNotify(from, input_.bytes(input_.byte()));
                break;
            default:
                breakLinks(input_.byte());
                break;
        }
    }
    void notify(const IPAddress& from, std::uint16_t word) {
        toNotify(
            from,
            message(0x8001, 0,
                    {static_cast<std::uint8_t>(word), static_cast<std::uint8_t>(word >> 8)}, {}));
    }
    void toNotify(const IPAddress& from, const Bytes& data) {
        if (at_ >= longest || ++datagrams_ > mostDatagrams) return;
        world_.network.time.in(at_, [this, from, data] {
            world_.network.send(from, linkLocal(0x102, notifyPort), data);
        });
    }
    void breakLinks(std::uint8_t bits) {
        world_.network.time.in(at_, [this, bits] {
            world_.network.waitFails = (bits & 3) == 1;
            world_.network.receiveFails = (bits & 3) == 2;
            world_.network.sendError = (bits & 12) == 4 ? 10051 : 0;
            world_.network.interfacesFail = (bits & 12) == 8;
        });
    }

    World& world_;
    Input& input_;
    std::uint64_t at_ = 0;  // since the start
    std::size_t datagrams_ = 0;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const std::uint8_t choices = input.byte();
    const EveryLine lines((choices & 1) != 0);
    FindSetting setting;
    setting.nopBreak = (choices & 2) != 0;
    if ((choices & 4) != 0) setting.filterID = 0x42;
    Asking asking(input, setting, (choices & 8) != 0);
    World& world = asking.world;
    Find& find = asking.find;
    if ((choices & 16) != 0) require(find.open(std::uint16_t{3}));
    if ((choices & 32) != 0) world.network.delay = 0;
    require(find.openWatch());

    Script script(asking, input);
    const std::uint64_t end = script.book() + 40 * second;
    world.network.time.in(end, [&find] { find.stopWatch(); });
    world.mustEndIn(end + unseen);
    find.startWatch();
    find.joinWatch();
    require(!find.isWatching());

    TargetMap added;
    std::list<IPAddress> lost;
    find.takeAdded(added);
    find.takeLost(lost);
    // Nobody has asked before: what was added and is still there is all that there is.
    require(added.size() == find.targetCount() || added.size() >= mostSinks);
    require(find.targetCount() <= mostSinks && lost.size() <= mostSinks);
    for (const auto& [key, info] : added) {
        require(key.address == info.findAddress.address && key.portNumber() != 0);
    }
    find.takeAdded(added);
    require(added.empty());
    return 0;
}
