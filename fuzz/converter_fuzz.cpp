// The converter under any sequence of set, detect, convert, get, release and delete. Results are those of the manual,
// outputs stay inside the room that its macros promise to suffice, counters agree with what came out.
#include "include/qav.h"

#include "fuzz/fuzz.h"

using namespace qav::fuzz;

namespace {

struct Session {
  QAV_Handle *h = nullptr;
  bool detected = false;
  // as they were when detection succeeded
  uint32_t inFormat = 0, outFormat = 0, inHz = 0, outHz = 0, channels = 0, bufferSize = 0;
  uint64_t produced = 0;
};

uint32_t get(QAV_Handle *h, uint32_t item) {
  uint32_t value = ~0u;
  FUZZ_CHECK(QAV_getConfigure(h, item, &value, nullptr) == QAV_OK);
  return value;
}

void set(Session &s, Input &in) {
  static constexpr uint32_t kItems[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 12, 13, 14, 17};
  static constexpr uint32_t kValues[] = {0,    1,    2,     3,     7,     64,    128,   192,
                                         4608, 8000, 22050, 32000, 44100, 48000, 96000, 192000};
  const uint32_t item = in.byte() < 240 ? in.pick(kItems) : in.anyNumber();
  uint32_t value = in.byte() < 128 ? in.pick(kValues) : in.anyNumber();
  // Huge buffers are a matter of memory, not of what is fuzzed here.
  if (item == QAV_ITEM_BUFFER_SIZE && value < 0x80000000u) value &= 0xFFFFF;
  const uint32_t result = QAV_setConfigure(s.h, item, value);
  FUZZ_CHECK(result == QAV_OK || result == QAV_BAD_VALUE);
  const bool encoding = s.detected && s.outFormat == QAV_FORMAT_LAYER2;
  if (encoding || item == 0 || item == 11 || item == 15 || item == 16 || item > 17) FUZZ_CHECK(result == QAV_BAD_VALUE);
  if (result == QAV_OK && s.detected) FUZZ_CHECK(get(s.h, item) == value);
}

void detect(Session &s) {
  const uint32_t result = QAV_detectConfigure(s.h);
  if (s.detected) {
    FUZZ_CHECK(result == QAV_BAD_STATE);
  } else if (result == QAV_OK) {
    s.detected = true;
    s.inHz = get(s.h, QAV_ITEM_IN_FREQ_HZ);
    s.outHz = get(s.h, QAV_ITEM_OUT_FREQ_HZ);
    s.inFormat = get(s.h, QAV_ITEM_IN_FORMAT);
    s.outFormat = get(s.h, QAV_ITEM_OUT_FORMAT);
    s.channels = get(s.h, QAV_ITEM_CHANNELS);
    s.bufferSize = get(s.h, QAV_ITEM_BUFFER_SIZE);
    s.produced = 0;
    FUZZ_CHECK(s.outFormat != QAV_FORMAT_LAYER2 || s.bufferSize >= 2304 * s.channels);
  }
}

// What a caller who follows the manual has ready for `bytes` bytes of input.
size_t room(const Session &s, uint32_t bytes, bool eightBit) {
  if (s.inFormat == QAV_FORMAT_MPEG) return QAV_DECODE_OUT_BYTES(eightBit ? 2 * bytes : bytes);
  if (eightBit) bytes *= 2;
  if (s.outFormat == QAV_FORMAT_LAYER2) return QAV_ENCODE_OUT_BYTES(bytes, s.inHz, s.outHz);
  if (s.inHz == s.outHz) return bytes;
  const uint64_t frames = bytes / (2 * s.channels);
  return size_t((frames * s.outHz / s.inHz + 2) * 2 * s.channels);
}

void convert(Session &s, Input &in) {
  uint32_t written = 0xABCDEF01;
  if (!s.detected) {
    uint8_t out[8];
    FUZZ_CHECK(QAV_convert(s.h, nullptr, 0, out, &written) == QAV_BAD_STATE && written == 0xABCDEF01);
    return;
  }
  const uint32_t bytes = in.byte() & 1 ? in.word() % 20000 : in.byte();
  const Block<uint8_t> chunk(in.byte() & 1 ? in.bytes(bytes) : [&] {
    const Samples samples = madeSamples(in, bytes / 2 + 1);
    const auto *const p = reinterpret_cast<const uint8_t *>(samples.data());
    return Bytes(p, p + bytes);
  }());
  const uint32_t n = uint32_t(chunk.size());
  const bool eightBit = get(s.h, QAV_ITEM_INPUT_8BIT) == 1;
  if (s.inHz != 0 && s.outFormat == QAV_FORMAT_PCM && s.inFormat == QAV_FORMAT_PCM && s.outHz / s.inHz > 64) return;
  Block<uint8_t> out(room(s, n, eightBit) + 1);  // at least one byte, so that there is an address
  const uint32_t framesBefore = get(s.h, QAV_ITEM_FRAME_COUNT);
  const uint32_t result = QAV_convert(s.h, chunk.data(), n, out.data(), &written);
  FUZZ_CHECK(result == QAV_OK || result == QAV_TOO_LONG || result == QAV_BAD_STATE || result == QAV_ENDED);
  const uint32_t frames = get(s.h, QAV_ITEM_FRAME_COUNT) - framesBefore;
  if (result == QAV_TOO_LONG) {
    FUZZ_CHECK(written == 0xABCDEF01 && frames == 0);
    return;
  }
  if (written == 0xABCDEF01) return;
  FUZZ_CHECK(written < out.size());
  s.produced += written;
  if (s.inFormat == QAV_FORMAT_MPEG) {
    FUZZ_CHECK(result == QAV_OK);
    FUZZ_CHECK(written >= frames * 768 && written <= frames * QAV_MAX_FRAME_PCM_BYTES);
    uint32_t skipped = 0, bad = 0;
    FUZZ_CHECK(QAV_getConfigure(s.h, QAV_ITEM_LOSSES, QAV_LOSS_SKIPPED_BYTES, &skipped) == QAV_OK);
    FUZZ_CHECK(QAV_getConfigure(s.h, QAV_ITEM_LOSSES, QAV_LOSS_BAD_FRAMES, &bad) == QAV_OK);
    FUZZ_CHECK(QAV_getConfigure(s.h, QAV_ITEM_LOSSES, QAV_LOSS_BAD_FRAMES + 1, &bad) == QAV_BAD_VALUE);
  } else if (s.outFormat == QAV_FORMAT_LAYER2) {
    FUZZ_CHECK(written <= frames * QAV_MAX_FRAME_BYTES);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in(data, size);
  Session s;
  FUZZ_CHECK(QAV_createHandle(&s.h) == QAV_OK);
  for (int calls = 0; calls < 200 && !in.empty(); ++calls) {
    const uint8_t call = in.byte();
    if (call < 90) {
      set(s, in);
    } else if (call < 130) {
      detect(s);
    } else if (call < 220) {
      convert(s, in);
    } else if (call < 240) {
      uint32_t value = 0, value2 = 0;
      const uint32_t item = in.byte() % 20;
      const uint32_t result = item == QAV_ITEM_LOSSES ? QAV_getConfigure(s.h, item, nullptr, &value2)
                                                      : QAV_getConfigure(s.h, item, &value, &value2);
      if (item == QAV_ITEM_VERSION)
        FUZZ_CHECK(result == QAV_OK && value == QAV_VERSION);
      else if (!s.detected)
        FUZZ_CHECK(result == QAV_BAD_STATE);
      else
        FUZZ_CHECK(result == (item == 0 || item >= 18 ? QAV_BAD_VALUE : QAV_OK));
    } else if (call < 250) {
      FUZZ_CHECK(QAV_releaseConfigure(s.h) == QAV_OK);
      s = Session{s.h};
    } else {
      FUZZ_CHECK(QAV_releaseConfigure(s.h) == QAV_OK);
      FUZZ_CHECK(QAV_deleteHandle(s.h) == QAV_OK);
      s = Session{};
      FUZZ_CHECK(QAV_createHandle(&s.h) == QAV_OK);
    }
  }
  QAV_releaseConfigure(s.h);
  FUZZ_CHECK(QAV_deleteHandle(s.h) == QAV_OK);
  return 0;
}
