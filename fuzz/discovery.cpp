// Every question of discovery, asked of targets that the fuzzer is: searches, finding again, single
// targets. Each ends in its time, however the answers come, and what it gives is sound.
#include "fuzz/Asking.h"

using namespace velmora_fuzz;
using namespace VELMORA;

namespace {

// A search's longest: its passes, the greetings, the targets, and the last of each with its sinks.
constexpr std::uint64_t searchTime = 2 * second + greetingLimit + searchLimit + sinkWalkLimit;

void checkFound(const TargetMap& found, const FindSetting& setting) {
    require(found.size() <= 2 * mostSinks);
    for (const auto& [key, info] : found) {
        require(key.address == info.findAddress.address && key.scope == info.findAddress.scope);
        require(key.portNumber() != 0 && info.sinkNo != 0 && info.reserved == 0);
        require(setting.maxVersion == 0 || info.version <= setting.maxVersion);
        require(setting.filterID == 0 || info.productID == 0 ||
                info.productID == setting.filterID || info.productID == setting.furtherIDs.at(0));
    }
}

void askOne(Asking& asking, Input& input) {
    Find& find = asking.find;
    const FindSetting none;
    const IPAddress target = linkLocal(1 + input.byte() % 2, controlPort, 3 + input.byte() % 2);
    std::uint16_t count = 0, second16 = 0, version = 0;
    std::uint64_t product = 0;
    std::string name;
    switch (input.byte() % 9) {
        case 0: {
            IPAddress found;
            TargetInfo info;
            const std::uint16_t sinkNo = input.byte();
            const bool worked = asking.within(
                second, [&] { return find.reFind(linkLocal(1, 0, 0), sinkNo, found, info); });
            require(!worked || found.isNone() || found.portNumber() != 0);
            require(!worked || found.isNone() || info.sinkNo == sinkNo);
            break;
        }
        case 1: {
            FoundMap found;
            asking.within(second + greetingLimit,
                          [&] { return find.findMulti(found, /*mode=*/0); });
            require(found.size() <= mostAnswers);
            break;
        }
        case 2: {
            std::map<IPAddress, Bytes> acks;
            find.extraAddresses = {linkLocal(1, controlPort), linkLocal(9, 7000)};
            asking.within(second, [&] { return find.sendMulti(message(0, 0, {}, {}), acks); });
            find.extraAddresses.clear();
            require(acks.size() <= mostAnswers);
            break;
        }
        case 3: {
            SinkMap sinks;
            asking.within(second + sinkWalkLimit, [&] { return find.getSinks(target, sinks); });
            require(sinks.size() <= mostSinks);
            break;
        }
        case 4:
            asking.within(second, [&] { return find.ping(target); });
            break;
        case 5:
            asking.within(second, [&] { return find.hello(target); });
            break;
        case 6:
            asking.within(second, [&] { return find.getSinkCount(target, count, second16); });
            break;
        case 7: {
            IPAddress sink;
            asking.within(second,
                          [&] { return find.getSink(target, input.word(), sink, version, name); });
            require(sink.isNone() || sink.address == target.address);
            break;
        }
        default:
            asking.within(second, [&] { return find.identify(target, product, name); });
            break;
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const std::uint8_t choices = input.byte();
    const EveryLine lines((choices & 1) != 0);
    FindSetting setting;
    setting.nopBreak = (choices & 2) != 0;
    setting.loopback = (choices & 4) != 0;
    if ((choices & 8) != 0) setting.maxVersion = 1;
    if ((choices & 16) != 0) {
        setting.filterID = 0x4554'4e45'5652'4f4b;
        setting.furtherIDs = {0x42};
    }
    Asking asking(input, setting, (choices & 32) != 0);
    if ((choices & 64) != 0) asking.world.network.delay = 0;
    const std::uint8_t questions = input.byte() % 4;
    for (std::uint8_t i = 0; i < questions; ++i) askOne(asking, input);

    TargetMap found;
    if (asking.within(searchTime, [&] { return asking.find.search(found); })) {
        checkFound(found, setting);
    }
    return 0;
}
