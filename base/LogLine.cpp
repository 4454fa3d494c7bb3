#include "base/LogLine.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace ZENNO {

std::atomic<std::int32_t> logLevel{-1};
std::atomic<LogSink*> logger{nullptr};

namespace {

constexpr std::string_view header = "<000>MMM DD hh mm ss localhost ";
static_assert(header.size() == LogRecord::headerLength);

}  // namespace

void LogLine::finish(LogRecord* record, bool isOwner) noexcept {
    if (!isOwner) return;
    if (LogSink* sink = logger.load(std::memory_order_acquire)) sink->deliver(*record);
    delete record;
}

LogRecord* LogLine::openAtLevel(std::uint8_t level) {
    const LogSink* sink = logger.load(std::memory_order_acquire);
    return open(static_cast<std::uint8_t>((sink ? sink->facility() * 8 : 0) + level));
}

LogRecord* LogLine::open(std::uint8_t priority) {
    auto* record = new LogRecord;
    record->priority = priority;
    std::memcpy(record->text, header.data(), header.size());
    record->text[header.size()] = '\0';
    return record;
}

void LogLine::print(LogRecord& record, std::int64_t v) noexcept {
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, v).ptr;
    cutAppend(record, digits, static_cast<std::uint64_t>(end - digits));
}

void LogLine::print(LogRecord& record, std::uint64_t v) noexcept {
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, v).ptr;
    cutAppend(record, digits, static_cast<std::uint64_t>(end - digits));
}

void LogLine::print(LogRecord& record, double v) noexcept {
    char digits[384];  // the largest double has 309 digits, a point and six more
    const auto end =
        std::to_chars(digits, digits + sizeof digits, v, std::chars_format::fixed, 6).ptr;
    cutAppend(record, digits, static_cast<std::uint64_t>(end - digits));
}

void LogLine::print(LogRecord& record, const char* text) noexcept {
    if (text) cutAppend(record, text, std::strlen(text));
}

// As a bounded print into the rest of the text: the room takes the closing NUL in.
void LogLine::cutAppend(LogRecord& record, const char* text, std::uint64_t size) noexcept {
    const std::uint64_t fits = std::min(size, LogRecord::capacity - record.length - 1);
    std::memcpy(record.text + record.length, text, fits);
    record.length += fits;
    record.text[record.length] = '\0';
}

void LogLine::append(LogRecord& record, std::string_view text) noexcept {
    if (text.empty() || text.size() >= LogRecord::capacity - record.length - 1) return;
    cutAppend(record, text.data(), text.size());
}

}  // namespace ZENNO
