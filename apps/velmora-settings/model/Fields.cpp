#include "apps/velmora-settings/model/Fields.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <limits>
#include <type_traits>
#include <variant>
#include <vector>

#include "apps/velmora-settings/model/SettingsText.h"
#include "base/IPAddress.h"
#include "base/Number.h"
#include "driver/Settings.h"

namespace velmora_settings {
namespace {

using Kind = Field::Kind;

constexpr std::string_view debugWords[] = {"enable", "debug"};
constexpr std::string_view enableWord[] = {"enable"};
constexpr std::string_view invertWord[] = {"Invert"};
constexpr std::string_view breakWord[] = {"Enable"};
constexpr std::string_view pcmWords[] = {"CovertS32"};
constexpr std::string_view fragmentWords[] = {"disable", "enable", "Optimize"};
constexpr std::string_view flexWords[] = {"enable", "fixAsio", "random"};

constexpr std::int64_t most16 = std::numeric_limits<std::uint16_t>::max();
constexpr std::int64_t most31 = std::numeric_limits<std::int32_t>::max();

struct Words {
    FieldId id;
    Kind kind;
    std::string_view label, unit, off;
    std::span<const std::string_view> words{};
    std::int64_t most = 0;  // of numbers whose key has no plain place in the driver's table
};

constexpr Words wording[] = {
    {FieldId::debug, Kind::choice, "Log", "", "off", debugWords},
    {FieldId::dsdMsb, Kind::toggle, "DSD, highest bit first", "", "off", enableWord},
    {FieldId::pcmRequest, Kind::wordOrNumber, "Bit depth", "bits", "", pcmWords, most31},
    {FieldId::startDelay, Kind::number, "Wait after the start", "µs", ""},
    {FieldId::targetAddress, Kind::address, "Target's address", "", "search", {}},
    {FieldId::targetPO, Kind::number, "Sink of that target", "", ""},
    {FieldId::findIP, Kind::addresses, "Further addresses to ask", "", "none", {}},
    {FieldId::bufferSize, Kind::numberOrOff, "Fixed buffer size", "frames", "the software chooses"},
    {FieldId::bufferSizeMin, Kind::number, "Smallest buffer", "frames", ""},
    {FieldId::bufferSizeMax, Kind::number, "Largest buffer", "frames", ""},
    {FieldId::bufferSizePre, Kind::number, "Recommended buffer", "frames", ""},
    {FieldId::syncBufferCount, Kind::number, "Ring depth", "buffers", ""},
    {FieldId::cpuLow, Kind::numberOrOff, "Small machine", "cores", "none is", {}, most31},
    {FieldId::cycleTime, Kind::number, "Cycle time", "µs", ""},
    {FieldId::cycleMinTime, Kind::number, "Shortest cycle", "µs", ""},
    {FieldId::profileLimit, Kind::numberOrOff, "Not more often than every", "µs",
     "the target is not asked"},
    {FieldId::fragment, Kind::wordOrNumber, "Packets of a cycle", "packets", "", fragmentWords,
     most16},
    {FieldId::threadMode, Kind::number, "Sending thread", "", ""},
    {FieldId::infoCycle, Kind::number, "Ask the target every", "µs", ""},
    {FieldId::flexCycle, Kind::choice, "What follows the target's clock", "", "bytes", flexWords},
    {FieldId::bufferMulti, Kind::toggle, "More buffers at higher rates", "", "off", enableWord},
    {FieldId::networkInterface, Kind::number, "Network interface", "", ""},
    {FieldId::latencyBuffer, Kind::number, "Target's own buffer", "µs", ""},
    {FieldId::phase, Kind::toggle, "Invert the polarity", "", "off", invertWord},
    {FieldId::nopBreak, Kind::toggle, "Message ahead of every question", "", "off", breakWord},
};
static_assert(std::size(wording) == fieldCount);

// The largest number that the key's place in the driver holds as it is.
struct MostOf {
    std::int64_t operator()(std::monostate) const { return 0; }
    template <class T>
    std::int64_t operator()(T DriverSettings::*) const {
        if constexpr (std::is_same_v<T, bool>) {
            return 0;
        } else {
            return static_cast<std::int64_t>(std::numeric_limits<T>::max());
        }
    }
};

std::array<Field, fieldCount> makeFields() {
    std::array<Field, fieldCount> made;
    const auto keys = settingsKeys();
    if (keys.size() != fieldCount) std::abort();  // the two tables walk side by side
    bool low = false;
    for (std::size_t i = 0; i < fieldCount; ++i) {
        const Words& words = wording[i];
        if (static_cast<std::size_t>(words.id) != i) std::abort();
        Field& field = made[i];
        field = {words.id, keys[i].name, words.kind,  words.label, words.unit, 0,
                 0,        words.off,    words.words, low};
        if (keys[i].kind == SettingsKey::Kind::number) {
            field.least = std::max<std::int64_t>(keys[i].range.least, 0);
            if (field.least == 0 && !keys[i].range.zeroToo) field.least = 1;
            field.most = std::visit(MostOf{}, keys[i].place);
        } else {
            field.most = words.most;
        }
        if (words.id == FieldId::cpuLow) {
            field.least = 1;
            low = true;
        }
    }
    return made;
}

bool isWord(const Field& field, std::string_view text) {
    return std::find(field.words.begin(), field.words.end(), text) != field.words.end();
}

bool isNumber(std::string_view text) {
    constexpr std::size_t longest = 18;  // digits; no 64 bits are left
    return !text.empty() && text.size() <= longest &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool takesNumber(const Field& field, std::string_view text) {
    if (!isNumber(text)) return false;
    const std::int64_t number = ZENNO::readInteger(text);
    if (field.kind == Kind::numberOrOff && number == 0) return true;
    return number >= field.least && number <= field.most;
}

std::string named(const Field& field, std::string_view says) {
    return "\"" + std::string(field.label) + "\" " + std::string(says);
}

std::string wordsText(const Field& field) {
    std::string text;
    for (const std::string_view word : field.words) {
        text += (text.empty() ? "" : ", ") + std::string(word);
    }
    return text;
}

std::string addressRefusal(const Field& field, std::string_view text) {
    ZENNO::IPAddress address;
    if (text.find('%') != std::string_view::npos) {
        return named(field, "takes an address without a zone: leave out the % and what follows.");
    }
    const std::string_view port = text.substr(std::min(text.find(','), text.size()));
    const bool isPort = isNumber(port.substr(std::min<std::size_t>(1, port.size()))) &&
                        ZENNO::readInteger(port.substr(1)) <= most16;
    if (!isPort || !address.parseV6WithPort(text)) {
        return named(field, "takes an IPv6 address, a comma and a port, as fe80::1,19642.");
    }
    if (address.isZeroAddress()) return named(field, "takes the address of a target, not ::.");
    return {};
}

std::string addressesRefusal(const Field& field, std::string_view text) {
    for (std::string_view rest = text;;) {
        const std::size_t end = rest.find(';');
        ZENNO::IPAddress address;
        if (rest.substr(0, end).empty() || !address.parseV6(rest.substr(0, end))) {
            return named(field,
                         "takes IPv6 addresses with a semicolon between them, as "
                         "fe80::1;fe80::2, without ports, zones and blanks.");
        }
        if (end == std::string_view::npos) return {};
        rest.remove_prefix(end + 1);
    }
}

std::string numberRefusal(const Field& field, std::string_view text) {
    if (takesNumber(field, text)) return {};
    return named(field, "takes " + rangeText(field) + ".");
}

}  // namespace

std::span<const Field> fields() {
    static const std::array<Field, fieldCount> made = makeFields();
    return made;
}

const Field& fieldOf(FieldId id) {
    return fields()[static_cast<std::size_t>(id)];
}

std::string rangeText(const Field& field) {
    const std::string unit = field.unit.empty() ? "" : " " + std::string(field.unit);
    const std::string numbers =
        std::to_string(field.least) + " to " + std::to_string(field.most) + unit;
    switch (field.kind) {
        case Kind::toggle:
        case Kind::choice:
            return wordsText(field) + ", or " + std::string(field.off);
        case Kind::number:
            return numbers;
        case Kind::numberOrOff:
            return numbers + "; 0: " + std::string(field.off);
        case Kind::wordOrNumber:
            return wordsText(field) + ", or " + numbers;
        case Kind::address:
            return "an IPv6 address, a comma and a port";
        case Kind::addresses:
            return "IPv6 addresses with a semicolon between them";
    }
    return {};
}

std::string refusal(FieldId id, std::string_view text) {
    const Field& field = fieldOf(id);
    if (hasControlCharacters(text) || text.find_first_of("\r\n") != std::string_view::npos) {
        return named(field, "takes one line without tabs: the driver refuses a file with one.");
    }
    switch (field.kind) {
        case Kind::toggle:
        case Kind::choice:
            if (text.empty() || isWord(field, text)) return {};
            return named(field, "takes " + rangeText(field) + ".");
        case Kind::wordOrNumber:
            if (isWord(field, text)) return {};
            return numberRefusal(field, text);
        case Kind::number:
        case Kind::numberOrOff:
            return numberRefusal(field, text);
        case Kind::address:
            return text.empty() ? std::string() : addressRefusal(field, text);
        case Kind::addresses:
            return text.empty() ? std::string() : addressesRefusal(field, text);
    }
    return {};
}

std::string fileValue(FieldId id, std::string_view text) {
    const bool isOff =
        fieldOf(id).kind == Kind::numberOrOff && isNumber(text) && ZENNO::readInteger(text) == 0;
    return isOff ? std::string() : std::string(text);
}

}  // namespace velmora_settings
