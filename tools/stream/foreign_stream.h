// MPEG audio that this tool does not decode, recognised so that it can be named: Layer III, and free format.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qav::tool {

// What a run of at least three frames that starts at `data` is ("MPEG-1 Layer III", "free-format MPEG-1 Layer II"), or
// null. Where the input ends after the visible bytes (`isEnd`), a frame that ends there closes a shorter run.
const char *foreignStreamAt(const uint8_t *data, size_t visible, bool isEnd);

}  // namespace qav::tool
