#include "driver/Finder.h"

#include <string_view>
#include <utility>

#include "base/Path.h"
#include "driver/Product.h"
#include "driver/Settings.h"
#include "find/Find.h"

namespace VELMORA {
namespace {

// What a driver of a family of releases begins its kind with; what stands behind it, past one
// character of any sort, tells the members apart.
constexpr std::string_view family = "quorvelandine";
constexpr std::string_view familyOfOne = "Velmora";

bool isFamily(std::string_view kind) {
    return kind.starts_with(family);
}

std::string_view member(std::string_view kind) {
    return kind.size() > family.size() ? kind.substr(family.size() + 1) : std::string_view();
}

// The eight characters that an identifier was packed from.
std::string identifierText(std::uint64_t id) {
    std::string out;
    for (int i = 0; i < 8; ++i, id >>= 8) out += static_cast<char>(id & 0xff);
    return out;
}

}  // namespace

asio_velmora_find::asio_velmora_find(const std::string& name, const std::string& kind,
                                     const std::string& release)
    : asio_velmora_find(name, kind, release, Surroundings::ofThisComputer()) {}

asio_velmora_find::asio_velmora_find(const std::string& name, const std::string& kind,
                                     const std::string& release, const Surroundings& surroundings)
    : findID_(FindID),
      productID_(ProductID),
      name_(name),
      kind_(kind),
      release_(release),
      surroundings_(surroundings) {}

bool asio_velmora_find::find(FinderMap& out, const std::list<ZENNO::IPAddress>& addresses,
                             std::uint32_t interfaceIndex) {
    constexpr std::uint64_t anyOwner = ~0ull;
    Find find(makeFindSetting(productID_, findID_, anyOwner, name_, /*nopBreak=*/false),
              surroundings_.environment);
    find.open(static_cast<std::uint16_t>(interfaceIndex));  // a search without it fails by itself
    find.extraAddresses = addresses;
    out.clear();
    TargetMap found;
    if (!find.search(found)) return false;
    for (auto& [key, info] : found) {
        FinderRecord& record = out[key];
        record.productID = info.productID;
        record.reserved = info.reserved;
        record.sinkNo = info.sinkNo;
        record.version = info.version;
        record.targetName = displayName(info.targetName, info.sinkName);
        record.configText = std::move(info.configText);
        record.findAddress = info.findAddress;
    }
    return true;
}

std::string asio_velmora_find::settingPath() {
    return userSettingPath(surroundings_.roamingFolder, name_);
}

std::string asio_velmora_find::settingOrgPath() {
    std::string folder;
    ZENNO::modulePath(folder);
    ZENNO::folderOf(folder);
    return folder + factorySettingName;
}

std::string asio_velmora_find::releasePath() {
    if (kind_ == familyOfOne) return "quorvelandine/Velmora/asio_sync";
    if (!isFamily(kind_)) return kind_;
    std::string path = "quorvelandine/" + identifierText(productID_) + "/asio_sync";
    if (!member(kind_).empty()) path += "_" + std::string(member(kind_));
    return path + "/";
}

std::string asio_velmora_find::releaseName() {
    if (kind_ == familyOfOne) return "Velmora_ASIO_" + release_;
    if (!isFamily(kind_)) return release_;
    std::string name = identifierText(productID_) + "_ASIO_";
    if (!member(kind_).empty()) name += std::string(member(kind_)) + "_";
    return name + release_;
}

asio_velmora_find_call* makeFinder() {
    return new asio_velmora_find(driverProductName, "", driverReleaseText);
}

}  // namespace VELMORA
