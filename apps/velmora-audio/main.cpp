// velmora-audio: makes music to play, and says whether what was played arrived bit for bit.

#include <sndfile.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "apps/audio/DsfFile.h"
#include "apps/velmora-audio/Compare.h"
#include "apps/velmora-audio/Music.h"

namespace {

using namespace velmora_audio;

struct GenerateOptions {
    std::string path, bits = "24";
    std::uint32_t rate = 44100, channels = 2, dsd = 0, seed = 1;
    double seconds = 10;
};

struct CompareOptions {
    std::string played, written, summary, log;
    bool asJson = false;
};

struct Width {
    const char* name;
    int format;
    int bits;  // 0: floating point
};
constexpr Width widths[] = {
    {"16", SF_FORMAT_PCM_16, 16}, {"24", SF_FORMAT_PCM_24, 24}, {"32", SF_FORMAT_PCM_32, 32},
    {"f32", SF_FORMAT_FLOAT, 0},  {"f64", SF_FORMAT_DOUBLE, 0},
};

int generateDsf(const GenerateOptions& options, std::uint64_t frames) {
    const auto music = makeMusic(options.rate, options.channels, frames, options.seed);
    std::vector<std::vector<std::uint8_t>> bits;
    bits.reserve(music.size());
    for (const auto& channel : music) bits.push_back(modulate(channel, options.dsd));
    DsfWriter file;
    Failure failure = file.open(options.path, options.channels, options.rate * options.dsd);
    std::vector<std::uint8_t> interleaved(options.channels);
    for (std::size_t n = 0; failure.empty() && n < bits[0].size(); ++n) {
        for (std::uint32_t c = 0; c < options.channels; ++c) interleaved[c] = bits[c][n];
        failure = file.write(interleaved);
    }
    if (failure.empty()) failure = file.close();
    if (failure.empty()) return 0;
    std::cerr << failure << '\n';
    return 2;
}

int generateWav(const GenerateOptions& options, std::uint64_t frames) {
    const Width& width = *std::find_if(std::begin(widths), std::end(widths),
                                       [&](const Width& w) { return options.bits == w.name; });
    const auto music = makeMusic(options.rate, options.channels, frames, options.seed);
    SF_INFO info{};
    info.samplerate = static_cast<int>(options.rate);
    info.channels = static_cast<int>(options.channels);
    info.format = SF_FORMAT_RF64 | width.format;
    const std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> file(
        sf_open(options.path.c_str(), SFM_WRITE, &info), sf_close);
    if (!file) {
        std::cerr << options.path << ": " << sf_strerror(nullptr) << '\n';
        return 2;
    }
    sf_command(file.get(), SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE);
    constexpr std::uint64_t block = 8192;
    for (std::uint64_t at = 0; at < frames; at += block) {
        const std::uint64_t count = std::min(block, frames - at);
        std::vector<int> integers;
        std::vector<double> numbers;
        for (std::uint64_t n = at; n < at + count; ++n) {
            for (const auto& channel : music) {
                // Full scale reaches both ends of the integer range; int is 32 bits,
                // left-justified.
                const double steps = std::ldexp(1.0, (width.bits == 0 ? 24 : width.bits) - 1);
                const double v = std::clamp(std::floor(channel[n] * steps), -steps, steps - 1.0);
                integers.push_back(static_cast<int>(v * std::ldexp(1.0, 31) / steps));
                numbers.push_back(static_cast<float>(channel[n]));
            }
        }
        const auto items = static_cast<sf_count_t>(count);
        const sf_count_t written = width.bits != 0
                                       ? sf_writef_int(file.get(), integers.data(), items)
                                       : sf_writef_double(file.get(), numbers.data(), items);
        if (written != items) {
            std::cerr << options.path << ": " << sf_strerror(file.get()) << '\n';
            return 2;
        }
    }
    return 0;
}

int generate(const GenerateOptions& options) {
    const auto frames = static_cast<std::uint64_t>(options.seconds * options.rate);
    return options.dsd != 0 ? generateDsf(options, frames) : generateWav(options, frames);
}

// The last line of the target's JSON: its summary.
nlohmann::json readSummary(const std::string& path) {
    std::ifstream file(path);
    std::string line, last;
    while (std::getline(file, line)) {
        if (!line.empty()) last = line;
    }
    return nlohmann::json::parse(last, nullptr, /*allow_exceptions=*/false);
}

// Turns that the driver's log calls late; nothing of an empty log, which says nothing of a stream.
std::optional<std::uint64_t> lateTurns(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string line;
    std::uint64_t late = 0, lines = 0;
    for (; std::getline(file, line); ++lines) {
        late += line.find(" localhost over time ") != std::string::npos ? 1u : 0u;
    }
    return lines != 0 ? std::optional(late) : std::nullopt;
}

std::string widthText(const Comparison& c) {
    if (c.bits == 1) return "DSD";
    return c.bits == 64 ? "floating point" : std::to_string(c.bits) + " bits";
}

int compareFiles(const CompareOptions& options) {
    const auto played = openFrames(options.played);
    const auto written = openFrames(options.written);
    const Comparison c = compare(*played, *written);
    const nlohmann::json target =
        options.summary.empty() ? nlohmann::json() : readSummary(options.summary);
    if (options.asJson) {
        nlohmann::json out = {{"exact", c.exact()},     {"frames", c.played},
                              {"wrong", c.wrong},       {"missing", c.missing},
                              {"leading", c.leading},   {"trailing_noise", c.trailingNoise},
                              {"bits", c.bits},         {"rate", c.rate},
                              {"channels", c.channels}, {"path", options.written}};
        if (target.is_object()) out["target"] = target;
        if (const auto late = lateTurns(options.log)) out["late_turns"] = *late;
        std::cout << out.dump() << '\n';
        return c.exact() ? 0 : 1;
    }
    const std::uint64_t unit = c.bits == 1 ? 8 : 1;  // a byte of DSD holds eight samples
    std::cout << (c.exact() ? "Bit-exact" : "NOT bit-exact") << ": " << widthText(c) << ", "
              << c.channels << (c.channels == 1 ? " channel, " : " channels, ") << c.rate
              << " Hz\n";
    const auto row = [](const char* name, const auto& value) {
        std::cout << "  " << std::left << std::setw(28) << name << value << '\n';
    };
    row(c.bits == 1 ? "samples of a channel" : "frames", c.played * unit);
    if (!c.exact()) {
        row("wrong", c.wrong * unit);
        row("missing", c.missing * unit);
        row("noise behind the end", c.trailingNoise * unit);
        if (c.wrong != 0) row("the first wrong one", c.firstWrong * unit);
    }
    row("silence in front", c.leading * unit);
    if (target.is_object()) {
        const auto number = [&](const char* key) {
            return target.value(key, nlohmann::json()).dump();
        };
        row("packets", number("packets"));
        row("packets sent again", number("recovered"));
        row("packets lost for good", number("lost"));
        row("underruns at the target", number("underruns"));
        row("longest gap between bursts", number("longestGapMicros") + " us");
    }
    if (const auto late = lateTurns(options.log)) {
        row("late turns", *late);
    } else if (!options.log.empty()) {
        row("late turns", "not known: the driver's log is empty");
    }
    std::cout << options.written << '\n';
    return c.exact() ? 0 : 1;
}

int run(int argc, char** argv) {
    CLI::App app("Makes music to play, and says whether what was played arrived bit for bit.");
    app.require_subcommand(1);
    app.set_version_flag("--version", VELMORA_RELEASE);
    app.footer(
        "Exit codes: 0 done, and bit-exact; 1 not bit-exact; 2 a file or an argument is wrong.");

    GenerateOptions make;
    auto* g = app.add_subcommand(
        "generate", "write plucked strings over a bass, full scale, every channel its own");
    g->add_option("path", make.path, "the file to write")->required();
    g->add_option("--bits", make.bits, "of a WAV file")
        ->check(CLI::IsMember({"16", "24", "32", "f32", "f64"}))
        ->capture_default_str();
    g->add_option("--dsd", make.dsd, "write DSF at so many times the rate")
        ->check(CLI::IsMember({64u, 128u, 256u, 512u}));
    g->add_option("--rate", make.rate, "Hz; of DSD, its base")
        ->check(CLI::Range(8000u, 1536000u))
        ->capture_default_str();
    g->add_option("--channels", make.channels, "channels")
        ->check(CLI::Range(1u, 8u))
        ->capture_default_str();
    g->add_option("--seconds", make.seconds, "length")
        ->check(CLI::Range(0.01, 3600.0))
        ->capture_default_str();
    g->add_option("--seed", make.seed, "another seed is another piece")->capture_default_str();

    CompareOptions look;
    auto* c = app.add_subcommand("compare", "compare what was played with what a target wrote");
    c->add_option("played", look.played)->required()->check(CLI::ExistingFile);
    c->add_option("written", look.written)->required()->check(CLI::ExistingFile);
    c->add_option("--target-summary", look.summary, "velmora-target's JSON, for its figures")
        ->check(CLI::ExistingFile);
    c->add_option("--driver-log", look.log, "velmora-play's --driver-log, to count late turns")
        ->check(CLI::ExistingFile);
    c->add_flag("--json", look.asJson, "one JSON object instead of words");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : 2;
    }
    return *g ? generate(make) : compareFiles(look);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& e) {
        std::cerr << e.what() << '\n';
        return 2;
    }
}
