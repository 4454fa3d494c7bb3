#include "src/Network/Environment.h"

#include "src/Network/Socket.h"

namespace ZENNO {

namespace {

class SystemEnvironment final : public Environment {
public:
    Clock& clock() noexcept override { return systemClock(); }
    std::unique_ptr<Link> makeLink() override { return std::make_unique<Socket>(); }
    bool localAddressesV6(LocalInterfaceMap& out) override { return getMyLocalAddresV6(out); }
};

}  // namespace

Environment& systemEnvironment() {
    static SystemEnvironment environment;
    return environment;
}

}  // namespace ZENNO
