// A settings file as the driver reads it, and each value as its field shows it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "apps/velmora-settings/model/Fields.h"
#include "base/InfFile.h"
#include "driver/Settings.h"

namespace velmora_settings {

using Reading = SettingsReading;

// `cores`: physical ones of this machine, 0 when they cannot be told.
Reading readSettings(ZENNO::InfFile tree, std::int32_t cores);
// Whether the machine is a small one is settled, by a file that is read on top of this one.
Reading readSettings(std::string_view text, bool isLow);

// A value as its field shows it: see refusal().
std::string fieldText(FieldId id, const Reading& reading);

// What is no single field's fault: two fields that contradict each other.
struct Contradiction {
    FieldId one, other;
    std::string sentence;
};
std::vector<Contradiction> contradictions(const DriverSettings& settings);

}  // namespace velmora_settings
