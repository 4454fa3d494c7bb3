// A target's own settings, its texts and its value. Each step is one exchange, without a retry.
#include <utility>

#include "find/Find.h"
#include "wire/DiscoveryMessage.h"

namespace VELMORA {
namespace {

using ZENNO::Bytes;
using ZENNO::IPAddress;

// What a type of item on the wire becomes.
struct ItemType {
    enum class Bounds { none, zeroToOne, told };
    std::uint16_t word;
    SettingKind kind;
    Bounds bounds;
    bool isSigned = false;
};
constexpr ItemType itemTypes[] = {
    {1, settingNumber, ItemType::Bounds::told},
    {2, settingNumber, ItemType::Bounds::told, /*isSigned=*/true},
    {3, settingSwitch, ItemType::Bounds::zeroToOne},
    {4, settingText, ItemType::Bounds::none},
    {5, settingChoice, ItemType::Bounds::told},
    {6, settingChoiceText, ItemType::Bounds::told},
};
constexpr ItemType unknownType{0, settingUnknown, ItemType::Bounds::none};

const ItemType& itemType(std::uint16_t word) {
    for (const ItemType& type : itemTypes) {
        if (type.word == word) return type;
    }
    return unknownType;
}

std::int32_t numberOf(std::uint16_t word, bool isSigned) {
    return isSigned ? static_cast<std::int16_t>(word) : std::int32_t{word};
}

bool hasValueText(std::int32_t kind) {
    return kind == settingText || kind == settingChoiceText;
}
bool hasChoices(std::int32_t kind) {
    return kind == settingSwitch || kind == settingChoice || kind == settingChoiceText;
}

constexpr const char* switchLabels[] = {"disable", "enable"};  // where a target names none

}  // namespace

bool Find::getItems(const IPAddress& target, SettingList& out, bool alternative) {
    out.clear();
    Bytes answer;
    if (ask(target, wire::ITEM_REQ{}, answer) != ackAccepted) return false;
    const std::uint16_t count = wire::readPacket(answer)->arg16(8);
    const TimeLimit limit(environment_.clock(), settingsLimit);
    std::size_t choices = 0;
    for (std::uint32_t no = 1; no <= count; ++no) {
        if (limit.passed()) return false;
        SettingItem item;
        if (!readItem(target, static_cast<std::uint16_t>(no), alternative, item)) return false;
        if (!readChoices(target, static_cast<std::uint16_t>(no), limit, choices, item)) {
            return false;
        }
        out.push_back(std::move(item));
    }
    return true;
}

// All of an item but its choices.
bool Find::readItem(const IPAddress& target, std::uint16_t no, bool alternative,
                    SettingItem& item) {
    Bytes answer;
    if (ask(target, wire::ITEM_REQ{.itemNo = no}, answer) != ackAccepted) return false;
    const auto told = *wire::read<wire::ITEM_ANS>(*wire::readPacket(answer));
    if (told.itemNo != no) return false;
    const ItemType& type = itemType(told.type);
    item.kind = type.kind;
    item.label = told.label;
    if (type.bounds == ItemType::Bounds::told) {
        item.lower = numberOf(told.lower, type.isSigned);
        item.upper = numberOf(told.upper, type.isSigned);
    } else if (type.bounds == ItemType::Bounds::zeroToOne) {
        item.upper = 1;
    }

    using Request = wire::ITEMVALUE_REQ;
    // A choice with text has no other value beside the current one.
    const bool readAlternative = alternative && item.kind != settingChoiceText;
    const std::uint16_t mode = readAlternative ? Request::modeAlternative : Request::modeRead;
    if (ask(target, Request{.itemNo = no, .mode = mode}, answer) != ackAccepted) return false;
    const auto value = *wire::read<wire::ITEMVALUE_ANS>(*wire::readPacket(answer));
    if (value.itemNo != no) return false;
    if (hasValueText(item.kind)) item.value = value.text;
    item.current = numberOf(value.current, type.isSigned);
    item.second = numberOf(value.second, type.isSigned);
    return true;
}

bool Find::readChoices(const IPAddress& target, std::uint16_t no, const TimeLimit& limit,
                       std::size_t& choices, SettingItem& item) {
    if (!hasChoices(item.kind)) return true;
    for (std::int32_t v = item.lower; v <= item.upper; ++v) {
        if (choices++ == mostChoices || limit.passed()) return false;
        using Request = wire::ITEMVALUE_REQ;
        const Request request{
            .itemNo = no, .mode = Request::modeLabel, .value = static_cast<std::uint16_t>(v)};
        Bytes answer;
        if (ask(target, request, answer) != ackAccepted) return false;
        auto told = *wire::read<wire::ITEMVALUE_ANS>(*wire::readPacket(answer));
        if (told.itemNo != no) return false;
        if (item.kind == settingSwitch && told.text.empty()) told.text = switchLabels[v];
        item.choices.push_back(std::move(told.text));
    }
    if (item.kind == settingChoiceText && item.value.empty()) {
        const auto index = static_cast<std::uint32_t>(item.second);
        item.value = index < item.choices.size() ? item.choices[index] : "unknown";
    }
    return true;
}

bool Find::setItem(const IPAddress& target, std::uint16_t no, const std::string& text,
                   std::uint16_t value) {
    const wire::ITEMVALUE_REQ request{
        .itemNo = no, .mode = wire::ITEMVALUE_REQ::modeWrite, .value = value, .text = text};
    Bytes answer;
    return ask(target, request, answer) == ackAccepted;
}

bool Find::setItem(const IPAddress& target, std::uint16_t no, const std::string& text) {
    return setItem(target, no, text, 0);
}

bool Find::setItem(const IPAddress& target, std::uint16_t no, std::uint16_t value) {
    return setItem(target, no, std::string(), value);
}

bool Find::commitItems(const IPAddress& target, bool keep) {
    using Request = wire::ITEMVALUE_REQ;
    const std::uint16_t mode = keep ? Request::modeWrite : Request::modeAlternative;
    Bytes answer;
    return ask(target, Request{.itemNo = 0, .mode = mode}, answer) == ackAccepted;
}

template <class Request>
bool Find::readText(const IPAddress& target, const Request& request, std::string& out) {
    out.clear();
    Bytes answer;
    if (ask(target, request, answer) != ackAccepted) return false;
    out = wire::readPacket(answer)->text();
    return true;
}

bool Find::readInfoA(const IPAddress& target, std::string& out) {
    return readText(target, wire::INFOA_REQ{}, out);
}

bool Find::readInfoB(const IPAddress& target, std::string& out) {
    return readText(target, wire::INFOB_REQ{}, out);
}

bool Find::readInfoIndexed(const IPAddress& target, std::uint16_t index, std::string& out) {
    return readText(target, wire::INFOINDEX_REQ{.index = index}, out);
}

bool Find::writeValue(const IPAddress& target, bool on, std::uint16_t value) {
    const wire::VALUE_REQ request{.value = on ? value : std::uint16_t{0}};
    Bytes answer;
    return ask(target, request, answer) == ackAccepted &&
           wire::readPacket(answer)->arg16(8) == request.value;
}

}  // namespace VELMORA
