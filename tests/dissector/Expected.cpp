#include "tests/dissector/Expected.h"

#include <cinttypes>
#include <cstdio>

#include "target/FormatMasks.h"
#include "tests/wire/Messages.h"

namespace velmora_test {
namespace {

using VELMORA::SinkConfig;
using namespace VELMORA::wire;

std::string number(std::int64_t value) {
    return std::to_string(value);
}
std::string hexNumber(std::uint64_t value, int digits) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%0*" PRIx64, digits, value);
    return text;
}
std::string word(std::uint64_t value) {
    return hexNumber(value, 4);
}
std::string word64(std::uint64_t value) {
    return hexNumber(value, 16);
}
std::string truth(bool value) {
    return value ? "1" : "0";
}
std::string bytes(ConstBytes data) {
    std::string out;
    char text[4];
    for (const std::uint8_t byte : data) {
        std::snprintf(text, sizeof text, "%02x", unsigned{byte});
        out += (out.empty() ? "" : ":") + std::string(text);
    }
    return out;
}

std::string product(std::uint64_t id) {
    if (id == 0) return "not told";
    std::string text;
    for (int i = 0; i < 8; ++i) {
        const char c = static_cast<char>(id >> (8 * i));
        const bool isPlain = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') ||
                             (c >= 'a' && c <= 'z') || c == ' ' || c == '_' || c == '-' || c == '.';
        if (!isPlain) return word64(id);
        text += c;
    }
    return text;
}

std::string formatText(SinkConfig format) {
    if (format.word == 0) return "none chosen";
    return std::string(velmora_target::sampleFormatName(format)) + ", " +
           number(format.channels()) + " channels, " + number(format.rate()) + " Hz";
}

// Some fields of the format word are bits that nothing else in this tree asks for by themselves.
constexpr std::uint64_t field(std::uint64_t word, int from, int count) {
    return word >> from & ((std::uint64_t{1} << count) - 1);
}
void addFormat(Fields& out, SinkConfig f) {
    out["format"] = word64(f.word);
    out["format.text"] = formatText(f);
    out["format.channel_code"] = hexNumber(f.word & SinkConfig::channelMask, 2);
    out["format.sample"] = hexNumber(f.word & SinkConfig::formatMask, 8);
    out["format.dsd_lsb"] = truth(f.has(SinkConfig::dsdLsb));
    out["format.dsd_msb"] = truth(f.has(SinkConfig::dsdMsb));
    out["format.dsd_little"] = truth(f.has(SinkConfig::dsdLittle));
    out["format.dsd_big"] = truth(f.has(SinkConfig::dsdBig));
    out["format.dsd_class"] = hexNumber(field(f.word, 24, 8), 2);
    out["format.rate_family"] = hexNumber(field(f.word, 32, 3), 2);
    out["format.rate_multiplier"] = number(static_cast<std::int64_t>(field(f.word, 35, 13)));
    out["format.channels"] = number(f.channels());
    out["format.bits_per_sample"] = number(f.bitsPerSample());
    out["format.bytes_per_sample"] = number(f.bytesPerSample());
    out["format.frame_bytes"] = number(f.frameBytes());
    out["format.base_rate"] = number(f.baseRate());
    out["format.rate"] = number(f.rate());
    out["format.valid"] = truth(f.isValid());
}

struct MaskBit {
    const char* key;
    std::uint64_t bit;
};
constexpr MaskBit maskBits[] = {
    {"channels_1", 0x01},
    {"channels_2", 0x02},
    {"channels_4", 0x04},
    {"channels_6", 0x08},
    {"channels_8", 0x10},
    {"channels_16", 0x20},
    {"pcm_8", SinkConfig::pcm8},
    {"pcm_16", SinkConfig::pcm16},
    {"pcm_24", SinkConfig::pcm24},
    {"pcm_32", SinkConfig::pcm32},
    {"pcm_64", SinkConfig::pcm64},
    {"float_32", SinkConfig::float32},
    {"float_64", SinkConfig::float64},
    {"dsd", SinkConfig::dsd1},
    {"dsd_packed", SinkConfig::dsd4},
    {"dsd_lsb", SinkConfig::dsdLsb},
    {"dsd_msb", SinkConfig::dsdMsb},
    {"dsd_little", SinkConfig::dsdLittle},
    {"dsd_big", SinkConfig::dsdBig},
    {"dsd_words", SinkConfig::dsdClass},
    {"base_8000", SinkConfig::family8000},
    {"base_44100", SinkConfig::family44100},
    {"base_48000", SinkConfig::family48000},
};

void addPhase(Fields& out, std::uint16_t flags) {
    out["flags.phase"] = number((flags & INFO_ANS::phaseMask) >> 7);
}

// ---- one function a message: what is beyond header and payload ----

void add(Fields& out, const FIND_REQ& m, const Asked&) {
    out["find.mode"] = number(m.mode);
}
void add(Fields& out, const FIND_ANS& m, const Asked&) {
    out["find.product"] = word64(m.productID);
    out["product_text"] = product(m.productID);
    out["find.target_name"] = m.targetName;
}
void add(Fields& out, const SINK_REQ& m, const Asked&) {
    out["sink.no"] = number(m.sinkNo);
}
void add(Fields& out, const SINK_ANS& m, const Asked& asked) {
    out["sink.count"] = number(m.count);
    out["sink.port"] = number(m.port);
    out["sink.version"] = number(m.version);
    out["sink.name"] = m.sinkName;
    if (m.accepted && asked.number != 0) out["sink.no"] = number(*asked.number);
}
void add(Fields&, const CONFIG_REQ&, const Asked&) {}
void add(Fields& out, const CONFIG_ANS& m, const Asked&) {
    out["config_text"] = m.configText;
}
void add(Fields& out, const HELLO_REQ& m, const Asked&) {
    out["hello.own_id"] = word64(m.ownID);
    out["product_text"] = product(m.ownID);
    out["hello.client_name"] = m.clientName;
}
void add(Fields&, const HELLO_ANS&, const Asked&) {}
void add(Fields& out, const NOTIFY& m, const Asked&) {
    out["notify.word"] = number(m.word);
}

void add(Fields& out, const SUPPORT_REQ& m, const Asked&) {
    out["support.selector"] = word64(m.selector);
    out["support.asks"] = m.selector == 0                              ? "summary"
                          : m.selector == 0x100000                     ? "DSD, LSB first"
                          : m.selector == 0x200000                     ? "DSD, MSB first"
                          : (m.selector & ~std::uint64_t{0xff00}) == 0 ? "PCM"
                                                                       : "unknown";
}
void add(Fields& out, const SUPPORT_ANS& m, const Asked& asked) {
    out["support.mask"] = word64(m.mask);
    for (const MaskBit& row : maskBits) {
        out[std::string("support.mask.") + row.key] = truth((m.mask & row.bit) != 0);
    }
    for (int power = 0; power <= 12; ++power) {
        out["support.mask.times_" + number(1 << power)] = truth((m.mask >> (35 + power) & 1) != 0);
    }
    if (!asked.supportFamily.empty()) out["support.asks"] = asked.supportFamily;
}
void add(Fields& out, const LATENCY_REQ& m, const Asked&) {
    out["latency.wanted"] = number(m.wanted);
}
void add(Fields& out, const LATENCY_ANS& m, const Asked&) {
    out["latency.latency"] = number(m.latency);
    out["latency.hardware"] = number(m.hwLatency);
}
void add(Fields& out, const DATASIZE_REQ& m, const Asked&) {
    if (m.probeBytes != 0) out["datasize.probe_length"] = number(m.probeBytes);
}
void add(Fields& out, const DATASIZE_ANS& m, const Asked& asked) {
    out["datasize.mtu"] = number(m.mtu);
    out["datasize.max_burst"] = number(m.maxBurst);
    out["datasize.seen_length"] = number(m.seenLength);
    out["datasize.seen_sum"] = word(m.seenSum);
    if (!asked.probeSum) return;
    const bool came = m.accepted && m.seenSum == *asked.probeSum;
    out["datasize.came_through"] = truth(came);
    if (came) out["datasize.usable_mtu"] = number(m.seenLength + 64);
}
void add(Fields& out, const PROFILE_REQ& m, const Asked&) {
    addFormat(out, m.config);
}
void add(Fields& out, const PROFILE_ANS& m, const Asked&) {
    out["profile.min_cycle"] = number(m.minCycle10);
    out["profile.max_cycle"] = number(m.maxCycle10);
    out["profile.flags"] = word(m.profileFlags);
    const char* names[] = {"unbound", "var", "sweep", "several", "random"};
    for (unsigned i = 0; i < std::size(names); ++i) {
        out[std::string("profile.") + names[i]] = truth((m.profileFlags >> i & 1) != 0);
    }
}
void add(Fields&, const NOPBREAK_REQ&, const Asked&) {}
void add(Fields& out, const CONNECTPRE_REQ& m, const Asked&) {
    out["connectpre.class_word"] = word64(m.classWord);
    out["format.channel_code"] = hexNumber(m.classWord & 0xff, 2);
    out["connectpre.class"] = word(m.classWord & 0xff00);
    out["connectpre.latency"] = number(static_cast<std::int64_t>(field(m.classWord, 16, 16)));
    out["format.rate_family"] = hexNumber(field(m.classWord, 32, 3), 2);
    out["format.rate_multiplier"] = number(static_cast<std::int64_t>(field(m.classWord, 35, 13)));
    out["format.channels"] = number(SinkConfig(m.classWord).channels());
    out["format.rate"] = number(SinkConfig(m.classWord).rate());
}
void add(Fields& out, const CONNECTPRE_ANS& m, const Asked&) {
    out["connectpre.word"] = word64(m.word);
    out["connectpre.granted"] = number(m.latency());
}
void add(Fields& out, const CLIENT_REQ& m, const Asked&) {
    out["client.product"] = word64(m.productId);
    out["product_text"] = product(m.productId);
    out["client.name"] = m.name;
}
void add(Fields&, const CLIENT_ANS&, const Asked&) {}
void add(Fields& out, const CONNECT_REQ& m, const Asked&) {
    addFormat(out, m.config);
}
void add(Fields& out, const CONNECT_ANS& m, const Asked&) {
    out["connect.stream_port"] = number(m.streamPort);
    out["connect.wants_invert"] = truth(m.wantsInvert);
}
void add(Fields&, const DSICONNECT_REQ&, const Asked&) {}
void add(Fields&, const DSICONNECT_ANS&, const Asked&) {}

void add(Fields& out, const STREAM_DATA& m, const Asked& asked) {
    out["stream.sequence"] = number(m.sequence);
    out["flags.asks_info"] = truth((m.flags & STREAM_DATA::asksInfo) != 0);
    out["flags.last_of_burst"] = truth((m.flags & STREAM_DATA::lastOfBurst) != 0);
    if (asked.streamFrameBytes != 0) out["format.text"] = asked.streamFormat;
}
void add(Fields& out, const INFO_ANS& m, const Asked&) {
    out["flags.resend"] = truth(m.isResend);
    if (m.isResend) {
        out["info.resend_from"] = number(m.resendFrom());
        out["info.resend_last"] = number(m.resendLast());
        return;
    }
    const FeedbackValue value = decodeFeedback(m);
    out["info.feedback_word"] = word(m.feedback);
    out["info.fill"] = number(m.fill);
    out["info.fill_target"] = number(m.fillTarget);
    out["info.encoding"] = number(value.encoding);
    out["info.value"] = number(value.value);
    char text[32];
    std::snprintf(text, sizeof text, "%.15g", value.value / 16384.0);
    out["feedback"] = text;
    out["info.wants_invert"] = truth(m.wantsInvert);
}
void add(Fields& out, const LOG_REQ& m, const Asked&) {
    // The decoder has one bit of it, by whether it is 0.
    EXPECT_EQ(m.wanted, out.at("log.wanted") != "0");
}
void add(Fields& out, const LOG_ANS& m, const Asked&) {
    out["log.kind"] = number(m.kind);
    out["log.text"] = m.text;
}

void add(Fields& out, const TRANSFER_REQ& m, const Asked&) {
    out["transfer.channel"] = number(m.channel);
}
void add(Fields& out, const TRANSFER_ANS& m, const Asked& asked) {
    if (asked.number == 0) {
        out["transfer.channels"] = number(m.channel);
        out["transfer.burst_limit"] = number(m.second);
        return;
    }
    out["transfer.channel"] = number(m.channel);
    out["transfer.packet_bytes_1"] = number(m.second);
    out["transfer.block_packets_1"] = number(m.blockPackets1);
    out["transfer.blocks_1"] = number(m.blocks1);
    out["transfer.capacity"] =
        std::to_string((std::uint64_t{m.second} + 1) * (std::uint64_t{m.blockPackets1} + 1) *
                       (std::uint64_t{m.blocks1} + 1));
}
void add(Fields& out, const TRANSFER_DATA& m, const Asked&) {
    out["transfer.channel"] = number(m.channel & ~TRANSFER_DATA::lastMark);
    out["transfer.last"] = truth((m.channel & TRANSFER_DATA::lastMark) != 0);
    out["transfer.seq"] = number(m.seq);
    out["transfer.index"] = number(m.index);
    out["transfer.block"] = number(m.block);
}
void add(Fields& out, const TRANSFER_ACK& m, const Asked&) {
    out["transfer.channel"] = number(m.channel);
    out["transfer.seq"] = number(m.seq);
}
template <class End>
void addEnd(Fields& out, const End& m) {
    out["transfer.channel"] = number(m.channel);
    out["transfer.crc"] = word(m.crc);
    out["transfer.status"] = number(m.status);
}
void add(Fields& out, const TRANSFEREND_REQ& m, const Asked&) {
    addEnd(out, m);
}
void add(Fields& out, const TRANSFEREND_ANS& m, const Asked&) {
    addEnd(out, m);
}

void add(Fields&, const INFOA_REQ&, const Asked&) {}
void add(Fields& out, const INFOA_ANS& m, const Asked&) {
    out["infoa.text"] = m.text;
}
void add(Fields&, const INFOB_REQ&, const Asked&) {}
void add(Fields& out, const INFOB_ANS& m, const Asked&) {
    out["infob.text"] = m.text;
}
void add(Fields& out, const VALUE_REQ& m, const Asked&) {
    out["value.value"] = number(m.value);
}
void add(Fields& out, const VALUE_ANS& m, const Asked&) {
    out["value.value"] = number(m.value);
}
void add(Fields& out, const INFOINDEX_REQ& m, const Asked&) {
    out["infoindex.index"] = number(m.index);
}
void add(Fields& out, const INFOINDEX_ANS& m, const Asked&) {
    out["infoindex.text"] = m.text;
}
std::string itemNumber(std::uint16_t value, bool isSigned) {
    return number(isSigned ? static_cast<std::int16_t>(value) : std::int64_t{value});
}
void add(Fields& out, const ITEM_REQ& m, const Asked&) {
    out["item.no"] = number(m.itemNo);
}
void add(Fields& out, const ITEM_ANS& m, const Asked& asked) {
    out["item.label"] = m.label;
    if (asked.number == 0) {
        out["item.count"] = number(m.itemNo);
        return;
    }
    out["item.no"] = number(m.itemNo);
    out["item.type"] = number(m.type);
    out["item.lower"] = itemNumber(m.lower, m.type == 2);
    out["item.upper"] = itemNumber(m.upper, m.type == 2);
}
void add(Fields& out, const ITEMVALUE_REQ& m, const Asked& asked) {
    out["item.no"] = number(m.itemNo);
    out["item.mode"] = number(m.mode);
    out["item.value"] = itemNumber(m.value, asked.isSignedItem);
    if (m.mode == ITEMVALUE_REQ::modeWrite) out["item.text"] = m.text;
}
void add(Fields& out, const ITEMVALUE_ANS& m, const Asked& asked) {
    out["item.no"] = number(m.itemNo);
    out["item.current"] = itemNumber(m.current, asked.isSignedItem);
    out["item.second"] = itemNumber(m.second, asked.isSignedItem);
    out["item.text"] = m.text;
}

constexpr bool isAnswer(std::uint16_t id) {
    return id % 2 == 1 && id != NOTIFY::id;
}

// Found out from more than one datagram, or said in words of the dissector's own.
constexpr const char* foundOut[] = {
    "request_in",
    "response_in",
    "response_time",
    "repeat_of",
    "try",
    "stream.new",
    "stream.again",
    "stream.fills_gap",
    "stream.gap",
    "stream.gap_from",
    "stream.first_in",
    "stream.asked_in",
    "stream.burst_packets",
    "stream.cycle",
    "stream.frames",
    "info.resend_count",
    "transfer.new",
    "transfer.again",
    "transfer.fills_gap",
    "transfer.gap",
    "transfer.gap_from",
    "transfer.first_in",
    "transfer.burst_arrived",
    "transfer.crc_computed",
    "transfer.crc_good",
    "support.mask_text",
};

}  // namespace

