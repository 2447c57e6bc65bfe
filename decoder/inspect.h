// The fields of a frame that has been read, as include/qav_inspect.h hands them out.
#pragma once

#include "decoder/sample_codes.h"
#include "decoder/side_info.h"
#include "include/qav_inspect.h"

namespace qav {

// A frame of which nothing else is known yet: its header is there already, all else is 0.
void describeHeader(uint32_t frameBytes, NEB_InspectFrame &frame);
// What stands before the samples, `bits` of them, header not counted.
void describeSideInfo(const CheckWords &check, const SideInfo &side, uint32_t bits, NEB_InspectFrame &frame);
// `wanted` may be null; otherwise the codes have their words.
void describeSamples(const FrameCodes &codes, NEB_InspectFrame &frame, NEB_InspectCodes *wanted);

}  // namespace qav
