// Recorded streams that nothing disturbs: transfers, conversions, feedback, ways to wait.
#include "sync/ThreadMode.h"
#include "tests/sync/RecordingStage.h"

namespace velmora_test {

using namespace VELMORA;

// ---- transfers ----

void addTransfers(Scripts& out) {
    for (const std::uint16_t count : Words{1, 2, 3, 4, 7, 10, 15}) {
        out("fix-" + std::to_string(count)) = [=](Take& take) {
            Play s(take, {fix(1000, count, 722534)});
            s.answers = {feedbackSays(0), feedbackSays(900), feedbackSays(-2000)};
            s.run(40000);
        };
        out("var-" + std::to_string(count)) = [=](Take& take) {
            Play s(take, {var(1000, count, 100)});
            s.answers = {feedbackSays(0), feedbackSays(900), feedbackSays(-2000)};
            s.run(40000);
        };
        out("random-" + std::to_string(count)) = [=](Take& take) {
            // A slow machine starts on the last row.
            Play s(take, {fix(500, 1), randomRow(1000, 700, count)});
            s.machine.cores = 2;
            s.answers = {feedbackSays(0), feedbackSays(900), feedbackSays(-2000)};
            s.run(40000);
        };
    }
    out("random-with-nothing-to-draw") = [](Take& take) {
        Play s(take, {randomRow(1000, 1000, 2)});
        s.run(20000);
    };
    // So many frames that single precision rounds them: what it drops adds up.
    out("random-of-many-frames") = [](Take& take) {
        TransferProfile row = randomRow(1000, 700, 1);
        row.framesQ14 = (8100 << 14) + 5000;
        Play s(take, {fix(500, 1), row}, 1, 100000);
        s.format(formatOf(SinkConfig::pcm8, 48000, 1));
        s.sync.maxPacketSize = 8928;
        s.machine.cores = 2;
        s.run(1000000);
    };
    out("fix-fuller-than-a-packet") = [](Take& take) {
        Play s(take, {fix(1000, 2, 300 << 14)});
        s.format(formatOf(SinkConfig::pcm24, 44100, 2));
        s.sync.maxPacketSize = 1430;
        s.run(20000);
    };
    out("fix-less-than-a-frame") = [](Take& take) {
        Play s(take, {fix(400, 3, 5000)});
        s.run(20000);
    };
    out("prefill-beyond-the-ring") = [](Take& take) {
        Play s(take, {fix(2000000, 40)}, 1, 3000000);
        s.run(7000000);
    };
    out("jumbo-packets") = [](Take& take) {
        Play s(take, {var(2000, 3, 8928)});
        s.sync.maxPacketSize = 8928;
        s.say(7000, resendFrom(2));
        s.run(20000);
    };
    struct Form {
        const char* name;
        SinkConfig config;
    };
    const Form forms[] = {
        {"pcm16-48000-1", formatOf(SinkConfig::pcm16, 48000, 1)},
        {"pcm24-44100-1", formatOf(SinkConfig::pcm24, 44100, 1)},
        {"pcm24-192000-6", formatOf(SinkConfig::pcm24, 192000, 6)},
        {"pcm32-352800-2", formatOf(SinkConfig::pcm32, 352800, 2)},
        {"pcm32-192000-8", formatOf(SinkConfig::pcm32, 192000, 8)},
        {"f32-96000-2", formatOf(SinkConfig::float32, 96000, 2)},
        {"f64-48000-16", formatOf(SinkConfig::float64, 48000, 16)},
        {"dsd64-2", formatOf(SinkConfig::dsdLsbLittle, 2822400, 2)},
        {"dsd256-2", formatOf(SinkConfig::dsdMsbBig, 11289600, 2)},
    };
    for (const Form& form : forms) {
        out(std::string("by-wish-") + form.name) = [config = form.config](Take& take) {
            const auto play = [&](auto configure) {
                Play s(take, {});
                s.format(config);
                EXPECT_TRUE(configure(s.sync));
                s.run(12000);
            };
            play([](Sync& s) { return s.configTransferFix(1000, 0); });
            play([](Sync& s) { return s.configTransferVar(1000, 0); });
            play([](Sync& s) { return s.configTransferFixAuto(700); });
            play([](Sync& s) { return s.configTransferVarAuto(1300); });
            // Halved blocks: payloads that end in a frame, a word, a multiple of 8.
            const std::uint32_t frames = config.isDsd() ? 441 * 8 : 441;
            play([&](Sync& s) { return s.configTransferVarASIO(frames * config.frameBytes()); });
        };
    }
}

// ---- conversions and phase ----

void addConversions(Scripts& out) {
    struct Order {
        const char* name;
        std::uint64_t format;
    };
    constexpr Order orders[] = {{"lsb-little", SinkConfig::dsdLsbLittle},
                                {"lsb-big", SinkConfig::dsdLsbBig},
                                {"msb-little", SinkConfig::dsdMsbLittle},
                                {"msb-big", SinkConfig::dsdMsbBig}};
    for (const Order& host : orders) {
        for (const Order& sink : orders) {
            const auto play = [from = host.format, to = sink.format](Take& take) {
                for (const std::uint16_t phase : Words{0x000, 0x100}) {
                    Play s(take, {});
                    s.connectPhase(phase);
                    const std::uint64_t mask = to | SinkConfig::rateMask | 0x3f;
                    (SinkConfig(to).has(SinkConfig::dsdLsb) ? s.sync.dsdLsbSupport
                                                            : s.sync.dsdMsbSupport) = mask;
                    EXPECT_TRUE(s.sync.setStreamFormat(formatOf(from, 2822400, 2)));
                    EXPECT_TRUE(s.sync.configTransferVar(1000, 0));
                    // The target changes its mind twice, the host once.
                    s.answers = {feedbackSays(0, phase), feedbackSays(9, 0x100), feedbackSays(9)};
                    s.at(17000, [&] { s.sync.phaseInvert = 1; });
                    s.run(40000);
                }
            };
            out(std::string("dsd-") + host.name + "-to-" + sink.name) = play;
        }
    }
    struct Member {
        const char* name;
        CopyStream conversion;
    };
    constexpr Member members[] = {{"copy", convertCopy},
                                  {"swap", convertSwap},
                                  {"reverse32", convertReverse32},
                                  {"reverse-bytes", convertReverseBytes}};
    for (const Member& member : members) {
        // What a conversion of whole words leaves unwritten at a packet's or a block's end is what
        // the slot held a ring earlier.
        out(std::string("rests-of-words-") + member.name) = [=](Take& take) {
            for (const std::uint32_t bytes : {882u, 8u, 1001u, 3u}) {
                Play s(take, {var(40000, 1, bytes)}, 1, 200000);
                s.audio({1000, 17, 441, 4096, 1, 2, 3, 5});
                s.sync.copyStream = member.conversion;
                s.at(900000, [&] { s.sync.phaseInvert = 1; });
                s.run(3000000);
            }
        };
    }
    out("silence-and-its-phase") = [](Take& take) {
        for (const SinkConfig config :
             {Session::stereo16, Session::dsdLsb, formatOf(SinkConfig::dsdMsbBig, 2822400, 1)}) {
            for (const std::uint16_t phase : Words{0x000, 0x100, 0x180, 0x080}) {
                Play s(take, {fix(1000, 2)});
                s.format(config);
                s.connectPhase(phase);
                s.sync.playing = 0;
                s.sync.phaseInvert = phase == 0x180 ? 1 : 0;
                s.answers = {datagram(11, phase), feedbackSays(0, 0x100)};
                s.run(15000);
            }
        }
    };
}

// ---- feedback ----

void addFeedback(Scripts& out) {
    const Datagrams words = {
        feedbackInSteps(8192),    feedbackInSteps(9000), feedbackInSteps(1),
        feedbackInSteps(0x7fff),  feedbackSays(1638),    feedbackSays(-1638),
        feedbackSays(16383),      feedbackSays(-16384),  feedbackAsFill(100, 400),
        feedbackAsFill(500, 400), feedbackAsFill(0, 1),  feedbackAsFill(65535, 1),
        feedbackAsFill(7, 0),     feedbackSays(1),       feedbackSays(-1),
        feedbackSays(300)};
    for (std::uint32_t depth = 1; depth <= 8; ++depth) {
        out("feedback-of-depth-" + std::to_string(depth)) = [=](Take& take) {
            for (const auto& row : {fix(1000, 2, 722534), var(1000, 2, 176)}) {
                Play s(take, {row}, 1 | (depth - 1) << 5, 1000);
                s.answers = words;
                s.run(70000);
            }
        };
    }
    for (const std::int16_t value : std::initializer_list<std::int16_t>{1638, -1638, 120, -120}) {
        out("feedback-that-stays-at-" + std::to_string(value)) = [=](Take& take) {
            for (const auto& row : {fix(1000, 3, 722534), var(1000, 3, 176)}) {
                Play s(take, {row}, 1, 2000);
                s.answers = {feedbackSays(value)};
                s.run(150000);
            }
        };
    }
    out("feedback-nobody-asked-for") = [=](Take& take) {
        Play s(take, {var(1000, 2, 40)});
        s.answers.clear();
        for (std::uint64_t t = 300; t < 30000; t += 700) {
            s.say(t, words[t / 700 % words.size()]);
        }
        s.sayFrom(s.stranger, 12345, feedbackSays(5000));
        s.say(13333, Bytes(7, 100));
        s.say(14444, datagram(99, 1));
        s.at(30000, [&] { s.answers = {feedbackSays(0)}; });
        s.run(31000);
    };
}

// ---- ways to wait ----

void addModes(Scripts& out) {
    struct Mode {
        const char* name;
        std::uint32_t mode;
    };
    constexpr Mode modes[] = {
        {"none", 0},
        {"noshortsleep", NOSHORTSLEEP},
        {"sleep0once", SLEEP0ONCE},
        {"sleep0always", SLEEP0ALWAYS},
        {"nosleep4core", NOSLEEP4CORE},
        {"nosleepforce", NOSLEEPFORCE},
        {"nosleepforce-sleep0once", NOSLEEPFORCE | SLEEP0ONCE},
        {"socketnoblock", SOCKETNOBLOCK},
        {"occupied", OCCUPIED},
        {"all", 0xfff},
    };
    for (const Mode& m : modes) {
        out(std::string("mode-") + m.name) = [=](Take& take) {
            Play s(take, {fix(1000, 3, 722534 / 3)}, m.mode);
            s.environment.grained.isPolled =
                (m.mode & (NOSHORTSLEEP | NOSLEEP4CORE | NOSLEEPFORCE)) != 0;
            s.answers = {feedbackSays(100), feedbackSays(-100)};
            s.say(2499, feedbackSays(7));  // a µs ahead of a turn
            s.say(5450, resendFrom(14));
            s.say(5451, feedbackSays(33));
            s.stall(8800, 3300);
            s.run(20000);
        };
    }
    // A full buffer makes a send take another try, and no more.
    for (const std::uint32_t mode : {CRITICAL + 0u, SOCKETNOBLOCK + 0u}) {
        out(mode == CRITICAL ? "full-buffers" : "full-buffers-that-never-block") = [=](Take& take) {
            Play s(take, {fix(1000, 3)}, mode);
            for (std::uint64_t t = 1100; t < 15000; t += 1300) {
                s.at(t, [&s, t] { s.network.sendFullTimes = t % 2 == 0 ? 1 : 3; });
            }
            s.run(20000);
        };
    }
    for (const std::int32_t cores : {0, 2, 3}) {
        out("cores-" + std::to_string(cores)) = [=](Take& take) {
            Play s(take, {fix(500, 1), var(2000, 2)}, NOSLEEP4CORE | OCCUPIED);
            s.environment.grained.isPolled = cores > 2;
            s.machine.cores = cores;
            s.run(20000);
        };
    }
}

}  // namespace velmora_test
