// How fast are the loops that every byte passes?
//
// In GB/s of what they write, for the payload of a packet (1440 bytes, in the first cache) and for
// a block of 512 frames; the limit is memcpy of as many bytes. The ratio is one of times. The last
// row sets the conversions against the system call that carries their bytes.
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstring>

#include "base/BufferCS.h"
#include "bench/Context.h"
#include "bench/Micro.h"
#include "bench/Receiver.h"
#include "driver/Interleave.h"
#include "sync/Convert.h"
#include "sync/Supply.h"

namespace velmora_bench {
namespace {

using VELMORA::CopyStream;
using VELMORA::SinkConfig;
using ZENNO::Bytes;

constexpr std::size_t packetBytes = 1440, channels = 8, blockFrames = 512;
constexpr double allowedShare = 0.04;  // of the sendto

struct Conversion {
    const char* name;
    CopyStream run;
};
constexpr Conversion conversions[] = {
    {"convertCopy", VELMORA::convertCopy},
    {"convertInvert", VELMORA::convertInvert},
    {"convertSwap", VELMORA::convertSwap},
    {"convertSwapInvert", VELMORA::convertSwapInvert},
    {"convertReverse32", VELMORA::convertReverse32},
    {"convertReverse32Invert", VELMORA::convertReverse32Invert},
    {"convertReverseBytes", VELMORA::convertReverseBytes},
    {"convertReverseBytesInvert", VELMORA::convertReverseBytesInvert},
};

// The nine pairs of formats, as the driver chooses between them.
const InterleaveFormat interleaves[] = {
    {1, false, SinkConfig::pcm8, false, SinkConfig(SinkConfig::pcm8)},
    {2, false, SinkConfig::pcm16, false, SinkConfig(SinkConfig::pcm16)},
    {3, false, SinkConfig::pcm24, false, SinkConfig(SinkConfig::pcm24)},
    {4, false, SinkConfig::pcm32, false, SinkConfig(SinkConfig::pcm32)},
    {8, false, SinkConfig::pcm64, false, SinkConfig(SinkConfig::pcm64)},
    {4, true, SinkConfig::pcm16, false, SinkConfig(SinkConfig::pcm16)},
    {4, true, SinkConfig::pcm24, false, SinkConfig(SinkConfig::pcm24)},
    {4, true, SinkConfig::pcm64, false, SinkConfig(SinkConfig::pcm64)},
    {4, false, 0, true, SinkConfig(SinkConfig::dsdMsbBig)},
};

class Silent final : public VELMORA::AudioSource {
public:
    bool getNewStream(VELMORA::StreamRef&) override { return false; }
    bool isPlaying() const noexcept override { return false; }
    bool isDisconnecting() const noexcept override { return false; }
};

// What is measured, with the memory that it works on.
class Bench {
public:
    explicit Bench(const std::string& space) : receiver_(space) {
        for (Bytes& bytes : from_) bytes.assign(blockFrames * channels * 8, 0x5a);
        to_.resize(blockFrames * channels * 8);
        for (std::size_t c = 0; c < channels; ++c) halves_[c] = from_[c].data();
        socket_ = ::socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0);

        for (const Conversion& c : conversions) {
            addSizes(c.name, 4, [this, run = c.run](std::size_t bytes) {
                run(to_.data(), from_[0].data(), bytes);
            });
        }
        for (const InterleaveFormat& format : interleaves) {
            const Interleave& row = chooseInterleave(format);
            const std::string name = "interleave " + std::to_string(row.sourceBytes) + " to " +
                                     std::to_string(row.destinationBytes) +
                                     (format.dsdMode ? ", DSD" : "");
            addSizes(name, row.destinationBytes, [this, row](std::size_t bytes) {
                row.run(to_.data(), halves_.data(), channels,
                        bytes / (row.destinationBytes * channels));
            });
        }
        addSizes("silence", 4, [this](std::size_t bytes) {
            supply_.fill({to_.data(), bytes}, drain_, silent_, VELMORA::convertCopy, 0);
        });
        pieces.push_back({"sendto", packetBytes, [this] {
                              const sockaddr_in6& to = receiver_.address();
                              ::sendto(socket_, from_[0].data(), packetBytes + 16, 0,
                                       reinterpret_cast<const sockaddr*>(&to), sizeof to);
                          }});
    }
    ~Bench() { ::close(socket_); }
    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;

