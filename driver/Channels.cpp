// What the host asks between init and start, and its buffers.
#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

#include "base/LogLine.h"
#include "driver/AsioVelmora.h"
#include "driver/Edge.h"
#include "driver/StartPlan.h"
#include "platform/Time.h"

using VELMORA::SinkConfig;
using ZENNO::LogLine;

namespace {

constexpr const char* boolText(bool value) {
    return value ? "true" : "false";
}

// Copies as much as `most` characters and a NUL.
void copyName(char* to, const std::string& name, std::size_t most) {
    const std::size_t length = std::min(name.size(), most);
    std::memcpy(to, name.data(), length);
    to[length] = '\0';
}

struct SampleTypeRow {
    std::uint64_t pcmFormatBit;
    ASIOSampleType type;
};
constexpr SampleTypeRow sampleTypes[] = {
    {SinkConfig::float64, ASIOSTFloat64LSB}, {SinkConfig::float32, ASIOSTFloat32LSB},
    {SinkConfig::pcm32, ASIOSTInt32LSB},     {SinkConfig::pcm24, ASIOSTInt24LSB},
    {SinkConfig::pcm16, ASIOSTInt16LSB},
};

// DSD counts 1-bit samples: 32 in the place of each frame.
std::int32_t bufferSizeFor(std::int32_t frames, bool dsd) {
    const std::int64_t size = dsd ? std::int64_t{frames} * 32 : frames;
    return static_cast<std::int32_t>(
        std::min<std::int64_t>(size, std::numeric_limits<std::int32_t>::max()));
}

template <class T>
void answer(T* place, T value) {
    if (place != nullptr) *place = value;
}

}  // namespace

ASIOError AsioVelmora::getChannels(std::int32_t* numInputChannels,
                                   std::int32_t* numOutputChannels) {
    return atEdge("getChannels", ASE_NotPresent, [&] {
        LogLine(6) << "getCh " << outputChannels_;
        answer(numInputChannels, 0);
        answer(numOutputChannels, outputChannels_);
        return ASE_OK;
    });
}

ASIOError AsioVelmora::getLatencies(std::int32_t* inputLatency, std::int32_t* outputLatency) {
    answer(inputLatency, 0);
    answer(outputLatency, 0);
    return ASE_OK;
}

ASIOError AsioVelmora::getBufferSize(std::int32_t* minSize, std::int32_t* maxSize,
                                     std::int32_t* preferredSize, std::int32_t* granularity) {
    return atEdge("getBufferSize", ASE_NotPresent, [&] {
        LogLine(6) << "getBufferSize";
        const std::int32_t fixed = settings_.asioBufferSize;
        const bool isFixed = fixed != 0;
        answer(minSize, bufferSizeFor(isFixed ? fixed : settings_.asioBufferSizeMin, dsdMode_));
        answer(maxSize, bufferSizeFor(isFixed ? fixed : settings_.asioBufferSizeMax, dsdMode_));
        answer(preferredSize,
               bufferSizeFor(isFixed ? fixed : settings_.asioBufferSizePre, dsdMode_));
        answer(granularity, isFixed ? 0 : -1);  // -1: powers of two
        return ASE_OK;
    });
}

ASIOError AsioVelmora::canSampleRate(ASIOSampleRate sampleRate) {
    // Several hosts take every other refusal than ASE_NoClock for a yes.
    return atEdge("canSampleRate", ASE_NoClock, [&] {
        LogLine(6) << "canSa " << sampleRate;
        const bool dsd = sampleRate > highestPcmRate || dsdMode_;
        SinkConfig format(dsd ? SinkConfig::dsd1 : pcmFormatBit_);
        if (!format.setRate(wholeRate(sampleRate))) return ASE_NoClock;
        // Without a DSD order in the word, either order of the target's will do.
        return stream_.isSupported(format) ? ASE_OK : ASE_NoClock;
    });
}

