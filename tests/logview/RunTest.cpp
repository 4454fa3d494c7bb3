// The program but for its main(): from files, and from real sockets on ::1.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "apps/log/LineJson.h"
#include "apps/velmora-log/ExitCode.h"
#include "apps/velmora-log/Options.h"
#include "base/Log.h"
#include "tests/base/TempFolder.h"
#include "tests/logview/DrivenStream.h"
#include "tests/support/Namespace.h"
#include "tests/support/Sockets.h"

namespace {

using namespace velmora_log;
using testing::AnyOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using velmora_test::DrivenStream;
using velmora_test::header;
using velmora_test::traceOf;

class LogRun : public testing::Test {
protected:
    LogRun() {
        context.zone = utc;
        context.patienceMicros = 0;
    }

    int run(const std::vector<std::string>& arguments) {
        out.str("");
        talk.str("");
        return velmora_log::run(arguments, context);
    }
    std::string path(const std::string& name) const { return (folder.native() / name).string(); }
    std::string write(const std::string& name, const std::string& bytes) const {
        std::ofstream(path(name), std::ios::binary) << bytes;
        return path(name);
    }
    static std::string contents(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    std::vector<Json> json() const {
        std::vector<Json> lines;
        std::istringstream all(out.str());
        for (std::string line; std::getline(all, line);) lines.push_back(Json::parse(line));
        return lines;
    }
    // As velmora-play --driver-log has it.
    static std::string driverLog() {
        return "<134>Mar 05 17:02:08 localhost start\n" + header + "start SPEED=44100\n" +
               "<132>Mar 05 17:02:10 localhost over time 1381 291 1381 10\n" +
               "<131>Mar 05 17:03:00 localhost wth udp send error 10054\n";
    }
    static std::string streamLog() {
        std::string log;
        DrivenStream stream(
            0xffff'0000, {.cycle = 1000, .framesQ14 = 1, .packetCount = 1},
            [&](const Message& message) {
                log += header + (message.isTrace() ? traceOf(message.trace) : message.text) + '\n';
            });
        stream.sayStart();
        for (int n = 0; n < 500; ++n) stream.turn(20);
        return log;
    }

    velmora_test::TempFolder folder;
    std::ostringstream out, talk;
    Context context{out, talk};
};

// ---- files ----

TEST_F(LogRun, ShowsTheLinesOfAFileAndTheirFigures) {
    EXPECT_EQ(run({"--read", write("driver.log", driverLog())}), exitDone);
    EXPECT_EQ(out.str(),
              "Mar 05 17:02:08  info     start\n"
              "Mar 05 17:02:09  info     start SPEED=44100\n"
              "Mar 05 17:02:10  warning  over time 1381 291 1381 10\n"
              "Mar 05 17:03:00  error    wth udp send error 10054\n"
              "\n"
              "4 lines from 1 program: 1 error, 1 warning\n"
              "  late turns                1, the worst 1381 us\n"
              "  resend requests           0\n"
              "  underruns of the host     0\n");
    EXPECT_THAT(talk.str(), IsEmpty());
}

TEST_F(LogRun, ShowsWhatTheFiltersLetThrough) {
    const std::string file = write("driver.log", driverLog());
    const struct {
        std::vector<std::string> options;
        std::size_t shown;
    } cases[] = {
        {{}, 4},
        {{"--level", "warning"}, 2},
        {{"--level", "3"}, 1},
        {{"--word", "START"}, 2},
        {{"--word", "start", "--word", "44100"}, 1},
        {{"--without", "start"}, 2},
        {{"--regex", "^start$|error"}, 2},
        {{"--since", "17:02:10"}, 2},
        {{"--until", "17:02"}, 3},
        {{"--since", "03-05 17:02:09", "--until", "03-05 17:02:10"}, 2},
        {{"--lines", "2"}, 2},
        {{"--quiet"}, 0},
    };
    for (const auto& c : cases) {
        std::vector<std::string> arguments = {"--read", file, "--json"};
        arguments.insert(arguments.end(), c.options.begin(), c.options.end());
        SCOPED_TRACE(testing::PrintToString(arguments));
        EXPECT_EQ(run(arguments), exitDone) << talk.str();
        const auto lines = json();
        ASSERT_EQ(lines.size(), c.shown + 1);
        EXPECT_EQ(lines.back()["event"], "figures");
        for (std::size_t i = 0; i < c.shown; ++i) EXPECT_EQ(lines[i]["event"], "line");
    }
}

TEST_F(LogRun, CountsEveryLineWhateverIsShownButForTime) {
    const std::string file = write("driver.log", driverLog());
    run({"--read", file, "--json", "--level", "error"});
    EXPECT_EQ(json().back()["lines"], 4);
    EXPECT_EQ(json().back()["lateTurns"], 1);
    run({"--read", file, "--json", "--since", "17:03"});
    EXPECT_EQ(json().back()["lines"], 1);
    EXPECT_EQ(json().back()["lateTurns"], 0);
}

TEST_F(LogRun, SaysWhenNoLineLiesWithinTheBoundsOfTime) {
    const std::string file = write("driver.log", driverLog()), copy = path("copy.log");
    EXPECT_EQ(run({"--read", file, "--since", "17:04", "--write", copy}), exitNothing);
    EXPECT_EQ(talk.str(), "no line lies within --since and --until.\n");
    EXPECT_THAT(out.str(), IsEmpty());
    EXPECT_EQ(run({"--read", copy, "--json"}), exitDone);
    EXPECT_EQ(json().back()["lines"], 4) << "the file gets every line";
}

TEST_F(LogRun, FollowsSixtyFourProgramsAtATime) {
    const auto heardFrom = [&](int first, int last) {
        std::string log;
        for (int port = first; port <= last; ++port) {
            log += R"({"event":"line","port":)" + std::to_string(port) +
                   R"(,"host":"localhost","text":"start"})"
                   "\n";
        }
        return log;
    };
    const auto programs = [&](const std::string& log) {
        run({"--read", write("heard.log", log), "--json"});
        return json().back()["programs"].get<int>();
    };
    EXPECT_EQ(programs(heardFrom(1, 64) + heardFrom(1, 64)), 64);
    // The oldest is forgotten, and a new one if it is heard again.
    EXPECT_EQ(programs(heardFrom(1, 65) + heardFrom(2, 65)), 65);
    EXPECT_EQ(programs(heardFrom(1, 65) + heardFrom(1, 1)), 66);
}

TEST_F(LogRun, HidesTheTraceUnlessAskedFor) {
    const std::string file = write("stream.log", streamLog());
    EXPECT_EQ(run({"--read", file}), exitDone);
    EXPECT_THAT(out.str(), Not(HasSubstr("packet trace:")));
    EXPECT_THAT(out.str(), HasSubstr("behind the deadline       p50 20 "));
    EXPECT_EQ(run({"--read", file, "--trace"}), exitDone);
    EXPECT_THAT(out.str(), HasSubstr("packet trace: 51 packets in 50."));
}

TEST_F(LogRun, WritesAFileThatSaysTheSameWhenItIsRead) {
    const std::string file = write("stream.log", streamLog()), copy = path("copy.log");
    EXPECT_EQ(run({"--read", file, "--write", copy, "--level", "error"}), exitDone);
    EXPECT_THAT(talk.str(), IsEmpty());
    run({"--read", file});
    const std::string first = out.str();
    EXPECT_EQ(run({"--read", copy}), exitDone);
    EXPECT_EQ(out.str(), first) << "every line is in it, whatever was shown";
    run({"--read", file, "--json"});
    EXPECT_THAT(out.str(), StartsWith(contents(copy)));
    // A redirected --json can be read as well.
    const std::string redirected = write("redirected.log", out.str());
    run({"--read", redirected});
    EXPECT_EQ(out.str(), first);
}

TEST_F(LogRun, AddsToAFileAndMendsALineThatWasCut) {
    const std::string file = write("driver.log", driverLog());
    const std::string copy = write("copy.log", R"({"event":"line","text":"be)");
    EXPECT_EQ(run({"--read", file, "--write", copy}), exitDone);
    EXPECT_EQ(run({"--read", file, "--write", copy}), exitDone);
    EXPECT_THAT(contents(copy), StartsWith("{\"event\":\"line\",\"text\":\"be\n{\"event\":"));
    EXPECT_EQ(run({"--read", copy, "--json"}), exitDone);
    EXPECT_EQ(json().back()["lines"], 8);
    EXPECT_THAT(talk.str(), HasSubstr("1 line that could not be read was passed over."));
}

TEST_F(LogRun, DrawsAPlot) {
    const std::string plot = path("p.svg");
    EXPECT_EQ(run({"--read", write("stream.log", streamLog()), "--plot", plot}), exitDone);
    EXPECT_THAT(contents(plot), StartsWith("<svg"));
    EXPECT_THAT(contents(plot), HasSubstr("p50 20 us"));
    EXPECT_THAT(talk.str(), IsEmpty());
    EXPECT_EQ(run({"--read", write("driver.log", driverLog()), "--plot", plot}), exitDone);
    EXPECT_THAT(talk.str(), HasSubstr("p.svg shows no bursts: no packet trace has been heard."));
    EXPECT_FALSE(std::filesystem::exists(plot + ".part"));
}

TEST_F(LogRun, FollowsAFileThatGrows) {
    const std::string file = write("driver.log", driverLog().substr(0, 20));
    int looks = 0;
    context.interrupted = [&] {
        // The rest is added once the first part has been read.
        if (++looks == 3)
            std::ofstream(file, std::ios::binary | std::ios::app) << driverLog().substr(20);
        return out.str().find("send error") != std::string::npos || looks > 200;
    };
    EXPECT_EQ(run({"--read", file, "--follow"}), exitDone);
    EXPECT_THAT(out.str(), HasSubstr("4 lines from 1 program"));
}

TEST_F(LogRun, FollowsAFileThatBeganAnew) {
    const std::string file =
        write("driver.log",
              driverLog() + "{\"event\":\"line\",\"text\":\"be\n" + header + "the last of the old");
    int looks = 0;
    context.interrupted = [&] {
        // Twice, each time once all that was there has been read.
        if (++looks == 4) write("driver.log", header + "the first anew\n" + header + "b\n");
        if (looks == 8) write("driver.log", header + "the second anew\n");
        return out.str().find("the second anew") != std::string::npos || looks > 200;
    };
    EXPECT_EQ(run({"--read", file, "--follow"}), exitDone);
    EXPECT_THAT(out.str(), HasSubstr("  the last of the old\nMar 05 17:02:09  info     the first "
                                     "anew\nMar 05 17:02:09  info     b\n"));
    EXPECT_THAT(out.str(), HasSubstr("8 lines from 1 program"));
    EXPECT_EQ(talk.str(), file + " became shorter: it is read anew from its beginning.\n" + file +
                              ": 1 line that could not be read was passed over.\n");
}

TEST_F(LogRun, ShowsALastLineWithoutItsEndWhenItStopsFollowing) {
    const std::string file = write("driver.log", header + "a\n" + header + "b");
    int looks = 0;
    context.interrupted = [&] {
        EXPECT_THAT(out.str(), Not(HasSubstr("  b\n"))) << "there may be more of it to come";
        return ++looks > 3;
    };
    EXPECT_EQ(run({"--read", file, "--follow"}), exitDone);
    EXPECT_THAT(out.str(), HasSubstr("  b\n"));
    EXPECT_THAT(out.str(), HasSubstr("2 lines from 1 program"));
}

TEST_F(LogRun, SaysWhenAFileThatIsFollowedHasNoLine) {
    int looks = 0;
    context.interrupted = [&] { return ++looks > 3; };
    EXPECT_EQ(run({"--read", write("empty.log", ""), "--follow"}), exitNothing);
    EXPECT_THAT(talk.str(), EndsWith("empty.log: there is no line in it.\n"));
}

TEST_F(LogRun, ColoursWhatIsWantedSo) {
    const std::string file = write("driver.log", driverLog());
    const struct {
        bool terminal, noColour;
        std::vector<std::string> options;
        bool coloured;
    } cases[] = {
        {false, false, {}, false},
        {true, false, {}, true},
        {true, true, {}, false},
        {true, false, {"--color", "never"}, false},
        {false, true, {"--color", "always"}, true},
        {true, false, {"--color", "auto"}, true},
        {true, false, {"--color", "always", "--json"}, false},
    };
    for (const auto& c : cases) {
        context.takesColours = c.terminal;
        context.noColour = c.noColour;
        std::vector<std::string> arguments = {"--read", file};
        arguments.insert(arguments.end(), c.options.begin(), c.options.end());
        SCOPED_TRACE(testing::PrintToString(arguments));
        EXPECT_EQ(run(arguments), exitDone);
        EXPECT_EQ(out.str().find('\x1b') != std::string::npos, c.coloured);
    }
}

TEST_F(LogRun, LetsNothingThroughThatATerminalObeys) {
    const std::string file = write("foreign.log",
                                   "<131>Mar 05 17:02:09 h\x1b]0;x a\x1b[2J\xff\n\x9b"
                                   "31m\n");
    for (const char* form : {"--color=never", "--json"}) {
        EXPECT_EQ(run({"--read", file, form}), exitDone);
        EXPECT_THAT(out.str(), Not(HasSubstr("\x1b")));
        EXPECT_THAT(out.str(), Not(HasSubstr("\x9b")));
        EXPECT_THAT(out.str(), HasSubstr("x1b[2J"));
    }
    EXPECT_NE(run({"--read", "no\x1b[2Jfile"}), exitDone);
    EXPECT_THAT(talk.str(), Not(HasSubstr("\x1b")));
}

// ---- what goes wrong with files ----

TEST_F(LogRun, SaysWhenAFileCannotBeRead) {
    EXPECT_EQ(run({"--read", path("none.log")}), exitFile);
    EXPECT_THAT(talk.str(), HasSubstr("none.log: there is no such file.\n"));
    EXPECT_EQ(run({"--read", folder.native().string()}), exitFile);
    EXPECT_THAT(talk.str(), HasSubstr(": the file cannot be read.\n"));
    EXPECT_EQ(run({"--read", write("empty.log", "")}), exitNothing);
    EXPECT_THAT(talk.str(), HasSubstr("empty.log: there is no line in it.\n"));
    EXPECT_THAT(out.str(), IsEmpty());
}

TEST_F(LogRun, SaysWhenAFileCannotBeWritten) {
    const std::string file = write("driver.log", driverLog());
    EXPECT_EQ(run({"--read", file, "--write", path("no/such/folder.log")}), exitFile);
    EXPECT_THAT(talk.str(), HasSubstr("folder.log: the file cannot be written; name another one, "
                                      "or see to its rights.\n"));
    EXPECT_THAT(out.str(), IsEmpty()) << "told before anything is read";
    EXPECT_EQ(run({"--read", file, "--write", folder.native().string()}), exitFile);
    for (const std::string& plot : {path("no/such/folder.svg"), folder.native().string()}) {
        const std::string copy = path("copy.log");
        EXPECT_EQ(run({"--read", file, "--plot", plot, "--write", copy}), exitFile);
        EXPECT_THAT(talk.str(), EndsWith(": the plot cannot be written there; name a file, in a "
                                         "folder that there is.\n"));
        EXPECT_THAT(out.str(), IsEmpty()) << "told before anything is read";
        EXPECT_FALSE(std::filesystem::exists(copy));
    }
}

TEST_F(LogRun, RefusesOneFileForTwo) {
    const std::string file = write("driver.log", driverLog()), none = path("none.log");
    const std::string detour = path("folder/../driver.log"), way = path("./none.log");
    std::filesystem::create_directory(path("folder"));
    const struct {
        const char* why;
        std::vector<std::string> arguments;
    } cases[] = {
        {"lines into what is read", {"--read", file, "--write", file}},
        {"the plot onto what is read", {"--read", file, "--plot", file}},
        {"by another name", {"--read", file, "--plot", detour}},
        {"the plot onto the lines", {"--read", file, "--write", none, "--plot", none}},
        {"by another name of what is not there yet", {"--write", none, "--plot", way}},
        {"the plot onto older lines", {"--port", "0", "--write", file, "--plot", detour}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.why);
        std::vector<std::string> arguments = c.arguments;
        arguments.insert(arguments.end(), {"--seconds", "0"});
        EXPECT_EQ(run(arguments), exitUsage);
        EXPECT_THAT(talk.str(), AnyOf(StartsWith("What is read cannot be written to itself;"),
                                      StartsWith("The plot would replace the file that ")));
        EXPECT_THAT(out.str(), IsEmpty());
        EXPECT_EQ(contents(file), driverLog());
        EXPECT_FALSE(std::filesystem::exists(none));
    }
    EXPECT_EQ(run({"--read", file, "--write", none, "--plot", path("p.svg")}), exitDone);
}

TEST_F(LogRun, SaysWhenTheDiskIsFull) {
    if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no device is full here";
    const std::string file = write("driver.log", driverLog());
    EXPECT_EQ(run({"--read", file, "--write", "/dev/full"}), exitFile);
    EXPECT_THAT(out.str(), HasSubstr("4 lines from")) << "everything is shown all the same";
    EXPECT_EQ(talk.str(), "/dev/full: 4 lines could not be written; all before them are there.\n");
    const std::string noPlot =
        "/dev/full: the plot cannot be written; is the disk full, or the folder missing?\n";
    EXPECT_EQ(run({"--read", file, "--plot", "/dev/full"}), exitFile);
    EXPECT_EQ(talk.str(), noPlot);
    EXPECT_THAT(out.str(), HasSubstr("4 lines from")) << "the figures are told all the same";
    // What the one failure is told does not keep the other from being told.
    EXPECT_EQ(run({"--read", file, "--write", "/dev/full", "--plot", "/dev/full"}), exitFile);
    EXPECT_EQ(talk.str(),
              "/dev/full: 4 lines could not be written; all before them are there.\n" + noPlot);
}

TEST_F(LogRun, SaysWhenStandardOutputTakesNothing) {
    const std::string file = write("driver.log", driverLog());
    out.setstate(std::ios::badbit);
    EXPECT_EQ(velmora_log::run({"--read", file}, context), exitFile);
    EXPECT_EQ(talk.str(), "The result cannot be written to standard output.\n");
}

TEST_F(LogRun, RefusesWrongArguments) {
    const std::vector<std::string> wrong[] = {
        {"extra"},
        {"--no-such-option"},
        {"--level", "loud"},
        {"--level"},
        {"--regex", "("},
        {"--since", "soon"},
        {"--until", "25:00"},
        {"--color", "red"},
        {"--seconds", "-1"},
        {"--seconds", "nan"},
        {"--seconds", "soon"},
        {"--lines", "0"},
        {"--lines", "-3"},
        {"--figures", "0"},
        {"--port", "65536"},
        {"--follow"},
        {"--read", "a.log", "--port", "5"},
    };
    for (const auto& arguments : wrong) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        EXPECT_EQ(run(arguments), exitUsage);
        EXPECT_THAT(out.str(), IsEmpty());
        EXPECT_THAT(talk.str(), Not(IsEmpty()));
    }
}

TEST_F(LogRun, NamesEverySeverityThatItTakes) {
    EXPECT_EQ(run({"--level", "loud"}), exitUsage);
    for (const char* name : {"error", "warning", "info", "debug", "0 to 7"}) {
        EXPECT_THAT(talk.str(), HasSubstr(name));
    }
}

// ---- the port ----

class LogListening : public LogRun {
protected:
    // The port that it says it listens on.
    std::uint16_t port() const {
        const std::string words = "Listening on ::1 port ";
        const auto at = talk.str().find(words);
        return static_cast<std::uint16_t>(std::stoi(talk.str().substr(at + words.size())));
    }
    // What is sent as soon as it listens.
    void send(const std::vector<std::string>& datagrams) {
        context.onListen = [this, datagrams] {
            for (const std::string& text : datagrams) {
                ASSERT_TRUE(sender.socket.sendDatagramTo(
                    {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()},
                    ZENNO::IPAddress::loopbackV6(port()), /*retry=*/true));
            }
        };
    }
    velmora_test::LoopbackSocket sender;
};

TEST_F(LogListening, HearsDatagramsAndNotesWhenAndFromWhom) {
    send({header + "start SPEED=44100", "somebody else", header + traceOf({{1, 442}})});
    EXPECT_EQ(run({"--port", "0", "--json", "--lines", "3", "--seconds", "60"}), exitDone);
    const auto lines = json();
    ASSERT_EQ(lines.size(), 4u) << out.str();
    EXPECT_EQ(lines[0]["text"], "start SPEED=44100");
    EXPECT_EQ(lines[0]["port"], sender.address.portNumber());
    EXPECT_EQ(lines[0]["time"], "Mar 05 17:02:09");
    EXPECT_TRUE(readIso(lines[0]["heard"].get<std::string>()));
    EXPECT_EQ(lines[1]["text"], "somebody else");
    EXPECT_EQ(lines[2]["trace"], Json::parse("[[1,442]]"));
    EXPECT_EQ(lines[3]["foreign"], 1);
    EXPECT_EQ(talk.str(),
              "Listening on ::1 port " + std::to_string(port()) + "; Ctrl-C ends it.\n");
}

TEST_F(LogListening, HearsTheDriversOwnLog) {
    ZENNO::Logger logger;
    context.onListen = [&] {
        ASSERT_TRUE(logger.openLogger(16, nullptr, port()));
        ZENNO::setLogger(&logger);
        ZENNO::logLevel = 6;
        ZENNO::LogLine(3) << "wth udp send error " << 10054u;
        ZENNO::LogLine(7) << "not at this level";
        ZENNO::LogLine(6) << std::string_view(traceOf({{7, 8}}));
    };
    EXPECT_EQ(run({"--port", "0", "--json", "--lines", "2", "--seconds", "60"}), exitDone);
    ZENNO::setLogger(nullptr);
    ZENNO::logLevel = -1;
    const auto lines = json();
    ASSERT_EQ(lines.size(), 3u) << out.str();
    EXPECT_EQ(lines[0]["text"], "wth udp send error 10054");
    EXPECT_EQ(lines[0]["facility"], 16);
    EXPECT_EQ(lines[0]["level"], "error");
    EXPECT_EQ(lines[1]["trace"], Json::parse("[[7,8]]"));
}

TEST_F(LogListening, TellsTwoProgramsApart) {
    velmora_test::LoopbackSocket other;
    send({header + "a"});
    const auto first = context.onListen;
    context.onListen = [&] {
        first();
        const std::string text = header + "b";
        ASSERT_TRUE(other.socket.sendDatagramTo(
            {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()},
            ZENNO::IPAddress::loopbackV6(port()), /*retry=*/true));
    };
    EXPECT_EQ(run({"--port", "0", "--lines", "2", "--seconds", "60"}), exitDone);
    EXPECT_THAT(out.str(), HasSubstr("  [2] b\n"));
    EXPECT_THAT(out.str(), HasSubstr("2 lines from 2 programs"));
}

TEST_F(LogListening, TakesADatagramAsLongAsThereCanBe) {
    send({std::string(20'000, 'x')});
    EXPECT_EQ(run({"--port", "0", "--json", "--lines", "1", "--seconds", "60"}), exitDone);
    EXPECT_EQ(json()[0]["text"].get<std::string>().size(), 20'000u);
}

TEST_F(LogListening, AsksForDebugWhereNothingIsHeard) {
    EXPECT_EQ(run({"--port", "0", "--seconds", "0.3"}), exitNothing);
    const std::string sentence = "nothing heard yet: is `Debug` set?\n";
    EXPECT_THAT(talk.str(), HasSubstr(sentence));
    EXPECT_EQ(talk.str().find(sentence), talk.str().rfind(sentence)) << "once";
    EXPECT_THAT(out.str(), IsEmpty());
    // At the latest when it ends.
    context.patienceMicros = 3'600'000'000;
    EXPECT_EQ(run({"--port", "0", "--seconds", "0"}), exitNothing);
    EXPECT_THAT(talk.str(), HasSubstr(sentence));
}

TEST_F(LogListening, AsksNothingWhereSomethingIsHeard) {
    send({header + "a"});
    context.patienceMicros = 3'600'000'000;
    EXPECT_EQ(run({"--port", "0", "--lines", "1", "--seconds", "60"}), exitDone);
    EXPECT_THAT(talk.str(), Not(HasSubstr("nothing heard")));
}

TEST_F(LogListening, AsksNothingWhereWhatIsHeardLiesOutsideTheBoundsOfTime) {
    const std::string kept = path("kept.log");
    send({header + "a"});
    context.patienceMicros = 3'600'000'000;
    context.interrupted = [&] { return !contents(kept).empty(); };
    EXPECT_EQ(
        run({"--port", "0", "--until", "2020-01-01 00:00", "--seconds", "60", "--write", kept}),
        exitNothing);
    EXPECT_THAT(talk.str(),
                EndsWith("Ctrl-C ends it.\nno line lies within --since and --until.\n"));
    EXPECT_THAT(out.str(), IsEmpty());
}

TEST_F(LogListening, SaysWhatToDoWhereThePortIsTaken) {
    const std::string port = std::to_string(sender.address.portNumber());
    EXPECT_EQ(run({"--port", port, "--seconds", "60"}), exitNetwork);
    EXPECT_EQ(talk.str(), "The driver's log cannot be heard: port " + port +
                              " is taken, so end the other log viewer, or the player with "
                              "--driver-log, that holds it.\n");
}

TEST_F(LogListening, SaysWhatToDoWhereThereIsNoLoopbackAddress) {
    VELMORA_IN_NAMESPACE(velmora_test::Wiring::bare, [this](const velmora_test::Cable&) {
        EXPECT_EQ(run({"--seconds", "60"}), exitNetwork);
        EXPECT_EQ(talk.str(),
                  "The driver's log cannot be heard: this system gives no socket on ::1; see that "
                  "IPv6 is turned on.\n");
    });
}

TEST_F(LogListening, ShowsFiguresWhenAskedAndAtTheEnd) {
    send({header + "a"});
    int asked = 0;
    context.takeAsked = [&] {
        return out.str().find("  a\n") != std::string::npos && asked++ == 0;
    };
    context.interrupted = [&] { return asked > 1; };
    EXPECT_EQ(run({"--port", "0", "--seconds", "60", "--plot", path("p.svg")}), exitDone);
    const std::string figures = "1 line from 1 program: 0 errors, 0 warnings\n";
    const auto first = out.str().find(figures);
    ASSERT_NE(first, std::string::npos) << out.str();
    EXPECT_NE(out.str().find(figures, first + 1), std::string::npos);
    EXPECT_TRUE(std::filesystem::exists(path("p.svg")));
}

TEST_F(LogListening, GoesOnWhereThePlotCannotBeDrawnYet) {
    if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no device is full here";
    send({header + "a"});
    int asked = 0;
    context.takeAsked = [&] {
        if (out.str().find("  a\n") == std::string::npos || asked == 2) return false;
        if (++asked == 2) {
            send({header + "b"});
            context.onListen();
        }
        return true;
    };
    EXPECT_EQ(run({"--port", "0", "--lines", "2", "--seconds", "60", "--plot", "/dev/full"}),
              exitFile);
    EXPECT_THAT(out.str(), HasSubstr("  b\n"));
    EXPECT_THAT(out.str(), HasSubstr("2 lines from 1 program"));
    const std::string sentence =
        "/dev/full: the plot cannot be written; is the disk full, or the folder missing?";
    EXPECT_THAT(talk.str(),
                EndsWith(" Ctrl-C ends it.\n" + sentence +
                         " It is tried again with the next figures.\n" + sentence + "\n"))
        << "once on the way, however often it was asked for, and at the end";
}

TEST_F(LogListening, HoldsWhatAFullDiskDoesNotTake) {
    if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no device is full here";
    send({header + "a", header + "b"});
    EXPECT_EQ(run({"--port", "0", "--lines", "2", "--seconds", "60", "--write", "/dev/full"}),
              exitFile);
    EXPECT_THAT(talk.str(), HasSubstr("/dev/full: 2 lines could not be written; all before them "
                                      "are there.\n"));
    EXPECT_THAT(out.str(), HasSubstr("  b\n"));
}

}  // namespace
