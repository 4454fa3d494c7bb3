// velmora-play: plays a file or a tone through an ASIO driver, as any audio software would.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <csignal>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

#include "apps/velmora-play/DriverList.h"
#include "apps/velmora-play/DriverLog.h"
#include "apps/velmora-play/Host.h"
#include "apps/velmora-play/Source.h"
#include "apps/velmora-play/Terminal.h"
#include "base/Printable.h"

namespace {

using namespace velmora_play;

std::atomic<bool> interrupted{false};
void onInterrupt(int) {
    interrupted.store(true);
}

struct Options {
    bool list = false, quiet = false;
    std::string driver = "KORVENTE Velmora", file, driverLog, report, stall;
    Pause pause;
    double tone = 0;
    double seconds = 0;
    std::uint32_t rate = 0, bits = 0, channels = 0;
    std::int32_t buffer = 0;
};

constexpr const char* footer =
    "Exit codes: 0 played to the end; 1 a fault of the player's own; 2 wrong arguments; 3 the "
    "file\n"
    "cannot be played, or the driver's log not written; 4 no such driver, or none that loads;\n"
    "5 the driver found no device; 6 the device cannot play this format; 7 no buffers of that "
    "size;\n"
    "8 the stream did not start; 9 the stream was lost while it played; 10 interrupted.\n\n"
    "Examples:\n"
    "  velmora-play --list\n"
    "  velmora-play --file music.wav\n"
    "  velmora-play --file music.dsf --buffer 16384\n"
    "  velmora-play --tone 1000 --rate 96000 --bits 24 --seconds 5\n";

int complain(ExitCode code, const std::string& text) {
    std::cerr << text << '\n';
    return code;
}

int list() {
    const auto drivers = listDrivers();
    if (drivers.empty())
        return complain(exitNoDriver, "No ASIO driver is registered on this machine.");
    for (const DriverEntry& entry : drivers) {
        std::cout << entry.name << "  " << entry.classId << "  "
                  << (entry.file.empty() ? "(no module)" : entry.file) << '\n';
    }
    return exitDone;
}

// "SECONDS@FRAME".
bool readPause(const std::string& text, Pause& pause) {
    const auto at = text.find('@');
    double seconds = 0;
    if (at == std::string::npos || !CLI::detail::lexical_cast(text.substr(0, at), seconds) ||
        !CLI::detail::lexical_cast(text.substr(at + 1), pause.atFrame) ||
        !(seconds > 0 && seconds <= 60)) {
        return false;
    }
    pause.length = std::chrono::milliseconds(std::lround(seconds * 1000));
    return true;
}

// One JSON object, for whoever tries a driver.
bool writeReport(const std::string& path, const Times& t, int exitCode) {
    std::ofstream file(std::filesystem::u8path(path));
    file << "{\"exit\":" << exitCode << ",\"began\":" << t.began << ",\"init\":" << t.init
         << ",\"start\":" << t.start << ",\"firstSwitch\":" << t.firstSwitch
         << ",\"lastSwitch\":" << t.lastSwitch << ",\"longestGap\":" << t.longestGap
         << ",\"end\":" << t.end << ",\"stop\":" << t.stop << "}\n";
    return static_cast<bool>(file.flush());
}

std::unique_ptr<Source> openSource(const Options& options, std::string& error) {
    std::unique_ptr<Source> source;
    if (!options.file.empty()) {
        source = openFile(options.file, error);
        if (source == nullptr) return nullptr;
        const SourceFormat& format = source->format();
        if ((options.rate != 0 && options.rate != format.rate) ||
            (options.channels != 0 && options.channels != format.channels)) {
            error = options.file + " has " + std::to_string(format.channels) + " channels at " +
                    std::to_string(format.rate) + " Hz, and nothing is converted here.";
            return nullptr;
        }
        return limited(std::move(source), options.bits, options.seconds);
    }
    Tone tone;
    tone.hertz = options.tone;
    if (options.rate != 0) tone.rate = options.rate;
    if (options.channels != 0) tone.channels = options.channels;
    if (options.bits != 0) tone.bits = options.bits;
    if (options.seconds > 0) tone.seconds = options.seconds;
    return makeTone(tone);
}

int play(const Options& options) {
    std::string error;
    const auto source = openSource(options, error);
    if (source == nullptr) return complain(exitFile, error);

    const auto drivers = listDrivers();
    const auto entry = std::find_if(drivers.begin(), drivers.end(), [&](const DriverEntry& d) {
        return sameName(d.name, options.driver);
    });
    if (entry == drivers.end()) {
        return complain(exitNoDriver, "There is no ASIO driver named \"" + options.driver +
                                          "\"; --list shows them.");
    }
    DriverLog log;  // goes after the driver, so that it hears its last lines
    if (!options.driverLog.empty() && !log.open(options.driverLog, error))
        return complain(exitFile, error);
    const DriverPointer driver = loadDriver(*entry, error);
    if (driver == nullptr) return complain(exitNoDriver, error);

    std::signal(SIGINT, onInterrupt);
    std::signal(SIGTERM, onInterrupt);
    Patience patience;
    patience.stall += options.pause.length;
    Host host(*driver, *source, patience, options.pause);
    ProgressLine line(options.quiet);
    const auto failure = host.play(options.buffer, [&](const Progress& progress) {
        line.show(ZENNO::printable(host.deviceName()) + ", " + host.formatText(), progress);
        return !interrupted.load();
    });
    line.end();
    if (!options.report.empty() &&
        !writeReport(options.report, host.times(), failure ? failure->code : exitDone)) {
        complain(exitFile, options.report + ": the report cannot be written.");
    }
    // What a driver says may be what a target has told it.
    if (failure) return complain(failure->code, ZENNO::printable(failure->text));
    return exitDone;
}

int run(int argc, char** argv) {
    Options options;
    CLI::App app("Plays a file or a tone through an ASIO driver.");
    app.footer(footer);
    app.set_version_flag("--version", VELMORA_RELEASE);
    app.add_flag("--list", options.list, "show the ASIO drivers of this machine");
    app.add_option("--driver", options.driver, "the driver's name, upper or lower case alike")
        ->capture_default_str();
    auto* file =
        app.add_option("--file", options.file, "a WAV, RF64 or DSF file; DSD is played as DSD");
    auto* tone = app.add_option("--tone", options.tone,
                                "a sine of so many Hz, a fifth higher in each further channel")
                     ->check(CLI::Range(1.0, 100000.0));
    file->excludes(tone);
    app.add_option("--rate", options.rate, "of the tone, Hz (44100)")
        ->check(CLI::Range(8000u, 1536000u));
    app.add_option("--bits", options.bits,
                   "16, 24 or 32: of the tone (24); a file's samples are cut to them")
        ->check(CLI::IsMember({16u, 24u, 32u}));
    app.add_option("--channels", options.channels, "of the tone (2)")
        ->check(CLI::IsMember({1u, 2u, 4u, 6u, 8u}));
    app.add_option("--seconds", options.seconds, "ends after so long; a tone lasts 10 without it")
        ->check(CLI::Range(0.01, 1e6));
    app.add_option("--buffer", options.buffer,
                   "frames of the host's buffers; what the driver prefers without it")
        ->check(CLI::Range(1, 1 << 24));
    app.add_option("--driver-log", options.driverLog,
                   "write what the driver logs (Debug=enable in its settings) into this file");
    app.add_option("--report", options.report,
                   "write how long the driver took, in ms, into this file, as JSON");
    app.add_option("--stall", options.stall,
                   "at this frame keep the driver's callback for so long, to try the driver")
        ->type_name("SECONDS@FRAME");
    app.add_flag("--quiet", options.quiet, "no progress");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? exitDone : exitUsage;
    }
    if (!options.stall.empty() && !readPause(options.stall, options.pause)) {
        return complain(exitUsage, "--stall wants SECONDS@FRAME, up to 60 seconds.");
    }
    if (options.list) return list();
    if (options.file.empty() && options.tone == 0) {
        return complain(exitUsage, "Name a --file or a --tone; --help tells more.");
    }
    return play(options);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& e) {
        return complain(exitFault, std::string("The player failed: ") + e.what());
    }
}
