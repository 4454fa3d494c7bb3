// velmora-relay: a bad link. It stands between a host and a target, in a network namespace of its
// own, and does to their datagrams what it is asked to.

#include <poll.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <exception>
#include <iostream>
#include <nlohmann/json.hpp>
#include <vector>

#include "apps/velmora-relay/Card.h"
#include "apps/velmora-relay/Options.h"
#include "apps/velmora-relay/Relay.h"
#include "platform/Thread.h"
#include "platform/Time.h"

namespace velmora_relay {

namespace {

using Json = nlohmann::ordered_json;

// Set by the signal handler, read by the loop, which looks at it several times a second.
std::atomic<bool> interrupted{false};

void onSignal(int) {
    interrupted.store(true);
}

constexpr std::uint64_t longestWait = 100'000;  // µs
constexpr int atOnce = 256;                     // frames taken between two looks at the clock

std::uint64_t nowMicros() noexcept {
    return static_cast<std::uint64_t>(ZENNO::platform::steadyNanos()) / 1000;
}

Json toJson(const Counts& c) {
    return {{"frames", c.frames},     {"datagrams", c.datagrams},
            {"acted", c.acted},       {"actedBytes", c.actedBytes},
            {"lost", c.lost},         {"doubled", c.doubled},
            {"heldBack", c.heldBack}, {"corrupted", c.corrupted},
            {"cut", c.cut},           {"corruptedUnseen", c.corruptedUnseen},
            {"delayed", c.delayed},   {"overflow", c.overflow}};
}

class Program {
public:
    explicit Program(const Options& options)
        : options_(options), relay_(options, [this](int side, std::span<const std::uint8_t> frame) {
              const bool isSent = cards_[static_cast<std::size_t>(side)].send(frame);
              if (!isSent) ++unsent_;
              return isSent;
          }) {}

    int run();

private:
    bool wait(std::uint64_t micros);
    bool takeFrames(int side);

    const Options& options_;
    std::array<Card, 2> cards_;
    std::uint64_t unsent_ = 0;
    Relay relay_;
    std::vector<std::uint8_t> buffer_ = std::vector<std::uint8_t>(70'000);
};

int Program::run() {
    for (std::size_t i = 0; i < 2; ++i) {
        const std::string failure = cards_[i].open(options_.interfaces[i]);
        if (!failure.empty()) {
            std::cerr << "velmora-relay: " << failure << '\n';
            return exitNetwork;
        }
    }
    ZENNO::platform::setThreadPriority(ZENNO::platform::Priority::highest);
    std::cout << Json{{"type", "ready"}} << std::endl;

    const std::uint64_t start = nowMicros();
    std::uint64_t now = start;
    bool isWhole = true;
    const auto isOver = [&] {
        return interrupted.load() ||
               (options_.seconds && static_cast<double>(now - start) >= *options_.seconds * 1e6);
    };
    while (isWhole && !isOver()) {
        const std::uint64_t next = relay_.nextTime(now);
        isWhole = wait(next > now ? std::min(next - now, longestWait) : 0) && takeFrames(0) &&
                  takeFrames(1);
        now = nowMicros();
        relay_.onTime(now);
    }
    std::cout << Json{{"type", "summary"},
                      {"seconds", static_cast<double>(now - start) / 1e6},
                      {"forth", toJson(relay_.counts(0))},
                      {"back", toJson(relay_.counts(1))},
                      {"flooded", relay_.flooded()},
                      {"floodSeconds", static_cast<double>(relay_.floodMicros()) / 1e6},
                      {"unsent", unsent_}}
              << std::endl;
    if (!isWhole) std::cerr << "velmora-relay: an interface went away\n";
    return isWhole ? exitDone : exitNetwork;
}

bool Program::wait(std::uint64_t micros) {
    std::array<pollfd, 2> files{};
    for (std::size_t i = 0; i < 2; ++i) files[i] = {cards_[i].descriptor(), POLLIN, 0};
    const timespec time{static_cast<time_t>(micros / 1'000'000),
                        static_cast<long>(micros % 1'000'000 * 1000)};
    // A signal cuts it short; what is wrong with a socket its next reader hears.
    return ::ppoll(files.data(), files.size(), &time, nullptr) >= 0 || errno == EINTR;
}

bool Program::takeFrames(int side) {
    Card& card = cards_[static_cast<std::size_t>(side)];
    for (int i = 0; i < atOnce; ++i) {
        std::span<std::uint8_t> frame;
        switch (card.receive(buffer_, frame)) {
            case Card::Received::none:
                return true;
            case Card::Received::gone:
                return false;
            case Card::Received::frame:
                relay_.onFrame(side, frame, nowMicros());
                break;
        }
    }
    return true;
}

}  // namespace

}  // namespace velmora_relay

int main(int count, char** values) {
    using namespace velmora_relay;
    const CommandLine line = readCommandLine(count, values);
    if (!line.options) return line.exitCode;
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return Program(*line.options).run();
    } catch (const std::exception& error) {
        std::cerr << "velmora-relay: " << error.what() << '\n';
        return exitNetwork;
    }
}
