// Network namespaces, as `ip netns` names them.
#pragma once

#include <netinet/in.h>

#include <string>

namespace velmora_bench {

// The calling process moves there; takes the right to. Throws std::runtime_error.
void enterSpace(const std::string& name);
// The first link-local address of this namespace, with its scope; throws where there is none.
sockaddr_in6 linkLocalAddress();

}  // namespace velmora_bench
