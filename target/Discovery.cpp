#include "target/Discovery.h"

#include "wire/DiscoveryMessage.h"

namespace velmora_target {

using namespace VELMORA::wire;

namespace {

SINK_ANS answerSink(const TargetSettings& settings, std::uint16_t sinkNo) {
    SINK_ANS answer;
    if (sinkNo == 0) {
        answer.count = static_cast<std::uint16_t>(settings.sinks.size());
    } else if (sinkNo <= settings.sinks.size()) {
        const SinkSettings& sink = settings.sinks[sinkNo - 1u];
        answer.port = sink.port;
        answer.version = sink.version;
        answer.sinkName = sink.name;
    }
    return answer;  // port 0: no such sink
}

}  // namespace

ZENNO::Bytes refusal(std::uint16_t answerId) {
    return makePacket(answerId, 0);
}

std::optional<ZENNO::Bytes> answerDiscovery(const TargetSettings& settings,
                                            const PacketView& packet) {
    switch (packet.id()) {
        case FIND_REQ::id: {
            FIND_ANS answer;
            answer.productID = settings.productID;
            answer.targetName = settings.name;
            return write(answer);
        }
        case SINK_REQ::id:
            return write(answerSink(settings, packet.arg16(8)));
        case CONFIG_REQ::id: {
            if (settings.configText.empty()) return refusal(CONFIG_ANS::id);
            CONFIG_ANS answer;
            answer.configText = settings.configText;
            return write(answer);
        }
        case HELLO_REQ::id:
            return write(HELLO_ANS{});
        // A search takes an accepted answer to this one for a failure: it hears that we are here,
        // and goes on.
        case NOPBREAK_REQ::id:
            return refusal(NOPBREAK_REQ::answer);
        default:
            return std::nullopt;
    }
}

}  // namespace velmora_target
