// Registration as Windows has it: its registry, regsvr32, its code page.
#pragma once

#include "apps/velmora-register/Registration.h"

namespace velmora_register {

class WindowsSystem final : public System {
public:
    bool isFile(const std::wstring& path) override;
    bool isAdministrator() override;
    std::wstring unfitPath(const std::wstring& dll) override;
    Registered lookFor(const std::wstring& dll) override;
    void callDriver(const std::wstring& dll, bool removes) override;
    void removeKeys() override;
};

}  // namespace velmora_register
