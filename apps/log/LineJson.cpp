#include "apps/log/LineJson.h"

#include "apps/log/Moment.h"
#include "apps/log/Severity.h"
#include "base/Printable.h"

namespace velmora_log {
namespace {

std::string hexText(std::string_view bytes) {
    constexpr char digits[] = "0123456789abcdef";
    std::string out;
    for (const char c : bytes) {
        const auto byte = static_cast<std::uint8_t>(c);
        out += digits[byte >> 4];
        out += digits[byte & 15];
    }
    return out;
}

int digitOf(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

std::optional<std::string> readHex(std::string_view text) {
    std::string out;
    if (text.size() % 2 != 0) return std::nullopt;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        const int high = digitOf(text[i]), low = digitOf(text[i + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        out += static_cast<char>(high * 16 + low);
    }
    return out;
}

void putText(Json& json, const char* name, const std::string& text) {
    json[name] = ZENNO::printable(text);
    if (json[name] != text) json[std::string(name) + "Bytes"] = hexText(text);
}

const std::string* textOf(const Json& json, const std::string& name) {
    const auto at = json.find(name);
    return at != json.end() ? at->get_ptr<const std::string*>() : nullptr;
}

// Nothing where it is not as putText wrote it.
std::optional<std::string> takeText(const Json& json, const std::string& name) {
    if (const std::string* bytes = textOf(json, name + "Bytes")) return readHex(*bytes);
    if (const std::string* text = textOf(json, name)) return *text;
    return json.contains(name) ? std::nullopt : std::optional(std::string());
}

// False where it is there and no whole number from 0 to `most`.
bool takeNumber(const Json& json, const char* name, std::uint64_t most,
                std::optional<std::uint64_t>& value) {
    const auto at = json.find(name);
    if (at == json.end()) return true;
    if (!at->is_number_unsigned() || at->get<std::uint64_t>() > most) return false;
    value = at->get<std::uint64_t>();
    return true;
}

bool takeTrace(const Json& json, std::vector<SentPacket>& trace) {
    const auto at = json.find("trace");
    if (at == json.end()) return true;
    if (!at->is_array() || at->empty() || at->size() > tracePairs) return false;
    for (const Json& pair : *at) {
        if (!pair.is_array() || pair.size() != 2) return false;
        for (const Json& number : pair) {
            if (!number.is_number_unsigned() || number.get<std::uint64_t>() > 0xffff'ffff) {
                return false;
            }
        }
        trace.push_back({pair[0].get<std::uint32_t>(), pair[1].get<std::uint32_t>()});
    }
    return true;
}

}  // namespace

Json lineJson(const Line& line) {
    const Message& message = line.message;
    Json json = {{"event", "line"}};
    if (line.heardMicros) json["heard"] = isoText(*line.heardMicros);
    if (line.port != 0) json["port"] = line.port;
    if (message.priority) {
        json["facility"] = *message.priority / 8;
        json["severity"] = *message.severity();
        json["level"] = severityName(*message.severity());
    }
    if (message.stamp) json["time"] = stampText(*message.stamp);
    if (!message.host.empty()) putText(json, "host", message.host);
    if (message.isTrace()) {
        Json& trace = json["trace"] = Json::array();
        for (const SentPacket& packet : message.trace) {
            trace.push_back(Json::array({packet.micros, packet.wireBytes}));
        }
    } else {
        putText(json, "text", message.text);
    }
    return json;
}

std::optional<Line> lineOf(const Json& json) {
    if (!json.is_object()) return std::nullopt;
    const std::string* event = textOf(json, "event");
    if (event == nullptr || *event != "line") return std::nullopt;
    Line line;
    std::optional<std::uint64_t> port, facility, severity;
    if (!takeNumber(json, "port", 65535, port) || !takeNumber(json, "facility", 31, facility) ||
        !takeNumber(json, "severity", 7, severity) || !takeTrace(json, line.message.trace)) {
        return std::nullopt;
    }
    if (facility.has_value() != severity.has_value()) return std::nullopt;
    if (port) line.port = static_cast<std::uint16_t>(*port);
    if (facility) line.message.priority = static_cast<std::uint8_t>(*facility * 8 + *severity);
    if (json.contains("heard")) {
        const std::string* heard = textOf(json, "heard");
        line.heardMicros = heard != nullptr ? readIso(*heard) : std::nullopt;
        if (!line.heardMicros) return std::nullopt;
    }
    if (json.contains("time")) {
        const std::string* time = textOf(json, "time");
        line.message.stamp = time != nullptr ? readStamp(*time) : std::nullopt;
        if (!line.message.stamp) return std::nullopt;
    }
    auto host = takeText(json, "host"), text = takeText(json, "text");
    if (!host || !text) return std::nullopt;
    line.message.host = std::move(*host);
    if (!line.message.isTrace()) line.message.text = std::move(*text);
    return line;
}

}  // namespace velmora_log
