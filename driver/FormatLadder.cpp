#include "driver/FormatLadder.h"

#include <limits>

namespace {

constexpr FormatRung from64[] = {{0x4000, 8}, {0x800, 4}, {0x2000, 4}, {0x400, 3}, {0x200, 2}};
constexpr FormatRung from32[] = {{0x800, 4}, {0x2000, 4}, {0x4000, 8}, {0x400, 3}, {0x200, 2}};
// fillStream narrows or widens the host's 32-bit integers to these.
constexpr FormatRung fromS32[] = {{0x800, 4}, {0x1000, 4}, {0x400, 4}, {0x200, 4}};
constexpr FormatRung from24[] = {{0x400, 3}, {0x800, 4}, {0x2000, 4}, {0x4000, 8}, {0x200, 2}};
constexpr FormatRung from16[] = {{0x200, 2}, {0x400, 3}, {0x800, 4}, {0x2000, 4}, {0x4000, 8}};
// Whoever asks for less than 16 bits never gets 16: not a mistake.
constexpr FormatRung fromLess[] = {{0x400, 3}, {0x800, 4}, {0x2000, 4}, {0x4000, 8}};

constexpr const char* missed = "format miss err ";

constexpr FormatLadder ladders[] = {
    {64, from64, missed},
    {32, from32, missed},
    {24, from24, missed},
    {16, from16, missed},
    {std::numeric_limits<std::int32_t>::min(), fromLess, missed},
};
constexpr FormatLadder ladderS32 = {32, fromS32, "format miss err pcm32Fix"};

}  // namespace

const FormatLadder& formatLadder(std::int32_t pcmRequest, bool convertS32) noexcept {
    if (convertS32 && pcmRequest >= 32 && pcmRequest < 64) return ladderS32;
    const FormatLadder* ladder = ladders;
    while (pcmRequest < ladder->leastRequest) ++ladder;
    return *ladder;
}

std::optional<FormatRung> climb(const FormatLadder& ladder, std::uint64_t pcmSupport) noexcept {
    for (const FormatRung& rung : ladder.rungs) {
        if ((pcmSupport & rung.bit) != 0) return rung;
    }
    return std::nullopt;
}
