#include "find/ProductFilter.h"

#include <algorithm>

#include "base/LogLine.h"

namespace VELMORA {

std::uint64_t filterProduct(const FindSetting& setting, std::uint64_t id) {
    if (setting.filterID == 0 || id == 0) {
        ZENNO::LogLine(6) << "Find Target: " << id;
        return id;
    }
    const auto& further = setting.furtherIDs;
    if (id != setting.filterID && std::find(further.begin(), further.end(), id) == further.end()) {
        ZENNO::LogLine(6) << "Find Skip : " << id << " " << setting.filterID;
        return refusedProduct;
    }
    ZENNO::LogLine(6) << "Terget Producst : " << id;
    return id;
}

}  // namespace VELMORA
