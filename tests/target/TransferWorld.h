// A target that takes transfers into memory, and a host that sends them by hand.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/target/TargetWorld.h"
#include "wire/Crc16.h"

namespace velmora_test {

// What all transfers have left behind; outlives them.
struct Shelf {
    std::vector<Bytes> whole;
    int open = 0, discarded = 0;  // items that hold bytes, and those that were thrown away
    std::string failAppend, failFinish;
};

class ShelfItem final : public velmora_target::InboxItem {
public:
    explicit ShelfItem(Shelf& shelf) : shelf_(shelf) {}
    ~ShelfItem() override { discard(); }
    std::string append(VELMORA::wire::ConstBytes data) override {
        if (!shelf_.failAppend.empty()) return shelf_.failAppend;
        if (!std::exchange(open_, true)) ++shelf_.open;
        bytes_.insert(bytes_.end(), data.begin(), data.end());
        return {};
    }
    std::string finish() override {
        if (!shelf_.failFinish.empty()) return shelf_.failFinish;
        if (std::exchange(open_, false)) --shelf_.open;
        shelf_.whole.push_back(bytes_);
        return {};
    }
    void discard() override {
        if (!std::exchange(open_, false)) return;
        --shelf_.open;
        ++shelf_.discarded;
    }
    std::string where() const override { return "the shelf"; }

private:
    Shelf& shelf_;
    Bytes bytes_;
    bool open_ = false;
};

// Channel 0 as the protocol's example has it but for its size: packets of 8 bytes, 4 a block, 3
// blocks, so 96 bytes. Channel 1: one packet of 1000 bytes a block, without end.
inline velmora_target::TargetSettings transferSettings() {
    auto settings = plainSettings();
    settings.channels = {{8, 4, 3}, {1000, 1, 65536}};
    return settings;
}

inline Bytes numbered(std::size_t count) {
    Bytes bytes;
    for (std::size_t i = 0; i < count; ++i) bytes.push_back(static_cast<std::uint8_t>(i + 1));
    return bytes;
}

class TransferWorld {
public:
    explicit TransferWorld(velmora_target::TargetSettings settings = transferSettings())
        : world(std::move(settings),
                {{}, {}, [this](std::uint16_t) { return std::make_unique<ShelfItem>(shelf); }}) {}

    Shelf shelf;
    TargetWorld world;

    bool begin(std::uint16_t number = 1) { return begin(number, world.host); }
    bool begin(std::uint16_t number, const IPAddress& host) {
        const Bytes bytes =
            world.ask(write(VELMORA::wire::TRANSFER_REQ{number}), controlPort, host);
        return bytes.size() >= 16 && (bytes[6] & 1) != 0;
    }
    // A packet as an honest host of channel `number` numbers it; the answer, if there is one.
    Bytes packet(std::uint64_t place, const Bytes& data, bool last = false,
                 std::uint16_t number = 1) {
        const std::uint64_t block = number == 1 ? 4 : 1;
        return raw(static_cast<std::uint16_t>(number | (last ? 0x8000 : 0)),
                   static_cast<std::uint16_t>(place), static_cast<std::uint16_t>(place % block),
                   static_cast<std::uint16_t>(place / block), data);
    }
    Bytes raw(std::uint16_t channel, std::uint16_t seq, std::uint16_t index, std::uint16_t block,
              const Bytes& data) {
        return world.ask(
            VELMORA::wire::write(VELMORA::wire::TRANSFER_DATA{channel, seq, index, block}, data),
            controlPort);
    }
    // The number that was acknowledged; -1 for a refusal, nothing for silence.
    static std::optional<int> acknowledged(const Bytes& answer) {
        const auto view = VELMORA::wire::readPacket(answer);
        if (!view || view->id() != 29) return std::nullopt;
        return view->accepted() ? view->arg16(10) : -1;
    }
    struct End {
        bool accepted = false;
        std::uint16_t crc = 0, status = 0;
        bool operator==(const End&) const = default;
    };
    End end(std::uint16_t crc, std::uint16_t number = 1, std::uint16_t status = 65535) {
        return end(crc, number, status, world.host);
    }
    End end(std::uint16_t crc, std::uint16_t number, std::uint16_t status, const IPAddress& host) {
        const Bytes bytes = world.ask(write(VELMORA::wire::TRANSFEREND_REQ{number, crc, status}),
                                      controlPort, host);
        const auto view = VELMORA::wire::readPacket(bytes);
        if (!view) return {};
        return {view->accepted(), view->arg16(10), view->arg16(12)};
    }
    const std::vector<std::string>& lines() const { return world.mail.lines; }
};

}  // namespace velmora_test
