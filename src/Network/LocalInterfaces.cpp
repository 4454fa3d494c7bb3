#include "src/Network/LocalInterfaces.h"

#include "src/Network/InterfaceMap.h"

namespace ZENNO {

namespace {

bool listFamily(int family, LocalInterfaceMap& out) {
    out.clear();
    std::vector<platform::Adapter> adapters;
    if (!platform::listAdapters(family, adapters)) return false;
    out = interfaceMap(adapters);
    return true;
}

}  // namespace

LocalInterfaceMap interfaceMap(const std::vector<platform::Adapter>& adapters) {
    LocalInterfaceMap map;
    for (const platform::Adapter& adapter : adapters) {
        for (const platform::Endpoint& endpoint : adapter.addresses) {
            IPAddress key;
            key.address = endpoint.address;
            key.scope = adapter.index;  // not the address's own, which global ones do not have
            map[key] = {adapter.name, adapter.description};
        }
    }
    return map;
}

void keepLinkLocal(LocalInterfaceMap& map, bool keepLoopback) {
    std::erase_if(map, [keepLoopback](const auto& entry) {
        const IPAddress& address = entry.first;
        return !address.isLinkLocal() && !(keepLoopback && address.isLoopback());
    });
}

bool getMyLocalAddresV6(LocalInterfaceMap& out) {
    return listFamily(platform::familyV6, out);
}

bool getMyLocalAddresV4(LocalInterfaceMap& out) {
    return listFamily(platform::familyV4, out);
}

bool getMyLinkLocalAddresV6(LocalInterfaceMap& out, bool keepLoopback) {
    if (!getMyLocalAddresV6(out)) return false;
    keepLinkLocal(out, keepLoopback);
    return true;
}

}  // namespace ZENNO
