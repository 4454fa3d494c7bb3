#include "apps/velmora-log/Run.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "apps/log/Figures.h"
#include "apps/log/LogFile.h"
#include "apps/velmora-log/ExitCode.h"
#include "apps/velmora-log/Listener.h"
#include "apps/velmora-log/Session.h"
#include "base/Printable.h"

namespace velmora_log {
namespace {

using SteadyClock = std::chrono::steady_clock;
constexpr std::int64_t longestWait = 100'000;  // µs

// Since a run began, and what is due by it.
class Course {
public:
    explicit Course(const Options& options) : options_(options) {}

    std::int64_t micros() const {
        return std::chrono::duration_cast<std::chrono::microseconds>(SteadyClock::now() - begin_)
            .count();
    }
    bool isOver() const { return options_.seconds && seconds() >= *options_.seconds; }
    // How long to wait for more, at most.
    std::uint32_t patience() const {
        const double left = options_.seconds ? *options_.seconds - seconds() : 1e9;
        return static_cast<std::uint32_t>(
            std::clamp(left * 1e6, 0.0, static_cast<double>(longestWait)));
    }
    bool takeFiguresDue() {
        if (!options_.figuresEvery || seconds() < nextFigures_ + *options_.figuresEvery)
            return false;
        nextFigures_ = seconds();
        return true;
    }

private:
    double seconds() const { return static_cast<double>(micros()) / 1e6; }

