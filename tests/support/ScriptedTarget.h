// A target of discovery on a FakeNetwork. It answers by a table of replies, one a request, can
// misbehave in every way that the host knows, and keeps what it saw, so that a test asserts whole
// orders.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/FakeNetwork.h"
#include "wire/DiscoveryMessage.h"

namespace velmora_test {

class ScriptedTarget final : public Peer {
public:
    enum class Manner {
        answers,
        silent,
        refuses,        // bit 0 of the answer's flags clear
        echoes,         // the request itself comes back
        foreignSender,  // the answer comes from another address
        otherPort,      // from another port of the same address
        otherScope,     // from the same address on another interface
    };
    struct Sink {
        std::uint16_t port = 0;  // 0: no such sink
        std::uint16_t version = 0;
        std::string name;
    };
    struct Seen {
        std::uint64_t time = 0;
        std::uint16_t id = 0;
        VELMORA::wire::Arg arg{};
        bool multicast = false;
        IPAddress at{}, from{};
        Bytes data;
    };
    using Reply = std::function<Bytes(const VELMORA::wire::PacketView& request)>;

    // Attaches itself; `address` with port and scope.
    ScriptedTarget(FakeNetwork& network, const IPAddress& address);
    ~ScriptedTarget() override;
    ScriptedTarget(const ScriptedTarget&) = delete;
    ScriptedTarget& operator=(const ScriptedTarget&) = delete;

    void alsoAt(const IPAddress& address);  // on another link, or at another port

    // What it tells of itself; may change between requests.
    std::string name = "target";
    std::uint64_t product = 0;
    std::string configText;
    std::vector<Sink> sinks;                 // number 1 first
    std::optional<std::uint16_t> countTold;  // unless it is the number of `sinks`
    std::uint16_t portInCount = 0;           // +12 of the answer that tells the count

    // The replies, by the request's id; filled for the requests of a search. No reply, no answer.
    std::map<std::uint16_t, Reply> replies;

    // How it answers a request; with `word`, only where the first word of arg is that. All are
    // answered at first, but for NOPBREAK_REQ, to which it is silent.
    void behave(Manner manner, std::uint16_t id);
    void behave(Manner manner, std::uint16_t id, std::uint16_t word);
    void behaveToAll(Manner manner);  // every request of a search, but for NOPBREAK_REQ
    std::map<std::uint16_t, std::uint64_t> answerDelay;  // µs before the answer leaves, by id
    std::function<void(const Seen&)> onRequest;          // before it answers

    std::vector<Seen> seen;
    // What it saw, in words: "multicast FIND_REQ 0", "SINK_REQ 2", "CONFIG_REQ".
    std::vector<std::string> order() const;
    int count(std::uint16_t id) const;

    void onDatagram(FakeNetwork& network, const Datagram& datagram) override;

private:
    Manner mannerTo(std::uint16_t id, std::uint16_t word) const;

    FakeNetwork& network_;
    std::vector<IPAddress> addresses_;
    std::map<std::uint16_t, Manner> manners_;
    std::map<std::pair<std::uint16_t, std::uint16_t>, Manner> mannersByWord_;
};

}  // namespace velmora_test
