// velmora-log as it is built: its help, its signals, its colours on a terminal, and the driver's
// port in a namespace of the test's own.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "apps/velmora-log/ExitCode.h"
#include "base/Log.h"
#include "tests/apps/Scratch.h"
#include "tests/support/Namespace.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using velmora_test::contents;

std::string program() {
    return std::filesystem::path(VELMORA_PLAY).replace_filename("velmora-log").string();
}

// The program while it runs, with its two outputs in files.
class Running {
public:
    explicit Running(std::vector<std::string> arguments, const std::string& outPath = {})
        : outPath_(outPath.empty() ? scratch_.path("out") : outPath) {
        arguments.insert(arguments.begin(), program());
        std::vector<char*> values;
        for (std::string& argument : arguments) values.push_back(argument.data());
        values.push_back(nullptr);
        const std::string errPath = scratch_.path("err");
        child_ = fork();
        if (child_ == 0) {
            const int out = ::open(outPath_.c_str(), O_CREAT | O_WRONLY | O_NOCTTY, 0600);
            const int err = ::open(errPath.c_str(), O_CREAT | O_WRONLY, 0600);
            dup2(out, STDOUT_FILENO);
            dup2(err, STDERR_FILENO);
            execv(values[0], values.data());
            _exit(127);
        }
    }
    ~Running() {
        if (child_ > 0) kill(child_, SIGKILL);
        end();
    }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

    std::string out() const { return contents(outPath_); }
    std::string err() const { return contents(scratch_.path("err")); }
    // Until a text stands in what it has written; false when it does not come.
    template <class Where>
    bool waitFor(Where where, const std::string& text) const {
        for (int looks = 0; looks < 1000; ++looks) {
            if ((this->*where)().find(text) != std::string::npos) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }
    void signal(int number) const { kill(child_, number); }
    // Its exit code; -1 if it did not exit by itself.
    int end() {
        if (child_ <= 0) return code_;
        int status = 0;
        waitpid(child_, &status, 0);
        child_ = -1;
        code_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return code_;
    }

private:
    velmora_test::Scratch scratch_;
    std::string outPath_;
    pid_t child_ = -1;
    int code_ = -1;
};

TEST(LogProgram, HelpsWithEveryOptionAndEveryExitCode) {
    Running help({"--help"});
    EXPECT_EQ(help.end(), 0);
    EXPECT_THAT(help.err(), IsEmpty());
    for (const char* word :
         {"--level",  "--word",    "--without", "--regex", "--since",   "--until",   "--trace",
          "--quiet",  "--json",    "--color",   "--write", "--plot",    "--figures", "--read",
          "--follow", "--seconds", "--lines",   "--port",  "Examples:", "Ctrl-\\"}) {
        EXPECT_THAT(help.out(), HasSubstr(word));
    }
    const auto codes = help.out().substr(help.out().find("Exit codes:"));
    for (const auto& row : velmora_log::exitMeanings) {
        EXPECT_THAT(codes, HasSubstr("  " + std::to_string(row.code) + "  " + row.meaning));
    }
}

TEST(LogProgram, TellsItsRelease) {
    Running version({"--version"});
    EXPECT_EQ(version.end(), 0);
    EXPECT_EQ(version.out(), VELMORA_RELEASE "\n");
}

TEST(LogProgram, EndsAtAnInterruptWithTheFigures) {
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        SCOPED_TRACE(number);
        Running log({"--port", "0", "--json"});
        ASSERT_TRUE(log.waitFor(&Running::err, "Listening on ::1 port "));
        const auto port = std::stoul(log.err().substr(log.err().find("port ") + 5));
        ZENNO::Logger logger;
        ASSERT_TRUE(logger.openLogger(16, nullptr, static_cast<std::uint16_t>(port)));
        ZENNO::setLogger(&logger);
        ZENNO::logLevel = 6;
        ZENNO::LogLine(6) << "start";
        ZENNO::setLogger(nullptr);
        ZENNO::logLevel = -1;
        ASSERT_TRUE(log.waitFor(&Running::out, "\"text\":\"start\""));
        log.signal(SIGQUIT);
        ASSERT_TRUE(log.waitFor(&Running::out, "\"event\":\"figures\""));
        log.signal(number);
        EXPECT_EQ(log.end(), velmora_log::exitDone);
        const std::string out = log.out();
        EXPECT_NE(out.find("\"event\":\"figures\""), out.rfind("\"event\":\"figures\""))
            << "asked for, and at the end";
    }
}

TEST(LogProgram, AsksForDebugWhereNothingIsHeard) {
    Running log({"--port", "0", "--seconds", "0.2"});
    EXPECT_EQ(log.end(), velmora_log::exitNothing);
    EXPECT_THAT(log.err(), HasSubstr("nothing heard yet: is `Debug` set?\n"));
}

