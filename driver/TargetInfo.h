// The records in which discovery is asked and answers.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "base/IPAddress.h"

namespace VELMORA {

// What a Find is made from; copied whole.
struct FindSetting {
    std::uint64_t filterID = 0;    // product that a target must have; 0 lets every target pass
    std::uint16_t maxVersion = 0;  // highest sink version taken; 0 takes all
    std::string clientName;        // sent in HELLO_REQ
    bool nopBreak = false;         // NOPBREAK_REQ ahead of every SINK_REQ
    bool loopback = false;         // ::1 stays among the interfaces
    std::vector<std::uint64_t> furtherIDs;  // more products that pass the filter
    std::uint64_t ownID = 0;                // sent in HELLO_REQ
};

// One sink as discovery knows it.
struct TargetInfo {
    std::uint64_t productID = 0;
    std::uint16_t reserved = 0;  // always 0
    std::uint16_t sinkNo = 0;    // number on its target, from 1
    std::uint16_t version = 0;   // of the sink's protocol
    std::string targetName;
    std::string configText;          // "[myaddress]" replaced; empty if the target gave none
    ZENNO::IPAddress findAddress{};  // control address, port included
    std::string sinkName;
};

// Key: the sink's address, that is, the target's address and scope with the sink's port. Ascending
// order is part of the behaviour: a driver without a fixed target takes the first.
using TargetMap = std::map<ZENNO::IPAddress, TargetInfo>;

}  // namespace VELMORA
