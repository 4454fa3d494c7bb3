// A look at every interface as the driver would use it: what is there, what can be sent, who
// answers, and how. Facts alone; what they mean is Diagnosis.h's.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "apps/velmora-find/Context.h"
#include "base/IPAddress.h"

namespace velmora_find {

// The datagrams that are tried: what common sizes of a network's packets leave behind the heads of
// IPv6 and UDP, which take 48 bytes.
inline constexpr std::uint32_t datagramSizes[] = {8952, 4030, 1452};  // bytes, the largest first

struct ExaminedTarget {
    bool refused = false;  // it answered, but with a refusal
    bool late = false;     // when the driver would have stopped waiting
    std::uint64_t product = 0;
    bool isOtherProduct = false;  // the driver's filter refuses it
    std::string name;
    bool wasAsked = false;  // for what follows; not where so many answered that time was up
    std::uint32_t sinks = 0;
    std::uint32_t sinksTooNew = 0;      // of them, of a protocol that the driver does not know
    std::uint32_t largestAnswered = 0;  // of `datagramSizes`; 0: none
};

struct ExaminedInterface {
    std::uint32_t number = 0;
    std::string name, description;
    ZENNO::IPAddress address{};  // the first that is link-local
    std::int32_t bindError = 0;  // by the system's number
    std::int32_t sendError = 0;  // of the last multicast, if none could be sent
    std::uint32_t strays = 0;    // datagrams that are no answer to FIND_REQ
    std::map<ZENNO::IPAddress, ExaminedTarget> targets;  // by the address they answered from
    bool isUsable() const { return bindError == 0 && sendError == 0; }
};

struct LeftOut {
    std::string name, why;
};

struct Examination {
    std::vector<ExaminedInterface> interfaces;
    std::vector<LeftOut> leftOut;
};

// `interface`: that one alone, by name or number; all for an empty text. Throws Stop when there is
// no such interface, or no list of them.
Examination examine(Context& context, const std::string& interface);

}  // namespace velmora_find