TEST(LogProgram, EndsWhereItsReaderHasGone) {
    const velmora_test::Scratch scratch;
    std::string lines;
    for (int i = 0; i < 20'000; ++i) lines += "<134>Mar 05 17:02:09 localhost start\n";
    const std::string file = scratch.write("driver.log", lines), err = scratch.path("err");
    const int status = std::system(("{ " + program() + " --read " + file + " 2>" + err +
                                    "; echo $? >>" + err + "; } | head -n 1 >/dev/null")
                                       .c_str());
    EXPECT_EQ(status, 0);
    EXPECT_EQ(contents(err), "The result cannot be written to standard output.\n4\n");
}

// ---- a terminal ----

// What comes out at the other end of a terminal that the program writes to.
std::string onATerminal(const std::vector<std::string>& arguments) {
    const int near = posix_openpt(O_RDWR | O_NOCTTY);
    if (near < 0 || grantpt(near) != 0 || unlockpt(near) != 0) return "no terminal";
    const int far = ::open(ptsname(near), O_RDWR | O_NOCTTY);  // kept open until all is read
    std::string out;
    {
        Running log(arguments, ptsname(near));
        EXPECT_EQ(log.end(), 0);
    }
    pollfd ready{near, POLLIN, 0};
    char bytes[4096];
    while (poll(&ready, 1, 100) > 0) {
        const auto got = ::read(near, bytes, sizeof bytes);
        if (got <= 0) break;
        out.append(bytes, static_cast<std::size_t>(got));
    }
    ::close(far);
    ::close(near);
    return out;
}

TEST(LogProgram, HasColoursOnATerminalUnlessSomebodyObjects) {
    const velmora_test::Scratch scratch;
    const std::string file =
        scratch.write("driver.log", "<131>Mar 05 17:02:09 localhost wth CR send err\n");
    unsetenv("NO_COLOR");
    setenv("TERM", "xterm", 1);
    const std::string coloured = onATerminal({"--read", file});
    if (coloured == "no terminal") GTEST_SKIP() << "this system gives no terminals";
    EXPECT_THAT(coloured, HasSubstr("\x1b[1;31merror    wth CR send err\x1b[0m"));
    EXPECT_THAT(onATerminal({"--read", file, "--color", "never"}), Not(HasSubstr("\x1b")));
    setenv("TERM", "dumb", 1);
    EXPECT_THAT(onATerminal({"--read", file}), Not(HasSubstr("\x1b")));
    setenv("TERM", "xterm", 1);
    setenv("NO_COLOR", "1", 1);
    EXPECT_THAT(onATerminal({"--read", file}), Not(HasSubstr("\x1b")));
    EXPECT_THAT(onATerminal({"--read", file, "--color", "always"}), HasSubstr("\x1b[1;31m"));
    unsetenv("NO_COLOR");
    Running toAFile({"--read", file});
    toAFile.end();
    EXPECT_THAT(toAFile.out(), Not(HasSubstr("\x1b")));
}

// ---- the driver's port ----

TEST(LogProgram, HearsTheDriversPortAndAloneHasIt) {
    VELMORA_IN_NAMESPACE(velmora_test::Wiring::cable, [](const velmora_test::Cable&) {
        const velmora_test::Scratch scratch;
        Running log({"--json", "--lines", "2", "--write", scratch.path("kept.log")});
        ASSERT_TRUE(log.waitFor(&Running::err, "Listening on ::1 port 19640;"));
        Running second({});
        EXPECT_EQ(second.end(), velmora_log::exitNetwork);
        EXPECT_THAT(second.err(), HasSubstr("port 19640 is taken, so end the other log viewer"));

        // As the driver opens it.
        ZENNO::createLogger();
        ASSERT_TRUE(ZENNO::setLogLevel(6));
        ZENNO::LogLine(6) << "start SPEED=" << 44100u;
        ZENNO::LogLine(7) << "not at this level";
        ZENNO::LogLine(3) << "wth CR send err";
        EXPECT_EQ(log.end(), velmora_log::exitDone);
        ZENNO::logLevel = -1;
        ZENNO::freeLoggers();

        std::istringstream lines(log.out());
        std::vector<nlohmann::json> heard;
        for (std::string line; std::getline(lines, line);) {
            heard.push_back(nlohmann::json::parse(line));
        }
        ASSERT_EQ(heard.size(), 3u) << log.out();
        EXPECT_EQ(heard[0]["text"], "start SPEED=44100");
        EXPECT_EQ(heard[1]["text"], "wth CR send err");
        EXPECT_EQ(heard[1]["level"], "error");
        EXPECT_EQ(heard[2]["errors"], 1);
        EXPECT_THAT(log.out(), testing::StartsWith(contents(scratch.path("kept.log"))));
    });
}

}  // namespace
