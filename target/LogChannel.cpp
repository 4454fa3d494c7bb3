#include "target/LogChannel.h"

#include "wire/StreamMessage.h"

namespace velmora_target {

using VELMORA::wire::LOG_ANS;

namespace {

// A host reads at most 1500 bytes of a datagram.
constexpr std::size_t longestLine = 1400;

}  // namespace

ZENNO::Bytes LogChannel::onRequest(const ZENNO::IPAddress& from, bool wanted) {
    std::erase(readers_, from);
    if (wanted) {
        if (readers_.size() == mostReaders) readers_.erase(readers_.begin());
        readers_.push_back(from);
    }
    return write(LOG_ANS{});
}

void LogChannel::tell(const std::string& line, std::uint16_t localPort, Mail& out) const {
    LOG_ANS message;
    message.kind = LOG_ANS::textLine;
    message.text = line.substr(0, longestLine);
    for (const ZENNO::IPAddress& reader : readers_) {
        out.datagrams.push_back({localPort, reader, write(message)});
    }
}

}  // namespace velmora_target
