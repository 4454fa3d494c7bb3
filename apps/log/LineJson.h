// A line as one JSON object, and back: what --json prints, and what a written file consists of.
//
//   {"event":"line","heard":"2026-03-05T16:02:09.412345Z","port":51234,"facility":16,"severity":6,
//    "level":"info","time":"Mar 05 17:02:09","host":"localhost","text":"start SPEED=44100"}
//   {"event":"line", ... ,"trace":[[1001,442],[2003,442], ...]}     µs, bytes on the wire
//
// What is not known is left out. Texts are printable; where that is not how they came, "textBytes"
// and "hostBytes" have the bytes in hexadecimal besides.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>

#include "apps/log/Message.h"

namespace velmora_log {

using Json = nlohmann::ordered_json;  // every text in it goes through printable() first

Json lineJson(const Line& line);
// Nothing where the object is none of a line, or one that no line can have.
std::optional<Line> lineOf(const Json& json);

}  // namespace velmora_log
