#include "tests/support/ScriptedTarget.h"

#include <algorithm>

namespace velmora_test {
namespace {

namespace wire = VELMORA::wire;

struct Word {
    std::uint16_t id;
    const char* name;
    bool withWord;  // the first word of arg tells what is asked
};
constexpr Word words[] = {
    {wire::FIND_REQ::id, "FIND_REQ", false},         {wire::SINK_REQ::id, "SINK_REQ", true},
    {wire::CONFIG_REQ::id, "CONFIG_REQ", false},     {wire::HELLO_REQ::id, "HELLO_REQ", false},
    {wire::NOPBREAK_REQ::id, "NOPBREAK_REQ", false},
};

}  // namespace

ScriptedTarget::ScriptedTarget(FakeNetwork& network, const IPAddress& address) : network_(network) {
    alsoAt(address);
    replies[wire::FIND_REQ::id] = [this](const wire::PacketView&) {
        return write(wire::FIND_ANS{.productID = product, .targetName = name});
    };
    replies[wire::HELLO_REQ::id] = [](const wire::PacketView&) { return write(wire::HELLO_ANS{}); };
    replies[wire::CONFIG_REQ::id] = [this](const wire::PacketView&) {
        return write(wire::CONFIG_ANS{.configText = configText});
    };
    replies[wire::NOPBREAK_REQ::id] = [](const wire::PacketView&) {
        return write(wire::SUPPORT_ANS{});
    };
    replies[wire::SINK_REQ::id] = [this](const wire::PacketView& request) {
        const std::uint16_t no = request.arg16(8);
        if (no == 0) {
            const auto told = countTold.value_or(static_cast<std::uint16_t>(sinks.size()));
            return write(wire::SINK_ANS{.count = told, .port = portInCount});
        }
        if (no > sinks.size()) return write(wire::SINK_ANS{});
        const Sink& sink = sinks[no - 1u];
        return write(
            wire::SINK_ANS{.port = sink.port, .version = sink.version, .sinkName = sink.name});
    };
    behave(Manner::silent, wire::NOPBREAK_REQ::id);
}

ScriptedTarget::~ScriptedTarget() {
    for (const IPAddress& address : addresses_) network_.attach(address, nullptr);
}

void ScriptedTarget::alsoAt(const IPAddress& address) {
    addresses_.push_back(address);
    network_.attach(address, this);
}

void ScriptedTarget::behave(Manner manner, std::uint16_t id) {
    manners_[id] = manner;
}

void ScriptedTarget::behave(Manner manner, std::uint16_t id, std::uint16_t word) {
    mannersByWord_[{id, word}] = manner;
}

void ScriptedTarget::behaveToAll(Manner manner) {
    for (const auto& [id, reply] : replies) {
        if (id != wire::NOPBREAK_REQ::id) behave(manner, id);
    }
}

ScriptedTarget::Manner ScriptedTarget::mannerTo(std::uint16_t id, std::uint16_t word) const {
    if (const auto it = mannersByWord_.find({id, word}); it != mannersByWord_.end()) {
        return it->second;
    }
    const auto it = manners_.find(id);
    return it == manners_.end() ? Manner::answers : it->second;
}

std::vector<std::string> ScriptedTarget::order() const {
    std::vector<std::string> out;
    for (const Seen& s : seen) {
        const auto* word = std::find_if(std::begin(words), std::end(words),
                                        [&](const Word& w) { return w.id == s.id; });
        const bool known = word != std::end(words);
        std::string text = s.multicast ? "multicast " : "";
        text += known ? word->name : "id " + std::to_string(s.id);
        if (s.multicast || (known && word->withWord)) text += " " + std::to_string(s.arg[0]);
        out.push_back(text);
    }
    return out;
}

int ScriptedTarget::count(std::uint16_t id) const {
    return static_cast<int>(
        std::count_if(seen.begin(), seen.end(), [&](const Seen& s) { return s.id == id; }));
}

void ScriptedTarget::onDatagram(FakeNetwork&, const Datagram& datagram) {
    const auto request = wire::readPacket(datagram.data);
    if (!request) return;
    Seen saw;
    saw.time = network_.time.time();
    saw.id = request->id();
    saw.arg = wire::argOf(request->arg64());
    saw.multicast = datagram.to.address[0] == 0xff;
    saw.from = datagram.from;
    saw.data = datagram.data;
    // By multicast it is reached at the address that it has on that link.
    const auto here = std::find_if(addresses_.begin(), addresses_.end(), [&](const IPAddress& a) {
        return saw.multicast ? a.scope == datagram.to.scope && a.port == datagram.to.port
                             : a == datagram.to;
    });
    saw.at = here == addresses_.end() ? datagram.to : *here;
    seen.push_back(saw);
    if (onRequest) onRequest(saw);

    const Manner manner = mannerTo(saw.id, saw.arg[0]);
    const auto reply = replies.find(saw.id);
    if (manner == Manner::silent || reply == replies.end()) return;
    Bytes answer = manner == Manner::echoes ? datagram.data : reply->second(*request);
    IPAddress from = saw.at;
    switch (manner) {
        case Manner::refuses:
            answer[6] = static_cast<std::uint8_t>(answer[6] & ~1);
            break;
        case Manner::foreignSender:
            from.setWord(6, static_cast<std::uint16_t>(from.word(6) ^ 0xf00));
            break;
        case Manner::otherPort:
            from.setPortNumber(static_cast<std::uint16_t>(from.portNumber() + 1));
            break;
        case Manner::otherScope:
            from.scope += 1;
            break;
        case Manner::answers:
        case Manner::silent:
        case Manner::echoes:
            break;
    }
    const auto delay = answerDelay.find(saw.id);
    if (delay == answerDelay.end() || delay->second == 0) {
        network_.send(from, saw.from, std::move(answer));
    } else {
        network_.time.in(delay->second,
                         [&network = network_, from, to = saw.from, data = std::move(answer)] {
                             network.send(from, to, data);
                         });
    }
}

}  // namespace velmora_test
