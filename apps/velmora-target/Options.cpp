#include "apps/velmora-target/Options.h"

#include <CLI/CLI.hpp>
#include <array>
#include <cmath>
#include <iostream>
#include <map>
#include <set>

#include "target/Messages.h"
#include "wire/DiscoveryMessage.h"

namespace velmora_target {

namespace {

using VELMORA::SinkConfig;

constexpr const char* footer =
    R"(Formats are masks: a device that takes 44100 and 96000 Hz takes 48000 and 88200 Hz too.

Output:
  none          plays into nothing, by its own clock
  FILE.wav      PCM: 16, 24, 32 bit, float 32 and 64; RF64 when it grows large
  FILE.dsf      DSD, up to six channels
  FILE          one of the two, by the format of the stream
  alsa:NAME     a sound device; DSD where the device takes 32-bit DSD words
Later streams get -2, -3 ... before the extension, other sinks -sinkN.

Audio is written as it came, from the first packet of the stream to its end, with silence only for
packets that never arrived; a pause after an underrun is not written.

With --json each line is one object with a "type": "ready" once the target answers, "event",
"figures" once a second for each stream, "stream" when one ends, and last "summary", which is the
last stream's figures, if there was one, with "streamCount". Times end in Micros; "feedback" is
the number that the host is told, positive to slow it down.

Exit codes:
  0  ended as asked: --once, --seconds, or interrupted
  2  wrong arguments
  3  the network: no such interface, port taken, socket failed
  4  the output cannot be written
  5  --once and --seconds: nobody connected in time
  6  --once: the stream ended since its host fell silent)";

std::optional<std::uint64_t> pcmBit(const std::string& name) {
    static const std::map<std::string, std::uint64_t> bits{
        {"8", SinkConfig::pcm8},      {"16", SinkConfig::pcm16}, {"24", SinkConfig::pcm24},
        {"32", SinkConfig::pcm32},    {"64", SinkConfig::pcm64}, {"f32", SinkConfig::float32},
        {"f64", SinkConfig::float64},
    };
    const auto found = bits.find(name);
    return found == bits.end() ? std::nullopt : std::optional(found->second);
}

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

// What the options say before they become settings.
struct Raw {
    std::vector<std::string> sinks, pcm{"16", "24", "32", "f32"}, rates,
        dsdRates{"64", "128", "256", "512"}, silent, refused;
    std::vector<std::uint32_t> channels{1, 2, 4, 6, 8};
    std::string product = "KORVENTE", dsd = "msb", dsdWord = "big", phase = "normal";
    std::vector<std::uint32_t> profile{1000, 5000, 0x0c};
    std::uint32_t firstPort = 19650, streamPortOffset = 0, sinkVersion = 1;
    double latency = 20000, hwLatency = 1000, bufferMs = 0;
    std::uint64_t pcmMask = 0, dsdLsbMask = 0, dsdMsbMask = 0;
};

FormatMasks formatsOf(const CLI::App& app, const Raw& raw) {
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

std::vector<SinkSettings> sinksOf(const Raw& raw) {
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

void finish(const CLI::App& app, const Raw& raw, Options& options) {
    TargetSettings& target = options.target;
    target.productID = productOf(raw.product);
    target.formats = formatsOf(app, raw);
    target.sinks = sinksOf(raw);
    target.latency = unitsOf("--latency", raw.latency, 100);
    if (target.latency < leastLatency || target.latency > mostLatency) {
        refuse("--latency", "from 500 to 2000000 microseconds");
    }
    target.hwLatency = unitsOf("--hw-latency", raw.hwLatency, 100);
    target.minCycle10 = unitsOf("--profile", raw.profile[0], 10);
    target.maxCycle10 = unitsOf("--profile", raw.profile[1], 10);
    target.profileFlags = unitsOf("--profile", raw.profile[2], 1);
    if (app.count("--buffer") != 0) {
        target.bufferMicros = static_cast<std::uint64_t>(std::llround(raw.bufferMs * 1000));
    }
    target.phaseInvert = raw.phase == "invert";
    target.silent = messagesOf("--silent", raw.silent);
    target.refused = messagesOf("--refuse", raw.refused);
}

}  // namespace

CommandLine readCommandLine(int count, char** values) {
    Options options;
    Raw raw;
    TargetSettings& target = options.target;
    target.name = "Velmora software target";
    for (std::uint32_t times = 1; times <= 32; times *= 2) {
        raw.rates.push_back(std::to_string(44100 * times));
        raw.rates.push_back(std::to_string(48000 * times));
    }

    CLI::App app(
        "A network audio device in software: found, negotiated with and played to by the "
        "Velmora driver.",
        "velmora-target");
    app.footer(footer);
    app.get_formatter()->column_width(34);

    const std::string device = "The device", format = "Formats", stream = "The stream",
                      faults = "Misbehaviour, to try hosts with", program = "The program";
    app.add_option("--interface", options.interfaces,
                   "network interface; all with a link-local address")
        ->type_name("NAME")
        ->allow_extra_args(false)
        ->group(device);
    app.add_option("--name", target.name, "what hosts show")->type_name("TEXT")->group(device);
    app.add_option("--product", raw.product, "product: eight characters or a number")
        ->type_name("ID")
        ->group(device);
    app.add_option("--config", target.configText, "configuration text; [myaddress] may stand in it")
        ->type_name("TEXT")
        ->group(device);
    app.add_option("--sink", raw.sinks, "a sink of this name; may be repeated")
        ->type_name("NAME")
        ->allow_extra_args(false)
        ->group(device);
    app.add_option("--sink-version", raw.sinkVersion, "version of the sinks' protocol")
        ->check(CLI::Range(0, 65535))
        ->type_name("N")
        ->group(device);
    app.add_option("--port", raw.firstPort, "UDP port of the first sink")
        ->check(CLI::Range(1, 65535))
        ->type_name("PORT")
        ->capture_default_str()
        ->group(device);
    app.add_option("--stream-port-offset", raw.streamPortOffset,
                   "audio goes to the sink's port and so much")
        ->check(CLI::Range(0, 65535))
        ->type_name("N")
        ->group(device);

    app.add_option("--pcm", raw.pcm, "of 8, 16, 24, 32, 64, f32, f64, none")
        ->delimiter(',')
        ->type_name("LIST")
        ->capture_default_str()
        ->group(format);
    app.add_option("--channels", raw.channels, "of 1, 2, 4, 6, 8, 16")
        ->delimiter(',')
        ->type_name("LIST")
        ->capture_default_str()
        ->group(format);
    app.add_option("--rates", raw.rates, "Hz, or max; by default up to 1536000")
        ->delimiter(',')
        ->type_name("LIST")
        ->group(format);
    app.add_option("--dsd", raw.dsd, "bit orders")
        ->check(CLI::IsMember({"lsb", "msb", "both", "none"}))
        ->capture_default_str()
        ->group(format);
    app.add_option("--dsd-word", raw.dsdWord, "word orders")
        ->check(CLI::IsMember({"little", "big", "both"}))
        ->capture_default_str()
        ->group(format);
    app.add_option("--dsd-rates", raw.dsdRates, "times 44100, or Hz")
        ->delimiter(',')
        ->type_name("LIST")
        ->capture_default_str()
        ->group(format);
    app.add_option("--pcm-mask", raw.pcmMask, "the whole mask instead")
        ->type_name("WORD")
        ->group(format);
    app.add_option("--dsd-lsb-mask", raw.dsdLsbMask, "the same")->type_name("WORD")->group(format);
    app.add_option("--dsd-msb-mask", raw.dsdMsbMask, "the same")->type_name("WORD")->group(format);

    app.add_option("--latency", raw.latency, "granted to a host without a wish, in steps of 100")
        ->type_name("MICROS")
        ->capture_default_str()
        ->group(stream);
    app.add_option("--hw-latency", raw.hwLatency, "told to hosts, in steps of 100")
        ->type_name("MICROS")
        ->capture_default_str()
        ->group(stream);
    app.add_option("--mtu", target.mtu, "told to hosts")
        ->type_name("BYTES")
        ->capture_default_str()
        ->group(stream);
    app.add_option("--max-burst", target.maxBurst, "told to hosts; 65535 for no limit")
        ->type_name("BYTES")
        ->capture_default_str()
        ->group(stream);
    app.add_option("--profile", raw.profile,
                   "cycle bounds in steps of 10 microseconds, and flags: 1 bounds do not bind, 2 "
                   "fixed size, 4 sweep, 8 several packets a cycle")
        ->delimiter(',')
        ->expected(3)
        ->type_name("MIN,MAX,FLAGS")
        ->capture_default_str()
        ->group(stream);
    app.add_option("--buffer", raw.bufferMs, "fill to aim at; the latency granted")
        ->check(CLI::Range(0.1, 60000.0))
        ->type_name("MS")
        ->group(stream);
    app.add_option("--clock-ppm", target.clockPpm, "own clock against nominal")
        ->check(CLI::Range(-50000.0, 50000.0))
        ->type_name("PPM")
        ->group(stream);
    app.add_option("--feedback", target.feedbackEncoding, "encoding")
        ->check(CLI::Range(1, 3))
        ->type_name("1|2|3")
        ->capture_default_str()
        ->group(stream);
    app.add_option("--phase", raw.phase, "asked of the host")
        ->check(CLI::IsMember({"normal", "invert"}))
        ->group(stream);
    app.add_option("--output", options.output, "where the audio goes")
        ->type_name("OUTPUT")
        ->capture_default_str()
        ->group(stream);

    app.add_option("--drop", target.dropPercent, "loses so many of the audio packets that come")
        ->check(CLI::Range(0.0, 100.0))
        ->type_name("PERCENT")
        ->group(faults);
    app.add_option("--seed", target.seed, "for --drop")->type_name("N")->group(faults);
    app.add_option("--silent", raw.silent, "never answers this message; may be repeated")
        ->type_name("MESSAGE")
        ->allow_extra_args(false)
        ->group(faults);
    app.add_option("--refuse", raw.refused, "refuses this message; may be repeated")
        ->type_name("MESSAGE")
        ->allow_extra_args(false)
        ->group(faults);

    app.add_flag("--once", options.once, "exits after the first stream")->group(program);
    app.add_option("--seconds", options.seconds, "exits after so long")
        ->check(CLI::Range(0.0, 1e9))
        ->type_name("N")
        ->group(program);
    app.add_flag("--json", options.json, "one object a line")->group(program);
    app.add_flag("--quiet", options.quiet, "the summary alone")->group(program);

    try {
        app.parse(count, values);
        finish(app, raw, options);
    } catch (const CLI::ParseError& error) {
        return {std::nullopt, app.exit(error) == 0 ? exitDone : exitUsage};
    }
    return {options, exitDone};
}

}  // namespace velmora_target
