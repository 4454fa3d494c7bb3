#include "tests/wire/Golden.h"

namespace velmora_test {

using namespace VELMORA::wire;
using VELMORA::SinkConfig;

namespace {

Golden streamData(const char* why, STREAM_DATA message, const char* digits, const char* audio) {
    return golden(why, message, digits, [message, audio] {
        const ZENNO::Bytes payload = hex(audio);
        ZENNO::Bytes out(packetBytes(payload.size()));
        writeStreamHeader(out, message, payload.size());
        for (std::size_t i = 0; i < payload.size(); ++i) out[headerBytes + i] = payload[i];
        return out;
    });
}

}  // namespace

// Groups: magic, sizeWord, id, flags; then arg; then payload; then filler.
std::vector<Golden> streamGoldens() {
    return {
        golden("ask for the summary", SUPPORT_REQ{.selector = 0},
               "6400 1000 0400 0000  0000000000000000"),
        golden("ask for the PCM mask", SUPPORT_REQ{.selector = 0xff00},
               "6400 1000 0400 0000  00ff000000000000"),
        golden("ask for the DSD mask, MSB first", SUPPORT_REQ{.selector = 0x20'0000},
               "6400 1000 0400 0000  0000200000000000"),
        golden("a mask with every byte different", SUPPORT_ANS{.mask = 0x0807'0605'0403'0201},
               "6400 1000 0500 0100  0102030405060708"),
        golden("support refused", SUPPORT_ANS{.accepted = false},
               "6400 1000 0500 0000  0000000000000000"),

        golden("only ask", LATENCY_REQ{.wanted = 0}, "6400 1000 0600 0000  0000 0000 0000 0000"),
        golden("ask for 30 ms", LATENCY_REQ{.wanted = 300},
               "6400 1000 0600 0000  2c01 0000 0000 0000"),
        golden("30 ms and 1.5 ms of hardware", LATENCY_ANS{.latency = 300, .hwLatency = 15},
               "6400 1000 0700 0100  2c01 0f00 0000 0000"),

        golden("no probe", DATASIZE_REQ{}, "6400 1000 0e00 0000  0000000000000000"),
        golden("a probe of 10 bytes", DATASIZE_REQ{.probeBytes = 10},
               "6400 2600 0e00 0000  0000000000000000  7a7b7c7d7e7f80818283 000000000000"),
        golden("1500 and 15000", DATASIZE_ANS{.mtu = 1500, .maxBurst = 15000},
               "6400 1000 0f00 0100  dc05 983a 0000 0000"),
        golden("no burst limit, and what was seen of a probe of 10 bytes",
               DATASIZE_ANS{.mtu = 9000, .maxBurst = 65535, .seenLength = 10, .seenSum = 0x04f1},
               "6400 1000 0f00 0100  2823 ffff 0a00 f104"),

        golden("before a format is chosen", PROFILE_REQ{}, "6400 1000 1400 0000  0000000000000000"),
        golden("24 bits, stereo, 48000", PROFILE_REQ{.config = SinkConfig(0x000c'0000'0402)},
               "6400 1000 1400 0000  020400000c000000"),
        golden("400 us to 10 ms, flags 0x1f",
               PROFILE_ANS{.minCycle10 = 40, .maxCycle10 = 1000, .profileFlags = 0x1f},
               "6400 1000 1500 0100  2800 e803 1f00 0000"),

        golden("nop break", NOPBREAK_REQ{}, "6400 1000 2a00 0000  0000000000000000"),

        golden("PCM class, 5 ms, stereo, 48000", CONNECTPRE_REQ{.classWord = 0x000c'0032'0102},
               "6400 1000 1200 0000  020132000c000000"),
        golden("5 ms granted", CONNECTPRE_ANS{.word = 0x000c'0032'0102},
               "6400 1000 1300 0100  020132000c000000"),
        golden("pre-connect refused", CONNECTPRE_ANS{.accepted = false},
               "6400 1000 1300 0000  0000000000000000"),

        golden("the client's product and name: 4 bytes, 4 of filler",
               CLIENT_REQ{.productId = 0x4554'4e45'5652'4f4b, .name = "Host"},
               "6400 1c00 1800 0100  4b4f5256454e5445  486f7374 00000000"),
        golden("a client without a name", CLIENT_REQ{.productId = 1},
               "6400 1000 1800 0100  0100000000000000"),
        golden("client taken", CLIENT_ANS{}, "6400 1000 1900 0100  0000000000000000"),

        golden("DSD 64, stereo, LSB first, little-endian",
               CONNECT_REQ{.config = SinkConfig(0x0202'0251'0002)},
               "6400 1000 0800 0000  0200510202020000"),
        golden("the stream goes to port 50000", CONNECT_ANS{.streamPort = 50000},
               "6400 1000 0900 0100  50c3 0000 0000 0000"),
        golden("the same, and inverted", CONNECT_ANS{.wantsInvert = true, .streamPort = 50000},
               "6400 1000 0900 0101  50c3 0000 0000 0000"),
        golden("connect refused", CONNECT_ANS{.accepted = false},
               "6400 1000 0900 0000  0000 0000 0000 0000"),

        golden("the end", DSICONNECT_REQ{}, "6400 1000 0c00 0000  0000000000000000"),
        golden("the end seen", DSICONNECT_ANS{}, "6400 1000 0d00 0100  0000000000000000"),

        streamData("a packet without audio", {.flags = 0, .sequence = 0},
                   "6400 1000 0a00 0000  0000 00000000 0000", ""),
        streamData("one frame of 24 bits in stereo, 2 bytes of filler",
                   {.flags = 0, .sequence = 0x1234},
                   "6400 1a00 0a00 0000  3412 00000000 0000  a1a2a3b1b2b3 0000", "a1a2a3b1b2b3"),
        streamData("the last of a burst", {.flags = 0x40, .sequence = 65535},
                   "6400 1800 0a00 4000  ffff 00000000 0000  0102030405060708", "0102030405060708"),
        streamData("the last of a burst, asking for feedback", {.flags = 0x60, .sequence = 1},
                   "6400 1c00 0a00 6000  0100 00000000 0000  01020304 00000000", "01020304"),

        golden("feedback of +0.5, encoding 1", INFO_ANS{.feedback = 0x3000},
               "6400 1000 0b00 0100  0030 0000 0000 0000"),
        golden("feedback by fill, encoding 3", INFO_ANS{.fill = 75, .fillTarget = 50},
               "6400 1000 0b00 0100  0000 4b00 3200 0000"),
        golden("feedback that asks for inversion",
               INFO_ANS{.wantsInvert = true, .feedback = 0x8001},
               "6400 1000 0b00 0101  0180 0000 0000 0000"),
        golden("resend from 65530 on", INFO_ANS{.isResend = true, .fill = 65530, .fillTarget = 3},
               "6400 1000 0b00 0900  0000 faff 0300 0000"),
        golden("resend, inverted, and bit 0 clear",
               INFO_ANS{.accepted = false, .isResend = true, .wantsInvert = true, .fill = 1},
               "6400 1000 0b00 0801  0000 0100 0000 0000"),

        golden("send your log", LOG_REQ{.wanted = true},
               "6400 1000 2800 0000  0100 0000 0000 0000"),
        golden("send no log", LOG_REQ{.wanted = false}, "6400 1000 2800 0000  0000 0000 0000 0000"),
        golden("a line of log: 5 bytes, 3 of filler", LOG_ANS{.kind = 2, .text = "ready"},
               "6400 1b00 2900 0100  0200 0000 0000 0000  7265616479 000000"),
        golden("another kind", LOG_ANS{.kind = 1}, "6400 1000 2900 0100  0100 0000 0000 0000"),
    };
}

}  // namespace velmora_test
