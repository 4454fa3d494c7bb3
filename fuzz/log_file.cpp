// The reader of logs, with all that stands on it: the lines are the same however the file comes, a
// line written is the line that is read, nothing that a terminal obeys gets through, and the
// figures stay within what the packets tell.
#include <vector>

#include "apps/log/LineJson.h"
#include "apps/log/LineText.h"
#include "apps/log/LogFile.h"
#include "apps/log/Picture.h"
#include "apps/log/StreamReader.h"
#include "base/Printable.h"
#include "fuzz/Fuzz.h"

using namespace velmora_log;

namespace {

std::vector<Line> readAll(std::string_view bytes, std::size_t atOnce) {
    LogFile file;
    std::vector<Line> lines;
    for (std::size_t at = 0; at < bytes.size(); at += atOnce) {
        file.feed(bytes.substr(at, atOnce));
        while (auto line = file.next(/*isEnd=*/false)) lines.push_back(std::move(*line));
    }
    while (auto line = file.next(/*isEnd=*/true)) lines.push_back(std::move(*line));
    return lines;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const std::vector<Line> lines = readAll(bytes, 1 << 16);
    require(readAll(bytes, 13) == lines);

    Figures figures;
    StreamReader reader(figures);
    std::uint64_t packets = 0;
    for (const Line& line : lines) {
        const std::string text = lineJson(line).dump();
        require(ZENNO::isPrintable(text));
        const auto again = lineOf(Json::parse(text));
        require(again && *again == line);
        require(ZENNO::isPrintable(lineText(line, utc, {})));
        require(line.message.trace.size() <= tracePairs);
        packets += line.message.trace.size();
        reader.take(line.message);
    }
    reader.finish();
    require(figures.packets == packets);
    require(figures.late.count() <= packets && figures.apart.count() <= packets);
    require(figures.timeline.pieces().size() <= Timeline::mostPieces);
    require(figures.streamMicros >= 0);
    require(ZENNO::isPrintable(figuresJson(figures).dump()));
    require(!figuresText(figures).empty() && !pictureOf(figures).empty());
    return 0;
}
