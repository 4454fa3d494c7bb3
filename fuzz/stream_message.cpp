// Every reader of the stream's messages, and the words that are worked out from them.
#include "fuzz/RoundTrip.h"

using namespace VELMORA::wire;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto packet = readPacket(ConstBytes(data, size));
    if (!packet) return 0;
    if (const auto info = read<INFO_ANS>(*packet)) {
        const FeedbackValue value = decodeFeedback(*info);
        const auto said = encodeFeedback(value.encoding, value.value, info->fill, info->fillTarget);
        // Encoding 1 wraps above 0x5fff, and what wraps is not said that way.
        const bool wraps = value.encoding == 1 && info->feedback > 0x5fff;
        require(wraps || decodeFeedback(said) == value);
    }
    if (const auto connect = read<CONNECT_REQ>(*packet)) {
        const std::uint64_t word = classWord(connect->config, 0x1234);
        require((word >> 16 & 0xffff) == 0x1234 && (word & 0xff00) != 0);
        require(!connect->config.isValid() || connect->config.frameBytes() <= 128);
    }
    return velmora_fuzz::roundTripAll<SUPPORT_REQ, SUPPORT_ANS, LATENCY_REQ, LATENCY_ANS,
                                      DATASIZE_REQ, DATASIZE_ANS, PROFILE_REQ, PROFILE_ANS,
                                      NOPBREAK_REQ, CONNECTPRE_REQ, CONNECTPRE_ANS, CLIENT_REQ,
                                      CLIENT_ANS, CONNECT_REQ, CONNECT_ANS, DSICONNECT_REQ,
                                      DSICONNECT_ANS, STREAM_DATA, INFO_ANS, LOG_REQ, LOG_ANS>(
        data, size);
}
