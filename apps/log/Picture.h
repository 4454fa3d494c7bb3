// The figures as a picture: lateness over time, and how often each lateness came.
#pragma once

#include <string>

#include "apps/log/Figures.h"

namespace velmora_log {

std::string pictureOf(const Figures& figures);  // an SVG file's text

}  // namespace velmora_log
