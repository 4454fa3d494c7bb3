// velmora-log on a disk that is full for a while.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <optional>
#include <sstream>

#include "apps/velmora-log/ExitCode.h"
#include "apps/velmora-log/LineFile.h"
#include "apps/velmora-log/Options.h"
#include "tests/apps/Scratch.h"
#include "tests/support/Sockets.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;
using velmora_log::LineFile;
using velmora_test::contents;
using velmora_test::Scratch;

// No file of this process gets longer than so many bytes for as long as this lives: what reaches
// beyond is taken in part or refused, as by a full disk.
class FullDisk {
public:
    explicit FullDisk(rlim_t bytes) {
        getrlimit(RLIMIT_FSIZE, &before_);
        handler_ = std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit = before_;
        limit.rlim_cur = bytes;
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    }
    ~FullDisk() {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

private:
    rlimit before_{};
    void (*handler_)(int) = SIG_DFL;
};

TEST(LineFile, WritesWhatItHeldOnceThereIsRoom) {
    const Scratch scratch;
    const std::string path = scratch.path("kept.log");
    LineFile file;
    file.open(path);
    {
        const FullDisk disk(6);
        for (const char* line : {"one", "two", "three"}) file.add(line);
        EXPECT_FALSE(file.flush());
        EXPECT_EQ(contents(path), "one\ntw");
        EXPECT_EQ(file.linesHeld(), 2u) << "of the second a part";
        file.add("four");
        EXPECT_FALSE(file.flush());
        EXPECT_EQ(file.linesHeld(), 3u);
    }
    EXPECT_TRUE(file.flush());
    EXPECT_EQ(contents(path), "one\ntwo\nthree\nfour\n");
    EXPECT_EQ(file.linesHeld() + file.linesLost(), 0u);
}

TEST(LineFile, CountsWhatItHasNoRoomToHold) {
    const Scratch scratch;
    const std::string path = scratch.path("kept.log");
    LineFile file(/*mostHeld=*/8);
    file.open(path);
    {
        const FullDisk disk(0);
        for (const char* line : {"one", "two", "x", ""}) file.add(line);
        EXPECT_FALSE(file.flush());
        EXPECT_EQ(file.linesHeld(), 2u) << "eight bytes with their ends";
        EXPECT_EQ(file.linesLost(), 2u);
    }
    EXPECT_TRUE(file.flush());
    file.add("three");
    EXPECT_TRUE(file.flush());
    EXPECT_EQ(contents(path), "one\ntwo\nthree\n");
    EXPECT_EQ(file.linesHeld(), 0u);
    EXPECT_EQ(file.linesLost(), 2u);
}

TEST(LineFile, Holds64MiB) {
    LineFile file;
    const std::string line((1 << 20) - 1, 'x');
    for (int i = 0; i < 65; ++i) file.add(line);
    EXPECT_EQ(file.linesHeld(), 64u);
    EXPECT_EQ(file.linesLost(), 1u);
}

TEST(LineFile, CountsNoLineForTheEndOfOneThatWasCut) {
    const Scratch scratch;
    const std::string path = scratch.write("kept.log", "cut");
    LineFile file;
    file.open(path);
    {
        const FullDisk disk(4);
        file.add("one");
        EXPECT_FALSE(file.flush());
        EXPECT_EQ(contents(path), "cut\n");
        EXPECT_EQ(file.linesHeld(), 1u);
    }
    EXPECT_TRUE(file.flush());
    EXPECT_EQ(contents(path), "cut\none\n");
}

// Hears two lines while the disk is full, makes room, and hears the third.
TEST(LogDisk, GetsLinesAndPlotOnceThereIsRoom) {
    const Scratch scratch;
    const std::string kept = scratch.path("kept.log"), plot = scratch.path("p.svg");
    velmora_test::LoopbackSocket sender;
    std::ostringstream out, talk;
    velmora_log::Context context{out, talk};
    std::optional<FullDisk> disk;
    const auto say = [&](const std::string& text) {
        const std::string words = "Listening on ::1 port ", all = talk.str();
        const auto port = std::stoul(all.substr(all.find(words) + words.size()));
        EXPECT_TRUE(sender.socket.sendDatagramTo(
            velmora_test::bytesOf("<134>Mar 05 17:02:09 localhost " + text),
            ZENNO::IPAddress::loopbackV6(static_cast<std::uint16_t>(port)), /*retry=*/true));
    };
    context.onListen = [&] {
        disk.emplace(5);
        say("one");
        say("two");
    };
    context.takeAsked = [&] {
        // The two have been offered to the disk, and are shown.
        if (!disk || out.str().find("two") == std::string::npos) return false;
        EXPECT_EQ(contents(kept), "{\"eve");
        return true;
    };
    context.interrupted = [&] {
        if (disk && talk.str().find("p.svg") != std::string::npos) {
            disk.reset();
            say("three");
        }
        return false;
    };
    EXPECT_EQ(velmora_log::run({"--port", "0", "--json", "--lines", "3", "--seconds", "60",
                                "--write", kept, "--plot", plot},
                               context),
              velmora_log::exitDone);
    EXPECT_THAT(talk.str(), HasSubstr("kept.log: the disk takes no more; make room, for until "
                                      "then the lines are held in memory.\n"));
    EXPECT_THAT(talk.str(), HasSubstr("p.svg: the plot cannot be written;"));
    EXPECT_THAT(talk.str(), EndsWith("p.svg shows no bursts: no packet trace has been heard.\n"));
    const std::string lines = contents(kept);
    for (const char* text : {"one", "two", "three"}) {
        EXPECT_THAT(lines, HasSubstr("\"text\":\"" + std::string(text) + "\"}\n"));
    }
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 3);
    EXPECT_THAT(contents(plot), StartsWith("<svg"));
}

TEST(LogDisk, KeepsWhatItReadOfAFileThatFails) {
    const Scratch scratch;
    const std::string plot = scratch.path("p.svg");
    std::ostringstream out, talk;
    velmora_log::Context context{out, talk};
    // Nothing lies at the beginning of a process's memory.
    EXPECT_EQ(velmora_log::run({"--read", "/proc/self/mem", "--plot", plot}, context),
              velmora_log::exitFile);
    EXPECT_THAT(talk.str(), EndsWith("/proc/self/mem: the file cannot be read to its end.\n"));
    EXPECT_THAT(out.str(), StartsWith("0 lines from"));
    EXPECT_THAT(contents(plot), StartsWith("<svg"));
}

}  // namespace
