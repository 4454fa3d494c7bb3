#include "fuzz/World.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace velmora_fuzz {
namespace {

constexpr int mostSayings = 8;  // in answer to one datagram

std::uint16_t wordAt(const Bytes& bytes, std::size_t at) {
    return at + 1 < bytes.size() ? static_cast<std::uint16_t>(bytes[at] | bytes[at + 1] << 8)
                                 : std::uint16_t{0};
}

// VELMORA_FUZZ_LOG=1 shows what an input made the system log.
bool isShown() {
    static const bool shown = std::getenv("VELMORA_FUZZ_LOG") != nullptr;
    return shown;
}

bool isMulticast(const IPAddress& address) {
    return address.address[0] == 0xff;
}

// One request is answered as another is.
std::uint16_t answerTo(const Bytes& request) {
    const std::uint16_t id = wordAt(request, 4);
    return id == 42 ? std::uint16_t{5} : static_cast<std::uint16_t>(id + 1);
}

}  // namespace

EveryLine::EveryLine(bool on)
    : levelBefore_(ZENNO::logLevel.exchange(on || isShown() ? 7 : -1)),
      sinkBefore_(ZENNO::logger.exchange(this)) {}

EveryLine::~EveryLine() {
    ZENNO::logger = sinkBefore_;
    ZENNO::logLevel = levelBefore_;
}

void EveryLine::deliver(ZENNO::LogRecord& record) noexcept {
    require(record.length >= ZENNO::LogRecord::headerLength);
    require(record.length < ZENNO::LogRecord::capacity);
    require(record.text[record.length] == '\0');
    if (isShown()) std::fprintf(stderr, "%s\n", record.text + ZENNO::LogRecord::headerLength);
}

Bytes message(std::uint16_t id, std::uint16_t flags, const Bytes& arg, const Bytes& payload) {
    const std::size_t n = std::min<std::size_t>(payload.size(), 0xfff8 - 16);
    const std::size_t filler = (8 - n % 8) % 8;
    Bytes out(16 + n + filler);
    const auto put = [&out](std::size_t at, std::size_t value) {
        out[at] = static_cast<std::uint8_t>(value);
        out[at + 1] = static_cast<std::uint8_t>(value >> 8);
    };
    put(0, 100);
    put(2, out.size() | filler);
    put(4, id);
    put(6, flags);
    std::copy_n(arg.begin(), std::min<std::size_t>(arg.size(), 8), out.begin() + 8);
    std::copy_n(payload.begin(), n, out.begin() + 16);
    return out;
}

World::World(Input& script) : script_(script) {
    network.fate = [this](const Datagram& datagram) {
        if (datagram.toPeer) onLeaving(datagram);
        return velmora_test::Fate{{network.delay, std::nullopt}};
    };
}

void World::mustEndIn(std::uint64_t micros) {
    limit_ = now() + micros;
    network.time.in(micros, [this, limit = limit_] {
        if (limit_ != limit) return;
        std::fprintf(stderr, "simulated time has run out\n");
        require(false);
    });
}

// Whoever is asked is there. Of those that a multicast asks, one at the least.
void World::onLeaving(const Datagram& datagram) {
    ++sent_;
    lastSent_ = datagram;
    const IPAddress& to = datagram.to;
    const IPAddress there = isMulticast(to) ? linkLocal(1, to.portNumber(), to.scope) : to;
    if (attached_.insert(there).second) network.attach(there, this);
    if (onSent) onSent(datagram);
}

void World::onDatagram(FakeNetwork&, const Datagram& request) {
    // It comes once for each of those that it reaches, and the script speaks for all of them.
    if (isMulticast(request.to)) {
        if (request.time == askedAll_.time && request.to == askedAll_.to) return;
        askedAll_ = request;
    }
    for (int i = 0; i < mostSayings && !script_.isEmpty() && say(request); ++i) {
    }
}

Bytes World::speech(unsigned form, const Bytes& request) {
    const auto payload = [this] { return script_.bytes(script_.byte()); };
    const std::uint16_t answer = answerTo(request);
    switch (form) {
        case 1: {
            const Bytes arg = script_.bytes(8);
            return message(answer, 1, arg, payload());
        }
        case 2: {
            const std::uint16_t first = wordAt(request, 8);
            Bytes arg{static_cast<std::uint8_t>(first), static_cast<std::uint8_t>(first >> 8)};
            for (const std::uint8_t byte : script_.bytes(6)) arg.push_back(byte);
            return message(answer, 1, arg, payload());
        }
        case 3: {
            const std::uint16_t flags = script_.word();
            const Bytes arg = script_.bytes(8);
            return message(answer, flags, arg, payload());
        }
        case 4: {
            const std::uint16_t id = script_.word(), flags = script_.word();
            const Bytes arg = script_.bytes(8);
            return message(id, flags, arg, payload());
        }
        case 5:
            return script_.bytes(script_.byte());
        case 6:
            return request;
        case 7: {
            const Bytes arg = script_.bytes(8);
            const std::uint8_t filling = script_.byte();
            return message(answer, 1, arg, Bytes(script_.word(), filling));
        }
        default:
            return {};
    }
}

bool World::say(const Datagram& request) {
    const std::uint8_t how = script_.byte();
    const IPAddress& asked = request.to;
    IPAddress from = isMulticast(asked) ? linkLocal(1, asked.portNumber(), asked.scope) : asked;
    switch (how >> 3 & 3) {
        case 1:
            from.setPortNumber(script_.word());
            break;
        case 2:
            from.address[15] = script_.byte();
            break;
        case 3:
            from.scope = script_.byte();
            break;
        default:
            break;
    }
    constexpr std::uint64_t units[] = {0, 1, 16, 1000};  // µs
    const std::uint64_t unit = units[how >> 5 & 3];
    const std::uint64_t delay = unit == 0 ? 0 : script_.word() * unit;
    Bytes data = speech(how & 7, request.data);
    if (!data.empty()) {
        ++said_;
        network.time.in(delay, [this, from, to = request.from, data = std::move(data)] {
            network.send(from, to, data);
        });
    }
    return (how & 0x80) != 0;
}

}  // namespace velmora_fuzz
