// What does a line of log cost that nobody wants, and one that somebody does?
//
// In ns of processor time. A line below the threshold may cost 1 ns; the limit of one that passes
// is a bare sendto of the same bytes to the same port, where a socket listens in both cases.
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

#include "base/Log.h"
#include "bench/Context.h"
#include "bench/Micro.h"
#include "bench/Stamp.h"

namespace velmora_bench {
namespace {

using ZENNO::LogLine;

constexpr int linesOfBatch = 100;  // what the listener's buffer holds for certain

// Takes what comes to the log's port, so that no line meets a closed one.
class Listener {
public:
    Listener() : socket_(::socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        address.sin6_family = AF_INET6;
        address.sin6_addr = in6addr_loopback;
        address.sin6_port = htons(ZENNO::logPort);
        const int on = 1;
        ::setsockopt(socket_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        if (::bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            ::close(socket_);
            throw std::runtime_error("somebody else listens to the log");
        }
    }
    ~Listener() { ::close(socket_); }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    // How many of a batch there were, and the length of the last. A line may still be on its way.
    int drain(std::size_t& length) const {
        constexpr int patience = 50;  // ms
        std::array<char, 4096> buffer{};
        int count = 0;
        for (pollfd waited{socket_, POLLIN, 0}; count < linesOfBatch; ++count) {
            if (::poll(&waited, 1, patience) <= 0) break;
            const ssize_t n = ::recv(socket_, buffer.data(), buffer.size(), MSG_DONTWAIT);
            if (n > 0) length = static_cast<std::size_t>(n);
        }
        return count;
    }

    sockaddr_in6 address{};

private:
    int socket_;
};

// Processor time of each of a batch of calls, ns.
template <class Call>
double batch(Call call) {
    const std::int64_t before = clockNanos(CLOCK_THREAD_CPUTIME_ID);
    for (int i = 0; i < linesOfBatch; ++i) call(i);
    return static_cast<double>(clockNanos(CLOCK_THREAD_CPUTIME_ID) - before) / linesOfBatch;
}

Row silentRow(int rounds) {
    std::uint32_t rate = 44100;
    // Many in one run: what is measured is so short that the measuring loop would be most of it.
    constexpr std::uint64_t lines = 16;
    const auto repeated = [&rate](auto&& body) {
        return [&rate, body] {
            for (std::uint64_t i = 0; i < lines; ++i) {
                body(rate);
                keep(&rate);
            }
        };
    };
    const std::vector<Piece> pieces = {
        {"line", 0, repeated([](std::uint32_t r) { LogLine(6) << "start SPEED=" << r; }), lines},
        {"empty", 0, repeated([](std::uint32_t) {}), lines}};
    const auto nanos = measurePieces(pieces, rounds, [](int) {});
    Pairs pairs;
    for (const double one : nanos.at("line")) pairs.add(one, 1.0);
    Figure figure = pairs.figure("", 1.0);
    figure.beside = {{"the loop alone", median(nanos.at("empty"))}};
    return {"log",
            "a line below the threshold",
            "ns",
            {figure},
            "a statement with a text and a number at level 6 while the threshold is -1, the loop "
            "around it included; the limit is 1 ns"};
}

Row sentRow(int rounds) {
    Listener listener;
    ZENNO::createLogger();
    if (!ZENNO::setLogLevel(6)) throw std::runtime_error("the log does not open");
    const int socket = ::socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const std::array<char, 4096> bytes{};
    std::size_t length = 0;
    int lost = 0;
    Pairs pairs;
    for (int i = 0; i < rounds * 5; ++i) {
        const double ours =
            batch([](int k) { LogLine(6) << "start SPEED=" << 44100 << " turn " << k; });
        lost += linesOfBatch - listener.drain(length);
        const double bare = batch([&](int) {
            ::sendto(socket, bytes.data(), length, 0,
                     reinterpret_cast<const sockaddr*>(&listener.address), sizeof listener.address);
        });
        listener.drain(length);
        if (i % 5 != 0) pairs.add(ours, bare);  // the first of five warms up
    }
    ::close(socket);
    ZENNO::logLevel = -1;
    return {"log",
            "a line that passes",
            "ns",
            {pairs.figure("")},
            "built, stamped and sent to a listener on the loopback address, on the thread that "
            "wrote it; beside a bare sendto of the same bytes. Lines that did not arrive: " +
                std::to_string(lost)};
}

}  // namespace

std::vector<Row> benchLog(Context& context) {
    context.progress.round(1, 2);
    std::vector<Row> rows{silentRow(context.rounds)};
    context.progress.round(2, 2);
    rows.push_back(sentRow(context.rounds));
    return rows;
}

}  // namespace velmora_bench
