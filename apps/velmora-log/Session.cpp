#include "apps/velmora-log/Session.h"

#include <algorithm>

#include "apps/log/LineJson.h"
#include "apps/log/LineText.h"
#include "apps/log/Picture.h"
#include "apps/velmora-log/ExitCode.h"
#include "base/Printable.h"

namespace velmora_log {
namespace {

constexpr std::size_t mostPrograms = 64;        // whose streams are followed at a time
constexpr std::uint64_t flushAtLeast = 1 << 8;  // lines

constexpr const char* noPlot =
    "the plot cannot be written; is the disk full, or the folder missing?";

bool usesColours(const Context& context, const Options& options) {
    if (options.json || options.colour == Colour::never) return false;
    return options.colour == Colour::always || (context.takesColours && !context.noColour);
}

}  // namespace

Session::Session(Context& context, const Options& options)
    : context_(context), options_(options), colours_(usesColours(context, options)) {
    if (!options.plotPath.empty() && !hasFolder(options.plotPath)) {
        throw Stop{exitFile, ZENNO::printable(options.plotPath) +
                                 ": the plot cannot be written there; name a file, in a folder "
                                 "that there is."};
    }
    if (!options.writePath.empty()) file_.open(options.writePath);
}

void Session::take(const Line& line) {
    hasHeard_ = true;
    if (file_.isOpen()) {
        file_.add(lineJson(line).dump());
        if (file_.linesHeld() == flushAtLeast) file_.flush();
    }
    if (!options_.filter.isInTime(line, context_.zone)) return;
    Program& program = programOf(line.port);
    count(line, program);
    if (!options_.quiet && options_.filter.passes(line, context_.zone)) show(line, program);
}

Session::Program& Session::programOf(std::uint16_t port) {
    const auto known = programs_.find(port);
    if (known != programs_.end()) return known->second;
    if (programs_.size() >= mostPrograms) {
        const auto oldest = std::min_element(
            programs_.begin(), programs_.end(),
            [](const auto& a, const auto& b) { return a.second.number < b.second.number; });
        oldest->second.reader->finish();
        programs_.erase(oldest);
    }
    const int number = static_cast<int>(++figures_.programs);
    return programs_[port] = Program{number, std::make_unique<StreamReader>(figures_)};
}

void Session::count(const Line& line, Program& program) {
    ++figures_.lines;
    const auto severity = line.message.severity();
    if (severity && *severity <= 3) ++figures_.errors;
    if (severity == std::uint8_t{4}) ++figures_.warnings;
    if (line.message.host.empty()) {
        ++figures_.foreign;
    } else {
        program.reader->take(line.message);
    }
}

void Session::show(const Line& line, const Program& program) {
    if (options_.json) {
        context_.out << lineJson(line).dump() << '\n';
    } else {
        if (line.message.isTrace() && !options_.showsTrace) return;
        const TextManner manner{colours_, figures_.programs > 1 ? program.number : 0};
        context_.out << lineText(line, context_.zone, manner) << '\n';
    }
    ++shown_;
}

bool Session::flush() {
    const bool isKept = !file_.isOpen() || file_.flush();
    // Of a file that is read nothing is lost: it is enough to say so at the end.
    if (!isKept && !fileWasTold_ && options_.readPath.empty()) {
        fileWasTold_ = true;
        say(file_.path(),
            "the disk takes no more; make room, for until then the lines are held in memory.");
    }
    context_.out.flush();
    return static_cast<bool>(context_.out);
}

void Session::say(const std::string& path, const std::string& sentence) {
    context_.talk << ZENNO::printable(path) << ": " << sentence << std::endl;
}

void Session::showFiguresSoFar() {
    if (showFigures() || plotWasTold_) return;
    plotWasTold_ = true;
    say(options_.plotPath, std::string(noPlot) + " It is tried again with the next figures.");
}

bool Session::showFigures() {
    if (options_.json) {
        context_.out << figuresJson(figures_).dump() << '\n';
    } else {
        if (shown_ != 0) context_.out << '\n';
        context_.out << figuresText(figures_);
    }
    context_.out.flush();
    if (options_.plotPath.empty()) return true;
    if (!writeFile(options_.plotPath, pictureOf(figures_))) return false;
    if (figures_.records == 0) {
        context_.talk << ZENNO::printable(options_.plotPath)
                      << " shows no bursts: no packet trace has been heard." << std::endl;
    }
    return true;
}

int Session::finish() {
    for (auto& [port, program] : programs_) program.reader->finish();
    if (file_.isOpen()) file_.flush();
    const bool isEmpty = figures_.lines == 0;
    const bool isDrawn = (isEmpty && options_.plotPath.empty()) || showFigures();
    const std::uint64_t missing = file_.linesHeld() + file_.linesLost();
    if (missing != 0) {
        say(file_.path(),
            many(missing, "line", "lines") + " could not be written; all before them are there.");
    }
    if (!isDrawn) say(options_.plotPath, noPlot);
    if (hasHeard_ && isEmpty) {
        context_.talk << "no line lies within --since and --until." << std::endl;
    }
    if (missing != 0 || !isDrawn) return exitFile;
    return isEmpty ? exitNothing : exitDone;
}

}  // namespace velmora_log
