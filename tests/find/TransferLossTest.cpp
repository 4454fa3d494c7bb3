// Transfers over links that lose, repeat and reorder, held against a slow model of both sides: it
// walks the same fates through the rules and tells beforehand what must come of it.
#include <algorithm>
#include <deque>
#include <map>
#include <optional>

#include "tests/find/TransferPeer.h"

namespace velmora_test {
namespace {

using VELMORA::TransferEnd;

// What becomes of the n-th datagram of a direction: a pure function of the seed.
struct Weather {
    std::uint32_t seed = 0;
    int lossPercent = 0, repeatPercent = 0;
    std::uint64_t jitter = 0;  // µs beyond the usual delay
    bool fairOpening = true;   // nothing happens to the two questions

    std::vector<std::uint64_t> delays(bool toPeer, std::uint64_t n) const {
        std::uint64_t state = (std::uint64_t{seed} << 32) + n * 2 + (toPeer ? 1 : 0);
        const auto random = [&state] {  // splitmix64
            std::uint64_t z = state += 0x9e37'79b9'7f4a'7c15;
            z = (z ^ z >> 30) * 0xbf58'476d'1ce4'e5b9;
            z = (z ^ z >> 27) * 0x94d0'49bb'1331'11eb;
            return z ^ z >> 31;
        };
        const auto percent = [&] { return static_cast<int>(random() % 100); };
        const auto delay = [&] { return 50 + (jitter == 0 ? 0 : random() % jitter); };
        if (fairOpening && n < 2) return {50};
        std::vector<std::uint64_t> out;
        if (percent() >= lossPercent) out.push_back(delay());
        if (percent() < repeatPercent) out.push_back(delay());
        return out;
    }
};

struct Outcome {
    TransferEnd end = TransferEnd::complete;
    std::uint64_t bursts = 0, packets = 0, resends = 0, packetsResent = 0, limit = 0, duration = 0;
    std::uint64_t refusals = 0;  // "Retry Detect err"
    Bytes received;              // by the target
};

// Both sides in one, step by step, on a line of time of its own.
class Model {
public:
    Model(const Weather& weather, const TransferPeer::Geometry& geometry, Bytes data)
        : weather_(weather), geometry_(geometry), data_(std::move(data)) {}

    Outcome run() {
        out_.end = walk();
        out_.duration = now_;
        settle();
        for (const auto& [seq, bytes] : kept_) {
            if (seq < reached())
                out_.received.insert(out_.received.end(), bytes.begin(), bytes.end());
        }
        return out_;
    }

private:
    struct Message {
        int id = 0;
        std::uint64_t a = 0, b = 0;  // a channel or a seq; a seq, a checksum or a limit
        bool last = false;
        Bytes data{};
    };
    struct Event {
        bool toPeer = false;
        Message message;
    };
    struct Packet {
        std::uint64_t seq = 0;
        bool last = false;
        Bytes data{};
    };

    // ---- the line ----
    void post(bool toPeer, const Message& message) {
        std::uint64_t& n = toPeer ? hostSent_ : peerSent_;
        for (const std::uint64_t delay : weather_.delays(toPeer, n)) {
            events_.emplace(now_ + delay, Event{toPeer, message});
        }
        ++n;
    }
    // The next message at the host until `end`; the time is then that of its arrival, or `end`.
    std::optional<Message> hear(std::uint64_t end) {
        for (;;) {
            if (!inbox_.empty()) {
                Message message = std::move(inbox_.front());
                inbox_.pop_front();
                return message;
            }
            if (events_.empty() || events_.begin()->first > end) break;
            step();
        }
        now_ = std::max(now_, end);
        return std::nullopt;
    }
    void step() {  // one moment, with all that happens in it
        now_ = std::max(now_, events_.begin()->first);
        while (!events_.empty() && events_.begin()->first <= now_) {
            const Event event = events_.begin()->second;
            events_.erase(events_.begin());
            if (event.toPeer) {
                peer(event.message);
            } else {
                inbox_.push_back(event.message);
            }
        }
    }
    void settle() {
        while (!events_.empty()) step();
    }

    // ---- the target ----
    std::uint64_t reached() {
        while (kept_.count(run_) != 0) ++run_;
        return run_;
    }
    void peer(const Message& m) {
        if (m.id == 26) post(false, {27, m.a == 0 ? geometry_.channels : m.a, 0});
        if (m.id == 28) {
            kept_.emplace(m.a, m.data);
            const std::uint64_t n = reached();
            if (m.last) post(false, {29, 1, n == 0 ? 0 : n - 1});
        }
        if (m.id == 30) {
            Bytes all;
            for (std::uint64_t n = 0; n < reached(); ++n) {
                all.insert(all.end(), kept_[n].begin(), kept_[n].end());
            }
            post(false, {31, 1, slowCrc(all)});
        }
    }

