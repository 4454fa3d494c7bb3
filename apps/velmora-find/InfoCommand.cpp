// info: everything that a target tells.
#include <optional>

#include "apps/velmora-find/Address.h"
#include "apps/velmora-find/Commands.h"
#include "apps/velmora-find/ExitCode.h"
#include "apps/velmora-find/Printable.h"
#include "apps/velmora-find/SinkRows.h"
#include "apps/velmora-find/Target.h"
#include "wire/DiscoveryMessage.h"

namespace velmora_find {
namespace {

namespace wire = VELMORA::wire;
using ZENNO::IPAddress;

constexpr std::uint16_t mostIndexed = 64;  // for a target that answers whatever the index is

struct Told {
    std::uint64_t product = 0;
    std::string name;
    bool hello = false;
    std::optional<std::string> config, infoA, infoB;
    VELMORA::SinkMap sinks;
    std::vector<std::string> indexed;
};

Told askAll(VELMORA::Find& find, const IPAddress& target) {
    Told told;
    ZENNO::Bytes answer;
    const int found = find.sendAck(target, write(wire::FIND_REQ{}), wire::FIND_REQ::answer, answer);
    if (found != VELMORA::ackAccepted && found != VELMORA::ackSocketFailed) {
        throw Stop{exitNobody, "The target has fallen silent."};
    }
    if (found == VELMORA::ackAccepted) {
        const auto packet = wire::readPacket(answer);
        told.product = packet->arg64();
        told.name = packet->text();
    }
    const wire::HELLO_REQ hello{everybody().ownID, everybody().clientName};
    told.hello =
        find.sendAck(target, write(hello), wire::HELLO_REQ::answer, answer) == VELMORA::ackAccepted;
    if (found == VELMORA::ackSocketFailed || !find.getSinks(target, told.sinks)) {
        throw Stop{exitNetwork, "The network socket failed; --verbose tells more."};
    }

    if (find.sendAck(target, write(wire::CONFIG_REQ{}), wire::CONFIG_REQ::answer, answer) ==
        VELMORA::ackAccepted) {
        const auto packet = wire::readPacket(answer);
        told.config = wire::replaceMyAddress(std::string(packet->text()), target);
    }
    std::string text;
    if (find.readInfoA(target, text)) told.infoA = text;
    if (find.readInfoB(target, text)) told.infoB = text;
    for (std::uint16_t index = 0; index < mostIndexed; ++index) {
        if (!find.readInfoIndexed(target, index, text)) break;
        told.indexed.push_back(text);
    }
    return told;
}

Json orNull(const std::optional<std::string>& text) {
    return text ? Json(printable(*text)) : Json(nullptr);
}

Json asJson(const IPAddress& target, const Told& told, const Links& links) {
    Json sinks = Json::array();
    for (const auto& [key, sink] : told.sinks) {
        sinks.push_back({{"sink", sink.sinkNo},
                         {"name", printable(sink.name)},
                         {"port", key.portNumber()},
                         {"version", sink.version}});
    }
    Json indexed = Json::array();
    for (const std::string& text : told.indexed) indexed.push_back(printable(text));
    return {{"address", shownAddress(target, links)},
            {"name", printable(told.name)},
            {"product", productText(told.product)},
            {"hello", told.hello},
            {"sinks", sinks},
            {"config", orNull(told.config)},
            {"infoA", orNull(told.infoA)},
            {"infoB", orNull(told.infoB)},
            {"infoIndexed", indexed}};
}

void print(std::ostream& out, const IPAddress& target, const Told& told, const Links& links) {
    const auto line = [&](const std::string& label, const std::string& text) {
        out << label << std::string(label.size() < 15 ? 15 - label.size() : 1, ' ') << text << '\n';
    };
    const auto maybe = [&](const char* label, const std::optional<std::string>& text) {
        if (text) line(label, text->empty() ? "(empty)" : printable(*text));
    };
    line("Name", printable(told.name));
    line("Address", shownAddress(target, links));
    line("Product", told.product == 0 ? "not told" : productText(told.product));
    line("Greeting", told.hello ? "answered" : "not answered");
    for (const auto& [key, sink] : told.sinks) {
        line("Sink " + std::to_string(sink.sinkNo),
             (sink.name.empty() ? "" : printable(sink.name) + ", ") + "port " +
                 std::to_string(key.portNumber()) + ", version " + std::to_string(sink.version));
    }
    if (told.sinks.empty()) line("Sinks", "none");
    maybe("Configuration", told.config);
    maybe("Info A", told.infoA);
    maybe("Info B", told.infoB);
    for (std::size_t i = 0; i < told.indexed.size(); ++i) {
        maybe(("Info " + std::to_string(i)).c_str(), told.indexed[i]);
    }
}

}  // namespace

int infoCommand(Context& context, const Options& options) {
    Asking asking(context, everybody(), options.interface);
    const IPAddress target = asking.target(options.address);
    const Told told = askAll(asking.find(), target);
    if (options.json) {
        context.out << asJson(target, told, asking.links()).dump(2) << '\n';
    } else {
        print(context.out, target, told, asking.links());
    }
    return exitDone;
}

}  // namespace velmora_find
