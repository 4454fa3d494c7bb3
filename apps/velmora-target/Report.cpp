#include "apps/velmora-target/Report.h"

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <nlohmann/json.hpp>

#include "target/FormatMasks.h"

namespace velmora_target {

namespace {

using Json = nlohmann::ordered_json;

double decimal(std::int16_t q14) {
    return q14 / 16384.0;
}

std::string textOf(const ZENNO::IPAddress& address) {
    if (address.isNone()) return {};
    std::string text;
    address.toTextWithPort(text);
    return text;
}

std::string hexOf(std::uint64_t word) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%" PRIx64, word);
    return text;
}

void addFigures(Json& object, const Figures& f) {
    const bool known = f.format.word != 0;
    object["sink"] = f.sinkNo;
    object["state"] = f.state;
    object["format"] = known ? sampleFormatName(f.format) : "";
    object["formatWord"] = hexOf(f.format.word);
    object["channels"] = known ? f.format.channels() : 0;
    object["rate"] = f.format.rate();
    object["bits"] = known ? f.format.bitsPerSample() : 0;
    object["host"] = textOf(f.host);
    object["hostName"] = f.hostName;
    object["output"] = f.output;
    object["endReason"] = f.endReason;
    object["durationMicros"] = f.durationMicros;
    object["frames"] = f.frames;
    object["bytes"] = f.bytes;
    object["fillMicros"] = static_cast<std::int64_t>(f.fillMicros);
    object["targetMicros"] = static_cast<std::int64_t>(f.targetMicros);
    object["clockPpm"] = std::round(f.clockPpm * 10) / 10;
    object["latencyMicros"] = f.latency * 100;
    object["packets"] = f.packets;
    object["dropped"] = f.dropped;
    object["duplicates"] = f.duplicates;
    object["reordered"] = f.reordered;
    object["resendRequests"] = f.resendRequests;
    object["recovered"] = f.recovered;
    object["lost"] = f.lost;
    object["late"] = f.late;
    object["underruns"] = f.underruns;
    object["deviceUnderruns"] = f.deviceUnderruns;
    object["overflows"] = f.overflows;
    object["bursts"] = f.bursts;
    object["longestGapMicros"] = f.longestGap;
    object["infoAnswers"] = f.infoAnswers;
    object["feedback"] = decimal(f.feedback);
    object["feedbackLowest"] = decimal(f.feedbackLowest);
    object["feedbackHighest"] = decimal(f.feedbackHighest);
}

Json objectOf(const char* type, double seconds) {
    return {{"type", type}, {"time", seconds}};
}

// ASCII alone: names are anybody's, and readers of the lines may take some characters of Unicode
// for the end of one.
void print(const Json& object) {
    std::cout << object.dump(-1, ' ', /*ensure_ascii=*/true, Json::error_handler_t::replace)
              << std::endl;
}

void printSummary(const Figures& f) {
    std::printf("sink %u, %s, %u channels, %u Hz, from %s (%s)\n", unsigned{f.sinkNo},
                sampleFormatName(f.format), f.format.channels(), f.format.rate(),
                f.hostName.empty() ? "a host without a name" : f.hostName.c_str(),
                textOf(f.host).c_str());
    std::printf("  ended          %s after %.3f s\n", f.endReason.c_str(),
                static_cast<double>(f.durationMicros) / 1e6);
    std::printf("  played         %" PRIu64 " frames, %" PRIu64 " bytes%s%s\n", f.frames, f.bytes,
                f.output.empty() ? "" : " to ", f.output.c_str());
    std::printf("  packets        %" PRIu64 ", of these %" PRIu64 " duplicates, %" PRIu64
                " out of order\n",
                f.packets, f.duplicates, f.reordered);
    std::printf("  resend         %" PRIu64 " requests, %" PRIu64 " recovered, %" PRIu64
                " lost, %" PRIu64 " late\n",
                f.resendRequests, f.recovered, f.lost, f.late);
    if (f.dropped != 0) std::printf("  dropped        %" PRIu64 " on purpose\n", f.dropped);
    std::printf("  underruns      %" PRIu64 ", of the device %" PRIu64 ", overflows %" PRIu64 "\n",
                f.underruns, f.deviceUnderruns, f.overflows);
    std::printf("  bursts         %" PRIu64 ", longest gap %" PRIu64 " us\n", f.bursts,
                f.longestGap);
    std::printf("  feedback       %+.4f to %+.4f in %" PRIu64 " answers\n",
                decimal(f.feedbackLowest), decimal(f.feedbackHighest), f.infoAnswers);
}

}  // namespace

