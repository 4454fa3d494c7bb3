// The commands: each throws Stop where it cannot go on, and gives its exit code otherwise.
#pragma once

#include "apps/velmora-find/Context.h"
#include "apps/velmora-find/Options.h"

namespace velmora_find {

int listCommand(Context& context, const Options& options);
int watchCommand(Context& context, const Options& options);
int infoCommand(Context& context, const Options& options);
int settingsCommand(Context& context, const Options& options);
int setCommand(Context& context, const Options& options);
int sendCommand(Context& context, const Options& options);
int doctorCommand(Context& context, const Options& options);

}  // namespace velmora_find
