#include "apps/log/Figures.h"

#include <cstdio>

namespace velmora_log {
namespace {

struct Part {
    const char *name, *key;
    double part;
};
constexpr Part parts[] = {
    {"p50", "p50", 0.5}, {"p90", "p90", 0.9}, {"p99", "p99", 0.99}, {"p99.9", "p999", 0.999}};

template <class... Values>
std::string format(const char* text, Values... values) {
    char out[256];
    std::snprintf(out, sizeof out, text, values...);
    return out;
}

std::string row(const char* name, const std::string& text) {
    return format("  %-26s", name) + text + "\n";
}

std::string number(std::uint64_t value) {
    return std::to_string(value);
}

std::string distributionText(const Distribution& d) {
    std::string text;
    for (const Part& p : parts) text += format("%s %u  ", p.name, d.at(p.part));
    return text + format("worst %u us", d.most());
}

Json distributionJson(const Distribution& d) {
    Json json = {{"count", d.count()}};
    for (const Part& p : parts) json[p.key] = d.at(p.part);
    json["worst"] = d.most();
    return json;
}

std::string cycleText(const Figures& f) {
    if (!f.cycle) return "not known";
    std::string text = number(*f.cycle) + " us";
    if (f.cycleIsDrawn) return text + " at most, drawn at random: deadlines are not known";
    return f.cycleIsEstimated ? text + ", estimated: the log did not tell" : text;
}

}  // namespace

std::string many(std::uint64_t count, const char* one, const char* several) {
    return number(count) + " " + (count == 1 ? one : several);
}

std::string figuresText(const Figures& f) {
    std::string text =
        many(f.lines, "line", "lines") + " from " + many(f.programs, "program", "programs") + ": " +
        many(f.errors, "error", "errors") + ", " + many(f.warnings, "warning", "warnings");
    if (f.foreign != 0) text += ", " + number(f.foreign) + " not of the driver's form";
    text += "\n";
    if (f.records != 0) {
        const double seconds = static_cast<double>(f.streamMicros) / 1e6;
        text += format("Punctuality over %.1f s of ", seconds) +
                many(f.streams, "stream", "streams") + ", " + number(f.packets) + " packets" +
                (seconds > 0 ? format(", %.2f Mbit/s on the wire\n",
                                      static_cast<double>(f.wireBytes) * 8 / 1e6 / seconds)
                             : "\n");
        text += row("cycle", cycleText(f));
        if (f.late.count() != 0) {
            text += row("bursts", number(f.late.count()));
            text += row("behind the deadline", distributionText(f.late));
        }
        if (f.apart.count() != 0) text += row("from burst to burst", distributionText(f.apart));
        if (f.missing != 0) text += row("trace records missing", many(f.missing, "gap", "gaps"));
    }
    if (f.records != 0 || f.lateTurns != 0 || f.resendRequests != 0) {
        text += row("late turns", f.lateTurns == 0 ? "0"
                                                   : number(f.lateTurns) + ", the worst " +
                                                         number(f.worstLateTurn) + " us");
        text += row("resend requests", f.resendRequests == 0
                                           ? "0"
                                           : number(f.resendRequests) + ", for " +
                                                 many(f.resendPackets, "packet", "packets"));
        text += row("underruns of the host", number(f.underruns));
    }
    if (f.profileChanges != 0) text += row("changes of profile", number(f.profileChanges));
    return text;
}

Json figuresJson(const Figures& f) {
    Json json = {
        {"event", "figures"},   {"lines", f.lines},         {"programs", f.programs},
        {"errors", f.errors},   {"warnings", f.warnings},   {"foreign", f.foreign},
        {"streams", f.streams}, {"records", f.records},     {"recordsMissing", f.missing},
        {"packets", f.packets}, {"wireBytes", f.wireBytes}, {"streamMicros", f.streamMicros}};
    if (f.cycle) {
        json["cycleMicros"] = *f.cycle;
        json["cycleIsEstimated"] = f.cycleIsEstimated;
        json["cycleIsDrawn"] = f.cycleIsDrawn;
    }
    if (f.late.count() != 0) json["lateMicros"] = distributionJson(f.late);
    if (f.apart.count() != 0) json["apartMicros"] = distributionJson(f.apart);
    json["lateTurns"] = f.lateTurns;
    json["worstLateTurnMicros"] = f.worstLateTurn;
    json["resendRequests"] = f.resendRequests;
    json["resendPackets"] = f.resendPackets;
    json["underruns"] = f.underruns;
    json["profileChanges"] = f.profileChanges;
    return json;
}

}  // namespace velmora_log
