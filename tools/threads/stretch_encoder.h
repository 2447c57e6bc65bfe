// Encoding one stream on several threads.
//
// The stream is cut into stretches of some hundred frames, which several encoders take in turn. What an encoder carries
// from frame to frame is the last samples under the filterbank and under the model's windows, the model's last two
// spectra, and the accumulator that decides which frames are one byte longer. The samples are replaced within one
// frame, the spectra within two, the rounding of their phases, which hangs on the spectra before, within three; so each
// stretch begins with three frames of the one before, whose result is thrown away. The accumulator cannot be set, but
// padding repeats: at 44100 Hz a frame's mean length is a whole number of 49ths of a byte, at the other rates of bytes,
// so that an encoder is in step with the stream wherever it has encoded as many frames as the stream has before that
// place, but for multiples of 49. Each stretch ends where the next one's encoder is in step.
//
// (The encoder counts in double precision. Its error, at most 2^-43 of a byte a frame, would have to grow to a 49th
// before any frame is padded differently; that takes more than a hundred years of audio.)
#pragma once

#include <cstdint>
#include <functional>

#include "tools/pcm/layer2_format.h"

namespace qav::tool {

// Gives the samples of the next frame, 1152 sample frames; false: the stream has ended.
using NextFrame = std::function<bool(int16_t *samples)>;

// Takes the samples of a frame and the frame, in the order of the stream.
using TakeEncoded = std::function<void(const int16_t *samples, const uint8_t *frame, uint32_t bytes)>;

// Encode everything on up to `threads` threads, this one included, to the same bytes whatever their number. `next` and
// `take` are called on this thread. Throws what they throw, when all frames before have been taken.
void encodeStretches(const StreamFormat &format, const StreamRequest &request, unsigned threads, const NextFrame &next,
                     const TakeEncoded &take);

}  // namespace qav::tool
