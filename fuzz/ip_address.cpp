// The text forms of an address. The printed form leaves a lone zero group's neighbour out, so an
// address need not come back from its text; but the text always parses, and prints as itself again.
#include "base/IPAddress.h"

#include <algorithm>

#include "fuzz/Fuzz.h"

using ZENNO::IPAddress;

namespace {

// Any 16 bytes are an address, and any two more a port.
void tryBytes(const std::uint8_t* data) {
    IPAddress a;
    std::copy_n(data, 16, a.address.begin());
    std::copy_n(data + 16, 2, a.port.begin());
    std::string printed, again;
    a.toTextWithPort(printed);
    IPAddress b;
    require(b.parseV6WithPort(printed) && b.port == a.port);
    b.toTextWithPort(again);
    require(again == printed);

    IPAddress built;
    for (int i = 0; i < 8; ++i) built.setWord(i, a.word(i));
    built.setPortNumber(a.portNumber());
    require(built == a);
    std::uint16_t groups[8];
    built.copyTo(groups);
    built = {};
    built.copyFrom(groups);
    built.setPortRaw(a.portRaw());
    require(built == a && !(built < a) && !(a < built));
    built.setV4Raw(a.v4Raw());
    require(built.v4Raw() == a.v4Raw() && built.port == a.port);

    IPAddress scoped = a;
    scoped.scope = 1;
    require(a < scoped);
    require(a.isLoopback() == (a.address == IPAddress::loopbackV6().address));
    require(a.linkCode() == (a.isLinkLocal() ? 0xfe01 : 0xfe00));
    require(!a.isNone() || printed == "::,0");
}

}  // namespace

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
    if (size >= 18) tryBytes(data);
    IPAddress c;
    if (c.parsePort(text)) {
        std::string printed;
        c.portText(printed);
        IPAddress back;
        require(back.parsePort(printed) && back.port == c.port);
    }
    return 0;
}
