// Golden datagrams: a message and its bytes, both written down by hand from docs/protocol.md.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/wire/Hex.h"
#include "wire/DiscoveryMessage.h"

namespace velmora_test {

struct Golden {
    std::string why;
    std::uint16_t id = 0;
    ZENNO::Bytes bytes;
    std::function<ZENNO::Bytes()> written;                             // what the writer makes
    std::function<bool(const VELMORA::wire::PacketView&)> isReadBack;  // as the same message
};

template <class M>
std::function<bool(const VELMORA::wire::PacketView&)> readsAs(M message) {
    return [message = std::move(message)](const VELMORA::wire::PacketView& packet) {
        const std::optional<M> got = VELMORA::wire::read<M>(packet);
        return got.has_value() && *got == message;
    };
}

template <class M>
Golden golden(const char* why, M message, const char* digits) {
    return {why, M::id, hex(digits), [message] { return write(message); }, readsAs(message)};
}

// Messages whose body lies outside their struct, and bytes that are read but never written so.
template <class M>
Golden golden(const char* why, M message, const char* digits,
              std::function<ZENNO::Bytes()> written) {
    return {why, M::id, hex(digits), std::move(written), readsAs(message)};
}

std::vector<Golden> streamGoldens();
std::vector<Golden> discoveryGoldens();

inline std::vector<Golden> allGoldens() {
    std::vector<Golden> all = streamGoldens();
    for (Golden& g : discoveryGoldens()) all.push_back(std::move(g));
    return all;
}

}  // namespace velmora_test
