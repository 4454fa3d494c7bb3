// Pictures as SVG files.
#pragma once

#include <string>

#include "bench/Context.h"

namespace velmora_bench {

// lateness.svg and cpu.svg into the folder, of what has been measured; throws std::runtime_error.
void drawPictures(const Pictures& pictures, const std::string& folder);

}  // namespace velmora_bench
