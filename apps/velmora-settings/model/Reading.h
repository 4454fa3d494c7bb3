// What the driver makes of a settings file, told from the text alone: no file is opened, no log is
// switched, and what is ignored is told. A test holds it against the driver's own loadSettings.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "apps/velmora-settings/model/Fields.h"
#include "base/InfFile.h"
#include "driver/Settings.h"

namespace velmora_settings {

struct Reading {
    DriverSettings values;
    std::string debug;        // "enable", "debug", or empty: the log is left as it is
    std::int64_t cpuLow = 0;  // as it stands
    bool isLow = false;       // this machine reads the keys behind CPULOW from the section LOW
    // "SyncBufferCount=1": what stands in the file and holds for nothing.
    std::vector<std::string> ignored;
};

// `cores`: physical ones of this machine, 0 when they cannot be told.
Reading readSettings(const ZENNO::InfFile& tree, std::int32_t cores);
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
