// Sound devices by ALSA.
#pragma once

#include <memory>
#include <string>

#include "target/PcmDevice.h"

namespace velmora_target {

// By its ALSA name ("hw:0", "default" ...). Nothing is opened yet.
std::unique_ptr<PcmDevice> alsaDevice(const std::string& name);

}  // namespace velmora_target
