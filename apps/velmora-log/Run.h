// The two sources of lines: the port, and a file.
#pragma once

#include "apps/velmora-log/Options.h"

namespace velmora_log {

// Each gives the exit code, or throws Stop.
int listen(Context& context, const Options& options);
int readFile(Context& context, const Options& options);

}  // namespace velmora_log
