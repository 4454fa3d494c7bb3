// start: from the settings and the host's buffers to a running session; stop: back again. The last
// wait is left to a thread of its own, so that the host's call returns at once.
#include <cstring>
#include <system_error>

#include "base/LogLine.h"
#include "driver/AsioVelmora.h"
#include "driver/Edge.h"
#include "driver/StartPlan.h"

using VELMORA::SinkConfig;
using ZENNO::LogLine;

namespace {

// Flags of the setting ThredMode that make the worker poll; a cycle of a millisecond can wait.
constexpr std::uint32_t pollingFlags = 0x804;

// Failures of start are told in the log alone: the host hears one code, whatever it was.
bool failStart(const char* text) {
    LogLine(3) << text;
    return false;
}

double perSecond(std::uint32_t micros) {
    return micros != 0 ? 1e6 / micros : 0.0;
}

// A thread that cannot be made is a false like any other.
template <class Call>
bool threadStarted(Call&& call) {
    try {
        return call();
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace

ASIOError AsioVelmora::start() {
    return atEdge("start", ASE_NotPresent, [this] { return startStream(); });
}

ASIOError AsioVelmora::startStream() {
    LogLine(6) << "start";
    // A second start without a stop between them would take the first one's threads away.
    if (isStarted()) {
        failStart("start without stop");
        return ASE_NotPresent;
    }

    SinkConfig format;
    if (!settleFormat(format)) return ASE_NotPresent;
    const std::uint8_t silence = silenceByte(format, /*inverted=*/false);
    for (std::int32_t c = 0; c < activeChannels_; ++c) {
        std::memset(channelBuffers_[static_cast<std::size_t>(c)].get(), silence,
                    2 * static_cast<std::size_t>(bufferBytes_));
    }

    const bool dsd = !format.isPcm();
    const std::uint32_t multi = settings_.bufferMulti ? bufferMultiplier(sampleRate_, dsd) : 1;
    if (!settleTransfer(multi)) return ASE_NotPresent;

    if (callbacks_.load() == nullptr) {
        failStart("error callbacks");
        return ASE_NotPresent;
    }
    samplePosition_ = 0;
    bufferIndex_ = 0;
    running_ = true;  // and so it stays until stop, whatever fails from here on

    const std::int32_t frames =
        dsd ? bufferBytes_ / 4 : (sampleBytes_ != 0 ? bufferBytes_ / sampleBytes_ : 0);
    const std::uint64_t blocks = static_cast<std::uint64_t>(settings_.syncBufferCount) * multi;
    if (frames == 0) {
        failStart("buffer size error");
        return ASE_NotPresent;
    }
    stream_.setupBuffers(static_cast<std::uint64_t>(frames), blocks);
    planFill();
    startDelayUs_ = settings_.startDelay;
    stream_.phaseInvert = settings_.phaseInvert ? 1 : 0;

    if (!startWorkers() || !startWaitThread()) return ASE_NotPresent;
    LogLine(6) << "start done";
    return ASE_OK;
}

bool AsioVelmora::settleFormat(SinkConfig& format) {
    const std::uint32_t sampleRate = sampleRate_;
    if (!format.setRate(sampleRate)) {
        LogLine(3) << "speed error " << sampleRate;
        return false;
    }
    LogLine(6) << "start SPEED=" << format.rate();
    if (activeChannels_ < 0 || !format.setChannels(static_cast<std::uint32_t>(activeChannels_))) {
        LogLine(3) << "ch error " << activeChannels_;
        return false;
    }

    if (sampleRate <= highestPcmRate && !dsdMode_) {
        format.word |= pcmFormatBit_;
        return stream_.setStreamFormat(format) || failStart("fmt error PCM");
    }
    // The two labels have changed places long ago; whoever reads our logs knows them so.
    if (settings_.dsdMsb) {
        format.word |= SinkConfig::dsdMsbBig;
        return stream_.setStreamFormat(format) || failStart("fmt error DSDLSB");
    }
    // DSD runs with DSDMSB enabled alone. A target that could take this format is refused as well,
    // without a line.
    format.word |= SinkConfig::dsdLsbLittle;
    if (!stream_.setStreamFormat(format)) failStart("fmt error DSDMSB");
    return false;
}

bool AsioVelmora::settleTransfer(std::uint32_t multi) {
    const DriverSettings& s = settings_;
    switch (transferCase(s)) {
        case TransferCase::profile:
            LogLine(6) << "configTransfer profile";
            if (!stream_.configTransferProfile(s.targetProfileLimitTime, 0, s.cycleTime)) {
                return failStart("error configTransfer profile");
            }
            if (stream_.profiles[0].cycle >= 1000) {
                stream_.threadMode = s.threadMode & ~pollingFlags;
            }
            break;
        case TransferCase::varAsio: {
            const std::uint32_t payload =
                hostBufferPayload(stream_.hostFormat, static_cast<std::uint32_t>(bufferBytes_),
                                  static_cast<std::uint32_t>(sampleBytes_), multi);
            if (!stream_.configTransferVarASIO(payload)) {
                return failStart("error configTransfer VarASIO");
            }
            LogLine(6) << "configTransfer VarASIO " << stream_.profiles[0].fixedBytes << "x"
                       << stream_.profiles[0].packetCount;
            break;
        }
        case TransferCase::fixAuto:
            LogLine(6) << "configTransfer FixAuto";
            if (!stream_.configTransferFixAuto(s.cycleTime)) {
                return failStart("error configTransfer FixAuto");
            }
            break;
        case TransferCase::varAuto:
            LogLine(6) << "configTransfer VarAuto";
            if (!stream_.configTransferVarAuto(s.cycleTime)) {
                return failStart("error configTransfer VarAuto");
            }
            break;
        case TransferCase::fix:
            LogLine(6) << "configTransfer Fix";
            if (!stream_.configTransferFix(s.cycleTime, s.fragment)) {
                return failStart("error configTransfer Fix");
            }
            break;
        case TransferCase::random:
            LogLine(6) << "configTransfer Random";
            if (!stream_.configTransferRandom(s.cycleMinTime, s.cycleTime, s.fragment)) {
                return failStart("error configTransfer Var");  // Random has no text of its own
            }
            break;
        case TransferCase::var:
            LogLine(6) << "configTransfer Var";
            if (!stream_.configTransferVar(s.cycleTime, s.fragment)) {
                return failStart("error configTransfer Var");
            }
            break;
    }
    // A Fix transfer has no fixed bytes: its size reads 0.
    LogLine(6) << "start cycle=" << stream_.cycle() << "usec " << perSecond(stream_.cycle())
               << "Hz size=" << stream_.cycleBytes() << " cycleMin=" << stream_.cycleMin()
               << "usec " << perSecond(stream_.cycleMin()) << "Hz";
    return true;
}

bool AsioVelmora::startWorkers() {
    if (!stream_.connectPrepare()) return failStart("connectPrepare error");
    // The engine's own: the buffer worker starts below, when its flags are clear.
    if (!threadStarted([this] { return stream_.VELMORA::Sync::connect(); })) {
        return failStart("connect error");
    }
    stream_.clearStopFlags();
    if (!threadStarted([this] { return stream_.startBufferWorker(); })) {
        LogLine(3) << "Buffer Worker Start Error";
        stream_.closeSession();
        return failStart("connect error");
    }
    return true;
}

bool AsioVelmora::startWaitThread() {
    startTimeUs_ = surroundings_.environment.clock().now();
    const bool started = threadStarted([this] {
        waitThread_ = surroundings_.machine.startThread([this] { startWait(); });
        return true;
    });
    if (started) return true;
    // The workers run, and nobody would ever let them play: see them off as stop does, once there
    // is a connection to end.
    stream_.connectWait();
    stream_.disconnect();
    return failStart("connect error");
}

// Wait thread. What goes wrong here is told in the log alone: the host has its answer already.
void AsioVelmora::startWait() noexcept {
    atEdge("startWait", false, [this] {
        if (!stream_.connectWait()) {
            LogLine(6) << "connectWait error";
            return false;
        }
        if (!stream_.is_connect()) {
            LogLine(6) << "is_connect error";
            return false;
        }
        ZENNO::Clock& clock = surroundings_.environment.clock();
        const StartDelay delay = startDelay(clock.now(), startTimeUs_, startDelayUs_);
        if (delay.sleep() == 0) {
            LogLine(6) << "start delay " << delay.elapsed << "ms";
        } else {
            LogLine(6) << "start delay " << delay.elapsed << "ms sleep " << delay.sleep() << "ms";
            clock.sleep(std::uint64_t{delay.sleep()} * 1000);
        }
        stream_.play();
        return true;
    });
}

ASIOError AsioVelmora::stop() {
    return atEdge("stop", ASE_OK, [this] {
        stopStream();
        return ASE_OK;
    });
}

bool AsioVelmora::stopStream() {
    running_ = false;  // fillStream calls the host no more
    LogLine(6) << "stop";
    if (waitThread_.joinable()) waitThread_.join();
    if (fillThread_.load() == std::this_thread::get_id()) {
        // The host calls from inside its callback, on the worker that would have to wait for
        // itself. The session ends all the same; a stop on another thread sees the worker off.
        LogLine(3) << "stop inside the callback";
        stream_.disconnectOnBufferWorker();
        workerLeft_ = true;
        return false;
    }
    stream_.disconnect();
    fillThread_ = std::thread::id();
    workerLeft_ = false;
    return true;
}