ASIOError AsioVelmora::getSampleRate(ASIOSampleRate* sampleRate) {
    return atEdge("getSampleRate", ASE_NotPresent, [&] {
        const double rate = sampleRate_;
        LogLine(6) << "getSa " << rate;
        if (sampleRate == nullptr) return ASE_InvalidParameter;
        // The host's double may lie on a 4-byte boundary, as the interface packs it.
        std::memcpy(sampleRate, &rate, sizeof rate);
        return ASE_OK;
    });
}

ASIOError AsioVelmora::setSampleRate(ASIOSampleRate sampleRate) {
    return atEdge("setSampleRate", ASE_OK, [&] {
        LogLine(6) << "SetSa " << sampleRate;
        if (sampleRate == static_cast<double>(sampleRate_)) return ASE_OK;
        // Any rate is taken; one that no format carries shows at start.
        const std::uint32_t rate = wholeRate(sampleRate);
        sampleRate_ = rate;
        pendingRate_ = sampleRate;
        pendingTimeFlags_.fetch_or(kSampleRateChanged, std::memory_order_release);
        const ASIOCallbacks* callbacks = callbacks_;
        if (callbacks != nullptr && callbacks->sampleRateDidChange != nullptr) {
            callbacks->sampleRateDidChange(rate);
        }
        return ASE_OK;
    });
}

ASIOError AsioVelmora::getClockSources(ASIOClockSource* clocks, std::int32_t* numSources) {
    return atEdge("getClockSources", ASE_NotPresent, [&] {
        LogLine(6) << "getCS";
        if (clocks != nullptr) {
            clocks->index = 0;
            clocks->associatedChannel = -1;
            clocks->associatedGroup = -1;
            clocks->isCurrentSource = ASIOTrue;
            std::strcpy(clocks->name, "Internal");
        }
        answer(numSources, 1);
        return ASE_OK;
    });
}

ASIOError AsioVelmora::setClockSource(std::int32_t reference) {
    return atEdge("setClockSource", ASE_NotPresent, [&] {
        LogLine(6) << "setCS";
        if (reference != 0) return ASE_NotPresent;
        pendingTimeFlags_.fetch_or(kClockSourceChanged, std::memory_order_release);
        return ASE_OK;
    });
}

ASIOError AsioVelmora::getSamplePosition(ASIOSamples* sPos, ASIOTimeStamp* tStamp) {
    const auto position = static_cast<std::uint64_t>(samplePosition_.load());
    // Microseconds, though the interface speaks of nanoseconds: hosts have learnt to live with it.
    const std::uint64_t time = std::uint64_t{ZENNO::platform::millisecondTick()} * 1000;
    if (sPos != nullptr) {
        sPos->hi = static_cast<std::uint32_t>(position >> 32);
        sPos->lo = static_cast<std::uint32_t>(position);
    }
    if (tStamp != nullptr) {
        tStamp->hi = static_cast<std::uint32_t>(time >> 32);
        tStamp->lo = static_cast<std::uint32_t>(time);
    }
    return ASE_OK;
}

ASIOError AsioVelmora::getChannelInfo(ASIOChannelInfo* info) {
    return atEdge("getChannelInfo", ASE_InvalidParameter,
                  [&] { return info != nullptr ? describeChannel(*info) : ASE_InvalidParameter; });
}

bool AsioVelmora::hasDsdFormat() const noexcept {
    return sampleRate_ > highestPcmRate || dsdMode_;
}

