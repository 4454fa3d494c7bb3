// The text forms of an address. The printed form leaves a lone zero group's neighbour out, so an
// address need not come back from its text; but the text always parses, and prints as itself again.
#include "base/IPAddress.h"

#include "fuzz/Fuzz.h"

using ZENNO::IPAddress;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    IPAddress a;
    if (a.parseV6(text) || a.parseV6WithPort(text)) {
        std::string printed, again;
        a.toTextWithPort(printed);
        IPAddress b;
        require(b.parseV6WithPort(printed) && b.port == a.port);
        b.toTextWithPort(again);
        require(again == printed);
    }
    IPAddress v4;
    if (v4.parseV4WithPort(text)) {
        std::string printed;
        v4.toTextV4(printed);
        IPAddress back;
        require(back.parseV4WithPort(printed) && back.v4Raw() == v4.v4Raw());
    }
    IPAddress c;
    if (c.parsePort(text)) {
        std::string printed;
        c.portText(printed);
        IPAddress back;
        require(back.parsePort(printed) && back.port == c.port);
    }
    return 0;
}
