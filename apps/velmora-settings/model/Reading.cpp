#include "apps/velmora-settings/model/Reading.h"

#include <limits>
#include <optional>
#include <type_traits>
#include <variant>

#include "base/Number.h"

namespace velmora_settings {
namespace {

using ZENNO::InfFile;
using ZENNO::IPAddress;

// Stores what a word or a number of the driver's table gives; false where it holds for nothing.
struct Store {
    DriverSettings& settings;
    std::int64_t value;

    bool operator()(std::monostate) const { return false; }
    bool operator()(bool DriverSettings::*place) const {
        settings.*place = true;
        return true;
    }
    template <class T>
    bool operator()(T DriverSettings::*place) const {
        if constexpr (std::is_signed_v<T>) {
            if (value > std::numeric_limits<T>::max() || value < std::numeric_limits<T>::min()) {
                return false;
            }
        }
        settings.*place = static_cast<T>(value);
        return true;
    }
};

bool takePcmRequest(DriverSettings& settings, const std::string& text) {
    if (text == "CovertS32") {
        settings.pcmRequest = 32;
        settings.pcmConvertS32 = true;
        return true;
    }
    const std::int64_t bits = ZENNO::readInteger(text);
    if (bits < 0 || bits > INT32_MAX) return false;
    settings.pcmRequest = static_cast<std::int32_t>(bits);
    return true;
}

bool takeTargetAddress(DriverSettings& settings, const std::string& text) {
    if (settings.targetAddress.parseV6WithPort(text)) return true;
    settings.targetAddress = {};
    return false;
}

bool takeFindIP(DriverSettings& settings, std::string_view text) {
    bool all = true;
    while (!text.empty()) {
        const std::size_t end = text.find(';');
        IPAddress address;
        if (address.parseV6(text.substr(0, end))) {
            settings.findIPList.push_back(address);
        } else {
            all = false;
        }
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    }
    return all;
}

bool takeFragment(DriverSettings& settings, const std::string& text) {
    if (text == "disable") {
        settings.fragment = 1;
    } else if (text == "enable") {
        settings.fragment = 0;
    } else if (text == "Optimize") {
        settings.fragmentOptimize = true;
    } else if (const std::int64_t packets = ZENNO::readInteger(text); packets >= 0) {
        settings.fragment = static_cast<std::uint16_t>(packets);
    } else {
        return false;
    }
    return true;
}

bool takeFlexCycle(DriverSettings& settings, const std::string& text) {
    if (text == "enable") {
        settings.flexCycle = true;
    } else if (text == "fixAsio") {
        settings.fixAsio = true;
    } else if (text == "random") {
        settings.flexCycle = true;
        settings.randomCycle = true;
        settings.fragmentOptimize = false;
    } else {
        return false;
    }
    return true;
}

bool takeCustom(Reading& reading, FieldId id, const std::string& text, std::int32_t cores) {
    switch (id) {
        case FieldId::debug:
            if (text != "enable" && text != "debug") return false;
            reading.debug = text;
            return true;
        case FieldId::pcmRequest:
            return takePcmRequest(reading.values, text);
        case FieldId::targetAddress:
            return takeTargetAddress(reading.values, text);
        case FieldId::findIP:
            return takeFindIP(reading.values, text);
        case FieldId::cpuLow:
            reading.cpuLow = ZENNO::readInteger(text);
            reading.isLow = reading.cpuLow != 0 && cores <= reading.cpuLow;
            return reading.cpuLow != 0;
        case FieldId::fragment:
            return takeFragment(reading.values, text);
        case FieldId::flexCycle:
            return takeFlexCycle(reading.values, text);
        default:
            return false;
    }
}

bool takeKey(Reading& reading, const SettingsKey& key, FieldId id, const std::string& text,
             std::int32_t cores) {
    switch (key.kind) {
        case SettingsKey::Kind::word:
            return text == key.word && std::visit(Store{reading.values, 1}, key.place);
        case SettingsKey::Kind::number: {
            const std::int64_t value = ZENNO::readInteger(text);
            return key.range.has(value) && std::visit(Store{reading.values, value}, key.place);
        }
        case SettingsKey::Kind::custom:
            return takeCustom(reading, id, text, cores);
    }
    return false;
}

std::string wordIf(bool isSet, FieldId id) {
    return isSet ? std::string(fieldOf(id).words[0]) : std::string();
}

std::string fragmentText(const DriverSettings& settings) {
    if (settings.fragmentOptimize) return "Optimize";
    if (settings.fragment == 0) return "enable";
    return settings.fragment == 1 ? "disable" : std::to_string(settings.fragment);
}

std::string flexText(const DriverSettings& settings) {
    if (settings.fixAsio) return "fixAsio";
    if (settings.randomCycle) return "random";
    return settings.flexCycle ? "enable" : "";
}

std::string addressText(const IPAddress& address) {
    std::string text;
    if (!address.isNone()) address.toTextWithPort(text);
    return text;
}

std::string listText(const std::list<IPAddress>& addresses) {
    std::string text;
    for (const IPAddress& address : addresses) text += (text.empty() ? "" : ";") + address.text();
    return text;
}

Reading read(InfFile tree, std::int32_t cores, std::optional<bool> isLow) {
    tree.selectSection("global");
    Reading reading;
    const auto keys = settingsKeys();
    for (std::size_t i = 0; i < keys.size(); ++i) {
        const FieldId id = static_cast<FieldId>(i);
        const std::string text = tree.get(std::string(keys[i].name));
        if (!text.empty() && !takeKey(reading, keys[i], id, text, cores)) {
            reading.ignored.push_back(std::string(keys[i].name) + "=" + text);
        }
        if (id != FieldId::cpuLow) continue;
        reading.isLow = isLow.value_or(reading.isLow);
        if (reading.isLow) tree.selectSection("LOW");
    }
    return reading;
}

struct NumberText {
    const DriverSettings& settings;
    std::string operator()(std::monostate) const { return {}; }
    std::string operator()(bool DriverSettings::*) const { return {}; }
    template <class T>
    std::string operator()(T DriverSettings::*place) const {
        return std::to_string(settings.*place);
    }
};

}  // namespace

Reading readSettings(const InfFile& tree, std::int32_t cores) {
    return read(tree, cores, std::nullopt);
}

Reading readSettings(std::string_view text, bool isLow) {
    constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";
    if (text.starts_with(byteOrderMark)) text.remove_prefix(byteOrderMark.size());
    InfFile tree;
    tree.parseText(text);
    return read(tree, 0, isLow);
}

std::string fieldText(FieldId id, const Reading& reading) {
    const DriverSettings& values = reading.values;
    switch (id) {
        case FieldId::debug:
            return reading.debug;
        case FieldId::dsdMsb:
            return wordIf(values.dsdMsb, id);
        case FieldId::bufferMulti:
            return wordIf(values.bufferMulti, id);
        case FieldId::phase:
            return wordIf(values.phaseInvert, id);
        case FieldId::nopBreak:
            return wordIf(values.nopBreak, id);
        case FieldId::pcmRequest:
            return values.pcmConvertS32 ? "CovertS32" : std::to_string(values.pcmRequest);
        case FieldId::targetAddress:
            return addressText(values.targetAddress);
        case FieldId::findIP:
            return listText(values.findIPList);
        case FieldId::cpuLow:
            return std::to_string(reading.cpuLow);
        case FieldId::fragment:
            return fragmentText(values);
        case FieldId::flexCycle:
            return flexText(values);
        default:
            return std::visit(NumberText{values},
                              settingsKeys()[static_cast<std::size_t>(id)].place);
    }
}

std::vector<Contradiction> contradictions(const DriverSettings& settings) {
    std::vector<Contradiction> found;
    if (!settings.targetAddress.isNone() && settings.targetPO == 0) {
        found.push_back({FieldId::targetAddress, FieldId::targetPO,
                         "A target has no sink 0: \"Sink of that target\" counts from 1."});
    }
    if (settings.asioBufferSize == 0 && settings.asioBufferSizeMin > settings.asioBufferSizePre) {
        found.push_back({FieldId::bufferSizeMin, FieldId::bufferSizePre,
                         "The recommended buffer is smaller than the smallest one."});
    }
    if (settings.asioBufferSize == 0 && settings.asioBufferSizePre > settings.asioBufferSizeMax) {
        found.push_back({FieldId::bufferSizeMax, FieldId::bufferSizePre,
                         "The recommended buffer is larger than the largest one."});
    }
    const bool isRandom =
        settings.randomCycle && !settings.fixAsio && settings.targetProfileLimitTime == 0;
    if (isRandom && (settings.cycleMinTime == 0 || settings.cycleMinTime >= settings.cycleTime)) {
        found.push_back({FieldId::cycleMinTime, FieldId::flexCycle,
                         "Cycles drawn at random need a shortest cycle from 1 µs on that is "
                         "below the cycle time; nothing plays without."});
    }
    return found;
}

}  // namespace velmora_settings
