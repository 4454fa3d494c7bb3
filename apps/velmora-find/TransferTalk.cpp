#include "apps/velmora-find/TransferTalk.h"

#include <algorithm>
#include <cstdio>

#include "find/Exchange.h"

namespace velmora_find {
namespace {

using VELMORA::TransferEnd;

constexpr std::size_t barWidth = 24;

struct End {
    TransferEnd end;
    const char* name;
    ExitCode code;
    const char* sentence;
};
constexpr End ends[] = {
    {TransferEnd::complete, "complete", exitDone, "All of it arrived, and its checksum is right."},
    {TransferEnd::notOpened, "notOpened", exitTarget,
     "The target does not take transfers: it did not open the channel. Does it have channels, and "
     "is another transfer running?"},
    {TransferEnd::noSuchChannel, "noSuchChannel", exitUsage, ""},
    {TransferEnd::tooLarge, "tooLarge", exitTarget, ""},
    {TransferEnd::sendFailed, "sendFailed", exitNetwork,
     "A datagram could not be sent: the send buffer is full, the target's packets are too long for "
     "this network, or the interface has gone. Try --limit with a few thousand bytes."},
    {TransferEnd::waitFailed, "waitFailed", exitNetwork,
     "The network socket failed while it waited. Has the interface gone?"},
    {TransferEnd::receiveFailed, "receiveFailed", exitNetwork,
     "The network socket failed while it read. Has the interface gone?"},
    {TransferEnd::refused, "refused", exitTarget,
     "The target refused a part of the data and keeps nothing of it. Has it room for the file?"},
    {TransferEnd::wrongChannel, "wrongChannel", exitTarget,
     "The target acknowledged data of another channel. Is somebody else sending to it? Try again "
     "when he is done."},
    {TransferEnd::unheard, "unheard", exitNobody,
     "The same data was sent eleven times in vain: the target has gone, or the network loses too "
     "much. Is it still on? If so try --limit with a few thousand bytes, or a cable."},
    {TransferEnd::notClosed, "notClosed", exitTarget,
     "The data went out, but the target did not confirm its checksum: a part arrived damaged. Try "
     "again; on a network that loses much, with a smaller --limit."},
    {TransferEnd::notTaken, "notTaken", exitTarget, ""},
};

const End& rowOf(TransferEnd end) {
    return *std::find_if(std::begin(ends), std::end(ends),
                         [&](const End& row) { return row.end == end; });
}

std::string decimals(double value, int places) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", places, value);
    return text;
}

std::string rateText(std::uint64_t bytes, double seconds) {
    if (!(seconds > 0)) return "at once";
    return decimals(static_cast<double>(bytes) / seconds / 1e6, 1) + " MB/s";
}

std::string counted(std::uint64_t count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace

std::string progressText(const TransferRun& run) {
    const std::uint64_t sent = std::min(run.figures.bytesSent, run.size);
    const double part =
        run.size == 0 ? 1.0 : static_cast<double>(sent) / static_cast<double>(run.size);
    const std::string figures = "]  " + decimals(part * 100, 0) + " %  " + std::to_string(sent) +
                                " of " + std::to_string(run.size) + " bytes, " +
                                rateText(sent, run.seconds) + ", " +
                                counted(run.figures.resends, "resend");
    const std::size_t room = progressColumns - std::min(progressColumns, figures.size() + 1);
    const std::size_t width = std::min(barWidth, room);
    const auto filled = static_cast<std::size_t>(part * static_cast<double>(width));
    const std::string line =
        "[" + std::string(filled, '#') + std::string(width - filled, '-') + figures;
    return line.substr(0, progressColumns);
}

std::string summaryText(const TransferRun& run) {
    const auto& figures = run.figures;
    return counted(run.size, "byte") + " to channel " + std::to_string(run.channel) + " in " +
           decimals(run.seconds, 2) + " s, " + rateText(run.size, run.seconds) + ": " +
           counted(figures.packets, "packet") + " in " + counted(figures.bursts, "burst") + ", " +
           counted(figures.resends, "resend") +
           (figures.resends == 0 ? "" : " (" + counted(figures.packetsResent, "packet") + ")") +
           ".";
}

const char* endName(TransferEnd end) {
    return rowOf(end).name;
}

EndWords endWords(const TransferRun& run) {
    const auto& figures = run.figures;
    const End& row = rowOf(figures.end);
    EndWords words{row.code, row.sentence};
    switch (figures.end) {
        case TransferEnd::noSuchChannel:
            words.sentence = "The target has no channel " + std::to_string(run.channel) +
                             ": it has " +
                             (figures.channels == 0 ? std::string("none.")
                              : figures.channels == 1
                                  ? std::string("channel 0 alone.")
                                  : "channels 0 to " + std::to_string(figures.channels - 1) + ".");
            break;
        case TransferEnd::tooLarge:
            words.sentence = figures.capacity < run.size
                                 ? "The file is too large: its " + std::to_string(run.size) +
                                       " bytes do not fit into a channel of " +
                                       std::to_string(figures.capacity) + "."
                                 : "The target wants packets that no datagram can hold; only a "
                                   "smaller file can go there.";
            break;
        case TransferEnd::notTaken:
            words.sentence = "The data arrived, but the target did not take it (its status is " +
                             std::to_string(figures.status) + "). Is it what the target expects?";
            break;
        case TransferEnd::notOpened:
        case TransferEnd::notClosed:
            if (figures.result == VELMORA::ackSocketFailed) {
                words = {exitNetwork, rowOf(TransferEnd::sendFailed).sentence};
            }
            if (figures.result == VELMORA::ackSilent && figures.end == TransferEnd::notClosed) {
                words = {exitNobody,
                         "The data went out, but the target fell silent before it confirmed it. "
                         "Try again."};
            }
            break;
        default:
            break;
    }
    return words;
}

}  // namespace velmora_find
