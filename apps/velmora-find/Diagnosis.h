// What an examination means: what is wrong, and what helps.
#pragma once

#include <string>
#include <vector>

#include "apps/velmora-find/Examination.h"
#include "apps/velmora-find/ExitCode.h"

namespace velmora_find {

struct Finding {
    std::string wrong, helps;  // one sentence each
};

struct Diagnosis {
    std::vector<Finding> findings;
    std::size_t targets = 0;  // that the driver would find and can use
    ExitCode code = exitNobody;
    std::string verdict;
};

Diagnosis diagnose(const Examination& examination);

}  // namespace velmora_find
