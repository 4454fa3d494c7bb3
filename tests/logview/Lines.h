// Lines and traces as the driver sends them.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "apps/log/Message.h"

namespace velmora_test {

// 2026-03-05 17:02:09.412345 UTC.
inline constexpr std::int64_t heardAt = 1'772'730'129'412'345;

inline const std::string header = "<134>Mar 05 17:02:09 localhost ";

inline void addWord(std::string& out, std::uint32_t word) {
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<char>(word >> (8 * i)));
}

// The 1412 bytes of a record.
inline std::string traceOf(const std::vector<velmora_log::SentPacket>& packets) {
    std::string out;
    addWord(out, (static_cast<std::uint32_t>(packets.size()) | 0x100) << 16);
    for (const auto& packet : packets) {
        addWord(out, packet.micros);
        addWord(out, packet.wireBytes);
    }
    out.resize(353 * 4, '\0');
    return out;
}

inline velmora_log::Message messageOf(const std::string& text, int severity = 6) {
    return velmora_log::readMessage("<" + std::to_string(128 + severity) +
                                    ">Mar 05 17:02:09 localhost " + text);
}

}  // namespace velmora_test
