// Sinks as `list` and `watch` show them: one row a sink, under the name by which audio software
// shows it.
#pragma once

#include "apps/velmora-find/Context.h"
#include "apps/velmora-find/Links.h"
#include "apps/velmora-find/Table.h"
#include "driver/TargetInfo.h"

namespace velmora_find {

VELMORA::FinderRecord recordOf(const VELMORA::TargetInfo& info);

Table sinkTable(const VELMORA::FinderMap& sinks, const Links& links);
// The keys are stable: name, address (as it can be typed), interface, interfaceNumber, sink,
// port, version, product, productId, config.
Json sinkJson(const ZENNO::IPAddress& key, const VELMORA::FinderRecord& sink, const Links& links);

}  // namespace velmora_find
