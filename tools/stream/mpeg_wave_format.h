// What the fmt chunk of a WAVE file says of the MPEG audio in it: a WAVEFORMATEX with the format tag 0x0050, and the
// MPEG1WAVEFORMAT extension. Where frames differ, its flags stand for all of them.
#pragma once

#include <array>
#include <cstdint>

#include "tools/stream/frame_header.h"

namespace qav::tool {

class MpegWaveFormat {
 public:
  void add(const FrameHeader &header);

  using Content = std::array<uint8_t, 40>;
  Content content() const;

  uint64_t samples() const { return samples_; }  // per channel, of all frames

 private:
  FrameHeader first_{};
  uint64_t frames_ = 0;
  uint64_t bytes_ = 0;
  uint64_t samples_ = 0;
  bool constantBitrate_ = true;
  bool constantLength_ = true;
  uint32_t modes_ = 0;
  uint32_t modeExtensions_ = 0;
  uint32_t flags_ = 0;
  uint32_t layers_ = 0;
};

}  // namespace qav::tool