Fields expectedFields(const PacketView& packet, const Asked& asked) {
    Fields out;
    const ConstBytes whole = packet.datagram(), payload = packet.payload();
    const std::uint16_t sizeWord = packet.sizeWord();
    out["magic"] = number(packetMagic);
    out["size_word"] = word(sizeWord);
    out["length"] = number(static_cast<std::int64_t>(lengthInSizeWord(sizeWord)));
    out["filler_count"] = number(sizeWord & 7);
    out["id"] = number(packet.id());
    out["flags"] = word(packet.flags());
    out["arg"] = bytes(whole.subspan(8, 8));
    out["payload_length"] = number(static_cast<std::int64_t>(payload.size()));
    if (!payload.empty()) out["payload"] = bytes(payload);
    const std::size_t fillerAt = headerBytes + payload.size();
    const std::size_t end = std::max(lengthInSizeWord(sizeWord), headerBytes);
    if (fillerAt < end) out["filler"] = bytes(whole.subspan(fillerAt, end - fillerAt));
    if (end < whole.size()) out["surplus"] = bytes(whole.subspan(end));
    if (isAnswer(packet.id())) out["flags.accepted"] = truth(packet.accepted());
    if (packet.id() == CONNECT_ANS::id || packet.id() == INFO_ANS::id) {
        addPhase(out, packet.flags());
    }
    // Words that are fixed, or that the decoder keeps less of.
    if (packet.id() == SINK_REQ::id) out["sink.one"] = number(packet.arg16(14));
    if (packet.id() == LOG_REQ::id) out["log.wanted"] = number(packet.arg16(8));
    if (packet.id() == DATASIZE_REQ::id && !payload.empty()) {
        Bytes pattern(payload.size());
        fillProbe(pattern);
        out["datasize.probe_sum"] = word(probeSum(payload));
        out["datasize.probe_good"] =
            truth(std::equal(pattern.begin(), pattern.end(), payload.begin(), payload.end()));
    }
    AllMessages::each([&]<class M>() {
        if (const auto m = VELMORA::wire::read<M>(packet)) add(out, *m, asked);
    });
    return out;
}

Fields ownFields(const Shown& shown) {
    Fields out;
    for (const auto& [key, values] : shown.fields) out[key] = shown[key];
    for (const char* key : foundOut) out.erase(key);
    return out;
}

}  // namespace velmora_test
