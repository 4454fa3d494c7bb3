// Syslog's severities: the smaller the number, the more it matters. The driver uses 3, 4, 6 and 7.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace velmora_log {

struct SeverityName {
    std::uint8_t severity;
    std::string_view name, other;  // `other` is taken as well
};
inline constexpr std::array<SeverityName, 8> severityNames = {{
    {0, "emerg", "emergency"},
    {1, "alert", "alert"},
    {2, "crit", "critical"},
    {3, "error", "err"},
    {4, "warning", "warn"},
    {5, "notice", "notice"},
    {6, "info", "information"},
    {7, "debug", "detail"},
}};

constexpr std::string_view severityName(std::uint8_t severity) {
    return severityNames[severity & 7].name;
}

// By name or number.
constexpr std::optional<std::uint8_t> readSeverity(std::string_view text) {
    for (const SeverityName& row : severityNames) {
        const bool isNumber = text.size() == 1 && text[0] == '0' + row.severity;
        if (isNumber || text == row.name || text == row.other) return row.severity;
    }
    return std::nullopt;
}

}  // namespace velmora_log
