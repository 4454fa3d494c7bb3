#include "apps/log/Moment.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>

namespace velmora_log {
namespace {

constexpr std::int64_t second = 1'000'000, day = 86'400 * second;

// Eats `count` digits, or says no.
bool take(std::string_view& text, std::size_t count, int& value) {
    if (text.size() < count) return false;
    int result = 0;
    for (std::size_t i = 0; i < count; ++i) {
        if (text[i] < '0' || text[i] > '9') return false;
        result = result * 10 + (text[i] - '0');
    }
    value = result;
    text.remove_prefix(count);
    return true;
}

bool take(std::string_view& text, char c) {
    if (!text.starts_with(c)) return false;
    text.remove_prefix(1);
    return true;
}

// ".25": up to six digits. `digitMicros`: what the last of them is worth.
bool takeFraction(std::string_view& text, int& micros, int& digitMicros) {
    if (!take(text, '.')) return true;
    int digit = 0, unit = second;
    micros = 0;
    while (unit > 1 && take(text, 1, digit)) {
        unit /= 10;
        micros += digit * unit;
    }
    digitMicros = unit;
    return unit < second;
}

bool isDay(const Moment& m) {
    namespace c = std::chrono;
    const c::year year(m.year.value_or(2000));  // a leap year, where nobody knows
    return c::year_month_day(year, c::month(static_cast<unsigned>(m.month)),
                             c::day(static_cast<unsigned>(m.day)))
        .ok();
}

bool isTime(const Moment& m) {
    return m.hour < 24 && m.minute < 60 && m.second <= 60;
}

int order(int a, int b) {
    return a < b ? -1 : a > b ? 1 : 0;
}

}  // namespace

Moment utc(std::int64_t unixMicros) {
    namespace c = std::chrono;
    std::int64_t days = unixMicros / day, rest = unixMicros % day;
    if (rest < 0) {
        rest += day;
        --days;
    }
    const c::year_month_day date{c::sys_days{c::days{days}}};
    const auto seconds = static_cast<int>(rest / second);
    return {static_cast<int>(date.year()),
            static_cast<int>(static_cast<unsigned>(date.month())),
            static_cast<int>(static_cast<unsigned>(date.day())),
            seconds / 3600,
            seconds / 60 % 60,
            seconds % 60,
            static_cast<int>(rest % second)};
}

Moment systemZone(std::int64_t unixMicros) {
    std::int64_t whole = unixMicros / second, rest = unixMicros % second;
    if (rest < 0) {
        rest += second;
        --whole;
    }
    const auto time = static_cast<std::time_t>(whole);
    const std::tm* local = std::localtime(&time);
    if (local == nullptr) return utc(unixMicros);
    return {local->tm_year + 1900, local->tm_mon + 1, local->tm_mday,        local->tm_hour,
            local->tm_min,         local->tm_sec,     static_cast<int>(rest)};
}

std::optional<Moment> momentOf(const Line& line, const Zone& zone) {
    if (line.heardMicros) return zone(*line.heardMicros);
    if (!line.message.stamp) return std::nullopt;
    const Stamp& s = *line.message.stamp;
    return Moment{std::nullopt, s.month, s.day, s.hour, s.minute, s.second, 0};
}

std::optional<TimeMark> TimeMark::read(std::string_view text) {
    TimeMark mark;
    Moment& m = mark.moment_;
    mark.hasDay_ = text.find('-') != std::string_view::npos;
    if (mark.hasDay_) {
        int year = 0;
        if (text.find('-') == 4) {
            if (!take(text, 4, year) || !take(text, '-')) return std::nullopt;
            m.year = year;
        }
        if (!take(text, 2, m.month) || !take(text, '-') || !take(text, 2, m.day) || !isDay(m) ||
            !(take(text, ' ') || take(text, 'T'))) {
            return std::nullopt;
        }
    }
    if (!take(text, 2, m.hour) || !take(text, ':') || !take(text, 2, m.minute)) return std::nullopt;
    if (take(text, ':')) {
        mark.hasSecond_ = true;
        if (!take(text, 2, m.second) || !takeFraction(text, m.micros, mark.fractionMicros_)) {
            return std::nullopt;
        }
    }
    if (!text.empty() || !isTime(m)) return std::nullopt;
    return mark;
}

int TimeMark::compare(const Moment& moment) const {
    int result = 0;
    const auto look = [&](int theirs, int ours) {
        if (result == 0) result = order(theirs, ours);
    };
    if (hasDay_) {
        if (moment_.year && moment.year) look(*moment.year, *moment_.year);
        look(moment.month, moment_.month);
        look(moment.day, moment_.day);
    }
    look(moment.hour, moment_.hour);
    look(moment.minute, moment_.minute);
    if (hasSecond_) {
        look(moment.second, moment_.second);
        look(moment.micros / fractionMicros_, moment_.micros / fractionMicros_);
    }
    return result;
}

std::string isoText(std::int64_t unixMicros) {
    const Moment m = utc(unixMicros);
    char text[112];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%06dZ", m.year.value_or(0),
                  m.month, m.day, m.hour, m.minute, m.second, m.micros);
    return text;
}

std::optional<std::int64_t> readIso(std::string_view text) {
    Moment m;
    int year = 0, digit = 0;
    const bool isGood = take(text, 4, year) && take(text, '-') && take(text, 2, m.month) &&
                        take(text, '-') && take(text, 2, m.day) && take(text, 'T') &&
                        take(text, 2, m.hour) && take(text, ':') && take(text, 2, m.minute) &&
                        take(text, ':') && take(text, 2, m.second) &&
                        takeFraction(text, m.micros, digit) && text == "Z";
    m.year = year;
    if (!isGood || !isDay(m) || !isTime(m)) return std::nullopt;
    namespace c = std::chrono;
    const c::sys_days date =
        c::year_month_day(c::year(year), c::month(static_cast<unsigned>(m.month)),
                          c::day(static_cast<unsigned>(m.day)));
    const std::int64_t seconds = m.hour * 3600 + m.minute * 60 + m.second;
    return date.time_since_epoch().count() * day + seconds * second + m.micros;
}

}  // namespace velmora_log