    // ---- the host ----
    std::optional<Message> ask(const Message& request, int answer) {
        post(true, request);
        const std::uint64_t end = now_ + 100'000;
        for (;;) {
            auto message = hear(end);
            if (!message || message->id == answer) return message;
        }
    }
    TransferEnd walk() {
        const auto count = ask({26, 0, 0}, 27);
        if (!count) return TransferEnd::notOpened;
        if (count->a == 0) return TransferEnd::noSuchChannel;
        out_.limit = geometry_.burstLimit == 65535 ? ~0ull : geometry_.burstLimit;
        const auto channel = ask({26, 1, 0}, 27);
        if (!channel) return TransferEnd::notOpened;
        if (channel->a != 1) return TransferEnd::noSuchChannel;
        std::uint64_t at = 0, seq = 0;
        while (at < data_.size()) {
            for (std::uint64_t inBlock = 0;
                 inBlock < geometry_.blockPackets && at < data_.size();) {
                std::vector<Packet> burst;
                std::uint64_t bytes = 0;
                do {
                    const std::uint64_t n =
                        std::min<std::uint64_t>(geometry_.packetBytes, data_.size() - at);
                    const auto from = data_.begin() + static_cast<std::ptrdiff_t>(at);
                    burst.push_back(
                        {seq++, false, Bytes(from, from + static_cast<std::ptrdiff_t>(n))});
                    at += n;
                    bytes += n;
                    ++inBlock;
                } while (bytes < out_.limit && at < data_.size() &&
                         inBlock < geometry_.blockPackets && burst.size() < 1024);
                burst.back().last = true;
                out_.packets += burst.size();
                ++out_.bursts;
                if (!deliver(burst)) return TransferEnd::unheard;
            }
        }
        const auto end = ask({30, 1, slowCrc(data_)}, 31);
        const bool good = end && end->b == slowCrc(data_);
        return good ? TransferEnd::complete : TransferEnd::notClosed;
    }
    bool deliver(std::vector<Packet>& burst) {
        for (const Packet& packet : burst)
            post(true, {28, packet.seq, 0, packet.last, packet.data});
        for (int turn = 0;; ++turn) {
            if (acknowledged(burst.back().seq)) return true;
            while (hear(now_ + 10'000)) {
            }
            out_.limit -= out_.limit > 1000 ? 1000 : out_.limit > 1 ? 1 : 0;
            if (turn == 10) return false;
            ++out_.resends;
            for (Packet& packet : burst) {
                if (packet.seq < lastAck_ && !packet.last) continue;
                // What stands in the last eight bytes is wiped where some of them are filler.
                for (std::size_t i = packet.data.size() / 8 * 8; i < packet.data.size(); ++i) {
                    packet.data[i] = 0;
                }
                ++out_.packetsResent;
                post(true, {28, packet.seq, 0, packet.last, packet.data});
            }
        }
    }
    bool acknowledged(std::uint64_t last) {
        const std::uint64_t end = now_ + 100'000;
        for (;;) {
            const auto message = hear(end);
            if (!message) return false;
            if (message->id != 29) continue;
            lastAck_ = message->b;
            if (lastAck_ == last || lastAck_ == last + 1) return true;
            ++out_.refusals;
            return false;
        }
    }

    const Weather weather_;
    const TransferPeer::Geometry geometry_;
    const Bytes data_;
    std::uint64_t now_ = 0, hostSent_ = 0, peerSent_ = 0;
    std::multimap<std::uint64_t, Event> events_;
    std::deque<Message> inbox_;
    std::map<std::uint64_t, Bytes> kept_;
    std::uint64_t run_ = 0, lastAck_ = 0;
    Outcome out_;
};

class TransferLoss : public TransferTest {
protected:
    // One transfer through that weather, and the model's word on it. Gives how it ended.
    TransferEnd compare(const Weather& weather, const Bytes& data) {
        SCOPED_TRACE("seed " + std::to_string(weather.seed));
        peer.forget();
        Find& find = opened();
        std::uint64_t up = 0, down = 0;
        network.fate = [&](const Datagram& d) {
            Fate fate;
            for (const std::uint64_t delay : weather.delays(d.toPeer, d.toPeer ? up++ : down++)) {
                fate.push_back({delay, std::nullopt});
            }
            return fate;
        };
        bool good = false;
        const std::uint64_t took =
            duration([&] { good = find.Transfer(address, 0, data, 0, progress, figures); });
        network.time.advance(1'000'000);  // what is still on its way
        network.fate = nullptr;

        const Outcome expected = Model(weather, peer.geometry, data).run();
        EXPECT_EQ(figures.end, expected.end);
        EXPECT_EQ(good, expected.end == TransferEnd::complete);
        EXPECT_EQ(took, expected.duration);
        EXPECT_EQ(figures.bursts, expected.bursts);
        EXPECT_EQ(figures.packets, expected.packets);
        EXPECT_EQ(figures.resends, expected.resends);
        EXPECT_EQ(figures.packetsResent, expected.packetsResent);
        EXPECT_EQ(figures.burstLimit, expected.limit);
        EXPECT_EQ(peer.received(), expected.received);
        std::uint64_t refusals = 0;
        for (const std::string& line : logged(6)) {
            if (line.starts_with("Retry Detect err ")) ++refusals;
        }
        EXPECT_EQ(refusals, expected.refusals);
        EXPECT_EQ(log.has(3, "Transfer error 11"), expected.end == TransferEnd::unheard);
        EXPECT_EQ(log.has(3, "TransferFinish error "), expected.end == TransferEnd::notClosed);
        // Whatever the model thinks: true means that all arrived.
        EXPECT_TRUE(!good || peer.received() == data);
        return figures.end;
    }
    std::map<TransferEnd, int> compareMany(Weather weather, const Bytes& data, int times) {
        std::map<TransferEnd, int> ends;
        for (int turn = 0; turn < times && !HasFailure(); ++turn) {
            weather.seed = static_cast<std::uint32_t>(turn + 1);
            ++ends[compare(weather, data)];
        }
        return ends;
    }
    TransferLoss() { peer.geometry = {4, 2048, 256, 16, 64}; }
    const Bytes whole = pattern(10 * 1024);    // packets of 256 bytes, no filler anywhere
    const Bytes odd = pattern(10 * 1024 - 3);  // three bytes of filler in the last
};

TEST_F(TransferLoss, OfNothingSucceeds) {
    const auto ends = compareMany({.lossPercent = 0, .fairOpening = false}, odd, 3);
    EXPECT_EQ(ends.at(TransferEnd::complete), 3);
    EXPECT_EQ(figures.resends, 0u);
}

TEST_F(TransferLoss, OfOnePercentIsAsTheRulesSay) {
    auto ends = compareMany({.lossPercent = 1}, whole, 60);
    EXPECT_GT(ends[TransferEnd::complete], 45);
    ends = compareMany({.lossPercent = 1}, odd, 60);
    EXPECT_GT(ends[TransferEnd::complete], 45);
    EXPECT_GT(ends[TransferEnd::notClosed], 0);
}

TEST_F(TransferLoss, OfFivePercentIsAsTheRulesSay) {
    auto ends = compareMany({.lossPercent = 5}, whole, 60);
    EXPECT_GT(ends[TransferEnd::complete], 35);
    ends = compareMany({.lossPercent = 5}, odd, 60);
    EXPECT_GT(ends[TransferEnd::complete], 30);
    EXPECT_GT(ends[TransferEnd::notClosed], 2);
}

TEST_F(TransferLoss, OfTwentyPercentIsAsTheRulesSay) {
    auto ends = compareMany({.lossPercent = 20}, whole, 60);
    EXPECT_GT(ends[TransferEnd::complete], 15);
    EXPECT_GT(ends[TransferEnd::notClosed], 10) << "the end is asked for once";
    ends = compareMany({.lossPercent = 20}, odd, 60);
    EXPECT_GT(ends[TransferEnd::complete], 10);
}

TEST_F(TransferLoss, OfHalfOfAllIsAsTheRulesSay) {
    auto ends = compareMany({.lossPercent = 50}, pattern(2048), 100);
    EXPECT_GT(ends[TransferEnd::complete], 0);
    EXPECT_GT(ends[TransferEnd::unheard], 0) << "more than ten resends of one burst";
    EXPECT_GT(ends[TransferEnd::notClosed], 0);
    compareMany({.lossPercent = 50}, odd, 20);
}

TEST_F(TransferLoss, OfTheOpeningTooIsAsTheRulesSay) {
    for (const int percent : {1, 5, 20, 50}) {
        SCOPED_TRACE(percent);
        auto ends = compareMany({.lossPercent = percent, .fairOpening = false}, whole, 30);
        EXPECT_GT(ends[TransferEnd::notOpened], percent >= 20 ? 5 : -1);
    }
}

TEST_F(TransferLoss, OfBurstsWithoutALimitIsAsTheRulesSay) {
    peer.geometry = {4, 65535, 64, 300, 10};
    for (const int percent : {1, 5, 20}) {
        SCOPED_TRACE(percent);
        compareMany({.lossPercent = percent}, pattern(64 * 800 + 5), 8);
    }
}

TEST_F(TransferLoss, RepeatedDatagramsAreAsTheRulesSay) {
    for (const int percent : {5, 20, 100}) {
        SCOPED_TRACE(percent);
        compareMany({.repeatPercent = percent}, odd, 15);
        compareMany({.repeatPercent = percent, .fairOpening = false}, odd, 15);
    }
}

TEST_F(TransferLoss, ReorderedDatagramsAreAsTheRulesSay) {
    for (const std::uint64_t jitter : {40ull, 2'000ull, 8'000ull, 60'000ull}) {
        SCOPED_TRACE(jitter);
        compareMany({.jitter = jitter}, whole, 12);
        compareMany({.jitter = jitter}, odd, 12);
    }
}

TEST_F(TransferLoss, LostRepeatedAndReorderedAtOnceIsAsTheRulesSay) {
    for (const int percent : {1, 5, 20, 50}) {
        SCOPED_TRACE(percent);
        compareMany(
            {.lossPercent = percent, .repeatPercent = 10, .jitter = 30'000, .fairOpening = false},
            odd, 25);
        compareMany({.lossPercent = percent, .repeatPercent = 10, .jitter = 30'000}, whole, 25);
    }
}

}  // namespace
}  // namespace velmora_test
