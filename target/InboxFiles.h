// An inbox that is a folder: channel-0-1.bin, channel-0-2.bin ... Nothing there is ever
// overwritten; a transfer that runs has ".part" behind its name.
#pragma once

#include <string>

#include "target/Inbox.h"

namespace velmora_target {

MakeInboxItem inboxFolder(const std::string& folder);

}  // namespace velmora_target
