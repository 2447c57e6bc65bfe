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
  int16_t filterHist[2][qav::kFilterHistory];  // the last samples of each channel; zero before the stream

  // per frame
  int16_t pcmBuf[2][qav::kChannelSamples];
  qav::SubbandFrame sbSample[2];
};

static_assert(offsetof(EncoderSession, frame) == 0, "the header functions take a session as its FrameParams");

namespace qav {

// Copies a frame's samples into one array per channel, silence behind them when they are fewer than 1152. Two channels are
// interleaved in `pcm`; any other count is one channel, and channel 1 is silent.
void readEncFrame(uint32_t channels, int16_t pcmBuf[2][kChannelSamples], const int16_t *pcm, uint32_t samplesPerChannel,
                  uint32_t byteSwap);

}  // namespace qav
