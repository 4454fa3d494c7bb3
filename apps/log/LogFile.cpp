#include "apps/log/LogFile.h"

#include "apps/log/LineJson.h"

namespace velmora_log {
namespace {

// Longer than any line that is written; a piece of what has no newline for so long is one.
constexpr std::size_t longestRecord = 1 << 20;
constexpr std::string_view objectBegins = R"({"event":")";

}  // namespace

std::optional<Line> LogFile::next(bool isEnd) {
    for (;;) {
        const auto record = takeRecord(isEnd);
        if (!record) return std::nullopt;
        if (record->empty()) continue;
        if (auto line = read(*record)) return line;
    }
}

// Valid until the next feed.
std::optional<std::string_view> LogFile::takeRecord(bool isEnd) {
    const std::string_view left = std::string_view(rest_).substr(at_);
    const auto wantMore = [this]() -> std::optional<std::string_view> {
        rest_.erase(0, at_);
        at_ = 0;
        return std::nullopt;
    };
    const auto take = [&](std::size_t size) {
        const bool closed = size < left.size() && left[size] == '\n';
        at_ += size + (closed ? 1 : 0);
        return left.substr(0, size);
    };
    if (left.empty()) return wantMore();
    // A trace may have newlines in it: its length is known.
    const auto text = textAt(left);
    if (text && beginsTrace(left.substr(*text))) {
        const std::size_t whole = *text + traceBytes;
        if (left.size() > whole || (isEnd && left.size() == whole)) {
            if (left.size() == whole || left[whole] == '\n') return take(whole);
        } else if (!isEnd) {
            return wantMore();
        }
    }
    const std::size_t end = left.find('\n');
    if (end != std::string_view::npos && end <= longestRecord) {
        // The first word of a trace has to be here to know it for one.
        const bool tells = !text || isEnd || left.size() >= *text + 4 || left[*text] != '\0';
        return tells ? std::optional(take(end)) : wantMore();
    }
    if (left.size() > longestRecord) return take(longestRecord);
    return isEnd ? std::optional(take(left.size())) : wantMore();
}

std::optional<Line> LogFile::read(std::string_view record) {
    if (record.starts_with(objectBegins)) {
        const Json json = Json::parse(record, nullptr, /*allow_exceptions=*/false);
        if (auto line = lineOf(json)) return line;
        // Figures, say, of a redirected standard output, are nothing to complain about.
        const auto event = json.is_object() ? json.find("event") : json.end();
        const bool isOther = event != json.end() && event->is_string() && *event != "line";
        if (!isOther) ++unreadable_;
        return std::nullopt;
    }
    Line line;
    line.message = readMessage(record);
    return line;
}

}  // namespace velmora_log
