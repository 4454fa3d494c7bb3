// What is answered on the control port: who this is, and which sinks there are.
#pragma once

#include <optional>

#include "target/Mail.h"
#include "target/Settings.h"
#include "wire/Packet.h"

namespace velmora_target {

// The answer to a message of the search; nothing for what is none.
std::optional<ZENNO::Bytes> answerDiscovery(const TargetSettings& settings,
                                            const VELMORA::wire::PacketView& packet);

// The answer that refuses a message.
ZENNO::Bytes refusal(std::uint16_t answerId);

}  // namespace velmora_target
