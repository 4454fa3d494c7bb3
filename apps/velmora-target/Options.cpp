#include "apps/velmora-target/Options.h"

#include <cmath>

#include "apps/velmora-target/RawOptions.h"

namespace velmora_target {

namespace {

constexpr const char* footer =
    R"(Formats are masks: a device that takes 44100 and 96000 Hz takes 48000 and 88200 Hz too.

Output:
  none          plays into nothing, by its own clock
  FILE.wav      PCM: 16, 24, 32 bit, float 32 and 64; RF64 when it grows large
  FILE.dsf      DSD, up to six channels
  FILE          one of the two, by the format of the stream
  alsa:NAME     a sound device, by its ALSA name; hw:0 and the like play every bit as it is.
                Hosts are told those of the formats that the device takes; its clock rules
Later streams get -2, -3 ... before the extension, other sinks -sinkN.

Audio is written as it came, from the first packet of the stream to its end, with silence only for
packets that never arrived; a pause after an underrun is not written to files, and is silence on a
sound device. A device that is taken away ends its stream; the next stream opens it anew.

Settings of the target are shown to hosts, which can change them: name, buffer, clock trim, feedback,
phase, announcing, output. What a host asks to keep goes to --state and goes before the command line
at the next start. A file that a host names lies in --output-folder, and replaces none.
A sound device that a host has kept and that is not there ends nothing: the target looks for it
every five seconds, and hosts may set another.

Transfers go to --inbox once they are whole, as channel-0-1.bin, channel-0-2.bin ...; one that does
not become whole leaves nothing there.

With --json each line is one object with a "type": "ready" once the target answers, "event",
"figures" once a second for each stream, "stream" when one ends, and last "summary", which is the
last stream's figures, if there was one, with "streamCount", "settingChanges", "transfers",
"transfersFailed", "transferBytes", "transferDuplicates" and "misbehaved", the messages that
--misbehave met. Times end in Micros; "feedback" is the number that the host is told, positive to
slow it down.

Manners of --misbehave, for an answer or, with STREAM_DATA, for what is said while a stream runs:
MANNERS
Exit codes:
  0  ended as asked: --once, --seconds, or interrupted
  2  wrong arguments, or a --state that cannot be read
  3  the network: no such interface, port taken, socket failed
  4  the output cannot be written, there is no such folder, or no such sound device, or it is in use
  5  --once and --seconds: nobody connected in time
  6  --once: the stream ended since its host fell silent)";

// The list of manners in its place, so that it is the one that is read.
std::string footerText() {
    std::string list, text = footer;
    for (const MannerName& manner : manners()) {
        std::string line = "  " + std::string(manner.name);
        line.resize(15, ' ');
        list += line + std::string(manner.meaning) + '\n';
    }
    const std::string place = "MANNERS\n";
    return text.replace(text.find(place), place.size(), list + '\n');
}

// Bounds do not keep out what compares with nothing.
const CLI::Validator isFinite(
    [](std::string& text) {
        double number = 0;
        const bool good = CLI::detail::lexical_cast(text, number) && std::isfinite(number);
        return good ? std::string() : text + " is no number";
    },
    "");

}  // namespace

