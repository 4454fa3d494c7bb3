// settings and set: what a target lets its user choose.
#include <algorithm>
#include <vector>

#include "apps/velmora-find/Commands.h"
#include "apps/velmora-find/ExitCode.h"
#include "apps/velmora-find/Printable.h"
#include "apps/velmora-find/SettingValue.h"
#include "apps/velmora-find/Table.h"
#include "apps/velmora-find/Target.h"

namespace velmora_find {
namespace {

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

std::string asOften(std::size_t count) {
    return count == 0 ? "Its list of settings cannot be read"
                      : "Its list of settings breaks off behind item " + std::to_string(count);
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

}  // namespace

int settingsCommand(Context& context, const Options& options) {
    Asking asking(context, everybody(), options.interface);
    const ZENNO::IPAddress target = asking.target(options.address);
    SettingList items;
    const bool whole = asking.find().getItems(target, items, /*alternative=*/options.kept);
    print(context.out, items, options.json);
    if (!whole) {
        throw Stop{exitTarget, asOften(items.size()) +
                                   ": an answer was missing, refused or for another item. Does "
                                   "the target have settings? Perhaps try again."};
    }
    if (items.empty()) context.talk << "The target has no settings.\n";
    return exitDone;
}

int setCommand(Context& context, const Options& options) {
    Asking asking(context, everybody(), options.interface);
    VELMORA::Find& find = asking.find();
    const ZENNO::IPAddress target = asking.target(options.address);
    SettingList items;
    if (!find.getItems(target, items, /*alternative=*/false)) {
        throw Stop{exitTarget, asOften(items.size()) + ", so nothing was set. Perhaps try again."};
    }
    const std::uint16_t number = itemNamed(items, options.label);
    const SettingItem& item = at(items, number);
    const std::string name = "\"" + printable(item.label) + "\"";
    const auto value = readValue(item, options.value, options.text);
    if (const auto* sentence = std::get_if<std::string>(&value)) throw Stop{exitUsage, *sentence};
    const SettingChange& change = std::get<SettingChange>(value);

    if (!find.setItem(target, number, change.text, change.value)) {
        throw Stop{exitTarget,
                   "The target does not take this value for " + name + "; it keeps what it had."};
    }
    if (!find.commitItems(target, options.keep)) {
        throw Stop{exitTarget, "The target took the value for " + name +
                                   " but did not put it in force; look with \"velmora-find "
                                   "settings\", and set it again."};
    }
    SettingList after;
    const bool read = find.getItems(target, after, /*alternative=*/false) && number <= after.size();
    if (!read) {
        throw Stop{exitTarget,
                   "The target took the value for " + name + ", but it cannot be read back."};
    }
    const SettingItem& now = at(after, number);
    if (options.json) {
        context.out << asJson(number, now).dump(2) << '\n';
    } else {
        context.out << printable(now.label) << " = " << valueText(now) << '\n';
    }
    if (!holds(now, change)) {
        throw Stop{exitTarget,
                   "The target took another value for " + name + " than was asked for."};
    }
    context.talk << (options.keep ? "Kept, also when the target starts anew.\n"
                                  : "In force until the target starts anew; --keep keeps it.\n");
    return exitDone;
}

}  // namespace velmora_find