ASIOError AsioVelmora::describeChannel(ASIOChannelInfo& info) {
    if (info.channel < 0 || info.channel >= outputChannels_) return ASE_InvalidParameter;
    info.isActive = ASIOFalse;
    if (info.isInput != 0) return ASE_InvalidParameter;
    info.channelGroup = 0;
    copyName(info.name, stream_.driverName, 30);
    if (hasDsdFormat()) {
        info.type = settings_.dsdMsb ? ASIOSTDSDInt8MSB1 : ASIOSTDSDInt8LSB1;
    } else if (settings_.pcmConvertS32) {
        info.type = ASIOSTInt32LSB;
    } else {
        for (const SampleTypeRow& row : sampleTypes) {
            if (row.pcmFormatBit == pcmFormatBit_) info.type = row.type;
        }
    }
    info.isActive = info.channel < activeChannels_ ? ASIOTrue : ASIOFalse;
    LogLine(6) << "getChannelInfo : " << info.channel << " : " << info.type << " "
               << boolText(info.isActive != 0);
    return ASE_OK;
}

ASIOError AsioVelmora::createBuffers(ASIOBufferInfo* bufferInfos, std::int32_t numChannels,
                                     std::int32_t bufferSize, ASIOCallbacks* callbacks) {
    return atEdge("createBuffers", ASE_InvalidParameter, [&] {
        const ASIOError result = makeBuffers(bufferInfos, numChannels, bufferSize, callbacks);
        if (result != ASE_OK) disposeBuffers();
        return result;
    });
}

ASIOError AsioVelmora::makeBuffers(ASIOBufferInfo* bufferInfos, std::int32_t numChannels,
                                   std::int32_t bufferSize, const ASIOCallbacks* callbacks) {
    LogLine(6) << "createBuffer : " << bufferSize << " ch:" << numChannels
               << " callback:" << boolText(callbacks != nullptr) << "  s:" << sampleRate_.load();
    // Buffers that the host has not disposed of are forgotten by it. A stream that still plays from
    // them ends first.
    if (isStarted() && !stopStream()) return ASE_InvalidMode;
    freeChannelBuffers();
    if (callbacks == nullptr || (bufferInfos == nullptr && numChannels > 0)) {
        return ASE_InvalidParameter;
    }
    const ASIOError allocated = allocateChannels(bufferInfos, numChannels, bufferSize);
    if (allocated != ASE_OK) return allocated;

    callbacks_ = nullptr;
    callbackTable_ = *callbacks;
    callbacks_ = &callbackTable_;
    timeInfoMode_ = callbackTable_.asioMessage != nullptr &&
                    callbackTable_.asioMessage(kAsioSupportsTimeInfo, 0, nullptr, nullptr) != 0;
    resetTimeBlock();  // also for a host that has the other call alone and did not say so
    LogLine(6) << "createBuffer done " << bufferBytes_ << "byte x " << settings_.syncBufferCount;
    return ASE_OK;
}

ASIOError AsioVelmora::allocateChannels(ASIOBufferInfo* bufferInfos, std::int32_t numChannels,
                                        std::int32_t bufferSize) {
    const std::int64_t bytes =
        dsdMode_ ? bufferSize / 8 : std::int64_t{bufferSize} * std::int64_t{sampleBytes_};
    // Two halves must be countable in the interface's 32 bits.
    if (bufferSize <= 0 || bytes > std::numeric_limits<std::int32_t>::max() / 2) {
        return ASE_InvalidParameter;
    }
    bufferBytes_ = static_cast<std::int32_t>(bytes);
    for (std::int32_t i = 0; i < numChannels; ++i) {
        ASIOBufferInfo& info = bufferInfos[i];
        if (info.isInput != 0) continue;
        // The channel's number is only checked: the k-th output here is the stream's channel k.
        if (info.channelNum < 0 || info.channelNum >= outputChannels_) return ASE_InvalidParameter;
        if (activeChannels_ == mostChannels) return ASE_InvalidParameter;
        // DSD streams in whole 32-bit words; a block of nothing would keep the stream worker
        // asking for the next one for ever.
        if (bufferBytes_ < (dsdMode_ ? 4 : 1)) return ASE_InvalidParameter;
        std::uint8_t* buffer =
            new (std::nothrow) std::uint8_t[2 * static_cast<std::size_t>(bufferBytes_)]();
        if (buffer == nullptr) return ASE_NoMemory;
        channelBuffers_[static_cast<std::size_t>(activeChannels_)].reset(buffer);
        ++activeChannels_;
        info.buffers[0] = buffer;
        info.buffers[1] = buffer + bufferBytes_;
    }
    return ASE_OK;
}

