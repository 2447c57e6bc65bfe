// Random bytes through the decoder: random_bytes MILLIONS. Plain noise, then noise strewn with sync words and with
// headers, so that frames begin everywhere. Every call must answer as documented, time must stay proportional to the
// bytes, and every frame that was decoded must be accounted for.
#include <chrono>
#include <cstdint>
#include <vector>

#include "include/qav.h"
#include "tests/endurance/expect.h"

namespace {

class Random {
 public:
  uint32_t next() {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    return uint32_t(state >> 24);
  }

 private:
  uint64_t state = 88172645463325252u;
};

enum Kind { kNoise, kSyncWords, kHeaders, kKinds };
const char *const kNames[kKinds] = {"noise", "noise with sync words", "noise with headers"};

void fill(std::vector<uint8_t> &block, Kind kind, Random &random) {
  for (uint8_t &b : block) b = uint8_t(random.next());
  if (kind == kNoise) return;
  for (size_t i = 0; i + 4 < block.size(); i += 8 + random.next() % 64) {
    block[i] = 0xFF;
    block[i + 1] |= 0xF0;
    if (kind == kHeaders) {
      block[i + 1] = uint8_t(0xF5 | (random.next() & 0x0A));
      block[i + 2] = uint8_t((1 + random.next() % 14) << 4 | random.next() % 3 << 2 | random.next() % 2 << 1);
    }
  }
}

}  // namespace

int main(int argc, char **argv) {
  EXPECT(argc == 2);
  const uint64_t amount = uint64_t(std::atoll(argv[1])) * 1000000;
  for (int kind = 0; kind < kKinds; ++kind) {
    Random random;
    QAV_Handle *h = nullptr;
    EXPECT(QAV_createHandle(&h) == QAV_OK);
    EXPECT(QAV_setConfigure(h, QAV_ITEM_IN_FORMAT, QAV_FORMAT_MPEG) == QAV_OK);
    EXPECT(QAV_detectConfigure(h) == QAV_OK);
    std::vector<uint8_t> block, out(QAV_DECODE_OUT_BYTES(8192));
    uint64_t fed = 0, pcm = 0;
    const auto start = std::chrono::steady_clock::now();
    while (fed < amount / kKinds) {
      block.resize(1 + random.next() % 8192);
      fill(block, Kind(kind), random);
      uint32_t outBytes = ~0u;
      EXPECT(QAV_convert(h, block.data(), uint32_t(block.size()), out.data(), &outBytes) == QAV_OK);
      EXPECT(outBytes <= QAV_DECODE_OUT_BYTES(block.size()));
      fed += block.size();
      pcm += outBytes;
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    uint32_t frames = 0, skipped = 0, bad = 0;
    EXPECT(QAV_getConfigure(h, QAV_ITEM_FRAME_COUNT, &frames, nullptr) == QAV_OK);
    EXPECT(QAV_getConfigure(h, QAV_ITEM_LOSSES, QAV_LOSS_SKIPPED_BYTES, &skipped) == QAV_OK);
    EXPECT(QAV_getConfigure(h, QAV_ITEM_LOSSES, QAV_LOSS_BAD_FRAMES, &bad) == QAV_OK);
    // The hunt counts the four bytes of the header it finds, and a frame refused behind it counts them once more.
    EXPECT(skipped <= fed + 4 * uint64_t(bad) && uint64_t(frames) * 32 <= fed && uint64_t(bad) * 4 <= fed);
    EXPECT(pcm >= uint64_t(frames) * 768 && pcm <= uint64_t(frames) * QAV_MAX_FRAME_PCM_BYTES);
    EXPECT(kind != kHeaders || frames > 0);
    QAV_deleteHandle(h);
    std::printf("%s: %llu bytes in %.1f s, %u frames decoded, %u bytes passed over, %u bad headers and frames\n",
                kNames[kind], static_cast<unsigned long long>(fed), seconds, unsigned(frames), unsigned(skipped),
                unsigned(bad));
  }
  return 0;
}
