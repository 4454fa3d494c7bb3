// info: everything that a target tells.
#include <algorithm>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

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

// What became of a question. `word` is stable, for JSON.
struct Outcome {
    int result;
    const char *word, *shown;
};
constexpr Outcome outcomes[] = {
    {VELMORA::ackAccepted, "answered", "answered"},
    {VELMORA::ackSilent, "silent", "not answered"},
    {VELMORA::ackRefused, "refused", "refused"},
    {VELMORA::ackEcho, "echoed", "sent back"},
};
const Outcome& outcomeOf(int result) {
    const auto* row = std::find_if(std::begin(outcomes), std::end(outcomes),
                                   [&](const Outcome& o) { return o.result == result; });
    return row == std::end(outcomes) ? outcomes[1] : *row;
}

struct Answer {
    int result = VELMORA::ackSilent;
    std::string text{};  // when accepted
    bool isThere() const { return result == VELMORA::ackAccepted; }
};

struct Told {
    std::uint64_t product = 0;
    std::string name;
    Answer hello, config, infoA, infoB;
    Answer sinkCount;
    bool allSinks = true;  // each that was counted was asked, and not silent
    VELMORA::SinkMap sinks;
    std::vector<std::string> indexed;
    Answer indexEnd{VELMORA::ackAccepted};  // what ended them; accepted where the bound did
};

template <class Request>
int ask(Asking& asking, const IPAddress& target, const Request& request, ZENNO::Bytes& answer) {
    const int result = asking.ask(target, request, answer);
    if (result != VELMORA::ackSocketFailed) return result;
    throw Stop{exitNetwork, "The network socket failed; --verbose tells more."};
}

template <class Request>
Answer askText(Asking& asking, const IPAddress& target, const Request& request) {
    ZENNO::Bytes answer;
    const int result = ask(asking, target, request, answer);
    if (result != VELMORA::ackAccepted) return {result};
    return {result, std::string(wire::readPacket(answer)->text())};
}

// As the search walks them, but that a silent sink is asked again and told from one that is not
// there.
void askSinks(Asking& asking, const IPAddress& target, Told& told) {
    ZENNO::Bytes answer;
    told.sinkCount.result = ask(asking, target, wire::SINK_REQ{.sinkNo = 0}, answer);
    if (!told.sinkCount.isThere()) return;
    const auto counted = wire::readPacket(answer);
    const std::uint16_t count = counted->arg16(12) == 0 ? counted->arg16(8) : std::uint16_t{0};
    const VELMORA::TimeLimit walk(asking.environment().clock(), VELMORA::sinkWalkLimit);
    for (std::uint32_t no = 1; no <= count; ++no) {
        VELMORA::FoundSink sink;
        sink.sinkNo = static_cast<std::uint16_t>(no);
        if (walk.passed()) {
            told.allSinks = false;
            return;
        }
        const int result = ask(asking, target, wire::SINK_REQ{.sinkNo = sink.sinkNo}, answer);
        if (result != VELMORA::ackAccepted) {
            told.allSinks = told.allSinks && result == VELMORA::ackRefused;
            continue;
        }
        const auto packet = wire::readPacket(answer);
        if (packet->arg16(12) == 0) continue;
        sink.version = packet->arg16(14);
        sink.name = packet->text();
        IPAddress key = target;
        key.setPortNumber(packet->arg16(12));
        told.sinks[key] = std::move(sink);
    }
}

