// What a log says about a stream's punctuality, in numbers.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "apps/log/Distribution.h"
#include "apps/log/LineJson.h"
#include "apps/log/Timeline.h"

namespace velmora_log {

struct Figures {
    // Of lines.
    std::uint64_t lines = 0, errors = 0, warnings = 0;
    std::uint64_t foreign = 0;   // of no form of the log's
    std::uint32_t programs = 0;  // that sent lines, as far as their ports tell
    // Of the trace.
    std::uint32_t streams = 0;
    std::uint64_t records = 0, packets = 0, wireBytes = 0;
    std::int64_t streamMicros = 0;       // that the trace covers
    std::uint64_t missing = 0;           // places where records are missing
    std::optional<std::uint32_t> cycle;  // µs; the last one
    bool cycleIsEstimated = false;       // from the trace: the log that was heard did not tell
    bool cycleIsDrawn = false;           // each at random, so that no deadline is known
    Distribution late;                   // µs behind its deadline, of each burst
    Distribution apart;                  // µs from burst to burst
    Timeline timeline;
    // Of what the driver says itself.
    std::uint64_t lateTurns = 0;  // by a cycle and more
    std::uint32_t worstLateTurn = 0;
    std::uint64_t resendRequests = 0, resendPackets = 0;
    std::uint64_t underruns = 0;  // of the host
    std::uint64_t profileChanges = 0;
};

// Some lines of text, each closed by a newline.
std::string figuresText(const Figures& figures);
// "1 line", "2 lines".
std::string many(std::uint64_t count, const char* one, const char* several);

// {"event":"figures", ...}; without "late" where no burst is known.
Json figuresJson(const Figures& figures);

}  // namespace velmora_log
