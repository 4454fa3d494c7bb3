#include "apps/velmora-find/Diagnosis.h"

#include <algorithm>

#include "apps/velmora-find/Printable.h"
#include "apps/velmora-find/Target.h"
#include "platform/System.h"
#include "wire/DiscoveryMessage.h"

namespace velmora_find {
namespace {

using ZENNO::IPAddress;

std::string errorWords(std::int32_t error) {
    return error < 0
               ? "without an error number"
               : printable(ZENNO::platform::errorText(error)) + ", error " + std::to_string(error);
}

bool canBeUsed(const ExaminedTarget& target) {
    return !target.refused && !target.late && !target.isOtherProduct &&
           target.sinks > target.sinksTooNew;
}

// What one target may have against it; every row that holds is told.
struct Ailment {
    bool (*holds)(const IPAddress&, const ExaminedTarget&);
    std::string (*wrong)(const IPAddress&, const ExaminedTarget&);
    const char* helps;
};
const Ailment ailments[] = {
    {[](const IPAddress&, const ExaminedTarget& t) { return t.refused; },
     [](const IPAddress&, const ExaminedTarget&) { return std::string(" refuses to be found."); },
     "Switch it off and on; if that does not help, ask its maker for new software."},
    {[](const IPAddress&, const ExaminedTarget& t) { return t.late; },
     [](const IPAddress&, const ExaminedTarget&) {
         return std::string(" answers later than the driver waits for it, which is 90 ms.");
     },
     "Connect it and this computer by cable to one switch, and end large transfers."},
    {[](const IPAddress& a, const ExaminedTarget&) {
         return a.portNumber() != VELMORA::wire::ControlPort;
     },
     [](const IPAddress& a, const ExaminedTarget&) {
         return " answers from port " + std::to_string(a.portNumber()) + " and not from 19642.";
     },
     "The search finds it all the same, but the setting TargetAddress cannot be used for it."},
    {[](const IPAddress&, const ExaminedTarget& t) { return !t.refused && t.isOtherProduct; },
     [](const IPAddress&, const ExaminedTarget& t) {
         return " is of product " + productText(t.product) + ", which the driver passes over.";
     },
     "Use the driver that came with that device."},
    {[](const IPAddress&, const ExaminedTarget& t) {
         return !t.refused && t.wasAsked && t.sinks == 0;
     },
     [](const IPAddress&, const ExaminedTarget&) {
         return std::string(" tells of no sink to play to.");
     },
     "Switch it off and on; a firewall that lets the first answer through alone would show the "
     "same."},
    {[](const IPAddress&, const ExaminedTarget& t) {
         return t.sinks != 0 && t.sinks == t.sinksTooNew;
     },
     [](const IPAddress&, const ExaminedTarget&) {
         return std::string(" speaks a newer protocol than the driver knows.");
     },
     "Install a newer release of the driver."},
    {[](const IPAddress&, const ExaminedTarget& t) {
         return !t.refused && t.wasAsked && t.largestAnswered == 0;
     },
     [](const IPAddress&, const ExaminedTarget&) {
         return std::string(" does not answer datagrams of 1452 bytes, as a stream sends them.");
     },
     "Take out of the way what makes packets smaller: a VPN, a powerline adapter, a radio link."},
};

void addInterface(const ExaminedInterface& there, std::vector<Finding>& out) {
    const std::string name = printable(there.name);
    if (there.bindError != 0) {
        out.push_back({name + ": its address cannot be used (" + errorWords(there.bindError) + ").",
                       "A few seconds after a cable was plugged in this is normal; else switch the "
                       "interface off and on."});
    }
    if (there.sendError != 0) {
        out.push_back(
            {name + ": the question to everybody cannot be sent (" + errorWords(there.sendError) +
                 ").",
             "Is the cable plugged in? A firewall or a VPN may hold back IPv6 multicast as well."});
    }
    for (const auto& [address, target] : there.targets) {
        for (const Ailment& ailment : ailments) {
            if (!ailment.holds(address, target)) continue;
            out.push_back(
                {"\"" + printable(target.name) + "\" on " + name + ailment.wrong(address, target),
                 ailment.helps});
        }
    }
    const auto unasked = std::count_if(there.targets.begin(), there.targets.end(),
                                       [](const auto& entry) { return !entry.second.wasAsked; });
    if (unasked != 0) {
        out.push_back({name + ": " + std::to_string(unasked) +
                           " of those who answered could not be looked at, for there are too many.",
                       "No network of real targets has so many: look for a device that answers in "
                       "many names."});
    }
    if (there.strays != 0) {
        out.push_back({name + ": " + std::to_string(there.strays) +
                           " datagrams came that are no answer of a target.",
                       "Something else there may use port 19642; nothing needs to be done while "
                       "targets are found."});
    }
}

}  // namespace

Diagnosis diagnose(const Examination& examination) {
    Diagnosis out;
    bool anyUsable = false, anyAnswer = false;
    for (const ExaminedInterface& there : examination.interfaces) {
        addInterface(there, out.findings);
        anyUsable = anyUsable || there.isUsable();
        anyAnswer = anyAnswer || !there.targets.empty();
        out.targets += static_cast<std::size_t>(
            std::count_if(there.targets.begin(), there.targets.end(),
                          [](const auto& entry) { return canBeUsed(entry.second); }));
    }
    if (examination.interfaces.empty()) {
        out.findings.push_back({"No interface has an address fe80::, so nobody can be asked.",
                                "Plug in the cable or join the wireless network, and see that IPv6 "
                                "is switched on in the interface's properties."});
    }
    if (anyUsable && !anyAnswer) {
        out.findings.push_back(
            {"The question went out, and nobody answered.",
             "Is the target on and on this network? Does the firewall let this program receive UDP "
             "(on Windows: private networks)? Guest and wireless networks often keep devices "
             "apart."});
    }
    out.code = out.targets != 0 ? exitDone : anyUsable ? exitNobody : exitNetwork;
    out.verdict = out.targets == 0 ? "The driver will find no target that it can use."
                  : out.targets == 1
                      ? "The driver will find one target."
                      : "The driver will find " + std::to_string(out.targets) + " targets.";
    return out;
}

}  // namespace velmora_find
