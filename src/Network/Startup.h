// The start of the system's network, once a process.
#pragma once

#include "platform/Net.h"

namespace ZENNO {

// Throws the Err that goes with a start that did not work.
void requireStarted(platform::NetworkStart start);

// Asks `start` until it has once answered ready; throws as requireStarted. Any thread.
void startNetworkOnce(platform::NetworkStart (*start)() noexcept = &platform::startNetwork);

}  // namespace ZENNO
