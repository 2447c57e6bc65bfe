// The frame encoder with any parameters, options and PCM, at every CPU level side by side: refusals as documented,
// frames the same at every level, of the length their header says, inside the room that the manual asks for.
#include "encoder/encoder.h"

#include <cstring>

#include "format/frame_header.h"
#include "fuzz/fuzz.h"

using namespace qav;
using namespace qav::fuzz;

namespace {

constexpr uint32_t kRates[] = {32000, 44100, 48000};
constexpr uint32_t kBitrates[] = {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384};

struct Parameters {
  uint32_t hz, kbps, channels;
  bool hasOptions;
  uint32_t options[5];
};

template <size_t N>
bool holds(const uint32_t (&values)[N], uint32_t value) {
  return std::find(values, values + N, value) != values + N;
}

uint32_t dueResult(const Parameters &p) {
  if (!holds(kRates, p.hz)) return QAV_ENCODE_BAD_RATE;
  return holds(kBitrates, p.kbps) ? QAV_ENCODE_OK : QAV_ENCODE_BAD_BITRATE;
}

void checkFrame(const Parameters &p, const Block<uint8_t> &frame, uint32_t bytes) {
  if (p.kbps == 0) return;  // free format by accident: no decoder takes it
  FrameParams fp{};
  FUZZ_CHECK(parseFrameHeader(frame.data(), fp) == int32_t(bytes));
  FUZZ_CHECK(fp.id == 1 && fp.layer == 2 && uint32_t(fp.freqHz) == p.hz && uint32_t(fp.kbps) == p.kbps);
  FUZZ_CHECK(fp.mode == (p.channels == 1 ? 3 : 0) && fp.modeExt == 0 && fp.privateBit == 0);
  FUZZ_CHECK(fp.protection == (!p.hasOptions || p.options[3] != 0));
  FUZZ_CHECK(uint32_t(fp.emphasis) == (p.hasOptions ? p.options[0] & 3 : 0));
  FUZZ_CHECK(uint32_t(fp.copyright) == (p.hasOptions ? p.options[1] & 1 : 0));
  FUZZ_CHECK(uint32_t(fp.original) == (p.hasOptions ? p.options[2] & 1 : 0));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in(data, size);
  const uint8_t kind = in.byte();
  Parameters p = {};
  p.hz = kind & 1 ? in.anyNumber() : in.pick(kRates);
  p.kbps = kind & 2 ? in.anyNumber() : in.pick(kBitrates);
  p.channels = kind & 4 ? in.anyNumber() : 1 + (kind >> 3 & 1);
  p.hasOptions = kind & 16;
  for (uint32_t &option : p.options) option = kind & 32 ? in.anyNumber() : in.byte() & 1;

  std::vector<EncoderSession *> sessions;
  for (const CpuLevel level : levelsHere()) {
    EncoderSession *s = reinterpret_cast<EncoderSession *>(&sessions);
    const uint32_t result = initEncoder(&s, p.hz, p.kbps, p.channels, p.hasOptions ? p.options : nullptr, level);
    FUZZ_CHECK(result == dueResult(p));
    FUZZ_CHECK((s != nullptr) == (result == QAV_ENCODE_OK));
    if (s != nullptr) sessions.push_back(s);
  }
  // The manual takes 1 or 2 channels; any other number must still be harmless, with the samples of two handed in.
  const uint32_t c = p.channels == 1 ? 1 : 2;
  for (int frames = 0; frames < 8 && !sessions.empty() && !in.empty(); ++frames) {
    const uint32_t n = in.byte() < 200 ? 1152 : in.below(1154);
    const Block<int16_t> pcm(in.byte() & 1 ? madeSamples(in, n * c) : [&] {
      Samples samples = in.samples(n * c);
      samples.resize(n * c);
      return samples;
    }());
    Block<uint8_t> first(QAV_MAX_FRAME_BYTES + QAV_ENCODE_SLACK_BYTES);
    uint32_t firstBytes = ~0u;
    for (size_t i = 0; i < sessions.size(); ++i) {
      Block<uint8_t> out(first.size());
      uint32_t bytes = ~0u;
      const int32_t result = zo_mpeg_Encode1Frame(sessions[i], pcm.data(), n, out.data(), &bytes);
      FUZZ_CHECK(result == (n == 0 ? -1 : 0));
      FUZZ_CHECK(n > 0 ? bytes <= QAV_MAX_FRAME_BYTES : bytes == 0);
      if (i == 0) {
        std::memcpy(first.data(), out.data(), out.size());
        firstBytes = bytes;
        if (n > 0 && (p.channels == 1 || p.channels == 2)) checkFrame(p, out, bytes);
      }
      FUZZ_CHECK(bytes == firstBytes && std::memcmp(out.data(), first.data(), bytes) == 0);
    }
  }
  for (EncoderSession *s : sessions) FUZZ_CHECK(zo_mpeg_Encode1FrameTerm(s) == 0);
  return 0;
}
