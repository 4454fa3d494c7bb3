// Bytes as a person writes them: "6400 1000 0400". Blanks are for the eye.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/BufferCS.h"

namespace velmora_test {

inline ZENNO::Bytes hex(std::string_view text) {
    const auto digit = [](char c) { return c <= '9' ? c - '0' : c - 'a' + 10; };
    std::string digits;
    for (const char c : text) {
        if (c != ' ') digits += c;
    }
    ZENNO::Bytes out;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        out.push_back(static_cast<std::uint8_t>(digit(digits[i]) * 16 + digit(digits[i + 1])));
    }
    return out;
}

inline std::string asHex(const ZENNO::Bytes& bytes) {
    std::string out;
    for (const std::uint8_t b : bytes) {
        out += "0123456789abcdef"[b >> 4];
        out += "0123456789abcdef"[b & 15];
    }
    return out;
}

}  // namespace velmora_test
