// What somebody who helps wants to know, as one text to copy.
#pragma once

#include <string>
#include <vector>

#include "apps/velmora-settings/model/Document.h"
#include "apps/velmora-settings/model/TargetList.h"

namespace velmora_settings {

struct ReportFacts {
    std::string system;  // the operating system
    std::string module;  // the driver's module: its path and release, or a sentence
    std::vector<std::string> interfaces;  // a line each
    std::string doctor;                   // what the doctor said, if it was asked
};

std::string reportText(const Document& document, const TargetList& targets,
                       const ReportFacts& facts);

}  // namespace velmora_settings
