// One network interface, by whole frames: what comes in there, and what goes out.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace velmora_relay {

class Card {
public:
    Card() = default;
    ~Card();
    Card(const Card&) = delete;
    Card& operator=(const Card&) = delete;

    // A sentence that says what failed; empty if nothing did.
    std::string open(const std::string& name);
    int descriptor() const noexcept { return socket_; }

    enum class Received { frame, none, gone };
    // Into `buffer`, whose part that is filled becomes `frame`. A frame that does not fit is none.
    Received receive(std::span<std::uint8_t> buffer, std::span<std::uint8_t>& frame);
    bool send(std::span<const std::uint8_t> frame);

private:
    int socket_ = -1;
};

}  // namespace velmora_relay
