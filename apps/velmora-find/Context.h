// What a command stands on: the world outside, where it writes, and what a test replaces.
#pragma once

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <vector>

#include "driver/FinderCall.h"
#include "platform/Net.h"
#include "platform/Time.h"
#include "src/Network/Environment.h"

namespace velmora_find {

using Json = nlohmann::ordered_json;  // every text in it goes through printable() first

// Frees what the object's module lent before the module goes.
using FinderPointer = std::unique_ptr<VELMORA::asio_velmora_find_call,
                                      std::function<void(VELMORA::asio_velmora_find_call*)>>;

struct Context {
    ZENNO::Environment& environment;
    std::ostream& out;        // results: what a script reads
    std::ostream& talk;       // everything else
    bool isTerminal = false;  // `talk` goes to a person's screen
    std::function<ZENNO::platform::LocalTime()> localTime = ZENNO::platform::localTimeNow;
    // Called as a watch begins: from then on an interrupt is asked for instead of ending the
    // program at once.
    std::function<void()> onWatch = [] {};
    std::function<bool()> interrupted = [] { return false; };
    std::function<bool(std::vector<ZENNO::platform::Adapter>&)> adapters =
        {};  // of IPv6; none are asked for without
    // The driver's own finder; `dll` names its module, where it has one. Throws Stop.
    std::function<FinderPointer(const std::string& dll)> finder = {};
};

}  // namespace velmora_find
