#include "target/Info.h"

#include <algorithm>
#include <cstdio>

#include "target/Discovery.h"
#include "wire/DiscoveryMessage.h"

namespace velmora_target {

using namespace VELMORA::wire;

namespace {

template <class Answer>
ZENNO::Bytes answerText(const std::string& text) {
    if (text.empty()) return refusal(Answer::id);
    Answer answer;
    answer.text = text;
    return write(answer);
}

std::string counted(std::size_t count, const char* what) {
    return std::to_string(count) + ' ' + what + (count == 1 ? "" : "s");
}

// "1:02:03", hours first.
std::string timeOf(std::uint64_t micros) {
    const unsigned long long seconds = micros / 1'000'000;
    char text[48];
    std::snprintf(text, sizeof text, "%llu:%02llu:%02llu", seconds / 3600, seconds / 60 % 60,
                  seconds % 60);
    return text;
}

}  // namespace

std::optional<ZENNO::Bytes> Info::answer(const PacketView& packet, std::uint64_t upMicros,
                                         Mail& out) {
    switch (packet.id()) {
        case INFOA_REQ::id:
            return answerText<INFOA_ANS>(product());
        case INFOB_REQ::id:
            return answerText<INFOB_ANS>(state(upMicros));
        case INFOINDEX_REQ::id:
            return answerText<INFOINDEX_ANS>(packet.arg16(8) == 0 ? std::to_string(sinks_.size())
                                                                  : sinkLine(packet.arg16(8)));
        case VALUE_REQ::id: {
            VALUE_ANS answer;
            answer.value = packet.arg16(8);
            // A host whose answer was lost asks again; that is no news.
            if (value_ != answer.value) {
                out.lines.push_back("value " + std::to_string(answer.value));
            }
            value_ = answer.value;
            return write(answer);
        }
        default:
            return std::nullopt;
    }
}

std::string Info::product() const {
    std::string id;
    bool isText = true;
    for (int i = 0; i < 8; ++i) {
        id += static_cast<char>(settings_.productID >> 8 * i & 0xff);
        isText = isText && id.back() > 0x20 && id.back() < 0x7f;
    }
    if (!isText) {
        char number[24];
        std::snprintf(number, sizeof number, "0x%llx",
                      static_cast<unsigned long long>(settings_.productID));
        id = number;
    }
    return "Velmora software target, product " + id +
           (settings_.release.empty() ? std::string() : ", release " + settings_.release);
}

std::string Info::state(std::uint64_t upMicros) const {
    const auto busy = static_cast<std::size_t>(std::count_if(
        sinks_.begin(), sinks_.end(), [](const auto& sink) { return sink->isConnected(); }));
    return settings_.name + ", up " + timeOf(upMicros) + ", " + counted(sinks_.size(), "sink") +
           ", " + std::to_string(busy) + " in use, value " + std::to_string(value_.value_or(0));
}

std::string Info::sinkLine(std::uint16_t sinkNo) const {
    if (sinkNo > sinks_.size()) return {};
    const SinkSettings& sink = settings_.sinks[sinkNo - 1u];
    return sink.name + ", port " + std::to_string(sink.port) + ", " +
           sinks_[sinkNo - 1u]->describe();
}

}  // namespace velmora_target
