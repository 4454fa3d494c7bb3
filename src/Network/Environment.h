// What the system needs of the world outside: time, datagrams, and which interfaces there are.
// Discovery, the stream and the driver are handed one; the product's is systemEnvironment().
#pragma once

#include <memory>

#include "base/Clock.h"
#include "src/Network/Link.h"
#include "src/Network/LocalInterfaces.h"

namespace ZENNO {

class Environment {
public:
    virtual ~Environment() = default;
    virtual Clock& clock() noexcept = 0;
    virtual std::unique_ptr<Link> makeLink() = 0;               // closed
    virtual bool localAddressesV6(LocalInterfaceMap& out) = 0;  // as getMyLocalAddresV6
};

Environment& systemEnvironment();  // performance counter, Socket, the adapters' own list

}  // namespace ZENNO
