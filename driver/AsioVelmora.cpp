#include "driver/AsioVelmora.h"

#include <algorithm>
#include <cstring>

#include "base/LogLine.h"
#include "driver/Edge.h"
#include "driver/Product.h"
#include "platform/Time.h"

using ZENNO::LogLine;
using ZENNO::platform::Guid;
using ZENNO::platform::HResult;

// The buffer worker calls into this class and into the driver: it ends before they do.
AsioVelmora::Sync::~Sync() {
    closeSession();
}

void AsioVelmora::Sync::fillStream(Bytes& block, bool) {
    driver_.fillStream(block);
}

AsioVelmora::AsioVelmora(ZENNO::platform::IUnknown* outer, const Surroundings& surroundings)
    : CUnknown(outer), surroundings_(surroundings), stream_(*this, surroundings.environment) {
    surroundings_.openLog();
    stream_.setMachine(surroundings_.machine);
    stream_.productID = ProductID;
    stream_.findID = FindID;
    files_ = locateSettings(surroundings_.driverFolder, surroundings_.roamingFolder);
    reloadSettings();
    LogLine(6) << "settingOrgPath : " << surroundings_.driverFolder << "setting_org.inf";
    LogLine(6) << "Velmora ASIO DLL : " << driverReleaseText;
    ZENNO::platform::raiseTimerResolution(true);
}

AsioVelmora::~AsioVelmora() {
    running_ = false;
    // The host may let go while the stream plays. What fails here must not keep the rest from
    // ending.
    atEdge("stop", false, [this] { return stopStream(); });
    atEdge("disposeBuffers", ASE_OK, [this] { return releaseBuffers(); });
    ZENNO::platform::raiseTimerResolution(false);
}

bool AsioVelmora::reloadSettings() {
    return loadSettings(files_.settingPath, settings_,
                        [this] { return surroundings_.machine.physicalCoreCount(); });
}

HResult AsioVelmora::QueryInterface(const Guid& riid, void** ppv) {
    return outer().QueryInterface(riid, ppv);
}

std::uint32_t AsioVelmora::AddRef() {
    return outer().AddRef();
}

std::uint32_t AsioVelmora::Release() {
    return outer().Release();
}

HResult AsioVelmora::NonDelegatingQueryInterface(const Guid& riid, void** ppv) {
    if (riid != driverClassId) return CUnknown::NonDelegatingQueryInterface(riid, ppv);
    if (ppv == nullptr) return ZENNO::platform::E_POINTER;
    *ppv = static_cast<IASIO*>(this);
    AddRef();
    return ZENNO::platform::S_OK;
}

void AsioVelmora::getDriverName(char* name) {
    atEdge("getDriverName", 0, [&] {
        LogLine(6) << "getDriverName " << stream_.driverName;
        if (name == nullptr) return 0;
        constexpr std::size_t most = 31;  // and the NUL, in a buffer of 32
        const std::size_t length = std::min(stream_.driverName.size(), most);
        std::memcpy(name, stream_.driverName.data(), length);
        name[length] = '\0';
        return 0;
    });
}

std::int32_t AsioVelmora::getDriverVersion() {
    return 1;
}

void AsioVelmora::getErrorMessage(char* string) {
    if (string == nullptr) return;
    std::memcpy(string, errorMessage_.data(), std::strlen(errorMessage_.data()) + 1);
}
