// The driver's finder is part of this program: there is no module to load.
#include "apps/velmora-find/FinderModule.h"

#include "driver/Finder.h"

namespace velmora_find {

const bool finderIsModule = false;

FinderPointer loadFinder(const std::string&) {
    return {VELMORA::makeFinder(), [](VELMORA::asio_velmora_find_call* finder) { delete finder; }};
}

}  // namespace velmora_find
