#include "apps/velmora-target/RawOptions.h"

#include <cmath>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string_view>

#include "target/ItemTable.h"
#include "target/Messages.h"
#include "target/OutputChoice.h"
#include "wire/DiscoveryMessage.h"
#include "wire/StreamMessage.h"

namespace velmora_target {

namespace {

using VELMORA::SinkConfig;

std::optional<std::uint64_t> pcmBit(const std::string& name) {
    static const std::map<std::string, std::uint64_t> bits{
        {"8", SinkConfig::pcm8},      {"16", SinkConfig::pcm16}, {"24", SinkConfig::pcm24},
        {"32", SinkConfig::pcm32},    {"64", SinkConfig::pcm64}, {"f32", SinkConfig::float32},
        {"f64", SinkConfig::float64},
    };
    const auto found = bits.find(name);
    return found == bits.end() ? std::nullopt : std::optional(found->second);
}

// The most that fits into one datagram over IPv6 with its headers.
constexpr std::uint32_t mostPacketBytes = 65464;

[[noreturn]] void refuse(const std::string& option, const std::string& why) {
    throw CLI::ValidationError(option, why);
}

std::uint64_t ratesOf(const std::vector<std::string>& list, bool dsd) {
    const std::string option = dsd ? "--dsd-rates" : "--rates";
    std::uint64_t bits = 0;
    for (const std::string& entry : list) {
        if (!dsd && entry == "max") {
            for (std::uint32_t times = 1; times <= 4096; times *= 2) {
                bits |= rateBits(44100 * times) | rateBits(48000 * times);
            }
            continue;
        }
        std::uint32_t hz = 0;
        if (!CLI::detail::lexical_cast(entry, hz)) refuse(option, entry + " is no rate");
        if (dsd && hz <= 4096) hz *= 44100;  // as in "DSD64"
        const std::uint64_t bit = rateBits(hz);
        if (bit == 0) refuse(option, entry + " is not 44100 or 48000 times 1, 2, 4 ... 4096");
        if (dsd && hz < 2822400) refuse(option, entry + " is below DSD64");
        bits |= bit;
    }
    return bits;
}

std::set<std::uint16_t> messagesOf(const std::string& option,
                                   const std::vector<std::string>& names) {
    std::set<std::uint16_t> ids;
    for (const std::string& name : names) {
        const auto message = messageNamed(name);
        if (!message) {
            std::string known;
            for (const MessageName& m : messages()) known += " " + std::string(m.name);
            refuse(option, name + " is no message; there are" + known);
        }
        ids.insert(message->id);
    }
    return ids;
}

std::uint16_t messageIdOf(const std::string& option, const std::string& name) {
    return *messagesOf(option, {name}).begin();
}

// "MESSAGE=PERCENT" each.
std::map<std::uint16_t, double> sharesOf(const std::string& option,
                                         const std::vector<std::string>& entries) {
    std::map<std::uint16_t, double> shares;
    for (const std::string& entry : entries) {
        const auto equals = entry.find('=');
        double percent = -1;
        if (equals == std::string::npos ||
            !CLI::detail::lexical_cast(entry.substr(equals + 1), percent) || !(percent >= 0) ||
            percent > 100) {
            refuse(option, entry + " is not MESSAGE=PERCENT, from 0 to 100");
        }
        shares[messageIdOf(option, entry.substr(0, equals))] = percent;
    }
    return shares;
}

// "STEP=MANNER" each.
Manners mannersOf(const std::string& option, const std::vector<std::string>& entries) {
    Manners result;
    for (const std::string& entry : entries) {
        const auto equals = entry.find('=');
        if (equals == std::string::npos) refuse(option, entry + " is not STEP=MANNER");
        const std::uint16_t step = messageIdOf(option, entry.substr(0, equals));
        const auto manner = mannerNamed(entry.substr(equals + 1));
        if (!manner) {
            std::string known;
            for (const MannerName& m : manners()) known += " " + std::string(m.name);
            refuse(option, entry + ": no such manner; there are" + known);
        }
        if (manner->ofStreamAlone && step != VELMORA::wire::STREAM_DATA::id) {
            refuse(option, entry + ": only of STREAM_DATA");
        }
        result[step] = manner->manner;
    }
    return result;
}

// "BYTES,PACKETS,BLOCKS".
ChannelSettings channelOf(const std::string& entry) {
    std::vector<std::uint32_t> words;
    std::istringstream list(entry);
    for (std::string word; std::getline(list, word, ',');) {
        std::uint32_t number = 0;
        if (!CLI::detail::lexical_cast(word, number)) number = 0;
        words.push_back(number);
    }
    const auto isCount = [](std::uint32_t n) { return n >= 1 && n <= 65536; };
    if (words.size() != 3 || entry.ends_with(',') || words[0] < 1 || words[0] > mostPacketBytes ||
        !isCount(words[1]) || !isCount(words[2])) {
        refuse("--channel", entry + " is not BYTES,PACKETS,BLOCKS: up to " +
                                std::to_string(mostPacketBytes) + " bytes, the others to 65536");
    }
    return {words[0], words[1], words[2]};
}

// Eight characters, the first in the lowest byte, or a number.
std::uint64_t productOf(const std::string& text) {
    std::uint64_t id = 0;
    if (text.size() == 8 && text.find_first_not_of("0123456789") != std::string::npos) {
        for (std::size_t i = 8; i-- > 0;) id = id << 8 | static_cast<std::uint8_t>(text[i]);
        return id;
    }
    if (!CLI::detail::lexical_cast(text, id)) {
        refuse("--product", text + " is neither eight characters nor a number");
    }
    return id;
}

std::uint16_t unitsOf(const std::string& option, double micros, int unit) {
    const double units = std::round(micros / unit);
    if (!(units >= 0 && units <= 65535)) refuse(option, "too large");
    return static_cast<std::uint16_t>(units);
}

FormatMasks formatsOf(const CLI::App& app, const RawOptions& raw) {
    FormatMasks formats;
    std::uint64_t channels = 0;
    for (const std::uint32_t count : raw.channels) {
        const std::uint64_t bit = channelBits(count);
        if (bit == 0) refuse("--channels", std::to_string(count) + " is not 1, 2, 4, 6, 8 or 16");
        channels |= bit;
    }
    std::uint64_t samples = 0;
    for (const std::string& name : raw.pcm) {
        if (name == "none") continue;
        const auto bit = pcmBit(name);
        if (!bit) refuse("--pcm", name + " is not 8, 16, 24, 32, 64, f32, f64 or none");
        samples |= *bit;
    }
    if (samples != 0) formats.pcm = channels | samples | ratesOf(raw.rates, false);
    if (raw.dsd != "none") {
        std::uint64_t common =
            channels | SinkConfig::dsd1 | SinkConfig::dsdClass | ratesOf(raw.dsdRates, true);
        if (raw.dsdWord != "big") common |= SinkConfig::dsdLittle;
        if (raw.dsdWord != "little") common |= SinkConfig::dsdBig;
        if (raw.dsd != "msb") formats.dsdLsb = common | SinkConfig::dsdLsb;
        if (raw.dsd != "lsb") formats.dsdMsb = common | SinkConfig::dsdMsb;
    }
    if (app.count("--pcm-mask") != 0) formats.pcm = raw.pcmMask;
    if (app.count("--dsd-lsb-mask") != 0) formats.dsdLsb = raw.dsdLsbMask;
    if (app.count("--dsd-msb-mask") != 0) formats.dsdMsb = raw.dsdMsbMask;
    if (!formats.hasAny()) refuse("--pcm", "a target without any format");
    return formats;
}

std::vector<SinkSettings> sinksOf(const RawOptions& raw) {
    const std::vector<std::string> names =
        raw.sinks.empty() ? std::vector<std::string>{"Main"} : raw.sinks;
    std::vector<SinkSettings> sinks;
    std::set<std::uint32_t> taken{VELMORA::wire::ControlPort, VELMORA::wire::NotifyPort};
    for (std::size_t i = 0; i < names.size(); ++i) {
        const std::uint32_t port = raw.firstPort + static_cast<std::uint32_t>(i);
        const std::uint32_t streamPort = port + raw.streamPortOffset;
        if (port == 0 || streamPort > 65535) refuse("--port", "no such UDP port");
        const bool fresh =
            taken.insert(port).second && (port == streamPort || taken.insert(streamPort).second);
        if (!fresh)
            refuse("--port", "the ports of the sinks run into each other or into 19642, 19643");
        sinks.push_back({names[i], static_cast<std::uint16_t>(port),
                         static_cast<std::uint16_t>(streamPort),
                         static_cast<std::uint16_t>(raw.sinkVersion)});
    }
    return sinks;
}

PcmTimes alsaTimesOf(const CLI::App& app, const RawOptions& raw) {
    const double period = app.count("--alsa-period") != 0 ? raw.alsaPeriodMs : raw.alsaBufferMs / 4;
    if (period > raw.alsaBufferMs / 2) {
        refuse("--alsa-period", "no longer than half of --alsa-buffer");
    }
    const auto micros = [](double ms) {
        return static_cast<std::uint32_t>(std::lround(ms * 1000));
    };
    return {micros(raw.alsaBufferMs), micros(period)};
}

// By the rule for hosts that set it.
void checkName(const std::string& name) {
    for (const ItemRow& row : itemTable()) {
        if (std::string_view(row.key) != "name") continue;
        const std::string objection = objectionTo(row, {0, name});
        if (!objection.empty()) refuse("--name", objection);
    }
}

bool isFile(const std::string& output) {
    return output != "none" && !output.starts_with(alsaPrefix);
}

}  // namespace

void finish(const CLI::App& app, const RawOptions& raw, Options& options) {
    TargetSettings& target = options.target;
    checkName(target.name);
    target.productID = productOf(raw.product);
    target.formats = formatsOf(app, raw);
    target.sinks = sinksOf(raw);
    target.latency = unitsOf("--latency", raw.latency, 100);
    if (target.latency < leastLatency || target.latency > mostLatency) {
        refuse("--latency", "from 500 to 2000000 microseconds");
    }
    if (app.count("--hw-latency") != 0) {
        target.hwLatency = unitsOf("--hw-latency", raw.hwLatency, 100);
    }
    target.minCycle10 = unitsOf("--profile", raw.profile[0], 10);
    target.maxCycle10 = unitsOf("--profile", raw.profile[1], 10);
    target.profileFlags = unitsOf("--profile", raw.profile[2], 1);
    options.alsa = alsaTimesOf(app, raw);
    target.deviceLatency = unitsOf("--alsa-buffer", options.alsa.bufferMicros, 100);
    if (app.count("--buffer") != 0) {
        target.bufferMicros = static_cast<std::uint64_t>(std::llround(raw.bufferMs * 1000));
    }
    if (!raw.clockDrift.empty()) {
        target.clockDrift = {raw.clockDrift[0], raw.clockDrift[1]};
        if (!(std::abs(target.clockDrift.ppm) <= 50000) ||
            !(target.clockDrift.seconds >= 0.1 && target.clockDrift.seconds <= 1e6)) {
            refuse("--clock-drift", "up to 50000 ppm in 0.1 to 1000000 seconds");
        }
    }
    const auto microsOfMillis = [](double ms) {
        return static_cast<std::uint64_t>(std::llround(ms * 1000));
    };
    if (raw.ask[0] > raw.ask[1]) refuse("--ask", "the shorter time comes first");
    target.askAfter = microsOfMillis(raw.ask[0]);
    target.askUntil = microsOfMillis(raw.ask[1]);
    target.phaseInvert = raw.phase == "invert";
    target.silent = messagesOf("--silent", raw.silent);
    target.refused = messagesOf("--refuse", raw.refused);
    target.lost = sharesOf("--lose", raw.lost);
    target.lostAnswers = sharesOf("--lose-answers", raw.lostAnswers);
    target.manners = mannersOf("--misbehave", raw.misbehave);
    // Audio packets that are lost on purpose are counted by their stream.
    if (const auto audio = target.lost.extract(VELMORA::wire::STREAM_DATA::id)) {
        target.dropPercent = audio.mapped();
    }
    if (app.count("--output-folder") == 0 && isFile(target.output)) {
        const std::filesystem::path folder = std::filesystem::path(target.output).parent_path();
        target.outputFolder = folder.empty() ? "." : folder.string();
    }
    for (const std::string& entry : raw.transferChannels) {
        target.channels.push_back(channelOf(entry));
    }
    if (!target.channels.empty() && options.inbox.empty()) {
        refuse("--channel", "transfers need an --inbox");
    }
    if (target.channels.empty() && !options.inbox.empty()) target.channels.emplace_back();
}

}  // namespace velmora_target
