// Which products a search takes.
#pragma once

#include <cstdint>

#include "driver/TargetInfo.h"

namespace VELMORA {

constexpr std::uint64_t refusedProduct = ~0ull;

// `id`, or refusedProduct where the setting's filter refuses it. A target that reports 0 passes
// any filter. Logs what was decided.
std::uint64_t filterProduct(const FindSetting& setting, std::uint64_t id);

}  // namespace VELMORA
