// Any four bytes as a header: lengths and derived values against the standard's formulas, the check word against the
// polynomial division bit by bit, and what a refusal must leave alone.
#include "include/qav.h"

#include "format/frame_header.h"
#include "fuzz/fuzz.h"

using namespace qav;
using namespace qav::fuzz;

namespace {

// ISO/IEC 11172-3 clause 2.4.3.1, with the register as drawn in figure 3-A.9.
class Division {
 public:
  void feed(uint32_t field, int width) {
    for (int bit = width - 1; bit >= 0; --bit) {
      const bool feedback = ((remainder >> 15) ^ (field >> bit)) & 1;
      remainder = (remainder << 1 ^ (feedback ? 0x8005u : 0u)) & 0xFFFFu;
    }
  }
  uint32_t remainder = 0xFFFF;
};

void checkLength(const uint8_t *b, const FrameParams &fp, int32_t length) {
  static constexpr int32_t kHz[2][3] = {{22050, 24000, 16000}, {44100, 48000, 32000}};
  static constexpr int32_t kKbps[3][15] = {
      {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},  // MPEG-1 Layer I
      {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},     // MPEG-1 Layer II
      {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},          // MPEG-2 Layer II
  };
  const bool mpeg1 = b[1] & 8;
  const int32_t layer = 4 - (b[1] >> 1 & 3), padding = b[2] >> 1 & 1;
  FUZZ_CHECK(fp.id == (mpeg1 ? 1 : 0) && fp.layer == layer && fp.protection == 1 - (b[1] & 1));
  FUZZ_CHECK(fp.freqHz == kHz[mpeg1][b[2] >> 2 & 3]);
  if (mpeg1 || layer == 2) FUZZ_CHECK(fp.kbps == kKbps[mpeg1 ? layer - 1 : 2][b[2] >> 4]);
  FUZZ_CHECK(fp.padding == padding && fp.privateBit == (b[2] & 1) && fp.mode == b[3] >> 6);
  FUZZ_CHECK(fp.modeExt == (b[3] >> 4 & 3) && fp.copyright == (b[3] >> 3 & 1) && fp.original == (b[3] >> 2 & 1));
  FUZZ_CHECK(fp.emphasis == (b[3] & 3) && fp.channels == (fp.mode == 3 ? 1 : 2));
  const int32_t slots = (layer == 1 ? 12000 : 144000) * fp.kbps / fp.freqHz + padding;
  FUZZ_CHECK(length == (layer == 1 ? 4 * slots : slots));
  FUZZ_CHECK(length >= 32 && length <= QAV_MAX_FRAME_BYTES);
  FUZZ_CHECK(fp.sblimit > 0 && fp.sblimit <= 32);
  FUZZ_CHECK(fp.jsbound == (fp.mode == 1 ? 4 * (fp.modeExt + 1) : fp.sblimit));
  FUZZ_CHECK(layer == 1 || fp.allocTable != nullptr);
}

bool refused(const uint8_t *b) {
  return b[0] != 0xFF || b[1] >> 4 != 0xF || (b[1] >> 1 & 3) < 2 || b[2] >> 4 == 0 || b[2] >> 4 == 15 ||
         (b[2] >> 2 & 3) == 3;
}

void checkWord(const FrameParams &fp, Input &in) {
  uint32_t allocation[2][32], scfsi[2][32];
  for (auto &channel : allocation)
    for (uint32_t &a : channel) a = in.byte();
  for (auto &channel : scfsi)
    for (uint32_t &s : channel) s = in.byte() & 3;
  Division division;
  const int32_t fields[][2] = {{fp.bitrateIndex, 4}, {fp.samplingIndex, 2}, {fp.padding, 1},
                               {fp.privateBit, 1},   {fp.mode, 2},          {fp.modeExt, 2},
                               {fp.copyright, 1},    {fp.original, 1},      {fp.emphasis, 2}};
  for (const auto &field : fields) division.feed(uint32_t(field[0]), field[1]);
  uint32_t word = in.number();
  const bool two = fp.layer == 2;
  for (int32_t sb = 0; sb < (two ? fp.sblimit : 32); ++sb)
    for (int32_t ch = 0; ch < (sb < fp.jsbound ? fp.channels : 1); ++ch)
      division.feed(allocation[ch][sb], two ? fp.allocTable[sb][0].bits : 4);
  if (two) {
    for (int32_t sb = 0; sb < fp.sblimit; ++sb)
      for (int32_t ch = 0; ch < fp.channels; ++ch)
        if (allocation[ch][sb] != 0) division.feed(scfsi[ch][sb], 2);
    neb_II_CRC_calc(&fp, allocation, scfsi, &word);
  } else {
    neb_I_CRC_calc(&fp, allocation, &word);
  }
  FUZZ_CHECK(word == division.remainder);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in(data, size);
  FrameParams fp{};
  while (!in.empty()) {
    Bytes header = in.bytes(4);
    header.resize(4);
    const Block<uint8_t> exact(header);
    const FrameParams before = fp;
    const int32_t length = parseFrameHeader(exact.data(), fp);
    if (refused(header.data())) {
      FUZZ_CHECK(length == -1);
      FUZZ_CHECK(fp.freqHz == before.freqHz && fp.kbps == before.kbps && fp.channels == before.channels);
      FUZZ_CHECK(fp.sblimit == before.sblimit && fp.jsbound == before.jsbound && fp.allocTable == before.allocTable);
    } else {
      checkLength(header.data(), fp, length);
      checkWord(fp, in);
    }
  }
  return 0;
}
