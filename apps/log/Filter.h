// Which lines are shown.
#pragma once

#include <cstdint>
#include <optional>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

#include "apps/log/Message.h"
#include "apps/log/Moment.h"

namespace velmora_log {

// A regular expression (ECMAScript, without back-references), looked for anywhere in a text. It
// takes no more time and stack than the text is long, whatever the text.
class Pattern {
public:
    static constexpr std::size_t longest = 8192;  // of a text is looked at

    // Nothing, and a sentence in `error`, where it is none.
    static std::optional<Pattern> read(const std::string& text, std::string& error);
    bool isIn(std::string_view text) const;

private:
    std::regex regex_;
};

// All of what is set has to hold. Words are looked for without case (of ASCII).
struct Filter {
    std::optional<std::uint8_t> level;  // the least severe that passes; no severity passes always
    std::vector<std::string> words;     // each
    std::vector<std::string> without;   // none
    std::optional<Pattern> pattern;
    std::optional<TimeMark> since, until;  // both included; a line without any time passes

    bool isInTime(const Line& line, const Zone& zone) const;
    bool passes(const Line& line, const Zone& zone) const;
};

}  // namespace velmora_log
