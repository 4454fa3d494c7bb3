#include "apps/velmora-settings/model/Files.h"

#include <cstdint>
#include <vector>

namespace velmora_settings {
namespace platform = ZENNO::platform;

Files Files::ofThisComputer() {
    return {[](const std::string& path) { return platform::fileKind(path); },
            [](const std::string& path, std::string& text) {
                std::vector<std::uint8_t> data;
                if (!platform::readWholeFile(path, data)) return false;
                text.assign(data.begin(), data.end());
                return true;
            },
            [](const std::string& path, const std::string& text) {
                return platform::replaceWholeFile(
                    path, reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
            },
            [](const std::string& path) { return platform::makeFolder(path); }};
}

}  // namespace velmora_settings
