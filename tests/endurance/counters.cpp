// Counts beyond 2^31 and 2^32: counters MILLIONS sends that many million bytes, or sample frames, through each part.
// What the interface counts in 32 bits wraps; where the parts keep positions of their own, nothing may change.
#include <cstdint>
#include <cstring>
#include <vector>

#include "include/qav.h"
#include "tests/endurance/expect.h"

namespace {

// Bytes thrown away are counted modulo 2^32, and a stream is still found behind them.
void garbage(uint64_t bytes) {
  QAV_Handle *h = nullptr;
  EXPECT(QAV_createHandle(&h) == QAV_OK);
  EXPECT(QAV_setConfigure(h, QAV_ITEM_IN_FORMAT, QAV_FORMAT_MPEG) == QAV_OK);
  EXPECT(QAV_setConfigure(h, QAV_ITEM_BUFFER_SIZE, 1 << 20) == QAV_OK);
  EXPECT(QAV_detectConfigure(h) == QAV_OK);
  const std::vector<uint8_t> block(1 << 20, 0x55);
  std::vector<uint8_t> out(QAV_DECODE_OUT_BYTES(1 << 20));
  uint32_t outBytes = 1;
  uint64_t fed = 0;
  while (fed < bytes) {
    EXPECT(QAV_convert(h, block.data(), uint32_t(block.size()), out.data(), &outBytes) == QAV_OK && outBytes == 0);
    fed += block.size();
  }
  uint32_t skipped = 0;
  EXPECT(QAV_getConfigure(h, QAV_ITEM_LOSSES, QAV_LOSS_SKIPPED_BYTES, &skipped) == QAV_OK);
  EXPECT(skipped == uint32_t(fed - 4));  // the first four bytes were no header, not garbage between frames
  // Layer I, 32 kbit/s, 48 kHz, mono, nothing allocated: silence of 32 bytes.
  uint8_t frame[32] = {0xFF, 0xFF, 0x14, 0xC0};
  EXPECT(QAV_convert(h, frame, sizeof frame, out.data(), &outBytes) == QAV_OK && outBytes == 768);
  EXPECT(QAV_getConfigure(h, QAV_ITEM_LOSSES, QAV_LOSS_SKIPPED_BYTES, &skipped) == QAV_OK);
  EXPECT(skipped == uint32_t(fed - 4 + 4));  // the hunt took the header's bytes too
  QAV_deleteHandle(h);
  std::printf("garbage: %llu bytes passed over, %u counted\n", static_cast<unsigned long long>(fed), unsigned(skipped));
}

// A ramp that repeats every kPeriod frames, resampled by 3/2: the output repeats every 3/2 of that.
void resampling(uint64_t frames) {
  constexpr uint32_t kPeriod = 1 << 16;
  std::vector<int16_t> in(kPeriod), out(kPeriod * 3 / 2 + 2), first(kPeriod * 3 / 2 + 2);
  for (uint32_t i = 0; i < kPeriod; ++i) in[i] = int16_t(i * 7919);
  FreqChangeState *s = nullptr;
  EXPECT(NEB_freqChangeInit(&s, 32000, 48000, 1, 0) == 0);
  uint64_t consumed = 0, produced = 0;
  for (uint64_t period = 0; consumed < frames; ++period) {
    uint32_t n = 0;
    EXPECT(NEB_freqChange(s, in.data(), kPeriod, out.data(), &n) == 0);
    consumed += kPeriod;
    produced += n;
    EXPECT(produced == (consumed - 1) * 3 / 2 + ((consumed - 1) * 3 % 2 != 0));
    if (period == 1) first = out;
    if (period > 1) EXPECT(n == kPeriod * 3 / 2 && std::memcmp(out.data(), first.data(), n * sizeof out[0]) == 0);
  }
  NEB_freqChangeTerm(s);
  std::printf("resampling: %llu frames in, %llu out\n", static_cast<unsigned long long>(consumed),
              static_cast<unsigned long long>(produced));
}

// Units of 1000 bytes from blocks of 4096: bytes come out as they went in.
void queueing(uint64_t bytes) {
  ByteFifo *f = nullptr;
  EXPECT(NEB_bufferingInit(&f, 4096) == 0);
  std::vector<uint8_t> block(4096);
  uint64_t in = 0, out = 0;
  while (in < bytes) {
    for (uint8_t &b : block) b = uint8_t(in++ / 4 % 251);
    EXPECT(NEB_bufferingLock(f, block.data(), uint32_t(block.size())) == 0);
    const uint8_t *unit = nullptr;
    while (NEB_bufferingGetSize(f) >= 1000) {
      EXPECT(NEB_bufferingGet(f, 1000, &unit) == 1000);
      EXPECT(unit[0] == uint8_t(out / 4 % 251) && unit[999] == uint8_t((out + 999) / 4 % 251));
      out += 1000;
    }
    EXPECT(NEB_bufferingUnlock(f) == 0);
    EXPECT(uint64_t(NEB_bufferingGetSize(f)) == in - out);
  }
  NEB_bufferingTerm(f);
  std::printf("queueing: %llu bytes in, %llu out\n", static_cast<unsigned long long>(in),
              static_cast<unsigned long long>(out));
}

}  // namespace

int main(int argc, char **argv) {
  EXPECT(argc == 2);
  const uint64_t amount = uint64_t(std::atoll(argv[1])) * 1000000;
  garbage(amount);
  resampling(amount);
  queueing(amount);
  return 0;
}
