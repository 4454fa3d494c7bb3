// The driver's settings: what the keys of a settings file become, and where the files lie.
//
// docs/settings.md is the user's side of this file; a test holds the two together.
#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "base/IPAddress.h"
#include "base/InfFile.h"

// Every value with the default that holds where no file says otherwise.
struct DriverSettings {
    bool dsdMsb = false;               // DSD: the host's oldest sample is the MSB
    std::int32_t pcmRequest = 32;      // bits asked for, choosing the format ladder
    bool pcmConvertS32 = false;        // the host writes 32-bit integers whatever the target gets
    std::uint32_t startDelay = 0;      // µs
    ZENNO::IPAddress targetAddress{};  // none: search
    std::uint16_t targetPO = 0;        // sink number at that address
    std::list<ZENNO::IPAddress> findIPList{};
    std::int32_t asioBufferSize = 0;  // frames, as the three below; 0: a range
    std::int32_t asioBufferSizeMin = 1;
    std::int32_t asioBufferSizeMax = 16384;
    std::int32_t asioBufferSizePre = 512;
    std::int32_t syncBufferCount = 6;          // blocks in the ring
    std::uint32_t cycleTime = 1000;            // µs
    std::uint32_t cycleMinTime = 0;            // µs
    std::uint32_t targetProfileLimitTime = 0;  // µs; not 0: the target's profile rules
    std::uint16_t fragment = 1;                // packets of a cycle; 0: as many as the target takes
    bool fragmentOptimize = false;
    std::uint32_t threadMode = 1;
    std::uint32_t infoCycle = 100000;  // µs
    bool flexCycle = false;
    bool fixAsio = false;
    bool randomCycle = false;
    bool bufferMulti = false;
    std::uint32_t interfaceIndex = 0;  // 0: all interfaces
    std::uint32_t latencyBuffer = 0;   // µs; 0: the target's choice
    bool phaseInvert = false;
    bool nopBreak = false;
};

// What the keys of a file come to.
struct SettingsReading {
    DriverSettings values;
    std::string debug;        // "enable", "debug", or empty: the log is left as it is
    std::int64_t cpuLow = 0;  // as it stands
    bool isLow = false;       // the keys behind CPULOW were read from the section LOW
    // "SyncBufferCount=1": what stands in the file and holds for nothing.
    std::vector<std::string> ignored;
    // "FindIP=fe80::1;x": what holds as far as it parses.
    std::vector<std::string> partly;
};

// One key, as it is read and as docs/settings.md tells it.
struct SettingsKey {
    enum class Kind {
        word,    // stored, as true, when the text is `word`
        number,  // stored when the number is one of `range`
        custom,  // stored by `take`
    };
    struct Range {
        std::int64_t least = INT64_MIN;
        bool zeroToo = true;
        constexpr bool has(std::int64_t v) const noexcept {
            return v >= least && (v != 0 || zeroToo);
        }
    };
    using Place =
        std::variant<std::monostate, bool DriverSettings::*, std::uint16_t DriverSettings::*,
                     std::uint32_t DriverSettings::*, std::int32_t DriverSettings::*>;

    std::string_view name;
    Kind kind;
    std::string_view values;   // what may stand behind the equals sign, in the guide's words
    std::string_view initial;  // the default, in the guide's words
    Place place{};             // for word and number
    std::string_view word{};
    Range range{};
    bool (*take)(SettingsReading&, const std::string& text) = nullptr;  // false: holds for nothing
};

// In the order of reading: a key may change what later ones mean.
std::span<const SettingsKey> settingsKeys() noexcept;

// Reads the tree's current section and, where `isSmall` says so of CPULOW's value (0 where there is
// none), the section LOW for the keys behind it. Opens no file, switches no log. No value is ever
// an error: what a key does not take leaves its default.
SettingsReading readSettings(ZENNO::InfFile tree,
                             const std::function<bool(std::int64_t cpuLow)>& isSmall);

// Which file holds the settings, and which program edits them.
struct SettingsFiles {
    std::string settingPath;
    std::string controlPanelPath;
};

// The user's own settings file. `roamingFolder` without a final backslash.
std::string userSettingPath(const std::string& roamingFolder, const std::string& product);
inline constexpr const char* factorySettingName = "setting_org.inf";

// Finds the settings file in use: the user's own, else the one that setting_path.inf names, else
// the factory's. A file of another Version than the factory's is replaced by it, whole: so a
// release brings its new keys. `driverFolder` ends in a backslash, `roamingFolder` does not.
SettingsFiles locateSettings(const std::string& driverFolder, const std::string& roamingFolder);

// The defaults, and over them the settings file and the debug.inf beside it; the key Debug opens
// the log on the way. False, with the defaults, when the settings file cannot be read.
bool loadSettings(const std::string& settingPath, DriverSettings& out,
                  const std::function<std::int32_t()>& physicalCoreCount);
