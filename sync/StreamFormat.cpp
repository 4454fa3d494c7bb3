#include "sync/StreamFormat.h"

#include "base/LogLine.h"

namespace VELMORA {
namespace {

// How a DSD word that the target does not take as it stands gets there. The host's bit order is
// kept if the target has it at all, and then only the order of the bytes turns. A change of bit
// order is the fallback; the word order that leaves the bytes in their places is preferred there
// ("straight"). The texts are read by people who know them as they are.
struct Road {
    bool hostLsb, hostLittle;
    bool sameOrder;
    bool straight;
    const char* text;
    std::uint64_t target;  // bits 8..31
    CopyStream conversion;
};

constexpr bool yes = true, no = false;

constexpr Road roads[] = {
    // clang-format off
    {yes, yes, yes, no,  "DSD COVERT LSB littele -> LSB Big",     SinkConfig::dsdLsbBig,    convertSwap},
    {yes, no,  yes, no,  "DSD COVERT LSB Big -> LSB littele",     SinkConfig::dsdLsbLittle, convertSwap},
    {yes, yes, no,  yes, "DSD COVERT LSB littele -> MSB Big",     SinkConfig::dsdMsbBig,    convertReverseBytes},
    {yes, yes, no,  no,  "DSD COVERT LSB littele -> MSB littele", SinkConfig::dsdMsbLittle, convertReverse32},
    {yes, no,  no,  yes, "DSD COVERT LSB Big -> MSB littele",     SinkConfig::dsdMsbLittle, convertReverseBytes},
    {yes, no,  no,  no,  "DSD COVERT LSB Big -> MSB Big",         SinkConfig::dsdMsbBig,    convertReverse32},
    {no,  yes, yes, no,  "DSD COVERT MSB littele -> MSB Big",     SinkConfig::dsdMsbBig,    convertSwap},
    {no,  no,  yes, no,  "DSD COVERT MSB Big -> MSB littele",     SinkConfig::dsdMsbLittle, convertSwap},
    {no,  yes, no,  yes, "DSD COVERT MSB littele -> LSB Big",     SinkConfig::dsdLsbBig,    convertReverseBytes},
    {no,  yes, no,  no,  "DSD COVERT MSB littele -> LSB littele", SinkConfig::dsdLsbLittle, convertReverse32},
    {no,  no,  no,  yes, "DSD COVERT MSB Big -> LSB littele",     SinkConfig::dsdLsbLittle, convertReverseBytes},
    {no,  no,  no,  no,  "DSD COVERT MSB Big -> LSB Big",         SinkConfig::dsdLsbBig,    convertReverse32},
    // clang-format on
};

constexpr std::uint64_t bits8To31 = 0xffffff00;

const Road* findRoad(SinkConfig format, const SupportMasks& target) noexcept {
    const bool hostLsb = format.has(SinkConfig::dsdLsb);
    const bool hostLittle = format.has(SinkConfig::dsdLittle);
    const std::uint64_t own = hostLsb ? target.dsdLsb : target.dsdMsb;
    const std::uint64_t other = hostLsb ? target.dsdMsb : target.dsdLsb;
    // In a mask this bit says that the target takes 32-bit words in that bit order.
    const bool sameOrder = (own & SinkConfig::dsdClass) != 0;
    if (!sameOrder && (other & SinkConfig::dsdClass) == 0) return nullptr;
    const bool straight =
        !sameOrder && (other & (hostLittle ? SinkConfig::dsdBig : SinkConfig::dsdLittle)) != 0;
    for (const Road& road : roads) {
        if (road.hostLsb == hostLsb && road.hostLittle == hostLittle &&
            road.sameOrder == sameOrder && road.straight == straight) {
            return &road;
        }
    }
    return nullptr;
}

}  // namespace

bool SupportMasks::isSupported(SinkConfig format) const noexcept {
    const auto allIn = [format](std::uint64_t mask) { return (format.word & ~mask) == 0; };
    if (format.isPcm()) return allIn(pcm);
    if (!format.isDsd()) return false;
    if (format.has(SinkConfig::dsdLsb)) return allIn(dsdLsb);
    if (format.has(SinkConfig::dsdMsb)) return allIn(dsdMsb);
    return allIn(dsdLsb | dsdMsb);
}

std::optional<StreamFormat> chooseStreamFormat(SinkConfig format, const SupportMasks& target) {
    if (target.isSupported(format)) return StreamFormat{format, format, convertCopy};

    const std::uint64_t sample = format.word & SinkConfig::formatMask;
    if (sample != SinkConfig::dsd1 && sample != SinkConfig::dsd4) return std::nullopt;
    if (((target.dsdLsb | target.dsdMsb) & SinkConfig::dsd1) == 0) return std::nullopt;
    if ((format.word & SinkConfig::dsdClassMask) != SinkConfig::dsdClass) return std::nullopt;

    const Road* const road = findRoad(format, target);
    if (road == nullptr) return std::nullopt;
    ZENNO::LogLine(6) << road->text;
    // A target that lacks the rate or the channels is refused here, after the line, and the other
    // bit order is not tried.
    const SinkConfig onWire((format.word & ~bits8To31) | road->target);
    if (!target.isSupported(onWire)) return std::nullopt;
    return StreamFormat{format, onWire, road->conversion};
}

}  // namespace VELMORA
