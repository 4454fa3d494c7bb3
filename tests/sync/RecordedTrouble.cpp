// Recorded streams in trouble: packets asked for again, late turns, and each way to end.
#include "sync/ThreadMode.h"
#include "tests/sync/RecordingStage.h"

namespace velmora_test {

using namespace VELMORA;

// ---- what is sent again ----

void addResends(Scripts& out) {
    struct Ask {
        std::uint64_t at;
        std::uint16_t from;
    };
    struct Case {
        const char* name;
        std::vector<Ask> asks;
    };
    // Three packets a turn, at 0, 500, 1500, 2500 ...
    const Case cases[] = {
        {"one", {{5600, 20}}},
        {"many", {{15600, 5}}},
        {"none", {{5600, 21}}},
        {"anew-for-more", {{15600, 40}, {16100, 20}}},
        {"anew-for-fewer", {{15600, 20}, {16600, 45}}},
        {"withdrawn", {{15600, 20}, {16600, 51}}},
        {"again-and-again", {{9600, 20}, {12600, 20}, {15600, 20}, {18600, 20}, {21600, 20}}},
        {"of-the-prefill", {{1600, 0}}},
        {"of-what-never-was", {{1600, 65530}}},
    };
    for (const Case& c : cases) {
        for (const std::uint32_t mode : {CRITICAL + 0u, CRITICAL | NOFASTFEEDBACK}) {
            const std::string way = mode == CRITICAL ? "resend-" : "resend-without-debt-";
            out(way + c.name) = [=](Take& take) {
                Play s(take, {fix(1000, 3, 722534 / 3)}, mode, 20000);
                for (const Ask& ask : c.asks) s.say(ask.at, resendFrom(ask.from, 9));
                s.run(60000);
            };
        }
    }
    // A ring of 32: all but its oldest can be had, twice round.
    for (const std::uint16_t back : Words{31, 32}) {
        out("resend-of-" + std::to_string(back) + "-in-a-ring-of-32") = [=](Take& take) {
            for (const std::uint32_t bytes : {16u, 17u, 30u, 24u}) {
                Play s(take, {var(40000, 1, bytes)}, 1, 300000);
                s.askAgain(2400000, back);
                s.run(4000000);
            }
        };
    }
    out("resend-across-the-wrap-of-numbers") = [](Take& take) {
        Play s(take, {fix(1000, 30, 1 << 14)}, 1, 100000);
        s.sync.maxPacketCount = 45;
        s.audio({4000});
        s.say(2184000, resendFrom(65500));
        s.say(2190000, resendFrom(65530));
        s.run(2200000);
    };
    // A slot that was sent again in the longer form is built anew a ring later.
    out("resend-then-the-next-lap") = [](Take& take) {
        Play s(take, {fix(40000, 1, 50 << 13)}, 1, 300000);
        s.format(formatOf(SinkConfig::pcm24, 48000, 1));
        for (std::uint64_t t = 400000; t < 3000000; t += 400000) {
            s.askAgain(t, 5);
        }
        s.run(3000000);
    };
}

// ---- late turns ----

void addLateness(Scripts& out) {
    for (const std::uint32_t mode : {CRITICAL + 0u, CRITICAL | NOFASTFEEDBACK}) {
        const std::string way = mode == CRITICAL ? "late-" : "late-without-debt-";
        for (const std::uint16_t most : Words{2, 3, 4, 10}) {
            out(way + "of-at-most-" + std::to_string(most)) = [=](Take& take) {
                Play s(take, {var(1000, 2, 50)}, mode);
                s.sync.maxPacketCount = most;
                s.stall(3700, 1000);    // less than a cycle too late
                s.stall(9700, 2800);    // more
                s.stall(20700, 17345);  // many
                s.say(22000, resendFrom(30));
                s.stall(52000, 2600);
                s.run(70000);
            };
        }
        out(way + "by-the-host") = [=](Take& take) {
            Play s(take, {fix(1000, 2, 722534 / 2)}, mode);
            s.onFetch = [&](int fetches) {
                if (fetches % 7 == 3) s.network.time.advance(2900);
            };
            s.run(70000);
        };
    }
    struct Change {
        const char* name;
        TransferProfile first, last;
    };
    const Change changes[] = {
        {"fix-to-fix", fix(1000, 2), fix(3000, 3, 8 << 14)},
        {"var-to-var", var(1000, 2), var(3000, 3, 77)},
        {"fix-to-var", fix(1000, 2, 722534), var(5000, 1, 800)},
        {"var-to-fix", var(1000, 2), fix(5000, 2, 722534)},
        {"fix-to-random", fix(1000, 2), randomRow(3000, 2000, 2)},
    };
    for (const Change& change : changes) {
        out(std::string("profile-") + change.name) = [=](Take& take) {
            Play s(take, {change.first, fix(7777, 1), change.last}, 1, 4000);
            s.answers = {feedbackSays(500), feedbackSays(-700)};
            for (std::uint64_t t = 1300; t < 120000; t += 3000) s.stall(t, 2500);
            s.run(150000);
        };
    }
}

// ---- ends ----

void addEnds(Scripts& out) {
    const auto add = [&](const char* name, std::function<void(Play&)> what) {
        out(std::string("end-") + name) = [=](Take& take) {
            Play s(take, {fix(1000, 2, 722534)});
            what(s);
        };
    };
    add("while-playing", [](Play& s) { s.run(600); });
    add("of-audio-in-mid-packet", [](Play& s) {
        s.sync.supply = nullptr;
        s.sync.blocks = {Bytes(176, 1), Bytes(300, 2), Bytes(40, 3)};
        s.run(300);
    });
    add("while-stopped", [](Play& s) {
        s.at(3300, [&] { s.sync.stop(); });
        s.at(9300, [&] { s.sync.play(); });
        s.at(15300, [&] { s.sync.stop(); });
        s.run(20600);
    });
    add("answered-by-a-resend-request", [](Play& s) {
        s.answers = {resendFrom(10)};
        s.run(9600);
    });
    add("with-a-silent-target", [](Play& s) {
        s.answers.clear();
        s.run(9600);
    });
    add("with-a-noisy-target", [](Play& s) {
        s.answers = {datagram(99, 0)};
        s.run(9600);
    });
    add("held-up-by-resends", [](Play& s) {
        s.answers.clear();
        for (std::uint64_t t = 9000; t < 4500000; t += 9000) s.say(t, resendFrom(5));
        s.run(9600);
    });
    add("by-silence", [](Play& s) {
        s.answers.clear();
        s.run();
    });
    add("by-silence-behind-a-long-info-cycle", [](Play& s) {
        s.sync.infoCycle = 200000;
        s.answers.clear();
        s.say(700000, datagram(99, 0));
        s.run();
    });
    add("by-the-target", [](Play& s) {
        s.say(12345, datagram(13, 1));
        s.run();
    });
    add("by-the-target-in-the-drain", [](Play& s) {
        s.say(10900, datagram(13, 1));
        s.run(9600);
    });
    add("without-an-answer", [](Play& s) {
        s.target.answers.erase(12);
        s.run(9600);
    });
    add("with-noise-for-an-answer", [](Play& s) {
        s.target.on(12, datagram(99, 1));
        s.run(9600);
    });
    add("beyond-the-ring", [](Play& s) {
        s.say(12345, resendFrom(30000, 40000));
        s.run();
    });
    add("by-another-party", [](Play& s) {
        s.at(12345, [&] { s.sync.state = Sync::Idle; });
        s.run();
    });
    add("of-the-host's-audio", [](Play& s) {
        s.sync.supply = nullptr;
        s.sync.blocks = {Bytes(176, 1), Bytes(300, 2), Bytes(40, 3)};
        s.run();
    });
    add("by-closing", [](Play& s) {
        s.at(12345, [&] { s.sync.close(); });
        s.run();
    });
    add("by-a-failing-send", [](Play& s) {
        s.at(12345, [&] { s.network.sendError = 10051; });
        s.run();
    });
    add("by-a-failing-wait", [](Play& s) {
        s.at(12345, [&] { s.network.waitFails = true; });
        s.run();
    });
    add("by-a-failing-look-behind-a-late-turn", [](Play& s) {
        s.onFetch = [&](int fetches) {
            if (fetches != 30) return;
            s.network.time.advance(5000);
            s.network.waitFails = true;
        };
        s.run();
    });
    add("by-a-failing-read", [](Play& s) {
        s.at(12345, [&] { s.network.receiveFails = true; });
        s.say(12400, feedbackSays(0));
        s.run();
    });
    add("before-the-beginning", [](Play& s) {
        s.target.on(8, datagram(9, 0, {6000}));
        s.run();
        s.target.answers.erase(8);
        s.run();
        s.network.sendError = 10051;
        s.run();
    });
    add("of-a-closing-packet-that-passes-again", [](Play& s) {
        s.sync.infoCycle = 200000;
        s.rows({fix(32000, 1)});
        s.sync.playing = 0;
        s.answers.clear();
        s.say(1080000, feedbackSays(0));
        s.say(1110000, feedbackSays(0));
        s.run(600);
    });
}

}  // namespace velmora_test
