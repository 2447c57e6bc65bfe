// The converter's record and its paths. The functions that callers see are in the public header.
#pragma once

#include <cstdint>

#include "converter/low_pass.h"
#include "include/qav.h"

namespace qav {

enum class Mode : uint32_t { Encode, Decode, Resample };

enum class State : uint32_t {
  NotDetected,
  Detected,
  Running,  // decoding: a frame header was accepted; encoding: a block was encoded
  Ended,    // decoding: by a block of no bytes; encoding: by a short block
};

// Where the encoder's options lie in `QAV_Handle::options`.
enum Option : uint32_t { kEmphasis, kCopyright, kOriginal, kErrorProtection, kByteSwap, kOptions };

}  // namespace qav

struct QAV_Handle {
  // owned; built by detection, null where the mode does without
  EncoderSession *encoder;
  DecoderSession *decoder;
  ByteFifo *inputFifo;         // what the caller has fed and no frame has used
  ByteFifo *resampledFifo;     // encoding with a change of rate: PCM at the stream's rate
  FreqChangeState *resampler;  // encoding or resampling with a change of rate
  int16_t *scratch;            // 8-bit input: the block, widened
  uint64_t scratchSamples;

  // items, 0 when unset; detection fills in defaults, decoding the stream's rate and channels
  uint32_t inFreqHz, outFreqHz;
  uint32_t kbps;
  uint32_t channels;
  uint32_t inFormat, outFormat;     // QAV_FORMAT_...
  uint32_t options[qav::kOptions];  // in the encoder's order
  uint32_t bufferSize;              // bytes one block may have, at most 2^31 - 1
  uint32_t input8bit;               // 0 or 1
  qav::LpfState lpf;                // its level is an item

  // set by detection
  qav::State state;
  qav::Mode mode;

  // per stream
  uint32_t frameBytes;   // encoding: PCM of one frame; decoding: what follows the current frame's header, 0: header due
  uint32_t frameCount;   // frames decoded, or calls of the frame encoder
  uint8_t syncBytes[4];  // decoding: the last bytes that the hunt for a header has seen, oldest first
  uint8_t refHeader[4];  // decoding: the first header accepted
  bool resync;           // decoding: hunt before the next header is read
  uint32_t skippedBytes;  // decoding: thrown away by the hunt, and in refused frames
  uint32_t badFrames;     // decoding: headers rejected where one was due, and frames refused
};

namespace qav {

inline constexpr uint32_t kFrameSamples = QAV_SAMPLES_PER_FRAME;
inline constexpr uint32_t kSampleBytes = sizeof(int16_t);

// Whether samples can be read or written at `p` as they are.
inline bool isSampleAligned(const uint8_t *p) { return reinterpret_cast<uintptr_t>(p) % alignof(int16_t) == 0; }

// Resampled PCM that the encode path handles at a time, in bytes: 4608 stereo sample frames.
inline constexpr uint32_t kWorkBytes = 4 * kFrameSamples * 2 * kSampleBytes;

// QAV_convert() of a block of PCM, or of an MPEG stream; no bytes end the stream.
uint32_t encode(QAV_Handle *h, const uint8_t *pcm, uint32_t bytes, uint8_t *out, uint32_t *outBytes);
uint32_t decode(QAV_Handle *h, const uint8_t *in, uint32_t inBytes, uint8_t *out, uint32_t *outBytes);

// Whether the converter encodes to this: two channels at every Layer II bitrate of the rate, one channel at half of it.
bool isCorrectMpegParam(uint32_t freqHz, uint32_t kbps, uint32_t channels);

}  // namespace qav
