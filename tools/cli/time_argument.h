// Points in time as a user writes them.
#pragma once

#include <string>

namespace qav::tool {

// The seconds that "90", "90.5", "1:30" or "1:02:03.456" stand for: seconds, minutes and seconds, or hours, minutes and
// seconds. Throws Failure (usage) for anything else; `option` is what it was given to.
double parseTime(const std::string &option, const std::string &text);

}  // namespace qav::tool
