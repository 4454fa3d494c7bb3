// The target's sockets: the control port, which is in the all-nodes group of every interface, and
// the ports of the sinks.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "src/Network/Socket.h"
#include "src/Network/SocketSet.h"
#include "target/Mail.h"
#include "target/Settings.h"

namespace velmora_target {

std::uint64_t nowMicros() noexcept;  // monotonic, without a wrap

class Ports {
public:
    // A text that says what failed; empty if nothing did.
    std::string open(const TargetSettings& settings, const std::vector<std::string>& interfaces);
    // Interfaces come and go while a target runs: joins the new ones. True when the list changed.
    bool lookAround();

    bool wait(std::uint64_t micros);  // false when the wait itself failed
    // The next datagram, on whichever port; false when none is left. Valid until the next call.
    bool receive(Arrival& arrival);
    void send(const Outgoing& datagram);

    const std::set<std::uint32_t>& scopes() const noexcept { return scopes_; }
    const std::vector<std::string>& interfaceNames() const noexcept { return names_; }

private:
    struct Port {
        std::uint16_t number = 0;
        ZENNO::Socket socket;
    };
    std::string openPort(std::uint16_t number);
    bool receiveOn(Port& port, Arrival& arrival);

    std::vector<std::unique_ptr<Port>> ports_;  // the control port first
    std::size_t first_ = 0;                     // looked at first by receive
    ZENNO::SocketSet set_;
    std::vector<std::string> wanted_;  // interfaces; empty for all
    std::set<std::uint32_t> scopes_;
    std::vector<std::string> names_;
    std::vector<std::uint8_t> buffer_ = std::vector<std::uint8_t>(65536);
};

}  // namespace velmora_target
