// What a scripted stream shows to the world: every datagram that it sends, with its time and its
// destination, and every log line up to level 6. A recording keeps their digests, so that work on
// the stream's speed can be shown to have changed nothing.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/FakeNetwork.h"

namespace velmora_test {

// One kind of what is shown, as it is kept.
struct TrackDigest {
    std::uint64_t count = 0, bytes = 0;
    std::array<std::uint64_t, 2> digest{};  // over all of it: FNV-1a and FNV-1
    std::uint64_t every = 0;                // items between two marks, a power of two
    std::vector<std::uint32_t> marks;       // the running digest, folded to 32 bits

    friend bool operator==(const TrackDigest&, const TrackDigest&) = default;
};

// The same, as it happens.
class Track {
public:
    using Show = std::string (*)(std::string_view item);

    explicit Track(Show show) : show_(show) {}
    void add(std::string item);
    std::string shown(std::size_t first, std::size_t end) const;  // a line an item
    std::size_t count() const noexcept { return items_.size(); }
    // With as many marks as are useful, or with those that an older digest has.
    TrackDigest digest(std::uint64_t every = 0) const;
    // In words: which items hold the first difference, and what they are now. Empty where all is
    // as it was.
    std::string firstDifference(const TrackDigest& before) const;

private:
    Show show_;
    std::uint64_t bytes_ = 0;
    std::array<std::uint64_t, 2> digest_{0xcbf2'9ce4'8422'2325, 0xcbf2'9ce4'8422'2325};
    std::vector<std::uint32_t> running_;  // behind each item
    std::vector<std::string> items_;
};

// What a script is given, to be filled by the stages that it builds.
struct Take {
    explicit Take(int level);
    void addDatagram(const Datagram& datagram);
    void addLine(int level, const std::string& text);

    int logLevel;
    Track sent, said;
};

struct Recorded {
    TrackDigest sent, said;
};

// The kept text: a name, "sent" and its digest, "said" and its digest, and so on.
std::string recordingText(const std::string& name, const Take& take);
std::map<std::string, Recorded> readRecordings(const std::string& text);

}  // namespace velmora_test
