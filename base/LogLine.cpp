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

LogLine::~LogLine() {
    if (!record_ || !owner_) return;
    if (LogSink* sink = logger.load(std::memory_order_acquire)) sink->deliver(*record_);
    delete record_;
}

void LogLine::openAtLevel(std::uint8_t level) {
    const LogSink* sink = logger.load(std::memory_order_acquire);
    open(static_cast<std::uint8_t>((sink ? sink->facility() * 8 : 0) + level));
}

void LogLine::open(std::uint8_t priority) {
    record_ = new LogRecord;
    record_->priority = priority;
    std::memcpy(record_->text, header.data(), header.size());
    record_->text[header.size()] = '\0';
}

void LogLine::print(std::int64_t v) noexcept {
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, v).ptr;
    cutAppend(digits, static_cast<std::uint64_t>(end - digits));
}

void LogLine::print(std::uint64_t v) noexcept {
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, v).ptr;
    cutAppend(digits, static_cast<std::uint64_t>(end - digits));
}

void LogLine::print(double v) noexcept {
    char digits[384];  // the largest double has 309 digits, a point and six more
    const auto end =
        std::to_chars(digits, digits + sizeof digits, v, std::chars_format::fixed, 6).ptr;
    cutAppend(digits, static_cast<std::uint64_t>(end - digits));
}

void LogLine::print(const char* text) noexcept {
    if (text) cutAppend(text, std::strlen(text));
}

// As a bounded print into the rest of the text: the room takes the closing NUL in.
void LogLine::cutAppend(const char* text, std::uint64_t size) noexcept {
    const std::uint64_t fits = std::min(size, LogRecord::capacity - record_->length - 1);
    std::memcpy(record_->text + record_->length, text, fits);
    record_->length += fits;
    record_->text[record_->length] = '\0';
}

void LogLine::append(std::string_view text) noexcept {
    if (text.empty() || text.size() >= LogRecord::capacity - record_->length - 1) return;
    cutAppend(text.data(), text.size());
}

}  // namespace ZENNO
