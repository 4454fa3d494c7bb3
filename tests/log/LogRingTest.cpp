#include "base/LogRing.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "base/Log.h"
#include "base/LogLine.h"
#include "tests/support/Sockets.h"

namespace {

using namespace ZENNO;
using velmora_test::LoopbackSocket;
using velmora_test::nextDatagram;
using Lines = std::vector<std::string>;

void writeAll(LogSlots& slots, const Lines& bodies) {
    for (const std::string& body : bodies) slots.write(body.c_str());
}

Lines readAll(LogSlots& slots) {
    Lines out;
    for (std::string line; slots.read(line);) out.push_back(line);
    return out;
}

Lines numbered(int first, int count) {
    Lines out;
    for (int i = 0; i < count; ++i) out.push_back("line " + std::to_string(first + i));
    return out;
}

TEST(LogSlots, AreEmptyFromTheStart) {
    LogSlots slots;
    EXPECT_EQ(readAll(slots), Lines{});
}

TEST(LogSlots, KeepLinesInOrderAndNoEmptyOnes) {
    LogSlots slots;
    writeAll(slots, {"one", "", "two", ""});
    EXPECT_EQ(readAll(slots), (Lines{"one", "two"}));
    writeAll(slots, {"three"});
    EXPECT_EQ(readAll(slots), Lines{"three"});
}

TEST(LogSlots, IndexWrapsFromThirtyNineToNought) {
    LogSlots slots;
    for (int first = 0; first < 400; first += 39) {
        writeAll(slots, numbered(first, 39));
        EXPECT_EQ(readAll(slots), numbered(first, 39));
    }
}

TEST(LogSlots, BurstOverwritesWhatNobodyRead) {
    const struct {
        const char* why;
        int written;
        Lines read;
    } cases[] = {
        {"as many as there is room for", 39, numbered(0, 39)},
        {"forty look like none", 40, {}},
        {"one more: the first slot holds the newest", 41, numbered(40, 1)},
        {"two rounds and three", 83, numbered(80, 3)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.why);
        LogSlots slots;
        writeAll(slots, numbered(0, c.written));
        EXPECT_EQ(readAll(slots), c.read);
    }
}

TEST(LogSlots, LineFillsItsSlotToTheLastPlace) {
    LogSlots slots;
    const std::string full(1499, 'f');
    writeAll(slots, {full, "next"});
    EXPECT_EQ(readAll(slots), (Lines{full, "next"}));
}

TEST(LogSlots, LongLineRunsOnIntoTheFollowingSlot) {
    const std::string longest(2017, 'l');
    LogSlots slots;
    writeAll(slots, {longest});
    EXPECT_EQ(readAll(slots), Lines{longest});
    // The next line takes the place of its end.
    LogSlots again;
    writeAll(again, {longest, "next"});
    EXPECT_EQ(readAll(again), (Lines{std::string(1500, 'l') + "next", "next"}));
}

TEST(LogSlots, LongLineInTheLastSlotIsCut) {
    LogSlots slots;
    writeAll(slots, numbered(0, 39));
    EXPECT_EQ(readAll(slots).size(), 39u);
    writeAll(slots, {std::string(2017, 'l'), "next"});
    EXPECT_EQ(readAll(slots), (Lines{std::string(1499, 'l'), "next"}));
}

TEST(LogSlots, ReaderRunsBesideTheWriters) {
    LogSlots slots;
    std::atomic<int> writing{2};
    std::vector<std::thread> writers;
    for (const char letter : {'a', 'b'}) {
        writers.emplace_back([&slots, &writing, letter] {
            for (int i = 1; i <= 500; ++i) {
                slots.write(std::string(static_cast<std::size_t>(i), letter).c_str());
            }
            --writing;
        });
    }
    while (writing != 0) {
        for (const std::string& line : readAll(slots)) {
            EXPECT_EQ(line.find_first_not_of("ab"), std::string::npos);
        }
    }
    for (std::thread& writer : writers) writer.join();
}

// A file that a ring writes and a test reads.
class Output {
public:
    Output()
        : path_(testing::TempDir() + "log-ring-" +
                std::to_string(std::chrono::steady_clock::now().time_since_epoch().count())),
          file_(std::fopen(path_.c_str(), "wb")) {}
    ~Output() {
        std::fclose(file_);
        std::remove(path_.c_str());
    }
    std::FILE* file() const { return file_; }
    std::string text() const {
        std::ostringstream all;
        all << std::ifstream(path_, std::ios::binary).rdbuf();
        return all.str();
    }
    void waitFor(const std::string& expected) const {
        while (text() != expected) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }

private:
    std::string path_;
    std::FILE* file_;
};

TEST(LogRing, EndsWithoutALine) {
    Output output;
    { LogRing ring(output.file()); }
    EXPECT_EQ(output.text(), "");
}

TEST(LogRing, WritesLinesOutByItself) {
    Output output;
    LogRing ring(output.file());
    ring.write("one");
    ring.write("two");
    output.waitFor("one\ntwo\n");
    ring.write("three");
    output.waitFor("one\ntwo\nthree\n");
}

TEST(LogRing, WritesToStandardOutputUnlessToldOtherwise) {
    testing::internal::CaptureStdout();
    {
        LogRing ring;
        ring.write("to the console");
        while (!ring.isDrained()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "to the console\n");
}

// Through the whole product: lines, a logger with the ring's writer, the process-wide ring, which
// here writes into a file.
class InstalledRing : public testing::Test {
protected:
    InstalledRing() : levelBefore_(logLevel), sinkBefore_(getLogger()) {
        setLogger(&sink_);
        logLevel = 7;
    }
    ~InstalledRing() override {
        setLogger(sinkBefore_);
        logLevel = levelBefore_;
        installLogRing();  // none writes to the file any more
    }
    void open(std::uint32_t facility) {
        EXPECT_TRUE(sink_.openLogger(facility, &writeToLogRing, 0));
        installLogRing(output_.file());
    }

    Output output_;
    Logger sink_;

private:
    std::int32_t levelBefore_;
    LogSink* sinkBefore_;
};

TEST_F(InstalledRing, LinesComeWithoutTheirHeader) {
    open(16);
    LogLine(6) << "first";
    LogLine(6) << "";
    LogLine(3) << "second";
    output_.waitFor("first\nsecond\n");
}

TEST_F(InstalledRing, ShortPriorityLosesTheHeadOfItsText) {
    open(0);
    LogLine(6) << "abcdef";  // one digit: two characters
    LogLine(6) << "x";
    LogLine(6) << "xy";
    LogLine(6) << "";
    LogLine(42, LogLine::Raw{}) << "abcdef";  // two digits: one
    LogLine(42, LogLine::Raw{}) << "";
    output_.waitFor("cdef\nbcdef\n");
}

TEST_F(InstalledRing, MayChangeWhileOthersLog) {
    open(16);
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 2; ++t) {
        threads.emplace_back([&] {
            while (!done) {
                LogLine(6) << "x";
                std::this_thread::yield();
            }
        });
    }
    for (int i = 0; i < 5; ++i) installLogRing(output_.file());
    done = true;
    for (std::thread& thread : threads) thread.join();
    installLogRing();
    EXPECT_EQ(output_.text().find_first_not_of("x\n"), std::string::npos);
}

TEST_F(InstalledRing, LinesGoToTheViewerAsWell) {
    LoopbackSocket viewer;
    EXPECT_TRUE(sink_.openLogger(16, &writeToLogRing, viewer.address.portNumber()));
    installLogRing(output_.file());
    LogLine(6) << "both";
    output_.waitFor("both\n");
    IPAddress from;
    EXPECT_EQ(nextDatagram(viewer.socket, from).size(), 31u + 4);
}

}  // namespace
