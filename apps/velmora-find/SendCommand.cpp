// send: a file into a channel of a target.
#include <algorithm>
#include <cmath>
#include <string>

#include "apps/velmora-find/Commands.h"
#include "apps/velmora-find/FileReading.h"
#include "apps/velmora-find/Target.h"
#include "apps/velmora-find/TransferTalk.h"

namespace velmora_find {
namespace {

Json asJson(const TransferRun& run) {
    const auto& figures = run.figures;
    return {{"complete", figures.end == VELMORA::TransferEnd::complete},
            {"end", endName(figures.end)},
            {"channel", run.channel},
            {"channels", figures.channels},
            {"capacity", figures.capacity},
            {"status", figures.status},
            {"bytes", run.size},
            {"bytesSent", figures.bytesSent},
            {"seconds", std::round(run.seconds * 1e6) / 1e6},
            {"packets", figures.packets},
            {"bursts", figures.bursts},
            {"resends", figures.resends},
            {"packetsResent", figures.packetsResent},
            {"burstLimit", figures.burstLimit == ~0ull ? Json(nullptr) : Json(figures.burstLimit)}};
}

// A clock that wraps, read often enough, gives any length of time.
class Stopwatch {
public:
    explicit Stopwatch(ZENNO::Clock& clock) : clock_(clock), before_(clock.now()) {}
    double seconds() {
        const std::uint32_t now = clock_.now();
        seconds_ += (now - before_) / 1e6;
        before_ = now;
        return seconds_;
    }

private:
    ZENNO::Clock& clock_;
    std::uint32_t before_;
    double seconds_ = 0;
};

constexpr double redrawEvery = 0.1;  // s

// One line of a terminal that is drawn over and over.
class ProgressLine {
public:
    explicit ProgressLine(std::ostream& out) : out_(out) {}
    void draw(const TransferRun& run, bool atLast) {
        if (columns_ != 0 && !atLast && run.seconds - drawnAt_ < redrawEvery) return;
        const std::string text = progressText(run);
        out_ << '\r' << text << std::string(columns_ - std::min(columns_, text.size()), ' ')
             << (atLast ? "\n" : "") << std::flush;
        columns_ = text.size();
        drawnAt_ = run.seconds;
    }

private:
    std::ostream& out_;
    std::size_t columns_ = 0;  // of what stands there
    double drawnAt_ = 0;       // s
};

}  // namespace

int sendCommand(Context& context, const Options& options) {
    const ZENNO::Bytes data = readUnchanged(options.file);
    Asking asking(context, everybody(), options.interface);
    const ZENNO::IPAddress target = asking.target(options.address);

    TransferRun run;
    run.channel = options.channel;
    run.size = data.size();
    Stopwatch watch(context.environment.clock());
    ProgressLine line(context.talk);
    const auto show = [&](bool atLast) {
        run.seconds = watch.seconds();
        if (context.isTerminal) line.draw(run, atLast);
    };
    asking.find().Transfer(
        target, static_cast<int>(options.channel), data, options.limit,
        [&](std::uint16_t, std::uint16_t) { show(/*atLast=*/false); }, run.figures);
    show(/*atLast=*/true);

    if (options.json) {
        context.out << asJson(run).dump() << '\n';
    } else if (run.figures.end == VELMORA::TransferEnd::complete) {
        context.out << summaryText(run) << '\n';
    }
    const EndWords words = endWords(run);
    context.talk << words.sentence << '\n';
    return words.code;
}

}  // namespace velmora_find
