// A log line is one statement: opened with a level, filled by <<, sent where it ends.
//
//     LogLine(6) << "start SPEED=" << rate;
//
// A line whose level does not pass `logLevel` allocates nothing and every append is a test of one
// pointer. Levels are syslog severities: 3 errors, 4 warnings, 6 information, 7 detail.
#pragma once

#include <atomic>
#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

namespace ZENNO {

// A line is built when its level is at most this; -1 at first. Written where the settings are read,
// read by every thread that logs; no order with other words is asked of it.
extern std::atomic<std::int32_t> logLevel;

inline bool logLevelEnabled(std::int32_t level) noexcept {
    return level <= logLevel.load(std::memory_order_relaxed);
}

// What a line holds while it is filled. `text` starts with the header of 31 bytes whose places the
// sink fills in ("<000>MMM DD hh mm ss localhost "), `length` with 31.
struct LogRecord {
    static constexpr std::uint64_t capacity = 2048;
    static constexpr std::uint64_t headerLength = 31;

    std::uint8_t priority = 0;  // facility x 8 + level
    char text[capacity + 1];
    std::uint64_t length = headerLength;
};

// Where finished lines go. The product's sink is Logger in base/Log.h; tests set one of their own.
class LogSink {
public:
    virtual ~LogSink() = default;
    virtual void deliver(LogRecord& record) noexcept = 0;  // any thread, several at once
    std::uint8_t facility() const noexcept {
        return static_cast<std::uint8_t>(facility_.load(std::memory_order_relaxed));
    }
    void setFacility(std::uint32_t facility) noexcept { facility_ = facility; }

private:
    // Written by whoever opens the log, read by every thread that opens a line.
    std::atomic<std::uint32_t> facility_{0};
};

// Process-wide; null until the first driver object opens its log, whose thread writes it (release).
// Every thread that logs reads it (acquire).
extern std::atomic<LogSink*> logger;

class LogLine {
public:
    struct Raw {};

    // With the facility of the sink, or 0 while there is none: the usual form.
    explicit LogLine(std::uint8_t level)
        : record_(passesLevel(level) ? openAtLevel(level) : nullptr) {}
    LogLine(std::uint8_t priority, Raw)
        : record_(passesLevel(priority) ? open(priority) : nullptr) {}
    LogLine(std::uint8_t facility, std::uint8_t level)
        : LogLine(static_cast<std::uint8_t>(facility * 8 + level), Raw{}) {}
    // The usual form and a first append. A template, so that the literal 0 is a level and no text.
    template <class Text>
    requires std::convertible_to<const Text&, std::string_view> LogLine(std::uint8_t level,
                                                                        const Text& text)
        : LogLine(level) {
        *this << text;
    }
    // In line, so that a line that does not pass costs its one comparison and no call.
    ~LogLine() {
        if (record_) finish(record_, owner_);
    }
    LogLine(const LogLine&) = delete;
    LogLine& operator=(const LogLine&) = delete;

    // Formatted appends: cut at the end of the record. %u, %d, %lld, %llu, %lf and %s, whatever the
    // locale says.
    LogLine& operator<<(std::uint16_t v) { return *this << std::uint32_t{v}; }
    LogLine& operator<<(std::uint32_t v) { return *this << std::uint64_t{v}; }
    LogLine& operator<<(std::int32_t v) { return *this << std::int64_t{v}; }
    LogLine& operator<<(std::int64_t v) {
        if (record_) print(*record_, v);
        return *this;
    }
    LogLine& operator<<(std::uint64_t v) {
        if (record_) print(*record_, v);
        return *this;
    }
    LogLine& operator<<(double v) {
        if (record_) print(*record_, v);
        return *this;
    }
    // Null is no text.
    LogLine& operator<<(const char* text) {
        if (record_) print(*record_, text);
        return *this;
    }
    // The types that are not the fixed-width ones of their size on one system or the other; a bool
    // is 1 or 0.
    template <std::integral T>
    LogLine& operator<<(T v) {
        using Wide = std::conditional_t<std::is_signed_v<T>, std::int64_t, std::uint64_t>;
        return *this << static_cast<Wide>(v);
    }
    LogLine& operator<<(char) = delete;  // a number or a letter? A string says which.

    // Counted appends (text or bytes): whole or nothing; dropped when size + 1 + length reaches
    // 2048.
    LogLine& operator<<(std::string_view text) {
        if (record_) append(*record_, text);
        return *this;
    }
    LogLine& operator<<(const std::string& text) { return *this << std::string_view(text); }

    bool passes() const noexcept { return record_ != nullptr; }

private:
    static bool passesLevel(std::uint8_t priority) noexcept {
        return logLevelEnabled(priority & 7);
    }
    // None is handed the line itself, so that a line that does not pass lives in registers.
    static LogRecord* openAtLevel(std::uint8_t level);
    static LogRecord* open(std::uint8_t priority);
    static void finish(LogRecord* record, bool isOwner) noexcept;  // sends and frees
    static void print(LogRecord& record, std::int64_t v) noexcept;
    static void print(LogRecord& record, std::uint64_t v) noexcept;
    static void print(LogRecord& record, double v) noexcept;
    static void print(LogRecord& record, const char* text) noexcept;
    static void cutAppend(LogRecord& record, const char* text, std::uint64_t size) noexcept;
    static void append(LogRecord& record, std::string_view text) noexcept;

    LogRecord* record_ = nullptr;  // null when the line did not pass
    bool owner_ = true;            // only an owner sends and frees
};

}  // namespace ZENNO
