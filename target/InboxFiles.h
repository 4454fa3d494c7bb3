// An inbox that is a folder: channel-0-1.bin, channel-0-2.bin ... Nothing there is ever
// overwritten; a transfer that runs has ".part" behind its name. Numbers go up as long as the
// target runs: one whose file was taken away is not given again.
#pragma once

#include <string>

#include "target/Inbox.h"
#include "target/WriteThrough.h"

namespace velmora_target {

// A file gets its name when all of it is on the medium.
MakeInboxItem inboxFolder(const std::string& folder, WriteThrough writeThrough = flushed);

}  // namespace velmora_target
