#include "tests/sync/Recording.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

namespace velmora_test {

namespace {

constexpr std::uint64_t fnvPrime = 0x100'0000'01b3;
constexpr std::uint64_t mostMarks = 40;
constexpr std::uint64_t fewestBetween = 16;

std::string hex(std::uint64_t value, int digits) {
    char text[20];
    std::snprintf(text, sizeof text, "%0*llx", digits, static_cast<unsigned long long>(value));
    return text;
}

void putNumber(std::string& out, std::uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out += static_cast<char>(value >> (8 * i));
}

std::string digestText(const TrackDigest& track) {
    std::string text = std::to_string(track.count) + " " + std::to_string(track.bytes) + " " +
                       hex(track.digest[0], 16) + " " + hex(track.digest[1], 16) + " " +
                       std::to_string(track.every);
    for (std::size_t i = 0; i < track.marks.size(); ++i) {
        text += i % 10 == 0 ? "\n   " : " ";
        text += hex(track.marks[i], 8);
    }
    return text + "\n";
}

TrackDigest readDigest(std::istream& in) {
    TrackDigest track;
    in >> std::dec >> track.count >> track.bytes >> std::hex >> track.digest[0] >>
        track.digest[1] >> std::dec >> track.every >> std::hex;
    for (std::uint64_t i = 0; track.every != 0 && i < track.count / track.every && in; ++i) {
        in >> track.marks.emplace_back();
    }
    return track;
}

std::string showDatagram(std::string_view item) {
    constexpr std::size_t timeBytes = 8, head = 8 + 16 + 2 + 4, header = 16;
    const auto number = [&](std::size_t at, std::size_t bytes) {
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < bytes && at + i < item.size(); ++i) {
            value |= std::uint64_t{static_cast<std::uint8_t>(item[at + i])} << (8 * i);
        }
        return value;
    };
    std::string text = "at " + std::to_string(number(0, timeBytes)) + " to port " +
                       std::to_string(number(timeBytes + 16, 2)) + ", words";
    for (std::size_t at = head; at < head + header; at += 2) text += " " + hex(number(at, 2), 4);
    std::uint64_t digest = 0;
    for (std::size_t i = head; i < item.size(); ++i) {
        digest = (digest ^ static_cast<std::uint8_t>(item[i])) * fnvPrime;
    }
    return text + ", " + std::to_string(item.size() - head) + " bytes " + hex(digest, 16);
}

// Level and text; the trace of packets is a line of raw bytes.
std::string showLine(std::string_view item) {
    const std::string level = std::to_string(static_cast<int>(item[0])) + " ";
    if (item.find('\0', 1) == std::string_view::npos) return level + std::string(item.substr(1));
    std::uint64_t digest = 0;
    for (const char c : item) digest = (digest ^ static_cast<std::uint8_t>(c)) * fnvPrime;
    return level + std::to_string(item.size() - 1) + " raw bytes " + hex(digest, 16);
}

}  // namespace

void Track::add(std::string item) {
    // The length belongs to it: two items are not one of both their bytes.
    std::string whole;
    putNumber(whole, item.size(), 4);
    whole += item;
    for (const char c : whole) {
        const auto byte = static_cast<std::uint8_t>(c);
        digest_[0] = (digest_[0] ^ byte) * fnvPrime;
        digest_[1] = (digest_[1] * fnvPrime) ^ byte;
    }
    bytes_ += item.size();
    running_.push_back(static_cast<std::uint32_t>(digest_[0] >> 32 ^ digest_[0]));
    items_.push_back(std::move(item));
}

std::string Track::shown(std::size_t first, std::size_t end) const {
    std::string text;
    for (std::size_t i = first; i < std::min(end, items_.size()); ++i) {
        text += "  " + std::to_string(i + 1) + " " + show_(items_[i]) + "\n";
    }
    return text;
}

TrackDigest Track::digest(std::uint64_t every) const {
    TrackDigest out{running_.size(), bytes_, digest_, every, {}};
    if (every == 0) {
        out.every = fewestBetween;
        while (running_.size() / out.every > mostMarks) out.every *= 2;
    }
    for (std::size_t i = out.every; i <= running_.size(); i += out.every) {
        out.marks.push_back(running_[i - 1]);
    }
    return out;
}

std::string Track::firstDifference(const TrackDigest& before) const {
    const TrackDigest now = digest(before.every);
    if (now == before) return {};
    const auto [mine, theirs] =
        std::mismatch(now.marks.begin(), now.marks.end(), before.marks.begin(), before.marks.end());
    const auto same = static_cast<std::size_t>(mine - now.marks.begin()) * now.every;
    std::string text = "the first difference lies in numbers " + std::to_string(same + 1) + " to " +
                       std::to_string(same + now.every) + " (" + std::to_string(before.count) +
                       " before, " + std::to_string(now.count) + " now); they are now\n";
    return text + shown(same, same + now.every);
}

Take::Take(int level) : logLevel(level), sent(showDatagram), said(showLine) {}

void Take::addDatagram(const Datagram& datagram) {
    std::string item;
    putNumber(item, datagram.time, 8);
    item.append(datagram.to.address.begin(), datagram.to.address.end());
    putNumber(item, datagram.to.portNumber(), 2);
    putNumber(item, datagram.to.scope, 4);
    item.append(datagram.data.begin(), datagram.data.end());
    sent.add(std::move(item));
}

void Take::addLine(int level, const std::string& text) {
    // The one line that changes with every release.
    if (text.starts_with("Velmora Sync Library ReleaseNo")) return;
    said.add(static_cast<char>(level) + text);
}

std::string recordingText(const std::string& name, const Take& take) {
    return name + "\n  sent " + digestText(take.sent.digest()) + "  said " +
           digestText(take.said.digest());
}

std::map<std::string, Recorded> readRecordings(const std::string& text) {
    std::map<std::string, Recorded> out;
    std::istringstream in(text);
    std::string name, word;
    while (in >> name) {
        Recorded recorded;
        if (in >> word && word == "sent") recorded.sent = readDigest(in);
        if (in >> word && word == "said") recorded.said = readDigest(in);
        out[name] = recorded;
    }
    return out;
}

}  // namespace velmora_test
