#include <memory>

#include "bench/bench.h"
#include "format/format.h"

namespace qav::bench {
namespace {

Run checkWord() {
  struct Frame {
    FrameParams params;
    uint32_t allocation[2][32];
    uint32_t scfsi[2][32];
  };
  const auto frame = std::make_shared<Frame>();
  const uint8_t header[4] = {0xFF, 0xFC, 0xA0, 0x00};  // Layer II, 192 kbit/s, 44100 Hz, stereo
  parseFrameHeader(header, frame->params);
  for (uint32_t sb = 0; sb < 32; ++sb)
    for (uint32_t ch = 0; ch < 2; ++ch) {
      frame->allocation[ch][sb] = sb < 24 ? 1 + sb % 3 : 0;
      frame->scfsi[ch][sb] = (sb + ch) % 4;
    }
  return [frame] {
    uint32_t crc;
    keep(frame.get());
    neb_II_CRC_calc(&frame->params, frame->allocation, frame->scfsi, &crc);
    keep(&crc);
  };
}

QAV_BENCH = addStage("check word", checkWord);

}  // namespace
}  // namespace qav::bench
