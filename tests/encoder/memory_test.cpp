// What the encoder asks of the heap. The program is linked with --wrap, so that every request of the library comes here.
#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "include/qav.h"
#include "tests/encoder/signals.h"

namespace {

int requests = 0;  // since the last reset
int failAt = 0;    // the request of that number fails; 0: none
int live = 0;      // blocks that are not freed yet
bool counting = false;

void reset(int failing) {
  requests = 0;
  failAt = failing;
}

bool grant() {
  if (!counting) return true;
  return ++requests != failAt;
}

void *counted(void *block) {
  live += counting && block != nullptr;
  return block;
}

}  // namespace

extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void __real_free(void *block);
void *__wrap_malloc(size_t size);
void *__wrap_calloc(size_t count, size_t size);
void __wrap_free(void *block);

void *__wrap_malloc(size_t size) { return grant() ? counted(__real_malloc(size)) : nullptr; }
void *__wrap_calloc(size_t count, size_t size) { return grant() ? counted(__real_calloc(count, size)) : nullptr; }
void __wrap_free(void *block) {
  live -= counting && block != nullptr;
  __real_free(block);
}
}

namespace qav {
namespace {

class EncoderMemory : public testing::Test {
 protected:
  void SetUp() override {
    counting = true;
    live = 0;
    reset(0);
  }
  void TearDown() override { counting = false; }
};

TEST_F(EncoderMemory, EveryFailingRequestIsReportedAndNothingLeaks) {
  EncoderSession *session = nullptr;
  int failures = 0;
  for (int n = 1;; ++n) {
    reset(n);
    session = reinterpret_cast<EncoderSession *>(1);
    const uint32_t result = zo_mpeg_Encode1FrameInit(&session, 44100, 192, 2, nullptr);
    if (result == QAV_ENCODE_OK) break;
    ++failures;
    EXPECT_EQ(result, uint32_t(QAV_ENCODE_NO_MEMORY));
    EXPECT_EQ(session, nullptr);
    EXPECT_EQ(live, 0);
  }
  EXPECT_EQ(failures, 2) << "the session and its model";
  EXPECT_EQ(live, 2);
  zo_mpeg_Encode1FrameTerm(session);
  EXPECT_EQ(live, 0);
}

TEST_F(EncoderMemory, RefusedConfigurationsLeaveNothing) {
  EncoderSession *session = nullptr;
  EXPECT_EQ(zo_mpeg_Encode1FrameInit(&session, 22050, 192, 2, nullptr), uint32_t(QAV_ENCODE_BAD_RATE));
  EXPECT_EQ(zo_mpeg_Encode1FrameInit(&session, 44100, 193, 2, nullptr), uint32_t(QAV_ENCODE_BAD_BITRATE));
  EXPECT_EQ(live, 0);
}

TEST_F(EncoderMemory, FramesAskForNone) {
  const std::vector<int16_t> pcm = test::mixedSignal(10, 2, 71);
  std::vector<uint8_t> out(QAV_MAX_FRAME_BYTES + QAV_ENCODE_SLACK_BYTES);
  EncoderSession *session = nullptr;
  ASSERT_EQ(zo_mpeg_Encode1FrameInit(&session, 44100, 192, 2, nullptr), uint32_t(QAV_ENCODE_OK));
  reset(0);
  for (size_t at = 0; at < pcm.size(); at += 2304) {
    uint32_t bytes = 0;
    zo_mpeg_Encode1Frame(session, pcm.data() + at, 1152, out.data(), &bytes);
  }
  EXPECT_EQ(requests, 0);
  zo_mpeg_Encode1FrameTerm(session);
}

}  // namespace
}  // namespace qav
