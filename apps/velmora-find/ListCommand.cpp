// list: who is there now.
#include "apps/velmora-find/Commands.h"
#include "apps/velmora-find/ExitCode.h"
#include "apps/velmora-find/FinderModule.h"
#include "apps/velmora-find/Printable.h"
#include "apps/velmora-find/SinkRows.h"
#include "apps/velmora-find/Target.h"

namespace velmora_find {
namespace {

constexpr std::uint32_t highestNumber = 65535;  // that the finder takes

// A module has a log of its own, which --verbose does not reach.
Stop searchFailed(bool logsHere) {
    return {exitNetwork, std::string("The search failed: the network socket does not work") +
                             (logsHere ? "; --verbose tells more." : ".")};
}

// As a settings program does it: through the driver's own finder.
VELMORA::FinderMap asTheDriverSees(Context& context, const Options& options, const Links& links) {
    const auto interfaces = links.chosen(options.interface);
    const std::uint32_t number = interfaces.empty() ? 0 : interfaces.front().scope;
    if (number > highestNumber) {
        throw Stop{exitNetwork, "The driver's finder takes interface numbers up to 65535, and \"" +
                                    printable(options.interface) + "\" has " +
                                    std::to_string(number) +
                                    "; \"velmora-find list --all\" can ask there."};
    }
    const FinderPointer finder = context.finder(options.dll);
    VELMORA::FinderMap sinks;
    if (!finder->find(sinks, {}, number)) throw searchFailed(/*logsHere=*/!finderIsModule);
    return sinks;
}

VELMORA::FinderMap allThere(Context& context, const Options& options) {
    Asking asking(context, everybody(), options.interface);
    VELMORA::TargetMap found;
    if (!asking.find().search(found)) throw searchFailed(/*logsHere=*/true);
    VELMORA::FinderMap sinks;
    for (const auto& [key, info] : found) sinks[key] = recordOf(info);
    return sinks;
}

}  // namespace

int listCommand(Context& context, const Options& options) {
    const Links links = Links::of(context.environment);
    const VELMORA::FinderMap sinks =
        options.all ? allThere(context, options) : asTheDriverSees(context, options, links);
    if (options.json) {
        Json rows = Json::array();
        for (const auto& [key, sink] : sinks) rows.push_back(sinkJson(key, sink, links));
        context.out << rows.dump(2) << '\n';
    } else if (!sinks.empty()) {
        sinkTable(sinks, links).print(context.out);
    }
    if (!sinks.empty()) return exitDone;
    context.talk << "No target answered. Is it on, and on this network? \"velmora-find doctor\" "
                    "looks for the cause"
                 << (options.all ? "" : ", \"velmora-find list --all\" for other products")
                 << ".\n";
    return exitNobody;
}

}  // namespace velmora_find
