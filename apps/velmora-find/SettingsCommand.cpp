// settings and set: what a target lets its user choose.
#include <algorithm>
#include <vector>

#include "apps/velmora-find/Commands.h"
#include "apps/velmora-find/ExitCode.h"
#include "apps/velmora-find/Printable.h"
#include "apps/velmora-find/SettingValue.h"
#include "apps/velmora-find/SettingsReading.h"
#include "apps/velmora-find/Table.h"
#include "apps/velmora-find/Target.h"
#include "wire/DiscoveryMessage.h"

namespace velmora_find {
namespace {

namespace wire = VELMORA::wire;
using VELMORA::SettingItem;
using VELMORA::SettingList;

Json asJson(std::size_t number, const SettingItem& item) {
    Json choices = Json::array();
    for (std::size_t i = 0; i < item.choices.size(); ++i) {
        choices.push_back({{"value", item.lower + static_cast<std::int32_t>(i)},
                           {"label", printable(item.choices[i])}});
    }
    return {{"number", number},
            {"label", printable(item.label)},
            {"kind", kindName(item.kind)},
            {"shown", valueText(item)},
            {"value", printable(item.value)},
            {"current", item.current},
            {"lower", item.lower},
            {"upper", item.upper},
            {"second", item.second},
            {"choices", choices}};
}

void print(std::ostream& out, const SettingList& items, bool json) {
    if (json) {
        Json rows = Json::array();
        for (const SettingItem& item : items) rows.push_back(asJson(rows.size() + 1, item));
        out << rows.dump(2) << '\n';
        return;
    }
    if (items.empty()) return;
    Table table({"NO", "LABEL", "VALUE", "KIND", "ALLOWED"});
    std::size_t number = 0;
    for (const SettingItem& item : items) {
        table.row({"#" + std::to_string(++number), printable(item.label), valueText(item),
                   kindName(item.kind), allowedText(item)});
    }
    table.print(out);
}

// The number of the item that is meant, from 1. Throws Stop.
std::uint16_t itemNamed(const SettingList& items, const std::string& label) {
    std::vector<std::size_t> meant;
    std::size_t number = 0;
    for (const SettingItem& item : items) {
        ++number;
        if (item.label == label || printable(item.label) == label) meant.push_back(number);
    }
    if (meant.empty() && label.starts_with('#')) {
        const auto typed = readNumber(std::string_view(label).substr(1));
        if (typed && *typed >= 1 && *typed <= items.size()) meant.push_back(*typed);
    }
    if (meant.size() == 1) return static_cast<std::uint16_t>(meant.front());
    if (meant.empty()) {
        std::string labels;
        for (const SettingItem& item : items) {
            labels += (labels.empty() ? "" : ", ") + ("\"" + printable(item.label) + "\"");
        }
        throw Stop{exitUsage,
                   "The target has no setting \"" + printable(label) + "\". " +
                       (items.empty() ? "It has none at all." : "It has " + labels + ".")};
    }
    std::string numbers;
    for (const std::size_t one : meant) {
        numbers += (numbers.empty() ? "#" : ", #") + std::to_string(one);
    }
    throw Stop{exitUsage, "More than one setting is labelled \"" + printable(label) +
                              "\"; say which by its number: " + numbers + "."};
}

const SettingItem& at(const SettingList& items, std::uint16_t number) {
    return *std::next(items.begin(), number - 1);
}

// Where the target did not accept what it was asked. No more is said than is known.
[[noreturn]] void giveUp(int result, const std::string& refused, const std::string& unknown) {
    if (result == VELMORA::ackRefused) throw Stop{exitTarget, refused};
    const std::string what = result == VELMORA::ackSocketFailed ? "The network socket failed: "
                             : result == VELMORA::ackEcho
                                 ? "The target sends questions back instead of answering them: "
                                 : "The target does not answer any more: ";
    throw Stop{codeOf(result), what + unknown + " \"velmora-find settings\" shows what it holds."};
}

// Both may be asked again when an answer is lost: the same value and the same commit change
// nothing.
void writeAndCommit(Asking& asking, const ZENNO::IPAddress& target, std::uint16_t number,
                    const SettingChange& change, bool keep, const std::string& name) {
    using Request = wire::ITEMVALUE_REQ;
    ZENNO::Bytes answer;
    const int written = asking.ask(target,
                                   Request{.itemNo = number,
                                           .mode = Request::modeWrite,
                                           .value = change.value,
                                           .text = change.text},
                                   answer);
    if (written != VELMORA::ackAccepted) {
        giveUp(written,
               "The target does not take this value for " + name +
                   ", so it was not asked to put it in force.",
               "whether it took the value for " + name +
                   " is not known; it was not asked to put it in force.");
    }
    const int committed = asking.ask(
        target, Request{.itemNo = 0, .mode = keep ? Request::modeWrite : Request::modeAlternative},
        answer);
    if (committed != VELMORA::ackAccepted) {
        giveUp(committed,
               "The target took the value for " + name + " but refused to put it in force" +
                   (keep ? ": it may not be able to keep settings; try without --keep."
                         : "; look with \"velmora-find settings\", and set it again."),
               "it took the value for " + name + ", but whether that is in force is not known.");
    }
}

// Read again where the value is another one: an answer that came late may have been taken for the
// one to this question.
SettingItem readBack(Asking& asking, const ZENNO::IPAddress& target, std::uint16_t number,
                     const SettingChange& change, const std::string& name) {
    SettingsRead read = readSettings(asking, target, /*alternative=*/false);
    if (number <= read.items.size() && !holds(at(read.items, number), change)) {
        read = readSettings(asking, target, /*alternative=*/false);
    }
    if (number <= read.items.size()) return at(read.items, number);
    throw Stop{read.isWhole ? exitTarget : codeOf(read.result),
               "The target took the value for " + name +
                   " and said that it is in force, but it cannot be read back. " +
                   (read.isWhole ? "The setting has gone." : read.why())};
}

}  // namespace

int settingsCommand(Context& context, const Options& options) {
    Asking asking(context, everybody(), options.interface);
    const ZENNO::IPAddress target = asking.target(options.address);
    const SettingsRead read = readSettings(asking, target, /*alternative=*/options.kept);
    print(context.out, read.items, options.json);
    if (!read.isWhole) throw Stop{codeOf(read.result), read.why()};
    if (read.items.empty()) context.talk << "The target has no settings.\n";
    return exitDone;
}

int setCommand(Context& context, const Options& options) {
    Asking asking(context, everybody(), options.interface);
    const ZENNO::IPAddress target = asking.target(options.address);
    const SettingsRead read = readSettings(asking, target, /*alternative=*/false);
    if (!read.isWhole) throw Stop{codeOf(read.result), read.why() + " Nothing was set."};
    const std::uint16_t number = itemNamed(read.items, options.label);
    const SettingItem& item = at(read.items, number);
    const std::string name = "\"" + printable(item.label) + "\"";
    const auto value = readValue(item, options.value, options.text);
    if (const auto* sentence = std::get_if<std::string>(&value)) throw Stop{exitUsage, *sentence};
    const SettingChange& change = std::get<SettingChange>(value);

    writeAndCommit(asking, target, number, change, options.keep, name);
    const SettingItem now = readBack(asking, target, number, change, name);
    if (options.json) {
        context.out << asJson(number, now).dump(2) << '\n';
    } else {
        context.out << printable(now.label) << " = " << valueText(now) << '\n';
    }
    if (!holds(now, change)) {
        throw Stop{exitTarget,
                   "The target holds another value for " + name + " than was asked for."};
    }
    context.talk << (options.keep ? "Kept, also when the target starts anew.\n"
                                  : "In force until the target starts anew; --keep keeps it.\n");
    return exitDone;
}

}  // namespace velmora_find
