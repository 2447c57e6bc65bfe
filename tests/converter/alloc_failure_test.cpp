// Out of memory at every allocation. The linker leads the library's calls of malloc, calloc and free here.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "tests/converter/converter_test.h"

namespace {

struct Heap {
  int calls = 0;            // allocations asked for
  int failing = 0;          // the one that fails, counted from 1; 0: none
  size_t limit = SIZE_MAX;  // larger ones fail
  size_t largest = 0;       // the largest one asked for
  int live = 0;             // blocks not freed yet
};
Heap heap;

bool grants(size_t bytes) {
  heap.largest = std::max(heap.largest, bytes);
  return ++heap.calls != heap.failing && bytes > 0 && bytes <= heap.limit;  // some allocators answer null for nothing
}

void *counted(void *p) {
  if (p != nullptr) ++heap.live;
  return p;
}

}  // namespace

extern "C" {
void *__real_malloc(size_t bytes);
void *__real_calloc(size_t n, size_t bytes);
void __real_free(void *p);

void *__wrap_malloc(size_t bytes) { return grants(bytes) ? counted(__real_malloc(bytes)) : nullptr; }
void *__wrap_calloc(size_t n, size_t bytes) { return grants(n * bytes) ? counted(__real_calloc(n, bytes)) : nullptr; }
void __wrap_free(void *p) {
  if (p != nullptr) --heap.live;
  __real_free(p);
}
}

