#include "apps/velmora-find/SinkRows.h"

#include <cinttypes>
#include <cstdio>

#include "apps/velmora-find/Address.h"
#include "apps/velmora-find/Printable.h"
#include "apps/velmora-find/Target.h"
#include "driver/Product.h"

namespace velmora_find {

VELMORA::FinderRecord recordOf(const VELMORA::TargetInfo& info) {
    return {info.productID,
            info.reserved,
            info.sinkNo,
            info.version,
            displayName(info.targetName, info.sinkName),
            info.configText,
            info.findAddress};
}

Table sinkTable(const VELMORA::FinderMap& sinks, const Links& links) {
    Table table(
        {"NAME", "ADDRESS", "INTERFACE", "SINK", "PORT", "VERSION", "PRODUCT", "CONFIGURATION"});
    for (const auto& [key, sink] : sinks) {
        const std::string interface = links.nameOf(sink.findAddress.scope);
        table.row({printable(sink.targetName), shownAddress(sink.findAddress, links),
                   // A plain name stands in the address already.
                   isPlainWord(interface) ? "" : printable(interface), std::to_string(sink.sinkNo),
                   std::to_string(key.portNumber()), std::to_string(sink.version),
                   productText(sink.productID), printable(sink.configText)});
    }
    return table;
}

Json sinkJson(const ZENNO::IPAddress& key, const VELMORA::FinderRecord& sink, const Links& links) {
    char id[24];
    std::snprintf(id, sizeof id, "0x%016" PRIx64, sink.productID);
    return {{"name", printable(sink.targetName)},
            {"address", shownAddress(sink.findAddress, links)},
            {"interface", printable(links.nameOf(sink.findAddress.scope))},
            {"interfaceNumber", sink.findAddress.scope},
            {"sink", sink.sinkNo},
            {"port", key.portNumber()},
            {"version", sink.version},
            {"product", productText(sink.productID)},
            {"productId", id},
            {"config", printable(sink.configText)}};
}

}  // namespace velmora_find
