#include "apps/velmora-find/Target.h"

#include <cinttypes>
#include <cstdio>
#include <set>

#include "apps/velmora-find/Address.h"
#include "apps/velmora-find/ExitCode.h"
#include "apps/velmora-find/Printable.h"
#include "driver/Product.h"
#include "wire/DiscoveryMessage.h"

namespace velmora_find {
namespace {

using ZENNO::IPAddress;

constexpr std::uint64_t noID = ~0ull;  // what discovery without a driver tells as its own

}  // namespace

VELMORA::FindSetting asTheDriver() {
    return makeFindSetting(ProductID, FindID, noID, driverProductName, /*nopBreak=*/false);
}

VELMORA::FindSetting everybody() {
    VELMORA::FindSetting setting;
    setting.clientName = "velmora-find";
    setting.ownID = noID;
    return setting;
}

ExitCode codeOf(int result) {
    if (result == VELMORA::ackSocketFailed) return exitNetwork;
    return result == VELMORA::ackSilent ? exitNobody : exitTarget;
}

std::string productText(std::uint64_t product) {
    if (product == 0) return {};
    std::string text;
    for (int byte = 0; byte < 8; ++byte) text += static_cast<char>(product >> (8 * byte));
    const bool isText = text.find_first_not_of(
                            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789 _-.") ==
                        std::string::npos;
    if (isText) return text;
    char hex[24];
    std::snprintf(hex, sizeof hex, "0x%016" PRIx64, product);
    return hex;
}

Asking::Asking(Context& context, const VELMORA::FindSetting& setting, const std::string& interface)
    : environment_(context.environment),
      links_(Links::of(context.environment)),
      find_(setting, context.environment) {
    if (!find_.open(links_.chosen(interface))) {
        throw Stop{exitNetwork, "The system gives no network socket; --verbose tells more."};
    }
}

IPAddress Asking::target(const std::string& addressOrName) {
    const auto typed = readAddress(addressOrName);
    return typed ? byAddress(*typed, addressOrName) : byName(addressOrName);
}

int Asking::ask(const IPAddress& target, const ZENNO::Bytes& message, std::uint32_t answerId,
                ZENNO::Bytes& answer) {
    int asked = 0, result = VELMORA::ackSilent;
    for (; asked < mostTries && result == VELMORA::ackSilent; ++asked) {
        result = find_.sendAck(target, message, answerId, answer);
    }
    // What was asked more than once may be answered more than once, and an answer does not tell
    // which question it is for. One that answers in order has sent them all before it answers this.
    const bool mayLinger = asked > 1 && result != VELMORA::ackSocketFailed;
    for (int i = 0; mayLinger && i < mostTries && !find_.ping(target); ++i) {
    }
    return result;
}

// Without an interface each one is asked in turn, and the first that hears the target has it.
IPAddress Asking::byAddress(const TypedAddress& typed, const std::string& text) {
    std::set<std::uint32_t> scopes;
    if (typed.interface) {
        const auto number = links_.numberOf(*typed.interface);
        if (!number) links_.linkLocal(*typed.interface);  // which says what there is
        scopes.insert(number.value_or(0));
    } else if (typed.address.isLinkLocal()) {
        for (const IPAddress& interface : find_.getInterfaces()) scopes.insert(interface.scope);
        if (scopes.empty()) {
            throw Stop{exitNetwork,
                       "No interface of this computer has an address fe80::, so no "
                       "target can be asked; \"velmora-find doctor\" tells more."};
        }
    } else {
        scopes.insert(0);
    }

    bool refused = false, failed = true;
    for (int i = 0; i < mostTries; ++i) {
        for (const std::uint32_t scope : scopes) {
            IPAddress address = typed.address;
            address.scope = scope;
            ZENNO::Bytes answer;
            const int result = find_.sendAck(address, write(VELMORA::wire::FIND_REQ{}),
                                             VELMORA::wire::FIND_REQ::answer, answer);
            if (result == VELMORA::ackAccepted) return address;
            refused = refused || result == VELMORA::ackRefused;
            failed = failed && result == VELMORA::ackSocketFailed;
        }
    }
    if (refused) throw Stop{exitTarget, "The target at " + printable(text) + " refuses to talk."};
    if (failed) {
        throw Stop{exitNetwork,
                   "Nothing can be sent to " + printable(text) +
                       ": this computer's network does not reach it. Is the interface right?"};
    }
    throw Stop{exitNobody, "Nobody answers at " + printable(text) +
                               ". Is the target on? \"velmora-find list\" shows who is there."};
}

// As `list` shows it, or the target's part of it alone.
IPAddress Asking::byName(const std::string& name) {
    VELMORA::TargetMap found;
    if (!find_.search(found)) {
        throw Stop{exitNetwork,
                   "The search failed: the network socket does not work; --verbose "
                   "tells more."};
    }
    std::set<IPAddress> meant;
    for (const auto& [key, info] : found) {
        for (const std::string& known :
             {info.targetName, displayName(info.targetName, info.sinkName)}) {
            if (known == name || printable(known) == name) meant.insert(info.findAddress);
        }
    }
    if (meant.size() == 1) return *meant.begin();
    if (meant.empty()) {
        throw Stop{exitNobody, "No target named \"" + printable(name) +
                                   "\" answers, and it is no IPv6 address. \"velmora-find list "
                                   "--all\" shows who is there."};
    }
    std::string addresses;
    for (const IPAddress& address : meant) {
        addresses += (addresses.empty() ? "" : ", ") + shownAddress(address, links_);
    }
    throw Stop{exitUsage, "More than one target is named \"" + printable(name) +
                              "\"; say which by its address: " + addresses + "."};
}

}  // namespace velmora_find
