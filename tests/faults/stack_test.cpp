// Every function does with a thread's stack of 128 KiB, and with how much of it, measured by what it overwrites.
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <vector>

#include "include/qav.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define QAV_STACK_IS_WATCHED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define QAV_STACK_IS_WATCHED 1
#endif

namespace {

constexpr size_t kStackBytes = 128 << 10;
#if defined(__s390x__)
constexpr size_t kModest = 72 << 10;  // each function saves more registers there
#else
constexpr size_t kModest = 64 << 10;
#endif
constexpr uint8_t kPaint = 0xA5;

void *call(void *work) {
  (*static_cast<std::function<void()> *>(work))();
  return nullptr;
}

// Runs `work` on a thread with such a stack; returns how many bytes of it were written to.
size_t stackUsed(std::function<void()> work) {
  void *stack = nullptr;
  if (posix_memalign(&stack, 4096, kStackBytes) != 0) return SIZE_MAX;
  uint8_t *const bytes = static_cast<uint8_t *>(stack);
  std::fill(bytes, bytes + kStackBytes, kPaint);
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_t thread;
  size_t untouched = 0;
  if (pthread_attr_setstack(&attributes, stack, kStackBytes) == 0 &&
      pthread_create(&thread, &attributes, call, &work) == 0) {
    pthread_join(thread, nullptr);
    while (untouched < kStackBytes && bytes[untouched] == kPaint) ++untouched;
  }
  pthread_attr_destroy(&attributes);
  std::free(stack);
  return kStackBytes - untouched;
}

class Stack : public testing::Test {
 protected:
  void SetUp() override {
#ifdef QAV_STACK_IS_WATCHED
    GTEST_SKIP() << "a sanitizer puts its own things on the stack";
#endif
#ifndef __OPTIMIZE__
    GTEST_SKIP() << "what is not optimised keeps everything on the stack";
#endif
    stackUsed([] {});  // the first thread needs more: names are looked up
    idle = stackUsed([] {});
  }

  // What the library itself takes may not come near the 128 KiB.
  void expectModest(const char *what, const std::function<void()> &work) {
    const size_t all = stackUsed(work);
    ASSERT_LT(all, kStackBytes);
    const size_t used = std::max(all, idle) - idle;
    RecordProperty(what, int(used));
    std::printf("%s: %zu bytes of stack\n", what, used);
    EXPECT_LT(used, kModest) << what;
  }

  size_t idle = 0;
};

std::vector<int16_t> noise(size_t n) {
  std::vector<int16_t> samples(n);
  uint32_t random = 1;
  for (int16_t &v : samples) v = int16_t((random = random * 1664525u + 1013904223u) >> 16);
  return samples;
}

void convertAll(const std::vector<std::pair<uint32_t, uint32_t>> &items, const std::vector<uint8_t> &in,
                std::vector<uint8_t> &out, uint32_t *total) {
  QAV_Handle *h = nullptr;
  QAV_createHandle(&h);
  for (const auto &[item, value] : items) QAV_setConfigure(h, item, value);
  *total = 0;
  if (QAV_detectConfigure(h) == QAV_OK) {
    // An odd address, so that the ways round alignment are gone as well.
    uint32_t n = 0;
    QAV_convert(h, in.data() + 1, 4095, out.data() + 1, &n);
    *total += n;
    QAV_convert(h, in.data() + 4096, uint32_t(in.size()) - 4096, out.data() + 1, &n);
    *total += n;
    QAV_convert(h, nullptr, 0, out.data() + 1, &n);
    *total += n;
  }
  QAV_deleteHandle(h);
}

TEST_F(Stack, EncodingAtAnyRatioOfRates) {
  const std::vector<int16_t> pcm = noise(8000);
  const auto *const p = reinterpret_cast<const uint8_t *>(pcm.data());
  const std::vector<uint8_t> in(p, p + pcm.size() * 2);
  std::vector<uint8_t> out(QAV_ENCODE_OUT_BYTES(16000, 2000, 48000) * 2 + 1);
  for (const uint32_t inHz : {2000u, 44100u, 48000u, 192000u})
    expectModest(("encoding from " + std::to_string(inHz) + " Hz").c_str(), [&] {
      uint32_t n = 0;
      convertAll({{QAV_ITEM_OUT_FORMAT, QAV_FORMAT_LAYER2},
                  {QAV_ITEM_IN_FREQ_HZ, inHz},
                  {QAV_ITEM_OUT_FREQ_HZ, 48000},
                  {QAV_ITEM_ERROR_PROTECTION, 1},
                  {QAV_ITEM_BUFFER_SIZE, 1 << 16}},
                 in, out, &n);
      EXPECT_GT(n, 0u);
    });
}

TEST_F(Stack, DecodingAtAnOddAddress) {
  EncoderSession *encoder = nullptr;
  ASSERT_EQ(zo_mpeg_Encode1FrameInit(&encoder, 44100, 320, 2, nullptr), uint32_t(QAV_ENCODE_OK));
  const std::vector<int16_t> pcm = noise(2304);
  std::vector<uint8_t> in(1, 0);
  for (int frame = 0; frame < 8; ++frame) {
    uint8_t bytes[QAV_MAX_FRAME_BYTES + QAV_ENCODE_SLACK_BYTES];
    uint32_t n = 0;
    zo_mpeg_Encode1Frame(encoder, pcm.data(), 1152, bytes, &n);
    in.insert(in.end(), bytes, bytes + n);
  }
  zo_mpeg_Encode1FrameTerm(encoder);
  std::vector<uint8_t> out(QAV_DECODE_OUT_BYTES(in.size()) * 2 + 1);
  expectModest("decoding", [&] {
    uint32_t n = 0;
    convertAll({{QAV_ITEM_IN_FORMAT, QAV_FORMAT_MPEG}}, in, out, &n);
    EXPECT_EQ(n, 8u * 4608);
  });
}

TEST_F(Stack, FilteredEightBitInput) {
  const std::vector<uint8_t> in(12000, 77);
  std::vector<uint8_t> out(QAV_ENCODE_OUT_BYTES(24000, 8000, 48000) * 2 + 1);
  expectModest("encoding filtered 8-bit input", [&] {
    uint32_t n = 0;
    convertAll({{QAV_ITEM_OUT_FORMAT, QAV_FORMAT_LAYER2},
                {QAV_ITEM_IN_FREQ_HZ, 8000},
                {QAV_ITEM_OUT_FREQ_HZ, 48000},
                {QAV_ITEM_INPUT_8BIT, 1},
                {QAV_ITEM_LPF_LEVEL, 4},
                {QAV_ITEM_BUFFER_SIZE, 1 << 16}},
               in, out, &n);
    EXPECT_GT(n, 1000u);
  });
}

TEST_F(Stack, TransformAndModel) {
  expectModest("real FFT of 65536", [] {
    std::vector<float> a(65536, 1.0f), w(32768);
    std::vector<int32_t> ip(2 + 128);
    neb_rdft(65536, 1, a.data(), ip.data(), w.data());
    EXPECT_EQ(a[0], 65536.0f);
  });
  expectModest("psychoacoustic model", [] {
    FrameParams fp = {};
    fp.freqHz = 44100;
    PsychoState *const state = neb_psycho_analInit(&fp);
    ASSERT_NE(state, nullptr);
    const std::vector<int16_t> pcm = noise(1152);
    float smr[32] = {};
    neb_psycho_anal(pcm.data(), 0, smr, state);
    std::free(state);
  });
}

}  // namespace
