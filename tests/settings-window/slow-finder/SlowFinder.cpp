// A module in the driver's place whose search comes to no end, as one does for minutes where many
// targets answer late.
#include <chrono>
#include <thread>

#include "driver/FinderCall.h"
#include "driver/Product.h"

namespace {

class SlowFinder final : public VELMORA::asio_velmora_find_call {
public:
    bool find(VELMORA::FinderMap&, const std::list<ZENNO::IPAddress>&, std::uint32_t) override {
        for (;;) std::this_thread::sleep_for(std::chrono::hours(1));
    }
    std::string settingPath() override { return {}; }
    std::string settingOrgPath() override { return {}; }
    std::uint64_t findID() override { return 0; }
    std::uint64_t productID() override { return 0; }
    std::string releasePath() override { return {}; }
    std::string releaseName() override { return driverReleaseText; }
};

}  // namespace

extern "C" __declspec(dllexport) VELMORA::asio_velmora_find_call* DllVelmorafind() {
    return new SlowFinder;
}
