// Times as people name them, and whether a line lies within such bounds.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "apps/log/Message.h"

namespace velmora_log {

// A time on a wall and a calendar.
struct Moment {
    std::optional<int> year;  // none in the log's own stamps
    int month = 1, day = 1, hour = 0, minute = 0, second = 0, micros = 0;
    friend bool operator==(const Moment&, const Moment&) = default;
};

// The wall's time at so many µs since 1970; the product's asks the system for its zone.
using Zone = std::function<Moment(std::int64_t unixMicros)>;
Moment utc(std::int64_t unixMicros);
Moment systemZone(std::int64_t unixMicros);  // not from two threads at once

// When a line was heard, or else what it says itself; nothing where it tells neither.
std::optional<Moment> momentOf(const Line& line, const Zone& zone);

// "17:02", "17:02:09", "17:02:09.25": of any day. With "03-05 " or "2026-03-05 " in front (a T does
// as well), of that day alone; the year is looked at where the line has one. A mark is as long as
// what it leaves out: "17:02" is a whole minute.
class TimeMark {
public:
    static std::optional<TimeMark> read(std::string_view text);

    // Below 0 where `moment` is earlier than all of the mark, 0 within it, above 0 later.
    int compare(const Moment& moment) const;

private:
    Moment moment_;
    bool hasDay_ = false, hasSecond_ = false;
    int fractionMicros_ = 1'000'000;  // how long the last digit is
};

// "2026-03-05T17:02:09.250000Z", and back.
std::string isoText(std::int64_t unixMicros);
std::optional<std::int64_t> readIso(std::string_view text);

}  // namespace velmora_log
