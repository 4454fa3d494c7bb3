// The published ASIO driver interface, as 64-bit Windows hosts are built against it: 4-byte
// packing, `long` of 32 bits. The types have fixed widths, so that the layouts are the same on
// every system.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/Com.h"

using ASIOBool = std::int32_t;
using ASIOError = std::int32_t;
using ASIOSampleRate = double;
using ASIOSampleType = std::int32_t;

inline constexpr ASIOBool ASIOFalse = 0;
inline constexpr ASIOBool ASIOTrue = 1;

inline constexpr ASIOError ASE_OK = 0;
inline constexpr ASIOError ASE_SUCCESS = 0x3f4847a0;  // the good answer of future, and of it alone
inline constexpr ASIOError ASE_NotPresent = -1000;
inline constexpr ASIOError ASE_HWMalfunction = -999;
inline constexpr ASIOError ASE_InvalidParameter = -998;
inline constexpr ASIOError ASE_InvalidMode = -997;
inline constexpr ASIOError ASE_SPNotAdvancing = -996;
inline constexpr ASIOError ASE_NoClock = -995;
inline constexpr ASIOError ASE_NoMemory = -994;

inline constexpr ASIOSampleType ASIOSTInt16MSB = 0;
inline constexpr ASIOSampleType ASIOSTInt24MSB = 1;
inline constexpr ASIOSampleType ASIOSTInt32MSB = 2;
inline constexpr ASIOSampleType ASIOSTFloat32MSB = 3;
inline constexpr ASIOSampleType ASIOSTFloat64MSB = 4;
inline constexpr ASIOSampleType ASIOSTInt16LSB = 16;
inline constexpr ASIOSampleType ASIOSTInt24LSB = 17;
inline constexpr ASIOSampleType ASIOSTInt32LSB = 18;
inline constexpr ASIOSampleType ASIOSTFloat32LSB = 19;
inline constexpr ASIOSampleType ASIOSTFloat64LSB = 20;
inline constexpr ASIOSampleType ASIOSTDSDInt8LSB1 = 32;
inline constexpr ASIOSampleType ASIOSTDSDInt8MSB1 = 33;
inline constexpr ASIOSampleType ASIOSTDSDInt8NER8 = 40;

// what asioMessage may be asked
inline constexpr std::int32_t kAsioSelectorSupported = 1;
inline constexpr std::int32_t kAsioEngineVersion = 2;
inline constexpr std::int32_t kAsioResetRequest = 3;
inline constexpr std::int32_t kAsioBufferSizeChange = 4;
inline constexpr std::int32_t kAsioResyncRequest = 5;
inline constexpr std::int32_t kAsioLatenciesChanged = 6;
inline constexpr std::int32_t kAsioSupportsTimeInfo = 7;
inline constexpr std::int32_t kAsioSupportsTimeCode = 8;
inline constexpr std::int32_t kAsioMMCCommand = 9;
inline constexpr std::int32_t kAsioSupportsInputMonitor = 10;

// selectors of future
inline constexpr std::int32_t kAsioEnableTimeCodeRead = 1;
inline constexpr std::int32_t kAsioDisableTimeCodeRead = 2;
inline constexpr std::int32_t kAsioSetInputMonitor = 3;
inline constexpr std::int32_t kAsioTransport = 4;
inline constexpr std::int32_t kAsioSetInputGain = 5;
inline constexpr std::int32_t kAsioGetInputMeter = 6;
inline constexpr std::int32_t kAsioSetOutputGain = 7;
inline constexpr std::int32_t kAsioGetOutputMeter = 8;
inline constexpr std::int32_t kAsioCanInputMonitor = 9;
inline constexpr std::int32_t kAsioCanTimeInfo = 10;
inline constexpr std::int32_t kAsioCanTimeCode = 11;
inline constexpr std::int32_t kAsioCanTransport = 12;
inline constexpr std::int32_t kAsioSetIoFormat = 0x23111961;
inline constexpr std::int32_t kAsioGetIoFormat = 0x23111983;
inline constexpr std::int32_t kAsioCanDoIoFormat = 0x23112004;