    std::vector<Piece> pieces;  // "NAME", "NAME: memcpy" ..., and "sendto"

private:
    template <class Run>
    void addSizes(const std::string& name, std::size_t sampleBytes, Run run) {
        const std::size_t frame = channels * sampleBytes;
        addPair(name + ", packet", packetBytes / frame * frame, run);
        addPair(name + ", block", blockFrames * frame, run);
    }
    template <class Run>
    void addPair(const std::string& name, std::size_t bytes, Run run) {
        pieces.push_back({name, bytes, [this, run, bytes] {
                              run(bytes);
                              keep(to_.data());
                          }});
        pieces.push_back({name + ": memcpy", bytes, [this, bytes] {
                              std::memcpy(to_.data(), from_[0].data(), bytes);
                              keep(to_.data());
                          }});
    }

    Receiver receiver_;
    int socket_ = -1;
    std::array<Bytes, channels> from_;
    std::array<const std::uint8_t*, channels> halves_{};
    Bytes to_;
    VELMORA::Supply supply_;
    VELMORA::Drain drain_;
    Silent silent_;
};

using Nanos = std::map<std::string, std::vector<double>>;

Figure throughput(const Nanos& nanos, const Piece& piece, const char* column) {
    const std::vector<double>&ours = nanos.at(piece.name),
          &limit = nanos.at(piece.name + ": memcpy");
    Pairs pairs;
    const auto bytes = static_cast<double>(piece.bytes);
    for (std::size_t i = 0; i < ours.size(); ++i) pairs.addRates(bytes / ours[i], bytes / limit[i]);
    return pairs.figure(column);
}

Row shareRow(const Nanos& nanos, const std::string& path) {
    const std::vector<double>& sends = nanos.at("sendto");
    Pairs all, dearest;
    std::vector<std::vector<double>> each(std::size(conversions));
    for (std::size_t i = 0; i < sends.size(); ++i) {
        double sum = 0, most = 0;
        for (std::size_t c = 0; c < std::size(conversions); ++c) {
            const double one = nanos.at(std::string(conversions[c].name) + ", packet")[i];
            each[c].push_back(one);
            sum += one;
            most = std::max(most, one);
        }
        all.add(sum, sends[i] * static_cast<double>(std::size(conversions)));
        dearest.add(most, sends[i]);
    }
    Row row{"pieces",
            "conversions beside sendto",
            "ns",
            {all.figure("together", allowedShare), dearest.figure("dearest", allowedShare)},
            "processor time of the eight conversions, each over 1440 bytes, beside that of the "
            "eight sendto calls that carry those bytes " +
                path + "; then the dearest of them beside its one call"};
    for (std::size_t c = 0; c < std::size(conversions); ++c) {
        row.figures[0].beside.emplace_back(conversions[c].name + 7, median(each[c]));
    }
    return row;
}

}  // namespace

std::vector<Row> benchPieces(Context& context) {
    Bench bench(context.space);
    const Nanos nanos = measurePieces(bench.pieces, context.rounds, [&](int round) {
        context.progress.round(round, context.rounds);
    });
    std::vector<Row> rows;
    for (std::size_t i = 0; i + 1 < bench.pieces.size(); i += 4) {  // packet, memcpy, block, memcpy
        const Piece &packet = bench.pieces[i], &block = bench.pieces[i + 2];
        rows.push_back({"pieces",
                        packet.name.substr(0, packet.name.find(", packet")),
                        "GB/s",
                        {throughput(nanos, packet, "packet"), throughput(nanos, block, "block")},
                        "bytes written, over and over the same memory: 1440 bytes, and 512 frames "
                        "of 8 channels; beside memcpy of as many"});
    }
    rows.push_back(shareRow(nanos, context.path()));
    return rows;
}

}  // namespace velmora_bench
