// The software target as it is built: its help, each wrong argument by what is said of it, and what
// it tells of a stream. But for the last, none comes as far as the network: the interface that all
// name is not there.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/apps/Program.h"
#include "tests/support/Namespace.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using velmora_test::Program;

TEST(TargetProgram, HelpsWithEveryMannerAndEveryExitCode) {
    Program target(VELMORA_TARGET);
    EXPECT_EQ(target.run("--help"), 0);
    EXPECT_THAT(target.errors, IsEmpty());
    for (const char* part :
         {"--interface", "--output", "--misbehave", "silent", "other-port", "Exit codes:"}) {
        EXPECT_THAT(target.output, HasSubstr(part));
    }
    EXPECT_EQ(target.run("--version"), 0);
    EXPECT_EQ(target.output, VELMORA_RELEASE "\n");
}

const std::string nowhere = "--interface nowhere0 --seconds 0.1 ";

struct Wrong {
    const char* arguments;
    const char* said;
};

TEST(TargetProgram, SaysOfEachWrongArgumentWhatWouldBeRight) {
    const Wrong cases[] = {
        {"--no-such-option", "--no-such-option"},
        {"--name ''", "--name: empty"},
        {"--name 12345678901234567890123456789012345678901234567890123456789012345",
         "--name: more than 64 bytes"},
        {"--name \"$(printf 'a\\tb')\"", "--name: no UTF-8, or control characters"},
        {"--pcm 20", "--pcm: 20 is not 8, 16, 24, 32, 64, f32, f64 or none"},
        {"--pcm none --dsd none", "--pcm: a target without any format"},
        {"--channels 3", "--channels: 3 is not 1, 2, 4, 6, 8 or 16"},
        {"--rates fast", "--rates: fast is no rate"},
        {"--rates 44101", "--rates: 44101 is not 44100 or 48000 times 1, 2, 4 ... 4096"},
        {"--dsd-rates max", "--dsd-rates: max is no rate"},
        {"--dsd-rates 44100", "--dsd-rates: 44100 is below DSD64"},
        {"--dsd-rates 63", "--dsd-rates: 63 is not 44100 or 48000"},
        {"--dsd sideways", "--dsd"},
        {"--product seven77", "--product: seven77"},
        {"--product nonsense!", "--product: nonsense! is neither eight characters nor a number"},
        {"--port 19642", "--port: the ports of the sinks run into each other"},
        {"--port 19641 --sink A --sink B", "--port: the ports of the sinks run into each other"},
        {"--sink A --sink B --stream-port-offset 1", "--port: the ports of the sinks run into"},
        {"--port 65535 --sink A --sink B", "--port: no such UDP port"},
        {"--port 60000 --stream-port-offset 6000", "--port: no such UDP port"},
        {"--port 0", "--port"},
        {"--latency 400", "--latency: from 500 to 2000000 microseconds"},
        {"--latency 2000100", "--latency: from 500 to 2000000 microseconds"},
        {"--latency 7000000", "--latency: too large"},
        {"--latency nan", "--latency: nan is no number"},
        {"--hw-latency -100", "--hw-latency: too large"},
        {"--profile 1,700000,0", "--profile: too large"},
        {"--clock-drift 50001,10", "--clock-drift: up to 50000 ppm in 0.1 to 1000000 seconds"},
        {"--clock-drift 10,0.01", "--clock-drift: up to 50000 ppm in 0.1 to 1000000 seconds"},
        {"--clock-drift 10,2000000", "--clock-drift: up to 50000 ppm in 0.1 to 1000000 seconds"},
        {"--ask 50,20", "--ask: the shorter time comes first"},
        {"--alsa-buffer 40 --alsa-period 30",
         "--alsa-period: no longer than half of --alsa-buffer"},
        {"--silent NOBODY", "--silent: NOBODY is no message; there are"},
        {"--refuse NOBODY", "--refuse: NOBODY is no message; there are"},
        {"--lose FIND_REQ", "--lose: FIND_REQ is not MESSAGE=PERCENT, from 0 to 100"},
        {"--lose FIND_REQ=many", "--lose: FIND_REQ=many is not MESSAGE=PERCENT"},
        {"--lose FIND_REQ=101", "--lose: FIND_REQ=101 is not MESSAGE=PERCENT"},
        {"--lose-answers FIND_REQ=-1", "--lose-answers: FIND_REQ=-1 is not MESSAGE=PERCENT"},
        {"--lose NOBODY=1", "--lose: NOBODY is no message; there are"},
        {"--misbehave silent", "--misbehave: silent is not STEP=MANNER"},
        {"--misbehave NOBODY=silent", "--misbehave: NOBODY is no message; there are"},
        {"--misbehave FIND_REQ=loud", "--misbehave: FIND_REQ=loud: no such manner; there are"},
        {"--misbehave FIND_REQ=contradict",
         "--misbehave: FIND_REQ=contradict: only of STREAM_DATA"},
        {"--channel 100,10", "--channel: 100,10 is not BYTES,PACKETS,BLOCKS"},
        {"--channel 100,10,1,", "--channel: 100,10,1, is not BYTES,PACKETS,BLOCKS"},
        {"--channel 0,10,1", "--channel: 0,10,1 is not BYTES,PACKETS,BLOCKS"},
        {"--channel 65465,10,1", "--channel: 65465,10,1 is not BYTES,PACKETS,BLOCKS"},
        {"--channel 100,0,1", "--channel: 100,0,1 is not BYTES,PACKETS,BLOCKS"},
        {"--channel 100,1,65537", "--channel: 100,1,65537 is not BYTES,PACKETS,BLOCKS"},
        {"--channel 100,10,1", "--channel: transfers need an --inbox"},
    };
    Program target(VELMORA_TARGET);
    for (const Wrong& c : cases) {
        SCOPED_TRACE(c.arguments);
        EXPECT_EQ(target.run(nowhere + c.arguments), 2);
        EXPECT_THAT(target.errors, HasSubstr(c.said));
        EXPECT_THAT(target.output, IsEmpty());
    }
}

