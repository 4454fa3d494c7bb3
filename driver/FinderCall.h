// What the module's export DllVelmorafind hands out: discovery without a stream, and where this
// driver's files lie, for a program that shows the user which targets there are.
//
// The object crosses a module's border with texts and maps of the C++ library: the caller is built
// with the same compiler and library as the driver.
#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <string>

#include "base/IPAddress.h"

namespace VELMORA {

// One sink as a person is shown it.
struct FinderRecord {
    std::uint64_t productID = 0;
    std::uint16_t reserved = 0;  // always 0
    std::uint16_t sinkNo = 0;    // number on its target, from 1
    std::uint16_t version = 0;   // of the sink's protocol
    std::string targetName;      // the sink's name stands in brackets behind it, if it has one
    std::string configText;
    ZENNO::IPAddress findAddress{};  // control address, port included
};

// Key: the sink's address. Ascending; a driver without a fixed target takes the first.
using FinderMap = std::map<ZENNO::IPAddress, FinderRecord>;

// One thread at a time. The destructor frees the object.
class asio_velmora_find_call {
public:
    virtual ~asio_velmora_find_call() = default;
    // The whole search, on the caller's thread, with sockets of its own. `addresses` are asked by
    // unicast besides; interfaceIndex 0 means all interfaces. Nobody there is true and an empty
    // map; false, with an empty map, means that the search could not run.
    virtual bool find(FinderMap& out, const std::list<ZENNO::IPAddress>& addresses,
                      std::uint32_t interfaceIndex) = 0;
    virtual std::string settingPath() = 0;     // the user's settings file
    virtual std::string settingOrgPath() = 0;  // the factory's, beside the running program
    virtual std::uint64_t findID() = 0;        // product that is looked for
    virtual std::uint64_t productID() = 0;     // product that this driver says it is
    virtual std::string releasePath() = 0;     // empty for a driver without a kind
    virtual std::string releaseName() = 0;
};

// The signature of the export. The caller owns the object.
using MakeFinder = asio_velmora_find_call* (*)();
inline constexpr const char* finderExport = "DllVelmorafind";

}  // namespace VELMORA
