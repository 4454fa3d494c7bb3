#include "driver/Settings.h"

#include <limits>
#include <type_traits>
#include <utility>

#include "base/Log.h"
#include "base/LogLine.h"
#include "base/Number.h"
#include "base/Path.h"
#include "driver/Product.h"

using ZENNO::InfFile;
using ZENNO::IPAddress;
using ZENNO::LogLine;

namespace {

using Kind = SettingsKey::Kind;

bool takeDebug(SettingsReading& reading, const std::string& text) {
    if (text != "enable" && text != "debug") return false;
    reading.debug = text;
    return true;
}

bool takePcmRequest(SettingsReading& reading, const std::string& text) {
    DriverSettings& settings = reading.values;
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

bool takeTargetAddress(SettingsReading& reading, const std::string& text) {
    IPAddress& address = reading.values.targetAddress;
    if (address.parseV6WithPort(text)) return true;
    // A text that goes wrong behind its comma has already set the address.
    address = {};
    return false;
}

bool takeFindIP(SettingsReading& reading, const std::string& text) {
    const std::list<IPAddress>& taken = reading.values.findIPList;
    bool all = true;
    std::string_view rest = text;
    while (!rest.empty()) {
        const std::size_t end = rest.find(';');
        IPAddress address;
        if (address.parseV6(rest.substr(0, end))) {
            reading.values.findIPList.push_back(address);
        } else {
            all = false;
        }
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    }
    if (!all && !taken.empty()) reading.partly.push_back("FindIP=" + text);
    return !taken.empty();
}

bool takeCpuLow(SettingsReading& reading, const std::string& text) {
    reading.cpuLow = ZENNO::readInteger(text);
    return reading.cpuLow != 0;
}

bool takeFragment(SettingsReading& reading, const std::string& text) {
    DriverSettings& settings = reading.values;
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

bool takeFlexCycle(SettingsReading& reading, const std::string& text) {
    DriverSettings& settings = reading.values;
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

constexpr SettingsKey::Range any{};
constexpr SettingsKey::Range notZero{INT64_MIN, false};
constexpr SettingsKey::Range from(std::int64_t least) {
    return {least, true};
}

constexpr SettingsKey custom(std::string_view name, std::string_view values,
                             std::string_view initial,
                             bool (*take)(SettingsReading&, const std::string&)) {
    return {name, Kind::custom, values, initial, {}, {}, {}, take};
}
constexpr SettingsKey number(std::string_view name, SettingsKey::Place place,
                             std::string_view values, std::string_view initial,
                             SettingsKey::Range range) {
    return {name, Kind::number, values, initial, place, {}, range};
}
constexpr SettingsKey word(std::string_view name, SettingsKey::Place place, std::string_view text) {
    return {name, Kind::word, text, "off", place, text};
}

using S = DriverSettings;

constexpr SettingsKey keys[] = {
    custom("Debug", "enable, debug", "off", takeDebug), word("DSDMSB", &S::dsdMsb, "enable"),
    custom("PCMRequest", "CovertS32, or bits from 0", "32", takePcmRequest),
    number("StartDelay", &S::startDelay, "µs from 0", "0", from(0)),
    custom("TargetAddress", "address,port", "none", takeTargetAddress),
    number("TargetPO", &S::targetPO, "number from 0", "0", from(0)),
    custom("FindIP", "address;address", "none", takeFindIP),
    number("ASIOBufferSize", &S::asioBufferSize, "frames from 1", "0", from(1)),
    number("ASIOBufferSizeMin", &S::asioBufferSizeMin, "frames from 1", "1", from(1)),
    number("ASIOBufferSizeMax", &S::asioBufferSizeMax, "frames from 1", "16384", from(1)),
    number("ASIOBufferSizePre", &S::asioBufferSizePre, "frames from 1", "512", from(1)),
    number("SyncBufferCount", &S::syncBufferCount, "number from 2", "6", from(2)),
    custom("CPULOW", "cores, not 0", "0", takeCpuLow),
    // From here on a machine that CPULOW calls small reads the section LOW.
    number("CycleTime", &S::cycleTime, "µs, not 0", "1000", notZero),
    number("CycleMinTime", &S::cycleMinTime, "µs", "0", any),
    number("TargetProfileLimitTime", &S::targetProfileLimitTime, "µs from 101", "0", from(101)),
    custom("Fragment", "disable, enable, Optimize, or number from 0", "1", takeFragment),
    number("ThredMode", &S::threadMode, "sum of bits, from 0", "1", from(0)),
    number("InfoCycle", &S::infoCycle, "µs", "100000", any),
    custom("FlexCycle", "enable, fixAsio, random", "off", takeFlexCycle),
    word("ASIOBufferMulti", &S::bufferMulti, "enable"),
    number("Interface", &S::interfaceIndex, "number from 0", "0", from(0)),
    number("LatencyBuffer", &S::latencyBuffer, "µs from 0", "0", from(0)),
    word("Phase", &S::phaseInvert, "Invert"),
    word("NopBreak", &S::nopBreak, "Enable"),  // this capital letter, unlike the other switches
};

// Stores a word's or a number's value; false where its place does not hold it.
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
        // Unsigned values are cut to their width; a size or count that would turn negative is no
        // value of its key.
        if constexpr (std::is_signed_v<T>) {
            if (value > std::numeric_limits<T>::max() || value < std::numeric_limits<T>::min()) {
                return false;
            }
        }
        settings.*place = static_cast<T>(value);
        return true;
    }
};

bool take(const SettingsKey& key, SettingsReading& reading, const std::string& text) {
    switch (key.kind) {
        case Kind::word:
            return text == key.word && std::visit(Store{reading.values, 1}, key.place);
        case Kind::number: {
            const std::int64_t value = ZENNO::readInteger(text);
            return key.range.has(value) && std::visit(Store{reading.values, value}, key.place);
        }
        case Kind::custom:
            return key.take(reading, text);
    }
    return false;
}

}  // namespace

std::span<const SettingsKey> settingsKeys() noexcept {
    return keys;
}

SettingsReading readSettings(InfFile tree,
                             const std::function<bool(std::int64_t cpuLow)>& isSmall) {
    SettingsReading reading;
    for (const SettingsKey& key : keys) {
        const std::string text = tree.get(std::string(key.name));
        if (!text.empty() && !take(key, reading, text)) {
            reading.ignored.push_back(std::string(key.name) + "=" + text);
        }
        if (key.name != "CPULOW") continue;
        reading.isLow = isSmall(reading.cpuLow);
        if (reading.isLow) tree.selectSection("LOW");
    }
    return reading;
}

std::string userSettingPath(const std::string& roamingFolder, const std::string& product) {
    return roamingFolder + "\\" + product + "\\setting.inf";
}

SettingsFiles locateSettings(const std::string& driverFolder, const std::string& roamingFolder) {
    SettingsFiles files;
    files.settingPath = userSettingPath(roamingFolder, driverProductName);
    files.controlPanelPath = driverFolder;
    const std::string orgPath = driverFolder + factorySettingName;

    bool factoryInUse = false;
    if (!InfFile().load(files.settingPath)) {
        InfFile redirection;
        redirection.load(driverFolder + "setting_path.inf");
        const std::string elsewhere = redirection.get("SettingPath");
        factoryInUse = !InfFile().load(elsewhere);
        files.settingPath = factoryInUse ? orgPath : elsewhere;
    }

    InfFile factory;
    if (!factory.load(orgPath)) return files;
    files.controlPanelPath += factory.get("ASIOControlPanel");

    if (!factoryInUse) {
        InfFile inUse;
        inUse.load(files.settingPath);
        if (inUse.get("Version") != factory.get("Version")) {
            inUse = factory;
            inUse.save(files.settingPath);
        }
    }
    return files;
}

bool loadSettings(const std::string& settingPath, DriverSettings& out,
                  const std::function<std::int32_t()>& physicalCoreCount) {
    out = DriverSettings();
    InfFile tree;
    if (!tree.load(settingPath)) return false;
    LogLine(7) << "load : " << settingPath;

    std::string debugPath = settingPath;
    // A path without a folder has no neighbours.
    const bool hasFolder = ZENNO::folderOf(debugPath);
    debugPath += "debug.inf";
    const bool debugRead = hasFolder && tree.load(debugPath);

    std::int32_t cores = 0;
    SettingsReading reading = readSettings(tree, [&](std::int64_t cpuLow) {
        if (cpuLow == 0) return false;
        cores = physicalCoreCount();
        return cores <= cpuLow;
    });
    out = std::move(reading.values);

    // From here on the log may be open.
    if (reading.debug == "enable") ZENNO::setLogLevel(6);
    if (reading.debug == "debug") ZENNO::setLogLevel(7);
    LogLine(6) << "LoadInf : " << settingPath;
    if (debugRead) LogLine(6) << "load debug: " << debugPath;
    if (reading.isLow) LogLine(6) << "Change Low Profile : " << cores;
    return true;
}
