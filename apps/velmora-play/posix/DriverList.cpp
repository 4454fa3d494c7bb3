#include "apps/velmora-play/DriverList.h"

#include "driver/AsioVelmora.h"
#include "driver/Product.h"

namespace velmora_play {

std::vector<DriverEntry> listDrivers() {
    return {{.name = driverProductName,
             .classId = "{5D2C7A14-9B3E-4C61-8E0F-2A7B41C9D063}",
             .file = "built in"}};
}

void DriverRelease::operator()(IASIO* driver) const {
    driver->Release();
}

DriverPointer loadDriver(const DriverEntry&, std::string& error) {
    auto* object = new AsioVelmora(nullptr);
    object->NonDelegatingAddRef();
    void* driver = nullptr;
    const bool given =
        object->NonDelegatingQueryInterface(driverClassId, &driver) == ZENNO::platform::S_OK;
    object->NonDelegatingRelease();
    if (!given) {
        error = "The driver's object does not give its interface.";
        return nullptr;
    }
    return DriverPointer(static_cast<IASIO*>(driver));
}

}  // namespace velmora_play