Told askAll(Asking& asking, const IPAddress& target) {
    Told told;
    ZENNO::Bytes answer;
    const int found = ask(asking, target, wire::FIND_REQ{}, answer);
    if (found != VELMORA::ackAccepted) {
        throw Stop{codeOf(found), found == VELMORA::ackSilent    ? "The target has fallen silent."
                                  : found == VELMORA::ackRefused ? "The target refuses to talk."
                                                                 : "The target sends the question "
                                                                   "back instead of answering it."};
    }
    const auto packet = wire::readPacket(answer);
    told.product = packet->arg64();
    told.name = packet->text();
    told.hello =
        askText(asking, target, wire::HELLO_REQ{everybody().ownID, everybody().clientName});
    askSinks(asking, target, told);
    told.config = askText(asking, target, wire::CONFIG_REQ{});
    told.config.text = wire::replaceMyAddress(told.config.text, target);
    told.infoA = askText(asking, target, wire::INFOA_REQ{});
    told.infoB = askText(asking, target, wire::INFOB_REQ{});
    for (std::uint16_t index = 0; index < mostIndexed; ++index) {
        Answer line = askText(asking, target, wire::INFOINDEX_REQ{.index = index});
        if (!line.isThere()) {
            told.indexEnd = line;
            break;
        }
        told.indexed.push_back(std::move(line.text));
    }
    return told;
}

const char* sinksWord(const Told& told) {
    return told.allSinks ? outcomeOf(told.sinkCount.result).word : "partly";
}

Json orNull(const Answer& answer) {
    return answer.isThere() ? Json(printable(answer.text)) : Json(nullptr);
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
            {"hello", told.hello.isThere()},
            {"sinks", sinks},
            {"config", orNull(told.config)},
            {"infoA", orNull(told.infoA)},
            {"infoB", orNull(told.infoB)},
            {"infoIndexed", indexed},
            {"answers",
             {{"hello", outcomeOf(told.hello.result).word},
              {"sinks", sinksWord(told)},
              {"config", outcomeOf(told.config.result).word},
              {"infoA", outcomeOf(told.infoA.result).word},
              {"infoB", outcomeOf(told.infoB.result).word},
              {"infoIndexedEnd", outcomeOf(told.indexEnd.result).word}}}};
}

void print(std::ostream& out, const IPAddress& target, const Told& told, const Links& links) {
    const auto line = [&](const std::string& label, const std::string& text) {
        out << label << std::string(label.size() < 15 ? 15 - label.size() : 1, ' ') << text << '\n';
    };
    const auto shown = [](const Answer& answer) -> std::string {
        if (!answer.isThere()) return std::string("(") + outcomeOf(answer.result).shown + ")";
        return answer.text.empty() ? "(empty)" : printable(answer.text);
    };
    line("Name", printable(told.name));
    line("Address", shownAddress(target, links));
    line("Product", told.product == 0 ? "not told" : productText(told.product));
    line("Greeting", outcomeOf(told.hello.result).shown);
    for (const auto& [key, sink] : told.sinks) {
        line("Sink " + std::to_string(sink.sinkNo),
             (sink.name.empty() ? "" : printable(sink.name) + ", ") + "port " +
                 std::to_string(key.portNumber()) + ", version " + std::to_string(sink.version));
    }
    if (!told.sinkCount.isThere()) {
        line("Sinks", shown(told.sinkCount));
    } else if (!told.allSinks) {
        line("Sinks", "(some did not answer)");
    } else if (told.sinks.empty()) {
        line("Sinks", "none");
    }
    line("Configuration", shown(told.config));
    line("Info A", shown(told.infoA));
    line("Info B", shown(told.infoB));
    for (std::size_t i = 0; i < told.indexed.size(); ++i) {
        line("Info " + std::to_string(i), shown({VELMORA::ackAccepted, told.indexed[i]}));
    }
    // A refusal is how a list ends; silence may be one that goes on.
    if (!told.indexEnd.isThere() && told.indexEnd.result != VELMORA::ackRefused) {
        line("Info " + std::to_string(told.indexed.size()), shown(told.indexEnd));
    }
}

}  // namespace

int infoCommand(Context& context, const Options& options) {
    Asking asking(context, everybody(), options.interface);
    const IPAddress target = asking.target(options.address);
    const Told told = askAll(asking, target);
    if (options.json) {
        context.out << asJson(target, told, asking.links()).dump(2) << '\n';
    } else {
        print(context.out, target, told, asking.links());
    }
    return exitDone;
}

}  // namespace velmora_find
