// The state of encoding one stream.
#pragma once

#include <cstddef>
#include <cstdint>

#include "encoder/allocation.h"
#include "encoder/analysis.h"
#include "encoder/bit_writer.h"
#include "encoder/frame_shapes.h"
#include "encoder/quantization.h"
#include "encoder/sample_encoding.h"
#include "encoder/scale_factors.h"
#include "include/qav.h"

namespace qav {

// What runs at the CPU level of the session.
struct EncoderKernels {
  AnalysisFn analysis;
  ScaleFactorFn scaleFactors;
  AllocationFn allocation;
  QuantizationFn quantization;
  SampleEncodingFn sampleEncoding;
};

}  // namespace qav

struct EncoderSession {
  // set at Init, never changed, but for `frame.padding`, which is set for every frame
  FrameParams frame;
  uint32_t slotsPerFrame;  // whole bytes of the average frame
  double fracSlots;        // and the fraction of a byte, 0 .. 1
  uint32_t byteSwap;       // not 0: exchange the bytes of stereo input samples
  qav::AllocationPlan allocationPlan;
  qav::EncoderKernels kernels;

  // per stream; carried from frame to frame
  double slotLag;  // the padding accumulator, -1 .. 0
  PsychoState *psycho;

  // Per channel the samples that the filterbank keeps of earlier frames, zero before the stream, and those of this frame.
  int16_t pcmBuf[2][qav::kInputSamples];

  // per frame
  qav::SubbandFrame sbSample[2];
};

static_assert(offsetof(EncoderSession, frame) == 0, "the header functions take a session as its FrameParams");

namespace qav {

// Moves the end of the last frame to the front of the channels' buffers and appends the next one's samples, silence behind
// them when they are fewer than 1152. Two channels are interleaved in `pcm`; any other count is one channel, and channel 1
// is silent.
void readEncFrame(uint32_t channels, int16_t pcmBuf[2][kInputSamples], const int16_t *pcm, uint32_t samplesPerChannel,
                  uint32_t byteSwap);

}  // namespace qav
