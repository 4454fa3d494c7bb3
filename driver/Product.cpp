#include "driver/Product.h"

#include <utility>

VELMORA::FindSetting makeFindSetting(std::uint64_t productID, std::uint64_t findID,
                                     std::uint64_t ownID, std::string clientName, bool nopBreak) {
    VELMORA::FindSetting setting;
    if (findID != 0) setting.filterID = productID != 0 ? productID : findID;
    setting.maxVersion = 1;
    setting.clientName = std::move(clientName);
    setting.nopBreak = nopBreak;
    setting.loopback = false;
    if (findID != 0 && productID != 0 && findID != productID) setting.furtherIDs = {findID};
    setting.ownID = ownID;
    return setting;
}

std::string displayName(const std::string& targetName, const std::string& sinkName) {
    return sinkName.empty() ? targetName : targetName + "(" + sinkName + ")";
}