inline constexpr std::int32_t kASIOFormatInvalid = -1;
inline constexpr std::int32_t kASIOPCMFormat = 0;
inline constexpr std::int32_t kASIODSDFormat = 1;

// AsioTimeInfo::flags
inline constexpr std::uint32_t kSystemTimeValid = 1;
inline constexpr std::uint32_t kSamplePositionValid = 2;
inline constexpr std::uint32_t kSampleRateValid = 4;
inline constexpr std::uint32_t kSpeedValid = 8;
inline constexpr std::uint32_t kSampleRateChanged = 16;
inline constexpr std::uint32_t kClockSourceChanged = 32;

// ASIOTimeCode::flags
inline constexpr std::uint32_t kTcValid = 1;
inline constexpr std::uint32_t kTcRunning = 2;
inline constexpr std::uint32_t kTcReverse = 4;
inline constexpr std::uint32_t kTcOnspeed = 8;
inline constexpr std::uint32_t kTcStill = 16;
inline constexpr std::uint32_t kTcSpeedValid = 256;

#pragma pack(push, 4)

struct ASIOSamples {
    std::uint32_t hi;
    std::uint32_t lo;
};

struct ASIOTimeStamp {
    std::uint32_t hi;
    std::uint32_t lo;
};

struct ASIOClockSource {
    std::int32_t index;
    std::int32_t associatedChannel;
    std::int32_t associatedGroup;
    ASIOBool isCurrentSource;
    char name[32];
};

struct ASIOChannelInfo {
    std::int32_t channel;
    ASIOBool isInput;
    ASIOBool isActive;
    std::int32_t channelGroup;
    ASIOSampleType type;
    char name[32];
};

struct ASIOBufferInfo {
    ASIOBool isInput;
    std::int32_t channelNum;
    void* buffers[2];
};

struct AsioTimeInfo {
    double speed;
    ASIOTimeStamp systemTime;
    ASIOSamples samplePosition;
    ASIOSampleRate sampleRate;
    std::uint32_t flags;
    char reserved[12];
};

struct ASIOTimeCode {
    double speed;
    ASIOSamples timeCodeSamples;
    std::uint32_t flags;
    char future[64];
};

struct ASIOTime {
    std::int32_t reserved[4];
    AsioTimeInfo timeInfo;
    ASIOTimeCode timeCode;
};

// Hosts exist that pass a shorter block: nothing behind FormatType may be touched.
struct ASIOIoFormat {
    std::int32_t FormatType;
    char future[508];
};

struct ASIOCallbacks {
    void (*bufferSwitch)(std::int32_t doubleBufferIndex, ASIOBool directProcess);
    void (*sampleRateDidChange)(ASIOSampleRate rate);
    std::int32_t (*asioMessage)(std::int32_t selector, std::int32_t value, void* message,
                                double* opt);
    ASIOTime* (*bufferSwitchTimeInfo)(ASIOTime* params, std::int32_t doubleBufferIndex,
                                      ASIOBool directProcess);
};

#pragma pack(pop)

static_assert(sizeof(ASIOSamples) == 8 && offsetof(ASIOSamples, lo) == 4);
static_assert(sizeof(ASIOTimeStamp) == 8 && offsetof(ASIOTimeStamp, lo) == 4);

static_assert(sizeof(ASIOClockSource) == 48);
static_assert(offsetof(ASIOClockSource, index) == 0);
static_assert(offsetof(ASIOClockSource, associatedChannel) == 4);
static_assert(offsetof(ASIOClockSource, associatedGroup) == 8);
static_assert(offsetof(ASIOClockSource, isCurrentSource) == 12);
static_assert(offsetof(ASIOClockSource, name) == 16);

static_assert(sizeof(ASIOChannelInfo) == 52);
static_assert(offsetof(ASIOChannelInfo, channel) == 0);
static_assert(offsetof(ASIOChannelInfo, isInput) == 4);
static_assert(offsetof(ASIOChannelInfo, isActive) == 8);
static_assert(offsetof(ASIOChannelInfo, channelGroup) == 12);
static_assert(offsetof(ASIOChannelInfo, type) == 16);
static_assert(offsetof(ASIOChannelInfo, name) == 20);

