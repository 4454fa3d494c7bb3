// What is said about a transfer: while it runs, and where it ended.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "apps/velmora-find/ExitCode.h"
#include "find/Transfer.h"

namespace velmora_find {

struct TransferRun {
    VELMORA::TransferFigures figures;
    std::uint32_t channel = 0;
    std::uint64_t size = 0;  // bytes
    double seconds = 0;
};

// "[############------------]  50 %  524288 of 1048576 bytes, 12.3 MB/s, 0 resends": no longer than
// a terminal's line; with large numbers the bar is shorter.
inline constexpr std::size_t progressColumns = 79;
std::string progressText(const TransferRun& run);
// "1048576 bytes in 0.09 s, 11.6 MB/s; ..." : the whole of it.
std::string summaryText(const TransferRun& run);

const char* endName(VELMORA::TransferEnd end);  // stable, for JSON
struct EndWords {
    ExitCode code;
    std::string sentence;  // what is wrong, and what to try
};
EndWords endWords(const TransferRun& run);

}  // namespace velmora_find
