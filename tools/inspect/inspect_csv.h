// A frame of a stream as a line of a table.
#pragma once

#include <string>

#include "tools/inspect/inspect_frames.h"

namespace qav::tool {

std::string csvHead();
std::string csvLine(const std::string &file, const InspectedFrame &frame);

}  // namespace qav::tool
