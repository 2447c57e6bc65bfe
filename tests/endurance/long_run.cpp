// Hours of audio through one encoder and one decoder: long_run HOURS.
//
// The input repeats every kPeriod frames. Neither encoder nor decoder looks back further than a few frames, so from the
// second period on every period must give the same stream and the same PCM as the one before, however much has gone by;
// and memory must not grow.
#include <cinttypes>
#include <cstdint>
#include <vector>

#include "include/qav.h"
#include "tests/endurance/expect.h"

namespace {

constexpr uint32_t kHz = 48000, kKbps = 192, kPeriod = 64;
constexpr uint32_t kBlockFrames = 16;
constexpr uint32_t kSampleFrameBytes = 4;

std::vector<int16_t> onePeriod() {
  std::vector<int16_t> pcm(kPeriod * QAV_SAMPLES_PER_FRAME * 2);
  uint32_t random = 99;
  int32_t slow = 0;
  for (size_t i = 0; i < pcm.size(); ++i) {
    random = random * 1664525u + 1013904223u;
    slow += (int32_t(random >> 16) - 32768 - slow) / 8;
    // Loud and soft stretches, with clicks.
    const int32_t v = (i / 20000 % 3 == 0 ? slow / 16 : slow) + (i % 7001 == 0 ? 30000 : 0);
    pcm[i] = int16_t(v > 32767 ? 32767 : v < -32768 ? -32768 : v);
  }
  return pcm;
}

uint64_t hash(uint64_t h, const uint8_t *bytes, uint32_t n) {
  for (uint32_t i = 0; i < n; ++i) h = (h ^ bytes[i]) * 1099511628211u;
  return h;
}

long residentPages() {
  long total = 0, resident = 0;
  std::FILE *const f = std::fopen("/proc/self/statm", "r");
  if (f == nullptr) return 0;
  if (std::fscanf(f, "%ld %ld", &total, &resident) != 2) resident = 0;
  std::fclose(f);
  return resident;
}

QAV_Handle *makeHandle(std::initializer_list<std::pair<uint32_t, uint32_t>> items) {
  QAV_Handle *h = nullptr;
  EXPECT(QAV_createHandle(&h) == QAV_OK);
  for (const auto &[item, value] : items) EXPECT(QAV_setConfigure(h, item, value) == QAV_OK);
  EXPECT(QAV_detectConfigure(h) == QAV_OK);
  return h;
}

uint32_t get(QAV_Handle *h, uint32_t item) {
  uint32_t value = 0;
  EXPECT(QAV_getConfigure(h, item, &value, nullptr) == QAV_OK);
  return value;
}

}  // namespace

int main(int argc, char **argv) {
  const double hours = argc == 2 ? std::atof(argv[1]) : 0;
  EXPECT(hours > 0);
  constexpr uint32_t kBlockBytes = kBlockFrames * QAV_SAMPLES_PER_FRAME * kSampleFrameBytes;
  QAV_Handle *const encoder = makeHandle({{QAV_ITEM_IN_FORMAT, QAV_FORMAT_PCM},
                                          {QAV_ITEM_OUT_FORMAT, QAV_FORMAT_LAYER2},
                                          {QAV_ITEM_IN_FREQ_HZ, kHz},
                                          {QAV_ITEM_KBPS, kKbps},
                                          {QAV_ITEM_ERROR_PROTECTION, 1},
                                          {QAV_ITEM_BUFFER_SIZE, kBlockBytes}});
  QAV_Handle *const decoder = makeHandle(
      {{QAV_ITEM_IN_FORMAT, QAV_FORMAT_MPEG}, {QAV_ITEM_OUT_FORMAT, QAV_FORMAT_PCM}, {QAV_ITEM_BUFFER_SIZE, 1 << 16}});
  const std::vector<int16_t> pcm = onePeriod();
  std::vector<uint8_t> stream(QAV_ENCODE_OUT_BYTES(kBlockBytes, kHz, kHz));
  std::vector<uint8_t> out(QAV_DECODE_OUT_BYTES(stream.size()));

  const uint64_t periods = uint64_t(hours * 3600 * kHz / (kPeriod * QAV_SAMPLES_PER_FRAME)) + 3;
  uint64_t inBytes = 0, streamBytes = 0, outBytes = 0, settledStream = 0, settledPcm = 0;
  long settledPages = 0;
  for (uint64_t period = 0; period < periods; ++period) {
    uint64_t streamHash = 14695981039346656037u, pcmHash = streamHash;
    for (uint32_t frame = 0; frame < kPeriod; frame += kBlockFrames) {
      const auto *const in = reinterpret_cast<const uint8_t *>(&pcm[frame * QAV_SAMPLES_PER_FRAME * 2]);
      uint32_t n = 0, m = 0;
      EXPECT(QAV_convert(encoder, in, kBlockBytes, stream.data(), &n) == QAV_OK);
      EXPECT(QAV_convert(decoder, stream.data(), n, out.data(), &m) == QAV_OK);
      streamHash = hash(streamHash, stream.data(), n);
      // Every byte of the PCM now and then, the rest by its length: hashing would take longer than decoding.
      if (period < 4 || period % 256 == 0) pcmHash = hash(pcmHash, out.data(), m);
      inBytes += kBlockBytes;
      streamBytes += n;
      outBytes += m;
    }
    const bool isHashed = period < 4 || period % 256 == 0;
    if (period == 1) {
      settledStream = streamHash;
      settledPcm = pcmHash;
      settledPages = residentPages();
    } else if (period > 1) {
      EXPECT(streamHash == settledStream);
      EXPECT(!isHashed || pcmHash == settledPcm);
      EXPECT(residentPages() <= settledPages + 16);
    }
    EXPECT(outBytes == inBytes);
    EXPECT(get(encoder, QAV_ITEM_FRAME_COUNT) == uint32_t((period + 1) * kPeriod));
    EXPECT(get(decoder, QAV_ITEM_FRAME_COUNT) == uint32_t((period + 1) * kPeriod));
  }
  uint32_t skipped = 1, bad = 1;
  EXPECT(QAV_getConfigure(decoder, QAV_ITEM_LOSSES, QAV_LOSS_SKIPPED_BYTES, &skipped) == QAV_OK && skipped == 0);
  EXPECT(QAV_getConfigure(decoder, QAV_ITEM_LOSSES, QAV_LOSS_BAD_FRAMES, &bad) == QAV_OK && bad == 0);
  QAV_deleteHandle(encoder);
  QAV_deleteHandle(decoder);
  std::printf("%.2f hours: %" PRIu64 " bytes of PCM, %" PRIu64 " bytes of stream, %" PRIu64
              " sample frames, %ld KiB resident\n",
              double(inBytes) / kSampleFrameBytes / kHz / 3600, inBytes, streamBytes, inBytes / kSampleFrameBytes,
              residentPages() * 4);
  return 0;
}
