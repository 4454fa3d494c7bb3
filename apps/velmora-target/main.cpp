// velmora-target: a network audio device in software.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <exception>
#include <filesystem>
#include <iostream>
#include <thread>

#include "apps/velmora-target/Medium.h"
#include "apps/velmora-target/Options.h"
#include "apps/velmora-target/Outputs.h"
#include "apps/velmora-target/Ports.h"
#include "apps/velmora-target/Report.h"
#include "platform/Thread.h"
#include "target/InboxFiles.h"
#include "target/StateFile.h"
#include "target/Target.h"

namespace velmora_target {

namespace {

// Set by the signal handler, read by the loop, which looks at it several times a second.
std::atomic<bool> interrupted{false};

void onSignal(int) {
    interrupted.store(true);
}

int complain(const std::string& what, int exitCode) {
    std::cerr << "velmora-target: " << what << '\n';
    return exitCode;
}

constexpr std::uint64_t second = 1'000'000;
constexpr std::uint64_t longestWait = 100'000;         // µs: how late a signal is noticed
constexpr std::uint64_t lookAroundEvery = 5 * second;  // for interfaces that came or went
constexpr int atOnce = 256;  // datagrams taken between two looks at the clock

// The thin loop around a Target: sockets and clock on one side, what is printed on the other.
class Program {
public:
    Program(const Options& options, Storage storage)
        : options_(options),
          target_(options.target, outputMaker(options.target.output, options.alsa),
                  std::move(storage)),
          report_(options.json, options.quiet, options.hidesFigures) {}

    int run();

private:
    double secondsAt(std::uint64_t now) const { return static_cast<double>(now - start_) / 1e6; }
    std::vector<std::uint32_t> scopes() const {
        return {ports_.scopes().begin(), ports_.scopes().end()};
    }
    bool isOver(std::uint64_t now) const {
        if (interrupted.load() || (options_.once && streams_ != 0)) return true;
        return options_.seconds && secondsAt(now) >= *options_.seconds;
    }
    void takeDatagrams();
    void sendAndTell(std::uint64_t now);
    void onClock(std::uint64_t now);
    int exitCode() const;

    const Options& options_;
    Ports ports_;
    Target target_;
    Report report_;
    Mail mail_;
    std::uint64_t start_ = 0, nextFigures_ = 0, nextLookAround_ = 0;
    std::uint64_t streams_ = 0;
    std::optional<Figures> lastStream_;
};

int Program::run() {
    // What hosts have kept is in force by now, the output too.
    const std::string objection = target_.askFormatsBy(formatsOfOutput);
    if (!objection.empty()) return complain(objection, exitOutput);
    const std::string failure = ports_.open(options_.target, options_.interfaces);
    if (!failure.empty()) return complain(failure, exitNetwork);
    ZENNO::platform::setThreadPriority(ZENNO::platform::Priority::highest);
    target_.announceOn(scopes());
    report_.ready(target_.settings(), ports_.interfaceNames());
    for (const std::string& line : target_.keptLines()) report_.event(0, line);

    std::uint64_t now = start_ = nowMicros();
    nextFigures_ = start_ + second;
    nextLookAround_ = start_ + lookAroundEvery;
    bool networkFailed = false;
    while (!isOver(now)) {
        const std::uint64_t next = std::min(target_.nextTime(now), nextFigures_);
        if (!ports_.wait(next > now ? std::min(next - now, longestWait) : 0)) {
            networkFailed = true;
            break;
        }
        takeDatagrams();
        now = nowMicros();
        onClock(now);
    }
    target_.endStreams(interrupted.load() ? "interrupted" : "time is up", mail_);
    sendAndTell(nowMicros());
    while (target_.isPlayingOut()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        target_.onTime(nowMicros(), mail_);
    }
    report_.summary(
        secondsAt(nowMicros()), lastStream_,
        {streams_, target_.settingChanges(), target_.transferCounts(), target_.misbehaviours()});
    if (networkFailed) return complain("waiting on the sockets failed", exitNetwork);
    return exitCode();
}

void Program::takeDatagrams() {
    Arrival arrival;
    for (int i = 0; i < atOnce && ports_.receive(arrival); ++i) {
        target_.onDatagram(arrival, mail_);
        sendAndTell(arrival.now);
    }
}

void Program::onClock(std::uint64_t now) {
    target_.onTime(now, mail_);
    sendAndTell(now);
    if (now >= nextFigures_) {
        nextFigures_ += (now - nextFigures_) / second * second + second;
        for (const Figures& figures : target_.figures()) report_.figures(secondsAt(now), figures);
    }
    if (now >= nextLookAround_) {
        nextLookAround_ = now + lookAroundEvery;
        if (ports_.lookAround()) target_.announceOn(scopes());
    }
}

void Program::sendAndTell(std::uint64_t now) {
    for (const Outgoing& datagram : mail_.datagrams) ports_.send(datagram);
    mail_.datagrams.clear();
    for (const std::string& line : mail_.lines) report_.event(secondsAt(now), line);
    mail_.lines.clear();
    for (Figures& ended : target_.takeEnded()) {
        report_.streamEnded(secondsAt(now), ended);
        ++streams_;
        lastStream_ = std::move(ended);
    }
}

int Program::exitCode() const {
    if (lastStream_ && lastStream_->outputFailed) return exitOutput;
    if (interrupted.load() || !options_.once) return exitDone;
    if (!lastStream_) return exitNoStream;
    return lastStream_->endReason == "timeout" ? exitSilence : exitDone;
}

bool isFolder(const std::string& path) {
    std::error_code ignored;
    return std::filesystem::is_directory(path, ignored);
}

void catchSignals() {
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
    // Whoever started us to outlast the terminal has it ignored already.
    if (std::signal(SIGHUP, onSignal) == SIG_IGN) std::signal(SIGHUP, SIG_IGN);
    // A reader of the output that went away ends no stream.
    std::signal(SIGPIPE, SIG_IGN);
}

int runWith(const Options& options) {
    const std::string objection = objectionTo(options.target.output);
    if (!objection.empty()) return complain(objection, exitOutput);
    for (const std::string& folder : {options.target.outputFolder, options.inbox}) {
        if (!folder.empty() && !isFolder(folder)) {
            return complain("there is no folder " + folder, exitOutput);
        }
    }
    Storage storage;
    StateFile state(options.state, writeThrough);
    if (!options.state.empty()) {
        const std::string failure = state.load(storage.kept);
        if (!failure.empty()) {
            std::error_code ignored;
            const bool isThere = std::filesystem::exists(options.state, ignored);
            return complain(
                failure + (isThere ? ". Mend it, or remove it to start with the options" : ""),
                exitUsage);
        }
        storage.keep = [&state](const KeptValues& values) { return state.save(values); };
    }
    if (!options.inbox.empty()) storage.makeInboxItem = inboxFolder(options.inbox, writeThrough);
    catchSignals();
    return Program(options, std::move(storage)).run();
}

}  // namespace

}  // namespace velmora_target

int main(int count, char** values) {
    using namespace velmora_target;
    const CommandLine line = readCommandLine(count, values);
    if (!line.options) return line.exitCode;
    // What files may do is told by those who use them; this is for what nobody thought of. Streams
    // have ended by here, and what they wrote is closed.
    try {
        return runWith(*line.options);
    } catch (const std::exception& error) {
        return complain(error.what(), exitOutput);
    }
}
