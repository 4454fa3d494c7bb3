// The finder behind the module's export.
#pragma once

#include "driver/FinderCall.h"
#include "driver/Surroundings.h"

namespace VELMORA {

class asio_velmora_find final : public asio_velmora_find_call {
public:
    asio_velmora_find(const std::string& name, const std::string& kind, const std::string& release);
    asio_velmora_find(const std::string& name, const std::string& kind, const std::string& release,
                      const Surroundings& surroundings);

    bool find(FinderMap& out, const std::list<ZENNO::IPAddress>& addresses,
              std::uint32_t interfaceIndex) override;
    std::string settingPath() override;
    std::string settingOrgPath() override;
    std::uint64_t findID() override { return findID_; }
    std::uint64_t productID() override { return productID_; }
    std::string releasePath() override;
    std::string releaseName() override;

private:
    std::uint64_t findID_;
    std::uint64_t productID_;
    std::string name_;
    std::string kind_;
    std::string release_;
    Surroundings surroundings_;
};

// This driver's, on the heap: the caller owns it.
asio_velmora_find_call* makeFinder();

}  // namespace VELMORA
