// Numbers in text, by the rule that the settings files and addresses have always been read with.
#pragma once

#include <cstdint>
#include <string_view>

namespace ZENNO {

// Leading white space, a sign, then decimal digits up to the first other character; no digits are
// 0. A number that the type cannot hold becomes the nearest one that it can.
std::int64_t readInteger(std::string_view text) noexcept;

}  // namespace ZENNO
