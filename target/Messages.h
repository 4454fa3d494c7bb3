// The messages that a target answers, by name and number: what options and logs call them.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace velmora_target {

struct MessageName {
    std::string_view name;
    std::uint16_t id;
    std::uint16_t answer;  // the id that an answer bears
};

std::span<const MessageName> messages() noexcept;
std::optional<MessageName> messageNamed(std::string_view name) noexcept;
std::optional<MessageName> messageOf(std::uint16_t id) noexcept;

}  // namespace velmora_target
