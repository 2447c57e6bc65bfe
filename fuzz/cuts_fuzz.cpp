// However a stream is cut into blocks, the converter puts out the same and counts the same.
#include "include/qav.h"

#include "fuzz/fuzz.h"

using namespace qav::fuzz;

namespace {

struct Setting {
  uint32_t item, value;
};

struct Outcome {
  Bytes out;
  uint32_t frames, skipped, bad, hz, channels;
  bool operator==(const Outcome &) const = default;
};

Outcome run(const std::vector<Setting> &settings, const Bytes &stream, const Bytes &cuts, uint32_t wholeFrame,
            uint64_t outPerIn) {
  QAV_Handle *h = nullptr;
  FUZZ_CHECK(QAV_createHandle(&h) == QAV_OK);
  for (const Setting &s : settings) FUZZ_CHECK(QAV_setConfigure(h, s.item, s.value) == QAV_OK);
  FUZZ_CHECK(QAV_detectConfigure(h) == QAV_OK);
  Outcome outcome = {};
  Block<uint8_t> out((stream.size() + 4096) * size_t(outPerIn) + 8 * QAV_MAX_FRAME_PCM_BYTES);
  uint32_t written = 0;
  for (size_t at = 0, i = 0; at < stream.size(); ++i) {
    size_t n = stream.size() - at;
    if (!cuts.empty()) n = std::min(n, size_t(1 + cuts[i % cuts.size()] * (i % 3 == 0 ? 16 : 1)) * wholeFrame);
    const Block<uint8_t> chunk(stream.data() + at, n);
    FUZZ_CHECK(QAV_convert(h, chunk.data(), uint32_t(n), out.data(), &written) == QAV_OK);
    FUZZ_CHECK(written <= out.size());
    outcome.out.insert(outcome.out.end(), out.data(), out.data() + written);
    at += n;
  }
  written = 0;
  FUZZ_CHECK(QAV_convert(h, nullptr, 0, out.data(), &written) == QAV_OK);
  outcome.out.insert(outcome.out.end(), out.data(), out.data() + written);
  QAV_getConfigure(h, QAV_ITEM_FRAME_COUNT, &outcome.frames, nullptr);
  QAV_getConfigure(h, QAV_ITEM_LOSSES, QAV_LOSS_SKIPPED_BYTES, &outcome.skipped);
  QAV_getConfigure(h, QAV_ITEM_LOSSES, QAV_LOSS_BAD_FRAMES, &outcome.bad);
  QAV_getConfigure(h, QAV_ITEM_IN_FREQ_HZ, &outcome.hz, nullptr);
  QAV_getConfigure(h, QAV_ITEM_CHANNELS, &outcome.channels, nullptr);
  FUZZ_CHECK(QAV_deleteHandle(h) == QAV_OK);
  return outcome;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static constexpr uint32_t kStreamHz[] = {32000, 44100, 48000};
  static constexpr uint32_t kInputHz[] = {8000, 11025, 16000, 22050, 24000, 32000, 44100, 48000, 88200, 96000};
  static constexpr uint32_t kKbps[] = {64, 96, 112, 128, 160, 192};
  Input in(data, size);
  const uint8_t kind = in.byte();
  const uint32_t channels = 1 + (kind >> 2 & 1);
  const Bytes cuts = in.bytes(1 + in.byte() % 16);
  std::vector<Setting> settings = {{QAV_ITEM_BUFFER_SIZE, 1 << 16}};
  uint32_t wholeFrame = 1;
  uint64_t outPerIn = 1;
  switch (kind & 3) {
    case 0:
    case 1:
      settings.insert(settings.end(), {{QAV_ITEM_IN_FORMAT, QAV_FORMAT_MPEG}, {QAV_ITEM_OUT_FORMAT, QAV_FORMAT_PCM}});
      outPerIn = QAV_MAX_FRAME_PCM_BYTES / 32;
      break;
    case 2:
      settings.insert(settings.end(), {{QAV_ITEM_IN_FORMAT, QAV_FORMAT_PCM},
                                       {QAV_ITEM_OUT_FORMAT, QAV_FORMAT_LAYER2},
                                       {QAV_ITEM_CHANNELS, channels},
                                       {QAV_ITEM_KBPS, in.pick(kKbps)},
                                       {QAV_ITEM_ERROR_PROTECTION, kind >> 3 & 1u},
                                       {QAV_ITEM_IN_FREQ_HZ, in.pick(kInputHz)},
                                       {QAV_ITEM_OUT_FREQ_HZ, in.pick(kStreamHz)}});
      outPerIn = 24;
      break;
    default:
      settings.insert(settings.end(), {{QAV_ITEM_IN_FORMAT, QAV_FORMAT_PCM},
                                       {QAV_ITEM_OUT_FORMAT, QAV_FORMAT_PCM},
                                       {QAV_ITEM_CHANNELS, channels},
                                       {QAV_ITEM_IN_FREQ_HZ, in.pick(kInputHz)},
                                       {QAV_ITEM_OUT_FREQ_HZ, in.pick(kInputHz)}});
      wholeFrame = 2 * channels;  // resampling keeps no part of a sample frame
      outPerIn = 12;
      break;
  }
  // Encoding ends with silence in place of a short block only once; that the rest was short is no matter of cuts.
  Bytes stream;
  if (kind & 2 && in.left() < 64) {
    const Samples samples = madeSamples(in, 4000);
    const auto *const p = reinterpret_cast<const uint8_t *>(samples.data());
    stream.assign(p, p + samples.size() * 2 - kind % 4);
  } else {
    stream = in.bytes(60000);
  }
  if ((kind & 3) == 3) stream.resize(stream.size() / wholeFrame * wholeFrame);
  FUZZ_CHECK(run(settings, stream, cuts, wholeFrame, outPerIn) == run(settings, stream, {}, wholeFrame, outPerIn));
  return 0;
}