TEST(TargetProgram, TellsAnInterfaceAnOutputAndAFolderThatAreNotThere) {
    const struct {
        const char* arguments;
        int code;
        const char* said;
    } cases[] = {
        {"", 3, "nowhere0"},
        {"--output /nowhere/at/all.wav", 4, "there is no folder /nowhere/at"},
        {"--output music.mp3", 4, "music.mp3: files end in .wav or .dsf, or have no extension"},
        {"--output alsa:no-such-device", 4, "no-such-device"},
        {"--inbox /nowhere/at/all", 4, "/nowhere/at/all"},
    };
    Program target(VELMORA_TARGET);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments);
        EXPECT_EQ(target.run(nowhere + c.arguments), c.code);
        EXPECT_THAT(target.errors, HasSubstr(c.said));
    }
}

TEST(TargetProgram, StaysWhereADeviceThatAHostHasKeptIsNotThere) {
    Program target(VELMORA_TARGET);
    const std::string state =
        target.scratch.write("state.inf", "[velmora-target]\noutput=3 \"hw:99\"\n");
    EXPECT_EQ(target.run(nowhere + "--output none --state " + state), 3) << "the interface ends it";
    EXPECT_THAT(target.errors, HasSubstr("nowhere0"));
    EXPECT_EQ(target.run(nowhere + "--output alsa:hw:99"), 4) << "its owner's mistake does";
}

TEST(TargetProgram, TakesAllThatCanBeSaidOfATarget) {
    // Each is good by itself: what ends the run is the interface.
    const char* good[] = {
        "--pcm 8,16,24,32,64,f32,f64 --channels 1,2,4,6,8,16 --rates max",
        "--pcm none --dsd both --dsd-word both --dsd-rates 64,128,5644800",
        "--dsd lsb --dsd-word little",
        "--dsd msb --dsd-word big",
        "--pcm-mask 0x3e00001e0f --dsd-lsb-mask 0x20202510003 --dsd-msb-mask 0x20202a10003",
        "--product 12345678 --config '[myaddress]' --sink-version 3",
        "--product KORVENTE --sink A --sink B --port 30000 --stream-port-offset 100",
        "--latency 500 --hw-latency 100 --mtu 9000 --max-burst 65535 --profile 100,1000,7",
        "--buffer 100 --clock-ppm -50 --clock-drift 20,60 --ask 20,400 --feedback 2 --phase invert",
        "--silent FIND_REQ --silent NOTIFY --refuse SINK_REQ --lose STREAM_DATA=1",
        "--lose-answers FIND_REQ=5",
        "--misbehave STREAM_DATA=resend-all --misbehave CONNECT_REQ=echo --seed 3",
        "--alsa-buffer 40 --alsa-period 10",
        "--name 1234567890123456789012345678901234567890123456789012345678901234 --no-figures",
    };
    Program target(VELMORA_TARGET);
    for (const char* arguments : good) {
        SCOPED_TRACE(arguments);
        EXPECT_EQ(target.run(nowhere + arguments), 3);
        EXPECT_THAT(target.errors, HasSubstr("nowhere0"));
    }
}

// What a target with `options` prints while a tone of `seconds` is played to it, to its end. On a
// busy machine it may miss the tenth of a second that the driver waits for an answer: then the
// player tries again.
std::string wordsOfAStream(const std::string& options, const std::string& seconds) {
    Program shell("sh");
    const std::string words = shell.scratch.path("words");
    const std::string script = shell.scratch.write(
        "session", "export XDG_CONFIG_HOME=" + shell.scratch.path("config") + "\n" +
                       VELMORA_TARGET " --interface far --once --seconds 60 " + options + " >" +
                       words + " &\n" +
                       "for attempt in 1 2 3; do " VELMORA_PLAY " --quiet --tone 1000 --seconds " +
                       seconds + " && wait $! && cat " + words + " && exit 0; done; exit 1\n");
    EXPECT_EQ(shell.run(script), 0) << shell.errors;
    return shell.output;
}

TEST(TargetProgram, TellsInWordsWhatItHasPlayed) {
    VELMORA_IN_NAMESPACE(velmora_test::Wiring::cable, [](const velmora_test::Cable&) {
        const std::string words = wordsOfAStream("--name Words", "0.5");
        for (const char* part :
             {"\"Words\" on far, sink \"Main\" at port",
              "2 channels, 44100 Hz, from KORVENTE Velmora (fe80", "ended ", "played ", "packets ",
              "resend ", "underruns ", "bursts ", "feedback "}) {
            EXPECT_THAT(words, HasSubstr(part));
        }
    });
}

TEST(TargetProgram, PrintsNoFiguresOfAStreamWhereNoneAreWanted) {
    VELMORA_IN_NAMESPACE(velmora_test::Wiring::cable, [](const velmora_test::Cable&) {
        const std::string words = wordsOfAStream("--no-figures", "1.5");
        EXPECT_THAT(words, HasSubstr("  sink 1 connected to "));
        EXPECT_THAT(words, HasSubstr("ended "));
        EXPECT_THAT(words, Not(HasSubstr(" fill ")));
    });
}

}  // namespace
