// Two streams of which one was cut out of the other.
#pragma once

#include <cstdint>
#include <string>

namespace qav::tool {

// By how many frames those of `a` have greater numbers than the same ones of `b`, bit for bit: above 0 where `b` begins
// later. 0 where some agree as they are numbered, where none are found, and where an input cannot be read twice.
int64_t findFrameShift(const std::string &a, const std::string &b);

}  // namespace qav::tool
