// send: a file into a channel of a target.
#include <algorithm>
#include <filesystem>
#include <fstream>

#include "apps/velmora-find/FileReading.h"
#include "apps/velmora-find/TransferTalk.h"
#include "tests/apps/FindWorld.h"
#include "tests/apps/Scratch.h"

namespace velmora_test {
namespace {

class FindSend : public FindWorld {
protected:
    FindSend() { offerChannels(); }
    int send(const std::vector<std::string>& more = {}, const std::string& channel = "0") {
        std::vector<std::string> arguments{"send", "fe80::2", channel, file};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return run(arguments);
    }
    static std::string content(std::size_t size) {
        std::string bytes(size, '\0');
        for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7 + i / 251);
        return bytes;
    }
    int datagramsOfTransfer() const {
        return target.count(wire::TRANSFER_REQ::id) + target.count(wire::TRANSFER_DATA::id);
    }
    Scratch scratch;
    const std::string bytes = content(10'000);
    std::string file = scratch.write("file.bin", bytes);
};

TEST_F(FindSend, BringsEveryByteThere) {
    EXPECT_EQ(send(), velmora_find::exitDone) << talk.str();
    EXPECT_EQ(std::string(received.begin(), received.end()), bytes);
    EXPECT_THAT(out.str(), HasSubstr("10000 bytes to channel 0 in "));
    EXPECT_THAT(out.str(), HasSubstr("10 packets in 5 bursts, 0 resends."));
    EXPECT_EQ(talk.str(), "All of it arrived, and its checksum is right.\n");
}

TEST_F(FindSend, TakesAnEmptyFile) {
    file = scratch.write("empty.bin", "");
    EXPECT_EQ(send(), velmora_find::exitDone) << talk.str();
    EXPECT_THAT(out.str(), HasSubstr("0 bytes to channel 0"));
    EXPECT_EQ(target.count(wire::TRANSFER_DATA::id), 0);
}

TEST_F(FindSend, KeepsItsBurstsBelowTheLimit) {
    EXPECT_EQ(send({"--limit", "1024", "--json"}), velmora_find::exitDone);
    EXPECT_EQ(json()["bursts"], 10);
    EXPECT_EQ(json()["burstLimit"], 1024);
}

TEST_F(FindSend, TellsItsFiguresAsJson) {
    EXPECT_EQ(send({"--json"}), velmora_find::exitDone);
    const Json figures = json();
    EXPECT_EQ(figures["complete"], true);
    EXPECT_EQ(figures["end"], "complete");
    EXPECT_EQ(figures["bytes"], 10000);
    EXPECT_EQ(figures["packets"], 10);
    EXPECT_EQ(figures["resends"], 0);
    EXPECT_EQ(figures["capacity"], 1024 * 8 * 16);
    EXPECT_GT(figures["seconds"], 0.0);
}

TEST_F(FindSend, ShowsABarOnATerminalAlone) {
    EXPECT_EQ(send(), velmora_find::exitDone);
    EXPECT_THAT(talk.str(), Not(HasSubstr("\r")));
    context.isTerminal = true;
    EXPECT_EQ(send(), velmora_find::exitDone);
    EXPECT_THAT(talk.str(), HasSubstr("\r[------------------------]  0 %  0 of 10000 bytes"));
    EXPECT_THAT(talk.str(), HasSubstr("\r[########################]  100 %  10000 of 10000"));
}

TEST_F(FindSend, DrawsItsBarNoMoreThanTenTimesASecond) {
    context.isTerminal = true;
    const auto draws = [&] {
        EXPECT_EQ(send(), velmora_find::exitDone);
        const std::string said = talk.str();
        return std::count(said.begin(), said.end(), '\r');
    };
    EXPECT_EQ(draws(), 2);  // as it begins and as it ends: it takes no tenth of a second
    target.answerDelay[wire::TRANSFER_DATA::id] = 60'000;  // five bursts
    const auto before = network.time.time();
    const auto drawn = draws();
    EXPECT_GT(drawn, 2);
    EXPECT_LE(drawn, 2 + static_cast<std::ptrdiff_t>((network.time.time() - before) / 100'000));
}

TEST_F(FindSend, SendsAgainWhatIsLostAndCountsIt) {
    int lost = 0;
    network.fate = [&](const Datagram& datagram) -> Fate {
        const auto packet = wire::readPacket(datagram.data);
        const bool isFirstData =
            packet && packet->id() == wire::TRANSFER_DATA::id && packet->arg16(10) == 3;
        if (isFirstData && lost++ == 0) return {};
        return {{50, std::nullopt}};
    };
    EXPECT_EQ(send({"--json"}), velmora_find::exitDone) << talk.str();
    EXPECT_EQ(json()["resends"], 1);
    EXPECT_EQ(std::string(received.begin(), received.end()), bytes);
}

// ---- what goes wrong at the target ----

struct Failure {
    const char* why;
    std::uint16_t id;
    std::function<Bytes(const wire::PacketView&)> reply;
    int code;
    const char* end;
    const char* words;
};

TEST_F(FindSend, TellsEachWayInWhichATargetFails) {
    const auto acknowledge = [](std::uint16_t channel, bool accepted) {
        return [=](const wire::PacketView& packet) {
            return write(wire::TRANSFER_ACK{
                .accepted = accepted, .channel = channel, .seq = packet.arg16(10)});
        };
    };
    const auto ends = [this](std::uint16_t crcOff, std::uint16_t status) {
        return [=, this](const wire::PacketView& packet) {
            return write(
                wire::TRANSFEREND_ANS{.channel = packet.arg16(8),
                                      .crc = static_cast<std::uint16_t>(slowCrc(received) + crcOff),
                                      .status = status});
        };
    };
    const Failure failures[] = {
        {"no channels", wire::TRANSFER_REQ::id,
         [](const wire::PacketView&) { return write(wire::TRANSFER_ANS{.channel = 0}); },
         velmora_find::exitUsage, "noSuchChannel", "it has none"},
        {"it refuses", wire::TRANSFER_REQ::id,
         [](const wire::PacketView&) { return write(wire::TRANSFER_ANS{.accepted = false}); },
         velmora_find::exitTarget, "notOpened", "does not take transfers"},
        {"too small", wire::TRANSFER_REQ::id,
         [](const wire::PacketView& r) {
             return write(wire::TRANSFER_ANS{
                 .channel = r.arg16(8) == 0 ? std::uint16_t{1} : r.arg16(8), .second = 999});
         },
         velmora_find::exitTarget, "tooLarge", "do not fit into a channel of 1000"},
        {"an acknowledgement for another channel", wire::TRANSFER_DATA::id, acknowledge(2, true),
         velmora_find::exitTarget, "wrongChannel", "another channel"},
        {"a burst refused", wire::TRANSFER_DATA::id, acknowledge(1, false),
         velmora_find::exitTarget, "refused", "refused a part"},
        {"another checksum", wire::TRANSFEREND_REQ::id, ends(1, 65535), velmora_find::exitTarget,
         "notClosed", "did not confirm its checksum"},
        {"another status", wire::TRANSFEREND_REQ::id, ends(0, 7), velmora_find::exitTarget,
         "notTaken", "its status is 7"},
    };
    const auto replies = target.replies;
    for (const Failure& failure : failures) {
        SCOPED_TRACE(failure.why);
        received.clear();
        target.replies = replies;
        target.replies[failure.id] = failure.reply;
        EXPECT_EQ(send({"--json"}), failure.code);
        EXPECT_EQ(json()["end"], failure.end);
        EXPECT_EQ(json()["complete"], false);
        EXPECT_THAT(talk.str(), HasSubstr(failure.words));
        EXPECT_EQ(send(), failure.code);
        EXPECT_THAT(out.str(), IsEmpty());
    }
}

TEST_F(FindSend, TellsWhichChannelsThereAre) {
    offerChannels(3);
    EXPECT_EQ(send({}, "3"), velmora_find::exitUsage);
    EXPECT_THAT(talk.str(), HasSubstr("no channel 3: it has channels 0 to 2."));
}

TEST_F(FindSend, EndsWhenTheTargetVanishesMidway) {
    target.onRequest = [&](const ScriptedTarget::Seen& seen) {
        if (seen.id == wire::TRANSFER_DATA::id && seen.arg[1] == 4) {
            target.replies.clear();
        }
    };
    EXPECT_EQ(send({"--json"}), velmora_find::exitNobody);
    EXPECT_EQ(json()["end"], "unheard");
    EXPECT_EQ(json()["bytesSent"], 6144);
    EXPECT_THAT(talk.str(), HasSubstr("eleven times in vain"));
}

TEST_F(FindSend, EndsWhenTheTargetVanishesBeforeItConfirms) {
    target.replies.erase(wire::TRANSFEREND_REQ::id);
    EXPECT_EQ(send(), velmora_find::exitNobody);
    EXPECT_THAT(talk.str(), HasSubstr("fell silent before it confirmed"));
}

TEST_F(FindSend, TellsAFailureOfTheNetwork) {
    target.onRequest = [&](const ScriptedTarget::Seen& seen) {
        if (seen.id == wire::TRANSFER_DATA::id) network.sendError = 10065;
    };
    EXPECT_EQ(send({"--json"}), velmora_find::exitNetwork);
    EXPECT_EQ(json()["end"], "sendFailed");
}

// ---- what goes wrong at the file ----

TEST_F(FindSend, SendsNothingOfAFileThatCannotBeRead) {
    for (const auto& [path, words] : std::vector<std::pair<std::string, std::string>>{
             {scratch.path("none.bin"), "there is no such file"},
             {std::filesystem::path(scratch.path("x")).parent_path().string(), "is no file"},
             {"/dev/null", "is no file"}}) {
        SCOPED_TRACE(path);
        file = path;
        EXPECT_EQ(send(), velmora_find::exitFile);
        EXPECT_THAT(talk.str(), HasSubstr(words));
        EXPECT_TRUE(target.seen.empty());
    }
    EXPECT_EQ(datagramsOfTransfer(), 0);
}

TEST(FindFile, IsReadWhole) {
    Scratch scratch;
    const ZENNO::Bytes read =
        velmora_find::readUnchanged(scratch.write("a.bin", std::string("a\0\r\n\xff", 5)));
    EXPECT_EQ(read, (ZENNO::Bytes{'a', 0, '\r', '\n', 0xff}));
}

TEST(FindFile, ThatIsLargerThanTheBoundIsNotRead) {
    Scratch scratch;
    const std::string path = scratch.write("large.bin", "");
    std::filesystem::resize_file(path, velmora_find::largestFile + 1);  // takes no room
    try {
        velmora_find::readUnchanged(path, [] { ADD_FAILURE() << "it was begun to be read"; });
        ADD_FAILURE() << "it was taken";
    } catch (const velmora_find::Stop& stop) {
        EXPECT_EQ(stop.code, velmora_find::exitFile);
        EXPECT_THAT(stop.sentence, HasSubstr("larger than 1 GiB"));
    }
}

struct Meddling {
    const char* why;
    void (*with)(const std::string& path);
    const char* words;
};
TEST(FindFile, ThatChangesWhileItIsReadIsNotTaken) {
    const Meddling meddlings[] = {
        {"it shrinks", [](const std::string& p) { std::filesystem::resize_file(p, 10); },
         "changes its size"},
        {"it is emptied", [](const std::string& p) { std::filesystem::resize_file(p, 0); },
         "changes its size"},
        {"it grows", [](const std::string& p) { std::filesystem::resize_file(p, 5000); },
         "changes its size"},
        {"it goes", [](const std::string& p) { std::filesystem::remove(p); }, "changes its size"},
    };
    for (const Meddling& meddling : meddlings) {
        SCOPED_TRACE(meddling.why);
        Scratch scratch;
        const std::string path = scratch.write("a.bin", std::string(1000, 'x'));
        try {
            velmora_find::readUnchanged(path, [&] { meddling.with(path); });
            ADD_FAILURE() << "it was taken";
        } catch (const velmora_find::Stop& stop) {
            EXPECT_EQ(stop.code, velmora_find::exitFile);
            EXPECT_THAT(stop.sentence, HasSubstr(meddling.words));
        }
    }
}

TEST(FindTransferTalk, KeepsItsLineWithinATerminals) {
    velmora_find::TransferRun run;
    run.size = 1'048'576;
    run.seconds = 0.05;
    run.figures.bytesSent = 524'288;
    EXPECT_EQ(velmora_find::progressText(run),
              "[############------------]  50 %  524288 of 1048576 bytes, 10.5 MB/s, 0 resends");
    for (const auto size : {std::uint64_t{0}, velmora_find::largestFile, ~std::uint64_t{0}}) {
        for (const double seconds : {0.0, 1e-6, 1.0, 1e5}) {
            for (const std::uint64_t resends : {0ull, 1ull, 99'999ull, ~0ull}) {
                run.size = run.figures.bytesSent = size;
                run.seconds = seconds;
                run.figures.resends = resends;
                EXPECT_LE(velmora_find::progressText(run).size(), 79u);
            }
        }
    }
    run.size = run.figures.bytesSent = velmora_find::largestFile;
    run.seconds = 100;
    run.figures.resends = 12;
    EXPECT_THAT(velmora_find::progressText(run), testing::EndsWith("10.7 MB/s, 12 resends"));
}

TEST(FindTransferTalk, HasASentenceForEveryEnd) {
    for (int end = 0; end <= static_cast<int>(VELMORA::TransferEnd::notTaken); ++end) {
        velmora_find::TransferRun run;
        run.figures.end = static_cast<VELMORA::TransferEnd>(end);
        const auto words = velmora_find::endWords(run);
        EXPECT_THAT(words.sentence, Not(IsEmpty()));
        EXPECT_THAT(std::string(velmora_find::endName(run.figures.end)), Not(IsEmpty()));
        EXPECT_EQ(words.code == velmora_find::exitDone, end == 0);
    }
}

}  // namespace
}  // namespace velmora_test
