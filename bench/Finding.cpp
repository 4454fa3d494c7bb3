// How fast does discovery find, and how fast does a transfer go?
//
// "discovery" and "list" against the waits that the protocol itself prescribes, in ms; "send" in
// MB/s beside a bare loop of the same datagrams that a bare responder acknowledges, the ratio being
// one of times. All three need one target that answers on this network.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>

#include "bench/Context.h"
#include "bench/Responder.h"
#include "find/Find.h"
#include "src/Network/Environment.h"
#include "wire/DiscoveryMessage.h"

namespace velmora_bench {
namespace {

namespace wire = VELMORA::wire;
using SteadyClock = std::chrono::steady_clock;

double millisSince(SteadyClock::time_point before) {
    return std::chrono::duration<double, std::milli>(SteadyClock::now() - before).count();
}

double seconds(const timeval& t) {
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) * 1e-6;
}

struct Run {
    double millis = 0, cpuMillis = 0;
};

Run runProgram(const std::string& program) {
    const auto before = SteadyClock::now();
    const pid_t child = ::fork();
    if (child < 0) throw std::runtime_error("no process can be started");
    if (child == 0) {
        const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        ::dup2(nowhere, STDOUT_FILENO);
        ::execl(program.c_str(), program.c_str(), "list", static_cast<char*>(nullptr));
        ::_exit(127);
    }
    int status = 0;
    rusage usage{};
    if (::wait4(child, &status, 0, &usage) != child || !WIFEXITED(status) ||
        WEXITSTATUS(status) != 0) {
        throw std::runtime_error(program + " list found no target");
    }
    return {millisSince(before), 1000 * (seconds(usage.ru_utime) + seconds(usage.ru_stime))};
}

}  // namespace

std::vector<Row> benchDiscovery(Context& context) {
    const double prescribed = 3 * 30.0 * context.interfaces;
    Pairs pairs;
    for (int i = 1; i <= context.rounds; ++i) {
        context.progress.round(i, context.rounds);
        VELMORA::FindSetting setting;
        setting.maxVersion = 1;
        setting.clientName = "bench";
        VELMORA::Find find(setting, ZENNO::systemEnvironment());
        VELMORA::TargetMap found;
        if (!find.open()) throw std::runtime_error("discovery does not open");
        const auto before = SteadyClock::now();
        if (!find.search(found) || found.empty()) {
            throw std::runtime_error("no target answers on this network");
        }
        pairs.add(millisSince(before), prescribed);
    }
    return {{"discovery",
             "one target",
             "ms",
             {pairs.figure("", 1.1)},
             "Find::search; the protocol waits three times 30 ms on each interface"}};
}

std::vector<Row> benchList(Context& context) {
    constexpr double allowedCpu = 5;  // ms
    Pairs time, cpu;
    for (int i = 1; i <= context.rounds; ++i) {
        context.progress.round(i, context.rounds);
        const Run run = runProgram(context.findProgram);
        time.add(run.millis, 3 * 30.0 * context.interfaces);
        cpu.add(run.cpuMillis, allowedCpu);
    }
    return {{"list",
             "velmora-find list, one target",
             "ms",
             {time.figure("time", 1.1), cpu.figure("processor", 1)},
             "from the program's start to its end; the protocol waits three times 30 ms on each "
             "interface; processor time of the whole program, loading it included, beside 5 ms"}};
}

namespace {

constexpr std::uint64_t sendBytes = 16 << 20;

ZENNO::IPAddress findTarget(VELMORA::Find& find) {
    VELMORA::FoundMap found;
    if (!find.findMulti(found, 0) || found.empty()) {
        throw std::runtime_error("no target answers on this network");
    }
    return found.begin()->first;
}

double sendToTarget(VELMORA::Find& find, const ZENNO::IPAddress& target, const ZENNO::Bytes& data,
                    VELMORA::TransferFigures& figures) {
    const auto before = SteadyClock::now();
    const VELMORA::TransferProgress quiet = [](std::uint16_t, std::uint16_t) {};
    if (!find.Transfer(target, 0, data, 0, quiet, figures)) {
        throw std::runtime_error("the target does not take the transfer");
    }
    return millisSince(before);
}

// The same datagrams, made before the time runs.
double sendToResponder(ZENNO::IPAddress responder, const ZENNO::Bytes& data) {
    responder.setPortNumber(responderPort);
    const auto link = ZENNO::systemEnvironment().makeLink();
    ZENNO::IPAddress local{};
    if (!link->open(ZENNO::SocketKind::udpV6) || !link->bindV6(local)) {
        throw std::runtime_error("no socket for the bare loop");
    }
    std::vector<std::vector<ZENNO::Bytes>> bursts;
    std::uint16_t seq = 0;
    for (std::uint64_t at = 0; at < data.size();) {
        std::vector<ZENNO::Bytes> burst;
        while (at < data.size() && burst.size() < Cut::blockPackets) {
            const std::uint64_t length = std::min(Cut::packetBytes, data.size() - at);
            const bool isLast = burst.size() + 1 == Cut::blockPackets || at + length == data.size();
            const std::uint16_t mark = isLast ? wire::TRANSFER_DATA::lastMark : std::uint16_t{0};
            burst.push_back(write(
                wire::TRANSFER_DATA{.channel = static_cast<std::uint16_t>(1 | mark), .seq = seq++},
                std::span(data).subspan(at, length)));
            at += length;
        }
        bursts.push_back(std::move(burst));
    }
    const auto before = SteadyClock::now();
    ZENNO::Bytes answer;
    ZENNO::IPAddress from;
    for (const auto& burst : bursts) {
        for (const ZENNO::Bytes& packet : burst)
            link->sendOnce(packet, responder, /*retried=*/false);
        if (link->waitReadable(1'000'000) != ZENNO::waitReady || !link->receiveFrom(answer, from) ||
            answer.empty()) {
            throw std::runtime_error("the bare loop lost a burst: run the bench again");
        }
    }
    return millisSince(before);
}

}  // namespace

std::vector<Row> benchSend(Context& context) {
    VELMORA::FindSetting setting;
    setting.clientName = "bench";
    VELMORA::Find find(setting, ZENNO::systemEnvironment());
    if (!find.open()) throw std::runtime_error("discovery does not open");
    const ZENNO::IPAddress target = findTarget(find);
    ZENNO::Bytes data(sendBytes);
    for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<std::uint8_t>(i * 37 >> 3);

    const auto rate = [](double millis) { return sendBytes / 1e3 / millis; };  // MB/s
    Pairs pairs;
    std::uint64_t resends = 0;
    for (int i = 1; i <= context.rounds; ++i) {
        context.progress.round(i, context.rounds);
        VELMORA::TransferFigures figures;
        const double ours = sendToTarget(find, target, data, figures);
        pairs.addRates(rate(ours), rate(sendToResponder(target, data)));
        resends += figures.resends;
    }
    return {
        {"send",
         "16 MiB to a channel",
         "MB/s",
         {pairs.figure("", 2.0)},
         "over a veth to velmora-target, which checks, keeps and writes it; the bare loop sends "
         "as many datagrams of the same size in bursts of the same size to an end that only "
         "acknowledges. Bursts that had to go again, all rounds: " +
             std::to_string(resends)}};
}

}  // namespace velmora_bench