void Report::ready(const TargetSettings& settings,
                   const std::vector<std::string>& interfaces) const {
    if (quiet_) return;
    if (json_) {
        Json object = objectOf("ready", 0);
        object["name"] = settings.name;
        object["interfaces"] = interfaces;
        for (const SinkSettings& sink : settings.sinks) {
            object["sinks"].push_back(
                {{"name", sink.name}, {"port", sink.port}, {"streamPort", sink.streamPort}});
        }
        print(object);
        return;
    }
    std::printf("\"%s\" on", settings.name.c_str());
    for (const std::string& name : interfaces) std::printf(" %s", name.c_str());
    for (const SinkSettings& sink : settings.sinks) {
        std::printf(", sink \"%s\" at port %u", sink.name.c_str(), unsigned{sink.port});
    }
    std::printf("\n");
    std::fflush(stdout);
}

void Report::event(double seconds, const std::string& text) const {
    if (quiet_) return;
    if (json_) {
        Json object = objectOf("event", seconds);
        object["text"] = text;
        print(object);
        return;
    }
    std::printf("%9.3f  %s\n", seconds, text.c_str());
    std::fflush(stdout);
}

void Report::figures(double seconds, const Figures& f) const {
    if (quiet_ || hidesFigures_) return;
    if (json_) {
        Json object = objectOf("figures", seconds);
        addFigures(object, f);
        print(object);
        return;
    }
    std::printf("%9.3f  sink %u %-9s fill %7.2f ms  packets %" PRIu64 "  resent %" PRIu64
                "  lost %" PRIu64 "  late %" PRIu64 "  underruns %" PRIu64 "  feedback %+.4f\n",
                seconds, unsigned{f.sinkNo}, f.state.c_str(), f.fillMicros / 1000, f.packets,
                f.recovered, f.lost, f.late, f.underruns, decimal(f.feedback));
    std::fflush(stdout);
}

void Report::streamEnded(double seconds, const Figures& f) const {
    if (quiet_ || !json_) return;
    Json object = objectOf("stream", seconds);
    addFigures(object, f);
    print(object);
}

void Report::summary(double seconds, const std::optional<Figures>& last,
                     const Totals& totals) const {
    const auto [streams, changes, transfers, misbehaved] = totals;
    if (json_) {
        Json object = objectOf("summary", seconds);
        object["streamCount"] = streams;
        object["settingChanges"] = changes;
        object["transfers"] = transfers.whole;
        object["transfersFailed"] = transfers.failed;
        object["transferBytes"] = transfers.bytes;
        object["transferDuplicates"] = transfers.duplicates;
        object["misbehaved"] = misbehaved;
        addFigures(object, last.value_or(Figures{}));
        print(object);
        return;
    }
    std::printf("%" PRIu64 " stream%s in %.1f s\n", streams, streams == 1 ? "" : "s", seconds);
    if (changes != 0) std::printf("  settings       %" PRIu64 " changed\n", changes);
    if (transfers.whole + transfers.failed != 0) {
        std::printf("  transfers      %" PRIu64 " whole, %" PRIu64 " bytes, %" PRIu64 " failed\n",
                    transfers.whole, transfers.bytes, transfers.failed);
    }
    if (misbehaved != 0) std::printf("  misbehaved     %" PRIu64 " times\n", misbehaved);
    if (last) printSummary(*last);
    std::fflush(stdout);
}

}  // namespace velmora_target
