// The record behind DecoderSession.
#pragma once

#include <cstdint>

#include "decoder/decoder.h"
#include "decoder/kernels.h"
#include "format/frame_header.h"

// One zeroed heap block, aligned history included.
struct DecoderSession {
  // Set at Init, never changed.
  const qav::DecoderKernels *kernels;
  qav::SynthesisHistory *synthesis;  // [2], behind this record in the same block

  // Per frame, written by NEB_mpeg_get1FrameSize().
  FrameParams frame;
};