CommandLine readCommandLine(int count, char** values) {
    Options options;
    RawOptions raw;
    TargetSettings& target = options.target;
    target.name = "Velmora software target";
    target.release = VELMORA_RELEASE;
    for (std::uint32_t times = 1; times <= 32; times *= 2) {
        raw.rates.push_back(std::to_string(44100 * times));
        raw.rates.push_back(std::to_string(48000 * times));
    }

    CLI::App app(
        "A network audio device in software: found, negotiated with and played to by the "
        "Velmora driver.",
        "velmora-target");
    app.footer(footerText());
    app.set_version_flag("--version", VELMORA_RELEASE);
    app.get_formatter()->column_width(34);

    const std::string device = "The device", format = "Formats", stream = "The stream",
                      storage = "Settings and transfers",
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
        ->check(isFinite)
        ->type_name("MICROS")
        ->capture_default_str()
        ->group(stream);
    app.add_option("--hw-latency", raw.hwLatency,
                   "told to hosts, in steps of 100; else 1000, with a sound device its buffer")
        ->check(isFinite)
        ->type_name("MICROS")
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
        ->check(isFinite)
        ->type_name("MS")
        ->group(stream);
    app.add_option("--clock-ppm", target.clockPpm, "own clock against nominal")
        ->check(CLI::Range(-50000.0, 50000.0))
        ->check(isFinite)
        ->type_name("PPM")
        ->group(stream);
    app.add_option("--clock-drift", raw.clockDrift,
                   "own clock comes and goes by so much besides, there and back in so long")
        ->delimiter(',')
        ->expected(2)
        ->check(isFinite)
        ->type_name("PPM,SECONDS")
        ->group(stream);
    app.add_option("--ask", raw.ask,
                   "asks for packets again that have been missing so long, from and to; hosts keep "
                   "about a second")
        ->delimiter(',')
        ->expected(2)
        ->check(CLI::Range(0.0, 2000.0))
        ->check(isFinite)
        ->type_name("MIN,MAX ms")
        ->default_str("0,400")
        ->group(stream);
    app.add_option("--feedback", target.feedbackEncoding, "encoding")
        ->check(CLI::Range(1, 3))
        ->type_name("1|2|3")
        ->capture_default_str()
        ->group(stream);
    app.add_option("--phase", raw.phase, "asked of the host")
        ->check(CLI::IsMember({"normal", "invert"}))
        ->group(stream);
    app.add_option("--output", target.output, "where the audio goes")
        ->type_name("OUTPUT")
        ->capture_default_str()
        ->group(stream);
    app.add_option("--alsa-buffer", raw.alsaBufferMs,
                   "a sound device holds so much; a machine that is late by more is heard")
        ->check(CLI::Range(5.0, 2000.0))
        ->check(isFinite)
        ->type_name("MS")
        ->capture_default_str()
        ->group(stream);
    app.add_option("--alsa-period", raw.alsaPeriodMs,
                   "steps in which a sound device may play; a quarter of its buffer")
        ->check(CLI::Range(0.5, 1000.0))
        ->check(isFinite)
        ->type_name("MS")
        ->group(stream);
    app.add_option("--output-folder", target.outputFolder,
                   "for files that hosts name; else that of an --output FILE, or they name none")
        ->type_name("FOLDER")
        ->group(stream);

    app.add_option("--state", options.state, "keeps settings in this file; else none are kept")
        ->type_name("FILE")
        ->group(storage);
    app.add_option("--inbox", options.inbox, "transfers are put here; else they are refused")
        ->type_name("FOLDER")
        ->group(storage);
    app.add_option("--channel", raw.transferChannels,
                   "takes packets of so many bytes, so many a block, so many blocks; may be "
                   "repeated, channel 0 first; 1024,64,4096. A multiple of 8 bytes is best")
        ->type_name("BYTES,PACKETS,BLOCKS")
        ->allow_extra_args(false)
        ->group(storage);
    app.add_option("--burst-limit", target.burstLimit,
                   "told to hosts that transfer; 65535 for no limit")
        ->type_name("BYTES")
        ->capture_default_str()
        ->group(storage);

    app.add_option("--drop", target.dropPercent, "loses so many of the audio packets that come")
        ->check(CLI::Range(0.0, 100.0))
        ->check(isFinite)
        ->type_name("PERCENT")
        ->group(faults);
    app.add_option("--lose", raw.lost,
                   "loses so many of this message, as they come; may be repeated")
        ->type_name("MESSAGE=PERCENT")
        ->allow_extra_args(false)
        ->group(faults);
    app.add_option("--lose-answers", raw.lostAnswers,
                   "loses so many of the answers to this message; may be repeated")
        ->type_name("MESSAGE=PERCENT")
        ->allow_extra_args(false)
        ->group(faults);
    app.add_option("--seed", target.seed, "for --drop, --lose, --lose-answers")
        ->type_name("N")
        ->group(faults);
    app.add_option("--silent", raw.silent, "never answers this message; may be repeated")
        ->type_name("MESSAGE")
        ->allow_extra_args(false)
        ->group(faults);
    app.add_option("--refuse", raw.refused, "refuses this message; may be repeated")
        ->type_name("MESSAGE")
        ->allow_extra_args(false)
        ->group(faults);
    app.add_option("--misbehave", raw.misbehave,
                   "answers this message in one of the manners below; may be repeated")
        ->type_name("MESSAGE=MANNER")
        ->allow_extra_args(false)
        ->group(faults);
    app.add_option("--status", target.endStatus,
                   "status at the end of a whole transfer; any but 65535 fails it")
        ->type_name("N")
        ->capture_default_str()
        ->group(faults);

    app.add_flag("--once", options.once, "exits after the first stream")->group(program);
    app.add_option("--seconds", options.seconds, "exits after so long")
        ->check(CLI::Range(0.0, 1e9))
        ->check(isFinite)
        ->type_name("N")
        ->group(program);
    app.add_flag("--json", options.json, "one object a line")->group(program);
    app.add_flag("--no-figures", options.hidesFigures,
                 "no line a second while a stream plays; what happens is told all the same")
        ->group(program);
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
