// Lines out of a file's bytes, in whatever pieces they come: what velmora-log has written, a JSON
// object a line, or what velmora-play --driver-log has: each datagram as it came, and a newline.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "apps/log/Message.h"

namespace velmora_log {

class LogFile {
public:
    void feed(std::string_view bytes) { rest_ += bytes; }
    // The next line; nothing where more bytes are wanted. `isEnd`: there will be none, so that what
    // has no newline is a line as well.
    std::optional<Line> next(bool isEnd);
    // Objects that are of no use, as a file has at its end that was cut.
    std::uint64_t unreadable() const { return unreadable_; }

private:
    std::optional<std::string_view> takeRecord(bool isEnd);
    std::optional<Line> read(std::string_view record);

    std::string rest_;
    std::size_t at_ = 0;  // how far of `rest_` has been read
    std::uint64_t unreadable_ = 0;
};

}  // namespace velmora_log
