#include "tests/driver/HostModel.h"

#include <algorithm>
#include <cstring>

namespace velmora_test {

namespace {

constexpr double mostOfPcm = 1536000;

// Whole rates that a stream can have; the rest of the families is not asked for here.
bool isRate(double rate) {
    for (const double known : {44100.0, 48000.0, 96000.0, 2822400.0, 5644800.0}) {
        if (rate == known) return true;
    }
    return false;
}

double wholeRateOf(double rate) {
    return rate >= 1 && rate < 4294967296.0 ? static_cast<double>(static_cast<std::uint32_t>(rate))
                                            : 0;
}

std::uint64_t channelCode(std::int32_t count) {
    switch (count) {
        case 1:
            return 0x01;
        case 2:
            return 0x02;
        case 4:
            return 0x04;
        case 6:
            return 0x08;
        case 8:
            return 0x10;
        default:
            return 0;
    }
}

}  // namespace

HostModel::State HostModel::state() const {
    if (isStarted_) return started;
    if (hasCallbacks_ && active_ > 0) return buffers;
    return isInitialised_ ? initialised : without_;
}

ASIOBool HostModel::init() {
    if (isInitialised_) return 1;
    isStarted_ = false;
    if (manner == Manner::isSilent) {
        error_ = row().hasTarget ? "Velmora can not ReFind" : "Velmora can not Find";
        without_ = initFailed;
        return 0;
    }
    isClosed_ = false;
    pcm_ = StreamTarget::allRates | target_.channelCodes | 0xa00;
    dsdLsb_ = target_.dsdLsb;
    dsdMsb_ = target_.dsdMsb;
    if (manner == Manner::tellsNoLatency) {
        error_ = "Velmora get info err!";
        without_ = informationMissing;
        return 1;
    }
    widthBit_ = row().widthBit;
    sampleBytes_ = row().sampleBytes;
    outputs_ = target_.outputs;
    name_ = row().hasTarget ? "T" : "T(S)";
    dsd_ = false;
    isInitialised_ = true;
    return 1;
}

bool HostModel::canCarry() const {
    if (!isRate(rate_)) return false;
    const std::uint64_t code = channelCode(active_);
    if (code == 0 || (target_.channelCodes & code) == 0) return false;
    if (rate_ <= mostOfPcm && !dsd_) return halfBytes_ / sampleBytes_ > 0;
    // DSD goes with DSDMSB alone, in whole words of 32 bits, and not at a rate of PCM.
    return row().dsdMsb && (dsdLsb_ | dsdMsb_) != 0 && rate_ > mostOfPcm && halfBytes_ >= 4;
}

// More than 32768 packets a second are none that a stream keeps for sending them again.
bool HostModel::isTooShort() const {
    if (!row().bufferIsPacket) return false;
    const bool dsd = dsd_ || rate_ > mostOfPcm;
    const auto rate = static_cast<std::uint32_t>(rate_);
    const std::uint32_t base = (rate % 44100 == 0 ? 44100u : 48000u) * (dsd ? 32u : 1u);
    const std::int32_t samples = dsd ? halfBytes_ * 8 : halfBytes_ / sampleBytes_;
    return 1e6 * samples * (rate / base) / rate_ < 31;
}

ASIOError HostModel::start() {
    if (isStarted_ || active_ == 0 || !hasCallbacks_ || !canCarry()) return ASE_NotPresent;
    if (isClosed_ || isTooShort()) {
        isClosed_ = true;
        return ASE_NotPresent;
    }
    isStarted_ = true;
    return ASE_OK;
}

HostModel::Sizes HostModel::sizes() const {
    const std::int32_t times = dsd_ ? 32 : 1;
    const std::int32_t fixed = row().fixedFrames;
    if (fixed != 0) return {fixed * times, fixed * times, fixed * times, 0};
    return {times, 16384 * times, 512 * times, -1};
}

ASIOError HostModel::channelInfo(ASIOChannelInfo& info) const {
    if (info.channel < 0 || info.channel >= outputs_) return ASE_InvalidParameter;
    info.isActive = 0;
    if (info.isInput != 0) return ASE_InvalidParameter;
    info.channelGroup = 0;
    std::memset(info.name, 0, sizeof info.name);
    std::memcpy(info.name, name_.data(), name_.size());
    if (dsd_ || rate_ > mostOfPcm) {
        info.type = row().dsdMsb ? 33 : 32;
    } else if (row().integersOf32 || widthBit_ == 0x800) {
        info.type = 18;
    } else {
        info.type = 16;
    }
    info.isActive = info.channel < active_ ? 1 : 0;
    return ASE_OK;
}

ASIOError HostModel::canSampleRate(double rate) const {
    if (!isRate(wholeRateOf(rate))) return ASE_NoClock;
    if (rate > mostOfPcm || dsd_) return (dsdLsb_ | dsdMsb_) != 0 ? ASE_OK : ASE_NoClock;
    return widthBit_ != 0 ? ASE_OK : ASE_NoClock;
}

bool HostModel::setSampleRate(double rate) {
    if (rate == rate_) return false;
    rate_ = wholeRateOf(rate);
    return hasCallbacks_;
}

ASIOError HostModel::createBuffers(const std::vector<ASIOBufferInfo>* infos, std::int32_t count,
                                   std::int32_t frames, bool hasCallbacks) {
    disposeBuffers();  // what there was is gone, whatever comes of it
    if (!hasCallbacks || (infos == nullptr && count > 0) || frames <= 0) {
        return ASE_InvalidParameter;
    }
    const std::int64_t bytes = dsd_ ? frames / 8 : std::int64_t{frames} * sampleBytes_;
    if (bytes > 0x3fffffff) return ASE_InvalidParameter;
    halfBytes_ = static_cast<std::int32_t>(bytes);
    std::int32_t outputs = 0;
    for (std::int32_t i = 0; i < count; ++i) {
        const ASIOBufferInfo& info = (*infos)[static_cast<std::size_t>(i)];
        if (info.isInput != 0) continue;
        if (info.channelNum < 0 || info.channelNum >= outputs_) return ASE_InvalidParameter;
        if (++outputs > 8 || bytes < (dsd_ ? 4 : 1)) return ASE_InvalidParameter;
    }
    active_ = outputs;
    hasCallbacks_ = true;
    return ASE_OK;
}

void HostModel::disposeBuffers() {
    isStarted_ = false;
    hasCallbacks_ = false;
    active_ = 0;
}

ASIOError HostModel::future(std::int32_t selector, std::int32_t* type) {
    switch (selector) {
        case 1:
        case 2:
        case 3:
        case 9:
        case 10:
        case 11:
            return ASE_SUCCESS;
        case 0x23111961:
            if (type == nullptr) return ASE_NotPresent;
            dsd_ = *type == 1;
            return ASE_SUCCESS;
        case 0x23111983:
            if (type == nullptr) return ASE_NotPresent;
            *type = dsd_ ? 1 : 0;
            return ASE_SUCCESS;
        case 0x23112004:
            if (type == nullptr) return ASE_NotPresent;
            if (*type == 1) return (dsdLsb_ | dsdMsb_) != 0 ? ASE_SUCCESS : ASE_NotPresent;
            if (*type == 0) return pcm_ != 0 ? ASE_SUCCESS : ASE_NotPresent;
            return ASE_SUCCESS;
        default:
            return ASE_NotPresent;
    }
}

ASIOError HostModel::controlPanel(bool starts, int leaves) {
    if (!starts) return ASE_NotPresent;
    const int before = fileIsReadable_ ? static_cast<int>(file_) : unreadable;
    if (leaves == unchanged || leaves == before) return ASE_OK;
    fileIsReadable_ = leaves != unreadable;
    settings_ = fileIsReadable_ ? static_cast<std::size_t>(leaves) : 0;  // row 0: the defaults
    if (!fileIsReadable_) return ASE_NotPresent;
    file_ = settings_;
    isInitialised_ = false;
    return init();
}

}  // namespace velmora_test