namespace qav {
namespace {

using test::Bytes;
using test::bytesOf;
using test::Items;
using test::noise;
using test::testData;

class AllocFailure : public testing::Test {
 protected:
  void TearDown() override { heap = Heap{}; }  // what comes at the program's end needs memory: the notes of coverage
};

struct Conversion {
  const char *name;
  Items items;
  bool has8Bit;
};

const Conversion kConversions[] = {
    {"decode", {{5, 1}}, false},
    {"decode, 8-bit", {{5, 1}, {13, 1}}, true},
    {"encode", {{6, 2}, {1, 44100}}, false},
    {"encode, 8-bit, other rate", {{6, 2}, {1, 22050}, {2, 44100}, {3, 64}, {4, 1}, {13, 1}, {14, 2}}, true},
    {"encode, other rate", {{6, 2}, {1, 44100}, {2, 48000}}, false},
    {"resample", {{1, 44100}, {2, 48000}, {4, 2}}, false},
    {"resample, 8-bit", {{1, 44100}, {2, 48000}, {4, 2}, {13, 1}}, true},
    {"copy", {}, false},
};

void setItems(QAV_Handle *h, const Items &items) {
  for (const auto &[item, value] : items) ASSERT_EQ(QAV_setConfigure(h, item, value), QAV_OK) << "item " << item;
}

// Some blocks and the end. Nothing is allocated meanwhile.
void convertSome(QAV_Handle *h) {
  static const Bytes in = testData("l2_stereo_44k_192_crc.mp2");
  Bytes out(1 << 18);
  const int before = heap.calls;
  for (uint32_t block = 0; block < 8; ++block) {
    uint32_t outBytes = 0;
    EXPECT_EQ(QAV_convert(h, in.data() + 1000 * block, 1000, out.data(), &outBytes), QAV_OK);
  }
  uint32_t outBytes = 0;
  EXPECT_EQ(QAV_convert(h, nullptr, 0, out.data(), &outBytes), QAV_OK);
  EXPECT_EQ(heap.calls, before);
}

// The whole life of a handle with one allocation failing; false when none failed. After the failure the handle is
// released and used, or deleted at once.
bool live(const Conversion &c, int failing, bool goOn) {
  SCOPED_TRACE(std::string(c.name) + ", allocation " + std::to_string(failing));
  heap = Heap{};
  heap.failing = failing;
  QAV_Handle *h = reinterpret_cast<QAV_Handle *>(1);
  const uint32_t created = QAV_createHandle(&h);
  if (created != QAV_OK) {
    EXPECT_EQ(created, QAV_NO_MEMORY);
    EXPECT_EQ(h, nullptr);
    EXPECT_EQ(failing, 1);
    EXPECT_EQ(heap.live, 0);
    return true;
  }
  setItems(h, c.items);
  const uint32_t detected = QAV_detectConfigure(h);
  const bool failed = heap.calls >= failing;
  if (failed) {
    uint32_t value;
    EXPECT_EQ(QAV_getConfigure(h, QAV_ITEM_IN_FREQ_HZ, &value, nullptr), QAV_BAD_STATE);
    EXPECT_EQ(QAV_convert(h, nullptr, 0, nullptr, &value), QAV_BAD_STATE);
    if (detected == QAV_NO_MEMORY) {
      EXPECT_TRUE(c.has8Bit);
      EXPECT_EQ(heap.live, 1) << "everything is released";
    } else {
      EXPECT_EQ(detected, QAV_BAD_STATE);
    }
    if (goOn) {
      EXPECT_EQ(QAV_releaseConfigure(h), QAV_OK);
      EXPECT_EQ(heap.live, 1);
      setItems(h, c.items);
      EXPECT_EQ(QAV_detectConfigure(h), QAV_OK);
      convertSome(h);
    }
  } else {
    EXPECT_EQ(detected, QAV_OK);
    convertSome(h);
  }
  EXPECT_EQ(QAV_deleteHandle(h), QAV_OK);
  EXPECT_EQ(heap.live, 0) << "a leak";
  return failed;
}

TEST_F(AllocFailure, EveryAllocationOfEveryConversion) {
  for (const Conversion &c : kConversions)
    for (const bool goOn : {false, true}) {
      int failing = 1;
      while (live(c, failing, goOn)) ++failing;
      EXPECT_GE(failing, c.items.empty() ? 2 : 3) << c.name;
    }
}

TEST_F(AllocFailure, DetectingAgainWithoutReleaseLosesNothing) {
  for (const Conversion &c : kConversions)
    for (int failing = 2;; ++failing) {
      SCOPED_TRACE(std::string(c.name) + ", allocation " + std::to_string(failing));
      heap = Heap{};
      heap.failing = failing;
      QAV_Handle *h = nullptr;
      ASSERT_EQ(QAV_createHandle(&h), QAV_OK);
      setItems(h, c.items);
      const uint32_t first = QAV_detectConfigure(h);
      if (first == QAV_BAD_STATE) {
        EXPECT_EQ(QAV_detectConfigure(h), QAV_OK) << "there is memory again";
        convertSome(h);
      }
      EXPECT_EQ(QAV_deleteHandle(h), QAV_OK);
      EXPECT_EQ(heap.live, 0) << "a leak";
      if (first == QAV_OK) break;
    }
}

TEST_F(AllocFailure, ItemsAreRefusedOnceAnEncoderExists) {
  // The queue is the last thing that encoding at the input's rate builds.
  int last = 0;
  {
    heap = Heap{};
    const test::HandlePtr h = test::makeDetected({{6, 2}, {1, 44100}});
    last = heap.calls;
  }
  heap = Heap{};
  heap.failing = last;
  const test::HandlePtr h = test::makeHandle({{6, 2}, {1, 44100}});
  EXPECT_EQ(QAV_detectConfigure(h.get()), QAV_BAD_STATE);
  EXPECT_EQ(QAV_setConfigure(h.get(), QAV_ITEM_KBPS, 192), QAV_BAD_VALUE);
  QAV_releaseConfigure(h.get());
  EXPECT_EQ(QAV_setConfigure(h.get(), QAV_ITEM_KBPS, 192), QAV_OK);
}

TEST_F(AllocFailure, SizesDoNotWrap) {
  struct Case {
    Items items;
    uint64_t bytes;  // of the block that matters, without its header
    uint32_t result;
  };
  const Case cases[] = {
      {{{5, 1}, {12, 0x7FFFFFFF}}, 2 * uint64_t(0x7FFFFFFF) + 3, QAV_BAD_STATE},
      {{{6, 2}, {1, 44100}, {12, 0x7FFFFFFF}}, 4 * uint64_t(0x7FFFFFFF) + 3, QAV_BAD_STATE},
      {{{13, 1}, {12, 0x7FFFFFFF}}, 8 * uint64_t(0x7FFFFFFF), QAV_NO_MEMORY},
      {{{13, 1}, {12, 0x20000000}}, 8 * uint64_t(0x20000000), QAV_NO_MEMORY},
  };
  for (const Case &c : cases) {
    heap = Heap{};
    heap.limit = 1 << 24;
    const test::HandlePtr h = test::makeHandle(c.items);
    EXPECT_EQ(QAV_detectConfigure(h.get()), c.result);
    if (c.bytes < SIZE_MAX / 2) {
      EXPECT_GE(heap.largest, c.bytes);
      EXPECT_LE(heap.largest, c.bytes + 64);
    }
    if (c.result == QAV_NO_MEMORY) {
      EXPECT_EQ(QAV_detectConfigure(h.get()), QAV_OK) << "all items are unset: PCM to PCM at equal rates";
    }
  }
}

TEST_F(AllocFailure, NoBytesAreNeverAskedFor) {
  heap = Heap{};
  const test::HandlePtr h = test::makeHandle({{13, 1}});
  EXPECT_EQ(QAV_detectConfigure(h.get()), QAV_OK) << "an area for blocks of no bytes";
}

// What `init` stores, which must be null where it fails, whatever stood there.
template <typename T, typename Init>
bool makes(void *&out, Init init) {
  T *made = reinterpret_cast<T *>(1);
  const bool works = init(&made);
  out = made;
  return works;
}

// A family of functions besides the converter's, with the least that can be done with it.
struct Family {
  const char *name;
  std::function<bool(void *&)> init;  // whether it says that all went well
  std::function<void(void *)> use, term;
};

const Family kFamilies[] = {
    {"queue",
     [](void *&f) { return makes<ByteFifo>(f, [](ByteFifo **out) { return NEB_bufferingInit(out, 100) == 0; }); },
     [](void *f) {
       const Bytes block(100, 7);
       const uint8_t *unit = nullptr;
       EXPECT_EQ(NEB_bufferingLock(static_cast<ByteFifo *>(f), block.data(), 100), 0);
       EXPECT_EQ(NEB_bufferingGet(static_cast<ByteFifo *>(f), 30, &unit), 30);
       EXPECT_EQ(NEB_bufferingUnlock(static_cast<ByteFifo *>(f)), 0);
       EXPECT_EQ(NEB_bufferingGetSize(static_cast<ByteFifo *>(f)), 70);
     },
     [](void *f) { NEB_bufferingTerm(static_cast<ByteFifo *>(f)); }},
    {"rates",
     [](void *&s) {
       return makes<FreqChangeState>(s, [](FreqChangeState **out) {
         const int32_t result = NEB_freqChangeInit(out, 44100, 48000, 2, 0);
         EXPECT_EQ(result, *out == nullptr ? 1 : 0);
         return result == 0;
       });
     },
     [](void *s) {
       const std::vector<int16_t> in(200, 1);
       std::vector<int16_t> out(400);
       uint32_t n = 0;
       EXPECT_EQ(NEB_freqChange(static_cast<FreqChangeState *>(s), in.data(), 100, out.data(), &n), 0);
       EXPECT_GT(n, 100u);
     },
     [](void *s) { NEB_freqChangeTerm(static_cast<FreqChangeState *>(s)); }},
    {"decoder",
     [](void *&s) {
       return makes<DecoderSession>(
           s, [](DecoderSession **out) { return zo_mpeg_Decode1FrameInit(out) == QAV_DECODE_OK; });
     },
     [](void *s) {
       static const Bytes in = testData("l2_stereo_44k_192_crc.mp2");
       std::vector<int16_t> out(QAV_MAX_FRAME_PCM_BYTES / 2);
       uint32_t n = 0, consumed = 0;
       EXPECT_EQ(zo_mpeg_Decode1Frame(static_cast<DecoderSession *>(s), in.data(), uint32_t(in.size()), out.data(), &n,
                                      &consumed),
                 QAV_DECODE_OK);
       EXPECT_EQ(n, 4608u);
     },
     [](void *s) { zo_mpeg_Decode1FrameTerm(static_cast<DecoderSession *>(s)); }},
    {"encoder",
     [](void *&s) {
       return makes<EncoderSession>(s, [](EncoderSession **out) {
         return zo_mpeg_Encode1FrameInit(out, 44100, 192, 2, nullptr) == QAV_ENCODE_OK;
       });
     },
     [](void *s) {
       const std::vector<int16_t> in(2304, 1);
       Bytes out(QAV_MAX_FRAME_BYTES + QAV_ENCODE_SLACK_BYTES);
       uint32_t n = 0;
       EXPECT_EQ(zo_mpeg_Encode1Frame(static_cast<EncoderSession *>(s), in.data(), 1152, out.data(), &n), 0);
       EXPECT_GT(n, 600u);
     },
     [](void *s) { zo_mpeg_Encode1FrameTerm(static_cast<EncoderSession *>(s)); }},
    {"model",
     [](void *&s) {
       FrameParams params = {};
       params.freqHz = 44100;
       s = neb_psycho_analInit(&params);
       return s != nullptr;
     },
     [](void *s) {
       const std::vector<int16_t> in(1152, 1);
       float smr[32] = {};
       neb_psycho_anal(in.data(), 0, smr, static_cast<PsychoState *>(s));
       EXPECT_NE(smr[0], 0.0f);
     },
     [](void *s) { __wrap_free(s); }},
};

TEST_F(AllocFailure, EveryAllocationOfEveryOtherFamily) {
  for (const Family &family : kFamilies) {
    int failing = 1;
    for (;; ++failing) {
      SCOPED_TRACE(std::string(family.name) + ", allocation " + std::to_string(failing));
      heap = Heap{};
      heap.failing = failing;
      void *state = &heap;
      const bool works = family.init(state);
      EXPECT_EQ(works, heap.calls < failing);
      if (works) {
        const int before = heap.calls;
        family.use(state);
        EXPECT_EQ(heap.calls, before) << "only what makes the object allocates";
        family.term(state);
      } else {
        EXPECT_EQ(state, nullptr);
        family.term(nullptr);
      }
      EXPECT_EQ(heap.live, 0) << "a leak";
      if (works) break;
    }
    EXPECT_GE(failing, 2) << family.name << " allocates";
  }
}

}  // namespace
}  // namespace qav
