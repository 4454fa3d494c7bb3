// The settings as a person meets them: a name, a unit, what may be entered, and what stands in the
// file for it. Which numbers hold comes from the driver's own table of keys.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace velmora_settings {

// In the order of the driver's table, which is the order of reading.
enum class FieldId {
    debug,
    dsdMsb,
    pcmRequest,
    startDelay,
    targetAddress,
    targetPO,
    findIP,
    bufferSize,
    bufferSizeMin,
    bufferSizeMax,
    bufferSizePre,
    syncBufferCount,
    cpuLow,
    cycleTime,
    cycleMinTime,
    profileLimit,
    fragment,
    threadMode,
    infoCycle,
    flexCycle,
    bufferMulti,
    networkInterface,
    latencyBuffer,
    phase,
    nopBreak,
};
inline constexpr std::size_t fieldCount = 25;

struct Field {
    enum class Kind {
        toggle,       // its one word, or nothing
        choice,       // one of its words, or nothing
        number,       // a number from least to most
        numberOrOff,  // the same, and 0 for none
        wordOrNumber,
        address,    // address,port
        addresses,  // address;address
    };
    FieldId id{};
    std::string_view key;
    Kind kind{};
    std::string_view label;
    std::string_view unit;  // empty where there is none
    std::int64_t least = 0, most = 0;
    std::string_view off{};  // what 0 or nothing means, where that is no value of the key
    std::span<const std::string_view> words{};
    bool followsLow = false;  // read from the section LOW on a machine that CPULOW calls small
};

std::span<const Field> fields();
const Field& fieldOf(FieldId id);

// "1 to 65535 µs; 0: none": what a control says of itself.
std::string rangeText(const Field& field);

// Why the driver would not take `text`, or would take another value for it: one sentence, or
// nothing. The text is what Document::text gives: a number in decimal, a word, an address.
std::string refusal(FieldId id, std::string_view text);

// What stands behind the equals sign for it; empty: the key is taken out, and its default holds.
std::string fileValue(FieldId id, std::string_view text);

}  // namespace velmora_settings
