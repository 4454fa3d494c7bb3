// Which of a target's PCM widths the host gets to see: the first rung that the target has, on the
// ladder that belongs to the bit depth asked for.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

// One candidate.
struct FormatRung {
    std::uint64_t bit = 0;         // SinkConfig sample format
    std::int32_t sampleBytes = 0;  // of one sample in the host's buffers

    friend constexpr bool operator==(const FormatRung&, const FormatRung&) noexcept = default;
};

struct FormatLadder {
    std::int32_t leastRequest;  // PCMRequest from which on this ladder holds
    std::span<const FormatRung> rungs;
    const char* failureLog;  // PCMRequest follows in decimal
};

// `convertS32`: the host always writes 32-bit integers, whatever the target gets.
const FormatLadder& formatLadder(std::int32_t pcmRequest, bool convertS32) noexcept;

// Nothing where the target has none of the ladder's formats.
std::optional<FormatRung> climb(const FormatLadder& ladder, std::uint64_t pcmSupport) noexcept;
