// Decoding one stream on several threads.
//
// The stream is cut into stretches of some hundred frames, each decoded by itself. What a decoder carries from frame to
// frame is the history of its synthesis filterbank, 15 blocks of 32 samples a channel: it is all there once one frame of
// Layer II or two of Layer I have been decoded. So each stretch begins with frames of the one before, decoded for their
// effect alone.
//
// Frames that the decoder refuses advance that history partly or not at all, and do so alike in every decoder. Where too
// many of the frames before a stretch are of that kind, the stretch is decoded in its turn, by the decoder of the one
// before.
#pragma once

#include <functional>

#include "tools/stream/mpeg_input.h"

namespace qav::tool {

// Takes the stream event by event, in its order and on the calling thread.
struct TakeDecoded {
  // Each event as the walker gave it, those of frames with their samples, interleaved; null when the frame was refused.
  // The samples of consecutive frames may lie one behind the other.
  std::function<void(const Event &event, const int16_t *samples)> take;
  std::function<void()> settle;  // the samples taken until now are about to be lost
};

// Decode everything on up to `threads` threads, this one included, to the same samples whatever their number. Throws what
// the input and `take` throw, when everything before has been taken.
void decodeStretches(MpegInput &input, unsigned threads, const TakeDecoded &take);

}  // namespace qav::tool
