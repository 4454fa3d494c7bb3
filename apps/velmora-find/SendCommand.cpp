// send: a file into a channel of a target.
#include <cmath>

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

}  // namespace

int sendCommand(Context& context, const Options& options) {
    const ZENNO::Bytes data = readUnchanged(options.file);
    Asking asking(context, everybody(), options.interface);
    const ZENNO::IPAddress target = asking.target(options.address);

    TransferRun run;
    run.channel = options.channel;
    run.size = data.size();
    Stopwatch watch(context.environment.clock());
    const auto show = [&] {
        run.seconds = watch.seconds();
        if (context.isTerminal) context.talk << "\r" << progressText(run) << "  " << std::flush;
    };
    asking.find().Transfer(
        target, static_cast<int>(options.channel), data, options.limit,
        [&](std::uint16_t, std::uint16_t) { show(); }, run.figures);
    show();
    if (context.isTerminal) context.talk << "\n";

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