    const Options& options_;
    const SteadyClock::time_point begin_ = SteadyClock::now();
    double nextFigures_ = 0;
};

// True while there is reason to go on.
bool goOn(Context& context, Session& session, Course& course) {
    if (!session.flush() || session.isDone() || course.isOver() || context.interrupted()) {
        return false;
    }
    if (context.takeAsked() || course.takeFiguresDue()) session.showFiguresSoFar();
    return true;
}

void complainOfSilence(Context& context) {
    context.talk << "nothing heard yet: is `Debug` set?" << std::endl;
}

bool isOneFile(const std::string& one, const std::string& other) {
    namespace fs = std::filesystem;
    if (one.empty() || other.empty()) return false;
    const fs::path a = fs::u8path(one), b = fs::u8path(other);
    std::error_code error;
    if (fs::exists(a, error) || fs::exists(b, error)) return fs::equivalent(a, b, error);
    return fs::absolute(a, error).lexically_normal() == fs::absolute(b, error).lexically_normal();
}

void refuseOneFileForTwo(const Options& options) {
    const struct {
        const std::string &first, &second;
        const char* sentence;
    } pairs[] = {
        {options.readPath, options.writePath,
         "What is read cannot be written to itself; name another file."},
        {options.readPath, options.plotPath,
         "The plot would replace the file that is read; name another one for it."},
        {options.writePath, options.plotPath,
         "The plot would replace the file that the lines go to; name another one for it."},
    };
    for (const auto& pair : pairs) {
        if (isOneFile(pair.first, pair.second)) throw Stop{exitUsage, pair.sentence};
    }
}

Line lineOf(Heard&& heard) {
    return {readMessage(heard.datagram), heard.unixMicros, heard.port};
}

// Whether the file has less than what was read of it. Leaves the place at the file's end.
bool hasBecomeShorter(std::ifstream& file, std::streamoff readSoFar) {
    file.clear();
    const std::streamoff size = file.seekg(0, std::ios::end).tellg();
    return size >= 0 && size < readSoFar;  // -1: a pipe, say
}

}  // namespace

int listen(Context& context, const Options& options) {
    refuseOneFileForTwo(options);
    Session session(context, options);
    Listener listener;
    listener.open(options.port);
    context.talk << "Listening on ::1 port " << listener.port() << "; Ctrl-C ends it";
    if (!context.askingKey.empty())
        context.talk << ", " << context.askingKey << " shows the figures";
    context.talk << '.' << std::endl;
    context.onListen();

    bool silenceWasTold = false, isListening = true;
    std::vector<Heard> heard;
    const auto takeAll = [&](std::uint32_t wait) {
        isListening = listener.take(heard, wait);
        for (Heard& one : heard) {
            if (session.isDone()) break;
            session.take(lineOf(std::move(one)));
        }
    };
    for (Course course(options); isListening && goOn(context, session, course);) {
        takeAll(course.patience());
        if (!session.hasHeard() && !silenceWasTold && course.micros() >= context.patienceMicros) {
            complainOfSilence(context);
            silenceWasTold = true;
        }
    }
    const bool hasFailed = !isListening;
    listener.close();
    takeAll(0);
    if (!session.hasHeard() && !silenceWasTold) complainOfSilence(context);
    if (listener.lost() != 0) {
        context.talk << many(listener.lost(), "line was", "lines were")
                     << " lost, for more came than could be shown in time; --quiet or --level "
                        "shows fewer."
                     << std::endl;
    }
    const int code = session.finish();
    if (hasFailed) {
        throw Stop{code == exitFile ? exitFile : exitNetwork,
                   "The socket failed; start the viewer anew to hear more."};
    }
    return code;
}

int readFile(Context& context, const Options& options) {
    refuseOneFileForTwo(options);
    namespace fs = std::filesystem;
    const fs::path place = fs::u8path(options.readPath);
    const std::string shown = ZENNO::printable(options.readPath);
    std::error_code error;
    if (!fs::exists(place, error)) throw Stop{exitFile, shown + ": there is no such file."};
    std::ifstream file;
    if (!fs::is_directory(place, error)) file.open(place, std::ios::binary);
    if (!file.is_open()) throw Stop{exitFile, shown + ": the file cannot be read."};

    Session session(context, options);
    context.onListen();
    LogFile lines;
    const auto takeLines = [&](bool isEnd) {
        while (!session.isDone()) {
            const auto line = lines.next(isEnd);
            if (!line) break;
            session.take(*line);
        }
    };
    bool isAtEnd = false, hasFailed = false, shorterWasTold = false;
    std::streamoff readSoFar = 0;
    std::vector<char> bytes(1 << 16);
    Course course(options);
    while (!hasFailed && (!isAtEnd || options.follows) && goOn(context, session, course)) {
        file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        const auto got = static_cast<std::size_t>(file.gcount());
        hasFailed = file.bad();
        lines.feed({bytes.data(), got});
        readSoFar += static_cast<std::streamoff>(got);
        isAtEnd = got == 0 && !hasFailed;
        takeLines(/*isEnd=*/false);
        if (!isAtEnd || !options.follows) continue;
        if (hasBecomeShorter(file, readSoFar)) {
            takeLines(/*isEnd=*/true);
            readSoFar = 0;
            if (!shorterWasTold) {
                context.talk << shown << " became shorter: it is read anew from its beginning."
                             << std::endl;
            }
            shorterWasTold = true;
        } else {
            std::this_thread::sleep_for(std::chrono::microseconds(course.patience()));
        }
        // To the place itself: some systems' libraries remember an end.
        file.clear();
        file.seekg(readSoFar);
        file.clear();  // a pipe has no place, and goes on all the same
    }
    // Nobody waits for the rest of a last line any more.
    if (isAtEnd) takeLines(/*isEnd=*/true);
    if (lines.unreadable() != 0) {
        context.talk << shown << ": "
                     << many(lines.unreadable(), "line that could not be read was",
                             "lines that could not be read were")
                     << " passed over." << std::endl;
    }
    const int code = session.finish();
    if (hasFailed) throw Stop{exitFile, shown + ": the file cannot be read to its end."};
    if (isAtEnd && !session.hasHeard()) {
        context.talk << shown << ": there is no line in it." << std::endl;
    }
    return code;
}

}  // namespace velmora_log
