// The texts about a target that hosts show to people.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "target/Mail.h"
#include "target/Sink.h"

namespace velmora_target {

using Sinks = std::vector<std::unique_ptr<Sink>>;

class Info {
public:
    Info(const TargetSettings& settings, const Sinks& sinks) : settings_(settings), sinks_(sinks) {}

    // The answer to INFOA_REQ, INFOB_REQ, INFOINDEX_REQ or VALUE_REQ; nothing for other messages.
    std::optional<ZENNO::Bytes> answer(const VELMORA::wire::PacketView& packet,
                                       std::uint64_t upMicros, Mail& out);

private:
    std::string product() const;                       // and release
    std::string state(std::uint64_t upMicros) const;   // name, time, sinks, value
    std::string sinkLine(std::uint16_t sinkNo) const;  // empty: no such sink

    const TargetSettings& settings_;
    const Sinks& sinks_;
    std::optional<std::uint16_t> value_;  // the last that a host set: a lamp that tells twins apart
};

}  // namespace velmora_target