static_assert(sizeof(ASIOBufferInfo) == 24);
static_assert(offsetof(ASIOBufferInfo, isInput) == 0);
static_assert(offsetof(ASIOBufferInfo, channelNum) == 4);
static_assert(offsetof(ASIOBufferInfo, buffers) == 8);

static_assert(sizeof(ASIOCallbacks) == 32);
static_assert(offsetof(ASIOCallbacks, bufferSwitch) == 0);
static_assert(offsetof(ASIOCallbacks, sampleRateDidChange) == 8);
static_assert(offsetof(ASIOCallbacks, asioMessage) == 16);
static_assert(offsetof(ASIOCallbacks, bufferSwitchTimeInfo) == 24);

static_assert(sizeof(AsioTimeInfo) == 48);
static_assert(offsetof(AsioTimeInfo, speed) == 0);
static_assert(offsetof(AsioTimeInfo, systemTime) == 8);
static_assert(offsetof(AsioTimeInfo, samplePosition) == 16);
static_assert(offsetof(AsioTimeInfo, sampleRate) == 24);
static_assert(offsetof(AsioTimeInfo, flags) == 32);
static_assert(offsetof(AsioTimeInfo, reserved) == 36);

static_assert(sizeof(ASIOTimeCode) == 84);
static_assert(offsetof(ASIOTimeCode, speed) == 0);
static_assert(offsetof(ASIOTimeCode, timeCodeSamples) == 8);
static_assert(offsetof(ASIOTimeCode, flags) == 16);
static_assert(offsetof(ASIOTimeCode, future) == 20);

static_assert(sizeof(ASIOTime) == 148);
static_assert(offsetof(ASIOTime, reserved) == 0);
static_assert(offsetof(ASIOTime, timeInfo) == 16);
static_assert(offsetof(ASIOTime, timeCode) == 64);

static_assert(sizeof(ASIOIoFormat) == 512);
static_assert(offsetof(ASIOIoFormat, FormatType) == 0);
static_assert(offsetof(ASIOIoFormat, future) == 4);

// The order of the operations is the interface. An object ends by Release: a destructor in this
// table would shift nothing and still break every host.
class IASIO : public ZENNO::platform::IUnknown {
public:
    virtual ASIOBool init(void* sysHandle) = 0;
    virtual void getDriverName(char* name) = 0;  // the host's buffer has 32 bytes
    virtual std::int32_t getDriverVersion() = 0;
    virtual void getErrorMessage(char* string) = 0;  // the host's buffer has 124 bytes
    virtual ASIOError start() = 0;
    virtual ASIOError stop() = 0;
    virtual ASIOError getChannels(std::int32_t* numInputChannels,
                                  std::int32_t* numOutputChannels) = 0;
    virtual ASIOError getLatencies(std::int32_t* inputLatency, std::int32_t* outputLatency) = 0;
    virtual ASIOError getBufferSize(std::int32_t* minSize, std::int32_t* maxSize,
                                    std::int32_t* preferredSize, std::int32_t* granularity) = 0;
    virtual ASIOError canSampleRate(ASIOSampleRate sampleRate) = 0;
    virtual ASIOError getSampleRate(ASIOSampleRate* sampleRate) = 0;
    virtual ASIOError setSampleRate(ASIOSampleRate sampleRate) = 0;
    virtual ASIOError getClockSources(ASIOClockSource* clocks, std::int32_t* numSources) = 0;
    virtual ASIOError setClockSource(std::int32_t reference) = 0;
    virtual ASIOError getSamplePosition(ASIOSamples* sPos, ASIOTimeStamp* tStamp) = 0;
    virtual ASIOError getChannelInfo(ASIOChannelInfo* info) = 0;
    virtual ASIOError createBuffers(ASIOBufferInfo* bufferInfos, std::int32_t numChannels,
                                    std::int32_t bufferSize, ASIOCallbacks* callbacks) = 0;
    virtual ASIOError disposeBuffers() = 0;
    virtual ASIOError controlPanel() = 0;
    virtual ASIOError future(std::int32_t selector, void* opt) = 0;
    virtual ASIOError outputReady() = 0;

protected:
    ~IASIO() = default;
};
