// The target's own log, as far as hosts have asked to see it.
#pragma once

#include <string>
#include <vector>

#include "target/Mail.h"

namespace velmora_target {

class LogChannel {
public:
    // A LOG_REQ: its sender gets lines from now on, or no more. Gives the answer.
    ZENNO::Bytes onRequest(const ZENNO::IPAddress& from, bool wanted);
    // The line to every reader, from `localPort`.
    void tell(const std::string& line, std::uint16_t localPort, Mail& out) const;

    static constexpr std::size_t mostReaders = 8;  // the one that asked first has to give way

private:
    std::vector<ZENNO::IPAddress> readers_;
};

}  // namespace velmora_target