void AsioVelmora::resetTimeBlock() {
    pendingTimeFlags_ = 0;
    AsioTimeInfo& info = timeBlock_.timeInfo;
    info.speed = 1.0;
    info.systemTime = {};
    info.samplePosition = {};
    info.sampleRate = sampleRate_;
    info.flags = kSystemTimeValid | kSamplePositionValid | kSampleRateValid | kSpeedValid;
    ASIOTimeCode& code = timeBlock_.timeCode;
    code.speed = 1.0;
    code.timeCodeSamples = {};
    code.flags = kTcRunning | kTcSpeedValid;
    if (timeCodeEnabled_) code.flags |= kTcValid;
}

ASIOError AsioVelmora::disposeBuffers() {
    return atEdge("disposeBuffers", ASE_OK, [this] { return releaseBuffers(); });
}

ASIOError AsioVelmora::releaseBuffers() {
    LogLine(6) << "disposeBuffers";
    callbacks_ = nullptr;
    // A host that disposes inside its own callback stands on the worker that would have to end:
    // the buffers stay for as long as that worker may read them.
    if (!stopStream()) return ASE_OK;
    freeChannelBuffers();
    return ASE_OK;
}

void AsioVelmora::freeChannelBuffers() noexcept {
    fillPlan_ = {};
    for (auto& buffer : channelBuffers_) buffer.reset();
    activeChannels_ = 0;
}

ASIOError AsioVelmora::future(std::int32_t selector, void* opt) {
    return atEdge("future", ASE_NotPresent, [&] { return answerFuture(selector, opt); });
}

ASIOError AsioVelmora::answerFuture(std::int32_t selector, void* opt) {
    LogLine(6) << "future " << selector;
    // Of the format's block the type alone is touched: some hosts pass no more.
    const auto formatType = [opt] {
        std::int32_t type = kASIOFormatInvalid;
        std::memcpy(&type, opt, sizeof type);
        return type;
    };
    switch (selector) {
        case kAsioEnableTimeCodeRead:
            timeCodeEnabled_ = true;
            return ASE_SUCCESS;
        case kAsioDisableTimeCodeRead:
            timeCodeEnabled_ = false;
            return ASE_SUCCESS;
        case kAsioSetInputMonitor:
        case kAsioCanInputMonitor:
        case kAsioCanTimeInfo:
        case kAsioCanTimeCode:
            return ASE_SUCCESS;
        case kAsioSetIoFormat:
            if (opt == nullptr) return ASE_NotPresent;
            dsdMode_ = formatType() == kASIODSDFormat;
            LogLine(6) << "kAsioSetIoFormat " << (dsdMode_ ? "DSD" : "PCM");
            return ASE_SUCCESS;
        case kAsioGetIoFormat: {
            if (opt == nullptr) return ASE_NotPresent;
            const std::int32_t type = dsdMode_ ? kASIODSDFormat : kASIOPCMFormat;
            std::memcpy(opt, &type, sizeof type);
            return ASE_SUCCESS;
        }
        case kAsioCanDoIoFormat: {
            if (opt == nullptr) return ASE_NotPresent;
            // A type that is neither is waved through: hosts ask for their own, and go on.
            bool can = true;
            if (formatType() == kASIODSDFormat) {
                can = stream_.dsdLsbSupport != 0 || stream_.dsdMsbSupport != 0;
            } else if (formatType() == kASIOPCMFormat) {
                can = stream_.pcmSupport != 0;
            }
            return can ? ASE_SUCCESS : ASE_NotPresent;
        }
        default:
            return ASE_NotPresent;
    }
}

ASIOError AsioVelmora::outputReady() {
    return ASE_NotPresent;
}
