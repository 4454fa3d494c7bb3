// A line as people read it. No byte of it reaches a terminal unless it is printable.
#pragma once

#include <string>

#include "apps/log/Message.h"
#include "apps/log/Moment.h"

namespace velmora_log {

struct TextManner {
    bool colours = false;
    int program = 0;  // of several that were heard, from 1; 0: there is one alone
};

//   17:02:09.412  warning  over time 1381 291 1381 10
//   17:02:09.412  warning  [2] over time ...      of the second program that was heard
//   Mar 05 17:02:09  ...                          where nobody noted when it was heard
//   17:02:09.412 (says Mar 05 16:58:00)  ...      where both are known and lie apart
//   17:02:09.412  info     packet trace: 51 packets in 50.1 ms, 22542 bytes
std::string lineText(const Line& line, const Zone& zone, const TextManner& manner);

}  // namespace velmora_log
