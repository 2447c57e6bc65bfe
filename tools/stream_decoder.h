// Decoding a stream from end to end, with what is lost in its place.
#pragma once

#include <qav.h>

#include <functional>
#include <memory>

#include "tools/mpeg_input.h"
#include "tools/stream_report.h"

namespace qav::tool {

// What happens to decoded PCM; each function may be left out.
struct PcmReceiver {
  std::function<void(const Place &)> at;           // of each frame, before what follows of it
  std::function<void(const FrameHeader &)> begin;  // a stretch of one format begins
  std::function<void(const int16_t *samples, size_t frames)> write;
  std::function<void(uint64_t frames)> silence;  // in place of lost frames
  std::function<void(const Finding &)> tell;     // of each finding, in the order of the stream
};

// Decode everything. Lost frames whose place is known become silence.
void decodeStream(MpegInput &input, StreamReport &report, const PcmReceiver &receiver);

}  // namespace qav::tool
