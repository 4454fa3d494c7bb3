#include "apps/velmora-settings/model/SettingsText.h"

#include <algorithm>
#include <vector>

namespace velmora_settings {
namespace {

constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";

bool isControl(char c) noexcept {
    return static_cast<unsigned char>(c) < 0x20 && c != '\n' && c != '\r';
}

std::string_view withoutBlanks(std::string_view text) noexcept {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

// One line with its end; `begin`, `end` and `next` are places in the text.
struct Line {
    std::size_t begin, end, next;
    enum class Kind { other, section, entry } kind = Kind::other;
    std::string_view section;  // that it belongs to, or begins
    std::string_view key;
    std::size_t valueAt = 0;  // behind the equals sign
};

// By the rules of the driver's reader (base/InfFile.cpp).
void classify(Line& line, std::string_view content, std::string_view& section) {
    const std::string_view bare = withoutBlanks(content);
    line.section = section;
    if (bare.empty() || bare.front() == ';' || bare.front() == '#' || bare.starts_with("//")) {
        return;
    }
    if (bare.front() == '[') {
        if (bare.back() != ']') return;
        const std::string_view name = withoutBlanks(bare.substr(1, bare.size() - 2));
        section = name.empty() ? globalSection : name;
        line.kind = Line::Kind::section;
        line.section = section;
        return;
    }
    const std::size_t equals = content.find('=');
    if (equals == std::string_view::npos) return;
    line.key = withoutBlanks(content.substr(0, equals));
    if (line.key.empty()) return;
    line.kind = Line::Kind::entry;
    line.valueAt = line.begin + equals + 1;
}

std::vector<Line> linesOf(std::string_view text) {
    std::vector<Line> lines;
    std::string_view section = globalSection;
    for (std::size_t at = 0; at < text.size();) {
        Line line{};
        line.begin = at;
        line.end = std::min(text.find_first_of("\r\n", at), text.size());
        line.next = std::min(line.end + 1, text.size());
        if (text.substr(line.end).starts_with("\r\n")) ++line.next;
        const bool marked = at == 0 && text.starts_with(byteOrderMark);
        if (marked) line.begin += std::min(byteOrderMark.size(), line.end);
        classify(line, text.substr(line.begin, line.end - line.begin), section);
        lines.push_back(line);
        at = line.next;
    }
    return lines;
}

std::string_view lineEndOf(std::string_view text) {
    const std::size_t end = text.find_first_of("\r\n");
    if (end == std::string_view::npos) return "\r\n";
    if (text[end] == '\n') return "\n";
    return text.substr(end).starts_with("\r\n") ? "\r\n" : "\r";
}

std::string insertedAt(std::string_view text, std::size_t place, std::string added) {
    const std::string_view lineEnd = lineEndOf(text);
    const bool inLine = place > 0 && text[place - 1] != '\n' && text[place - 1] != '\r';
    const bool onlyMark = place == byteOrderMark.size() && text.starts_with(byteOrderMark);
    if (inLine && !onlyMark) added.insert(0, lineEnd);
    return std::string(text.substr(0, place)) + added + std::string(lineEnd) +
           std::string(text.substr(place));
}

// Behind the last line of the section; in front of all sections where "global" has none; else in a
// section of its own at the end.
std::string withNewKey(std::string_view text, const std::vector<Line>& lines,
                       std::string_view section, const std::string& entry) {
    const auto isOfIt = [&](const Line& line) {
        return line.kind != Line::Kind::other && line.section == section;
    };
    const auto last = std::find_if(lines.rbegin(), lines.rend(), isOfIt);
    if (last != lines.rend()) return insertedAt(text, last->next, entry);
    if (section != globalSection) {
        return insertedAt(text, text.size(),
                          "[" + std::string(section) + "]" + std::string(lineEndOf(text)) + entry);
    }
    const auto firstSection = std::find_if(lines.begin(), lines.end(), [](const Line& line) {
        return line.kind == Line::Kind::section;
    });
    return insertedAt(text, firstSection == lines.end() ? text.size() : firstSection->begin, entry);
}

}  // namespace

std::string_view withoutMark(std::string_view text) noexcept {
    if (text.starts_with(byteOrderMark)) text.remove_prefix(byteOrderMark.size());
    return text;
}

bool hasControlCharacters(std::string_view text) noexcept {
    return std::any_of(text.begin(), text.end(), isControl);
}

std::string withoutControlCharacters(std::string_view text) {
    std::string clean;
    for (const char c : text) {
        if (c == '\t') {
            clean += ' ';
        } else if (!isControl(c)) {
            clean += c;
        }
    }
    return clean;
}

std::string withValue(std::string_view text, std::string_view section, std::string_view key,
                      std::string_view value) {
    const std::vector<Line> lines = linesOf(text);
    std::vector<Line> found;
    for (const Line& line : lines) {
        if (line.kind == Line::Kind::entry && line.section == section && line.key == key) {
            found.push_back(line);
        }
    }
    std::string out(text);
    if (value.empty()) {
        // All of them: an earlier one would hold where the last has gone.
        for (auto line = found.rbegin(); line != found.rend(); ++line) {
            out.erase(line->begin, line->next - line->begin);
        }
        return out;
    }
    if (found.empty()) {
        return withNewKey(text, lines, section, std::string(key) + "=" + std::string(value));
    }
    const Line& holds = found.back();
    const std::size_t begin = std::min(out.find_first_not_of(' ', holds.valueAt), holds.end);
    out.replace(begin, holds.end - begin, value);
    return out;
}

}  // namespace velmora_settings
