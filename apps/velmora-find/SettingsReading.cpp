#include "apps/velmora-find/SettingsReading.h"

#include <utility>

#include "wire/DiscoveryMessage.h"

namespace velmora_find {
namespace {

namespace wire = VELMORA::wire;
using VELMORA::ackAccepted;

// What comes to the questions behind item `last`, up to the first that is not accepted. The labels
// of choices are not asked for: they may be many.
int askBehind(Asking& asking, const ZENNO::IPAddress& target, std::size_t last, bool alternative) {
    ZENNO::Bytes answer;
    int result = asking.ask(target, wire::ITEM_REQ{}, answer);
    if (result != ackAccepted || last >= wire::readPacket(answer)->arg16(8)) return result;
    const auto no = static_cast<std::uint16_t>(last + 1);
    result = asking.ask(target, wire::ITEM_REQ{.itemNo = no}, answer);
    if (result != ackAccepted) return result;
    const auto mode =
        alternative ? wire::ITEMVALUE_REQ::modeAlternative : wire::ITEMVALUE_REQ::modeRead;
    return asking.ask(target, wire::ITEMVALUE_REQ{.itemNo = no, .mode = mode}, answer);
}

}  // namespace

std::string SettingsRead::why() const {
    const std::string where = items.empty() ? "Its list of settings cannot be read: "
                                            : "Its list of settings breaks off behind item " +
                                                  std::to_string(items.size()) + ": ";
    switch (result) {
        case VELMORA::ackSocketFailed:
            return where + "the network socket failed; --verbose tells more.";
        case VELMORA::ackSilent:
            return where +
                   "the target does not answer what it is asked. Does it have settings? "
                   "Perhaps try again.";
        case VELMORA::ackRefused:
            return where + "the target refuses to tell more.";
        case VELMORA::ackEcho:
            return where + "the target sends the question back instead of answering it.";
        default:
            return where + "an answer was missing, refused or for another item. Perhaps try again.";
    }
}

SettingsRead readSettings(Asking& asking, const ZENNO::IPAddress& target, bool alternative) {
    SettingsRead read;
    const VELMORA::TimeLimit limit(asking.environment().clock(), VELMORA::settingsLimit);
    for (int i = 0; i < mostTries && !limit.passed(); ++i) {
        VELMORA::SettingList items;
        read.isWhole = asking.find().getItems(target, items, alternative);
        const bool isLonger = items.size() > read.items.size();
        if (read.isWhole || isLonger) read.items = std::move(items);
        if (read.isWhole) break;
        read.result = askBehind(asking, target, read.items.size(), alternative);
        if (read.result != ackAccepted) break;
    }
    return read;
}

}  // namespace velmora_find
