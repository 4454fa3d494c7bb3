// Finds as the commands need them, and how ADDRESS becomes the one target that is meant.
#pragma once

#include <cstdint>
#include <string>

#include "apps/velmora-find/Context.h"
#include "apps/velmora-find/ExitCode.h"
#include "apps/velmora-find/Links.h"
#include "find/Find.h"

namespace velmora_find {

// The driver's own search: its product, the sink versions that it knows.
VELMORA::FindSetting asTheDriver();
// Every product, every version.
VELMORA::FindSetting everybody();

// An exit code for a question that was not accepted, by its AckResult.
ExitCode codeOf(int result);

inline constexpr int mostTries = 3;  // of one question, while nothing at all comes back

struct TypedAddress;

// An open Find on one interface, or on all for an empty name; the Links are read at the same time.
class Asking {
public:
    Asking(Context& context, const VELMORA::FindSetting& setting,
           const std::string& interface = {});  // throws Stop
    VELMORA::Find& find() { return find_; }
    const Links& links() const { return links_; }
    ZENNO::Environment& environment() { return environment_; }

    // The target at an address, or of a name. It has answered when this returns; throws Stop
    // otherwise.
    ZENNO::IPAddress target(const std::string& addressOrName);

    // A question that may be asked twice, up to three times while the target is silent. Gives an
    // AckResult; `answer` as VELMORA::sendAck has it.
    template <class Request>
    int ask(const ZENNO::IPAddress& target, const Request& request, ZENNO::Bytes& answer) {
        return ask(target, write(request), Request::answer, answer);
    }

private:
    int ask(const ZENNO::IPAddress& target, const ZENNO::Bytes& message, std::uint32_t answerId,
            ZENNO::Bytes& answer);
    ZENNO::IPAddress byAddress(const TypedAddress& typed, const std::string& text);
    ZENNO::IPAddress byName(const std::string& name);

    ZENNO::Environment& environment_;
    Links links_;
    VELMORA::Find find_;
};

// The eight characters of a product; "0x..." where they are no plain text, empty for 0.
std::string productText(std::uint64_t product);

}  // namespace velmora_find
