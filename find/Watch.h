// The watch: keeps a Find's target table up to date while targets come and go.
//
// It asks everybody from time to time, and listens to NOTIFY in between. A target that notifies is
// followed by its datagrams: it has to change its word within each 30 seconds. One that does not is
// found, and missed, by the next poll.
//
//   ask ──▶ compare ──▶ update ──▶ listen, gathering ──30 s──▶ listen, with pings ─┐
//    ▲    with the last pass                                                       │
//    └───────── nobody is alive · somebody does not notify · 120 s ────────────────┘
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "base/IPAddress.h"
#include "find/Exchange.h"
#include "find/Find.h"
#include "find/ProductFilter.h"

namespace VELMORA {

// Lives on the watch's own thread. Every operation that gives a bool gives false where a socket
// failed: the watch is over then.
class Watch {
public:
    explicit Watch(Find& find) : find_(find) {}
    void run();  // passes, until the owner stops it or a socket fails

private:
    // Who has sent NOTIFY in this pass.
    struct HeardEntry {
        bool active = false;
        std::uint16_t word = 0;
        std::uint32_t time = 0;     // when the word last changed, or a ping was answered; µs
        std::uint64_t product = 0;  // refusedProduct: not to be added
        std::string name;
    };
    using Heard = std::map<ZENNO::IPAddress, HeardEntry>;
    enum class Wait { failed, silent, dropped, taken };  // what one wait brought

    bool pass();
    bool ask(FoundMap& answers);
    bool askUntilSomebodyAnswers(FoundMap& answers);
    void compare(const FoundMap& answers);
    bool update(const FoundMap& answers);
    bool listen(const FoundMap& answers);
    Wait receive(Heard& heard);
    bool isOnWatchedInterface(const ZENNO::IPAddress& sender) const;
    bool onNotify(Heard& heard, const ZENNO::IPAddress& sender, std::uint16_t word);
    bool pingTheOld(Heard& heard);
    bool isAlive(const ZENNO::IPAddress& address, const char* retry, const char* lost);
    bool mayGoOn() const;

    Find& find_;
    bool first_ = true;
    // Control addresses of the targets that the last pass saw.
    std::set<ZENNO::IPAddress> known_;
};

}  // namespace VELMORA
