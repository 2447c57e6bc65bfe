// Decoding a stream from end to end, with what is lost in its place.
#pragma once

#include <functional>

#include "tools/stream/mpeg_input.h"
#include "tools/stream/stream_report.h"

namespace qav::tool {

// What happens to decoded PCM; each function may be left out.
struct PcmReceiver {
  std::function<void(const Place &)> at = nullptr;           // of each frame, before what follows of it
  std::function<void(const FrameHeader &)> begin = nullptr;  // a stretch of one format begins
  std::function<void(const int16_t *samples, size_t frames)> write = nullptr;  // of one frame or of several
  std::function<int16_t *()> next = nullptr;  // where to decode a frame of the stretch that has begun; null: anywhere
  std::function<void(uint64_t frames)> silence = nullptr;  // in place of lost frames
  std::function<void(const Finding &)> tell = nullptr;     // of each finding, in the order of the stream
};

// Decode everything. Lost frames whose place is known become silence. The receiver is called on this thread, whatever the
// number of threads that decode.
void decodeStream(MpegInput &input, StreamReport &report, const PcmReceiver &receiver, unsigned threads = 1);

}  // namespace qav::tool
