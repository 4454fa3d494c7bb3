#include "apps/velmora-settings/model/Reading.h"

#include <variant>

#include "apps/velmora-settings/model/Address.h"
#include "apps/velmora-settings/model/SettingsText.h"

namespace velmora_settings {
namespace {

using ZENNO::InfFile;
using ZENNO::IPAddress;

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

std::string targetText(const IPAddress& address) {
    return address.isNone() ? std::string() : addressTextWithPort(address);
}

std::string listText(const std::list<IPAddress>& addresses) {
    std::string text;
    for (const IPAddress& address : addresses)
        text += (text.empty() ? "" : ";") + addressText(address);
    return text;
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

Reading readSettings(InfFile tree, std::int32_t cores) {
    tree.selectSection("global");
    return ::readSettings(tree,
                          [cores](std::int64_t cpuLow) { return cpuLow != 0 && cores <= cpuLow; });
}

Reading readSettings(std::string_view text, bool isLow) {
    InfFile tree;
    tree.parseText(withoutMark(text));
    return ::readSettings(tree, [isLow](std::int64_t) { return isLow; });
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
            return targetText(values.targetAddress);
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
