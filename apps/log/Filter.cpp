#include "apps/log/Filter.h"

#include <algorithm>

namespace velmora_log {
namespace {

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool holds(std::string_view text, std::string_view word) {
    return std::search(text.begin(), text.end(), word.begin(), word.end(),
                       [](char a, char b) { return lower(a) == lower(b); }) != text.end() ||
           word.empty();
}

}  // namespace

std::optional<Pattern> Pattern::read(const std::string& text, std::string& error) try {
    // The library's other way of matching goes one call deeper with each character of the text, and
    // a long line would end the program.
    constexpr auto flags =
        std::regex::ECMAScript | std::regex::nosubs | std::regex_constants::__polynomial;
    static_cast<void>(std::regex(text, flags));  // by itself, so that it cannot close our brackets
    // One match of the whole; a search would begin one at each character.
    Pattern pattern;
    pattern.regex_ = std::regex("[\\s\\S]*(?:" + text + ")[\\s\\S]*", flags);
    return pattern;
} catch (const std::regex_error&) {
    error = "\"" + text + "\" is no regular expression that can be used here.";
    return std::nullopt;
}

bool Pattern::isIn(std::string_view text) const {
    const std::string_view part = text.substr(0, longest);
    return std::regex_match(part.begin(), part.end(), regex_);
}

bool Filter::isInTime(const Line& line, const Zone& zone) const {
    if (!since && !until) return true;
    const auto moment = momentOf(line, zone);
    return !moment ||
           ((!since || since->compare(*moment) >= 0) && (!until || until->compare(*moment) <= 0));
}

bool Filter::passes(const Line& line, const Zone& zone) const {
    const Message& message = line.message;
    const auto severity = message.severity();
    if (level && severity && *severity > *level) return false;
    const auto isInText = [&](const std::string& word) { return holds(message.text, word); };
    if (!std::all_of(words.begin(), words.end(), isInText)) return false;
    if (std::any_of(without.begin(), without.end(), isInText)) return false;
    if (pattern && !pattern->isIn(message.text)) return false;
    return isInTime(line, zone);
}

}  // namespace velmora_log
