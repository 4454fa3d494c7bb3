#include "apps/velmora-relay/Options.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <map>
#include <sstream>
#include <vector>

namespace velmora_relay {

namespace {

constexpr const char* footer =
    R"(Faults act on UDP datagrams over IPv6; all else passes, and while the link is down nothing does. Its
checksums are made whole on the way. Every share is of a thousand frames, each direction draws for
itself, and a seed spoils the same frames every time.

One line of JSON says that it relays ("type": "ready"), and one at the end what became of the frames
("type": "summary"): under "forth" and "back" the frames that came, the datagrams among them, those
that faults acted on, and each fault counted. A copy counts among neither. "flooded" are the datagrams
of the flood that were sent, from the first to the last in "floodSeconds"; "unsent" are all frames that
could not be.

It needs the right to open raw sockets. Both interfaces should have no addresses of their own.

Exit codes:
  0  ended as asked: --seconds, or interrupted
  2  wrong arguments
  3  no such interface, no right to use it, or an interface went away

Example: one of a hundred audio datagrams is lost, and the link is down for 0.2 s after one second:
  velmora-relay rhost rtarget --above 200 --lose 10 --cut 1,0.2)";

constexpr double longestDelay = 10'000, longestTime = 86'400;  // ms, s

[[noreturn]] void refuse(const std::string& option, const std::string& why) {
    throw CLI::ValidationError(option, why);
}

std::uint64_t microsOf(double seconds) {
    return static_cast<std::uint64_t>(std::llround(seconds * 1e6));
}

// "AT,FOR" or "AT,FOR,EVERY".
Cut cutOf(const std::string& entry) {
    std::vector<double> times;
    std::istringstream list(entry);
    for (std::string word; std::getline(list, word, ',');) {
        double time = -1;
        if (!CLI::detail::lexical_cast(word, time) || !(time >= 0 && time <= longestTime)) {
            refuse("--cut", entry + ": no such time");
        }
        times.push_back(time);
    }
    if (times.size() < 2 || times.size() > 3) refuse("--cut", entry + " is not AT,FOR[,EVERY]");
    Cut cut{microsOf(times[0]), microsOf(times[1])};
    if (times.size() == 3) cut.every = microsOf(times[2]);
    if (times.size() == 3 && cut.every <= cut.length) {
        refuse("--cut", entry + ": it begins again before it is over");
    }
    return cut;
}

std::uint32_t microsOfMillis(const std::string& option, double millis) {
    if (!(millis >= 0 && millis <= longestDelay)) refuse(option, "from 0 to 10000 ms");
    return static_cast<std::uint32_t>(std::lround(millis * 1000));
}

}  // namespace

CommandLine readCommandLine(int count, const char* const* values) {
    Options options;
    Faults& faults = options.faults;
    std::vector<std::string> cuts;
    std::vector<double> delay;
    std::vector<FloodKind> kinds;
    double held = 3;
    bool disorder = false;
    std::string direction = "both";

    CLI::App app(
        "A link that loses, doubles, delays, spoils and cuts: stands between two interfaces.",
        "velmora-relay");
    app.footer(footer);
    app.set_version_flag("--version", VELMORA_RELEASE);
    app.get_formatter()->column_width(34);
    app.add_option("first", options.interfaces[0], "interface on the host's side")->required();
    app.add_option("second", options.interfaces[1], "interface on the target's side")->required();

    const auto share = [&app](const char* name, double& value, const char* text) {
        app.add_option(name, value, text)->check(CLI::Range(0.0, 1000.0))->type_name("PERMILLE");
    };
    app.add_option("--above", options.above, "leaves datagrams of no more payload alone")
        ->type_name("BYTES");
    app.add_flag("--then-all", options.thenAll, "but acts on all once a larger one has come");
    app.add_option("--direction", direction, "where faults act; forth is from first to second")
        ->check(CLI::IsMember({"both", "forth", "back"}))
        ->capture_default_str();
    share("--lose", faults.lose, "loses so many");
    app.add_option("--burst", faults.meanBurst, "loses so many in a row, on average")
        ->check(CLI::Range(1.0, 1000.0))
        ->type_name("FRAMES");
    share("--duplicate", faults.duplicate, "sends so many twice");
    share("--hold", faults.holdBack, "holds so many back, so that others pass them");
    app.add_option("--hold-for", held, "how long")->type_name("MS")->capture_default_str();
    share("--corrupt", faults.corrupt, "turns bits of the payload over in so many");
    share("--corrupt-unseen", faults.corruptUnseen, "the same, and mends the checksum");
    app.add_option("--delay", delay, "delays each by a time between the two")
        ->delimiter(',')
        ->expected(2)
        ->type_name("MIN,MAX ms");
    app.add_flag("--disorder", disorder, "a delayed frame may pass another");
    app.add_option("--cut", cuts,
                   "takes the link down for so long, so long after the first datagram that faults "
                   "act on, and again in every period; may be repeated")
        ->allow_extra_args(false)
        ->type_name("AT,FOR[,EVERY] s");

    app.add_option(
           "--flood", options.flood.perSecond,
           "sends so many datagrams a second to the port where the host was last heard, once a "
           "datagram has come that faults act on by its size")
        ->check(CLI::Range(1, 100'000))
        ->type_name("N");
    app.add_option("--flood-kind", kinds,
                   "foreign: sound, from elsewhere; malformed, noise: as from the target; targets: "
                   "as from ever new ones that answer a search. The first three in turn without it")
        ->delimiter(',')
        ->transform(CLI::CheckedTransformer(
            std::map<std::string, FloodKind>{{"foreign", FloodKind::foreign},
                                             {"malformed", FloodKind::malformed},
                                             {"noise", FloodKind::noise},
                                             {"targets", FloodKind::targets}}))
        ->type_name("LIST");
    options.flood.most = 400'000;
    app.add_option("--flood-most", options.flood.most, "and so many in all")
        ->check(CLI::Range(1, 10'000'000))
        ->type_name("N")
        ->capture_default_str();

    app.add_option("--seed", options.seed, "of all that is drawn")
        ->type_name("N")
        ->capture_default_str();
    app.add_option("--seconds", options.seconds, "ends after so long")
        ->check(CLI::Range(0.0, longestTime))
        ->type_name("N");

    try {
        app.parse(count, values);
        options.forth = direction != "back";
        options.back = direction != "forth";
        faults.keepsOrder = !disorder;
        faults.heldMicros = microsOfMillis("--hold-for", held);
        if (!delay.empty()) {
            faults.leastDelay = microsOfMillis("--delay", delay[0]);
            faults.mostDelay = microsOfMillis("--delay", delay[1]);
            if (faults.leastDelay > faults.mostDelay) refuse("--delay", "the least comes first");
        }
        for (const std::string& entry : cuts) faults.cuts.push_back(cutOf(entry));
        if (options.flood.perSecond != 0) {
            if (kinds.empty()) {
                kinds = {FloodKind::foreign, FloodKind::malformed, FloodKind::noise};
            }
            options.flood.kinds = kinds;
        }
    } catch (const CLI::ParseError& error) {
        return {std::nullopt, app.exit(error) == 0 ? exitDone : exitUsage};
    }
    return {options, exitDone};
}

}  // namespace velmora_relay
