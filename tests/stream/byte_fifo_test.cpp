#include "stream/byte_fifo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <memory>
#include <random>
#include <vector>

namespace {

struct TermFifo {
  void operator()(ByteFifo *f) const { NEB_bufferingTerm(f); }
};
using FifoPtr = std::unique_ptr<ByteFifo, TermFifo>;

FifoPtr makeFifo(uint32_t capacity) {
  ByteFifo *f = nullptr;
  EXPECT_EQ(NEB_bufferingInit(&f, capacity), 0);
  return FifoPtr(f);
}

std::vector<uint8_t> counting(size_t n, int first = 0) {
  std::vector<uint8_t> bytes(n);
  for (size_t i = 0; i < n; ++i) bytes[i] = uint8_t(first + int(i));
  return bytes;
}

std::vector<uint8_t> get(ByteFifo *f, uint32_t n) {
  const uint8_t *unit = nullptr;
  const int32_t got = NEB_bufferingGet(f, n, &unit);
  return {unit, unit + got};
}

bool inside(const uint8_t *p, const std::vector<uint8_t> &block) {
  return p >= block.data() && p < block.data() + block.size();
}

TEST(ByteFifo, StorageIsTwiceTheCapacityAndThree) {
  const FifoPtr f = makeFifo(8192);
  EXPECT_EQ(f->storageBytes, 16387u);
  EXPECT_EQ(NEB_bufferingGetSize(f.get()), 0);
}

TEST(ByteFifo, StorageSizeDoesNotWrap) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "gigabytes that are never touched are free, but not their shadow";
#endif
  for (const uint32_t capacity : {0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFEu, 0xFFFFFFFFu}) {
    ByteFifo *f = reinterpret_cast<ByteFifo *>(1);
    const int32_t result = NEB_bufferingInit(&f, capacity);
    if (result == 0) {
      EXPECT_EQ(f->storageBytes, 2 * uint64_t(capacity) + 3);
    } else {
      EXPECT_EQ(result, 1);
      EXPECT_EQ(f, nullptr);
    }
    EXPECT_EQ(NEB_bufferingTerm(f), 0);
  }
}

TEST(ByteFifo, UnitsInsideTheChunkAreNotCopied) {
  const FifoPtr f = makeFifo(16);
  const std::vector<uint8_t> chunk = counting(10);
  const uint8_t *unit;
  ASSERT_EQ(NEB_bufferingLock(f.get(), chunk.data(), 10), 0);
  EXPECT_EQ(NEB_bufferingGet(f.get(), 4, &unit), 4);
  EXPECT_EQ(unit, chunk.data());
  EXPECT_EQ(NEB_bufferingGet(f.get(), 4, &unit), 4);
  EXPECT_EQ(unit, chunk.data() + 4);
  EXPECT_EQ(NEB_bufferingUnlock(f.get()), 0);
  EXPECT_EQ(NEB_bufferingGetSize(f.get()), 2);
  EXPECT_EQ(f->carryPtr, reinterpret_cast<uint8_t *>(f.get() + 1));
  EXPECT_EQ(get(f.get(), 2), (std::vector<uint8_t>{8, 9}));
}

TEST(ByteFifo, UnitAcrossCarryAndChunkIsAssembled) {
  const FifoPtr f = makeFifo(16);
  const std::vector<uint8_t> first = counting(2), second = counting(10, 100);
  NEB_bufferingLock(f.get(), first.data(), 2);
  NEB_bufferingUnlock(f.get());
  ASSERT_EQ(NEB_bufferingLock(f.get(), second.data(), 10), 0);
  EXPECT_EQ(NEB_bufferingGetSize(f.get()), 12);
  const uint8_t *unit;
  ASSERT_EQ(NEB_bufferingGet(f.get(), 4, &unit), 4);
  EXPECT_FALSE(inside(unit, second));
  EXPECT_EQ(std::vector<uint8_t>(unit, unit + 4), (std::vector<uint8_t>{0, 1, 100, 101}));
  EXPECT_EQ(NEB_bufferingGetSize(f.get()), 8);
  NEB_bufferingGet(f.get(), 8, &unit);
  EXPECT_EQ(unit, second.data() + 2);
}

TEST(ByteFifo, AskingForMoreThanThereIsEmptiesIt) {
  const FifoPtr f = makeFifo(16);
  const std::vector<uint8_t> chunk = counting(5);
  NEB_bufferingLock(f.get(), chunk.data(), 5);
  const uint8_t *unit;
  ASSERT_EQ(NEB_bufferingGet(f.get(), 6, &unit), 5);
  EXPECT_FALSE(inside(unit, chunk)) << "a short unit is a copy";
  EXPECT_EQ(std::vector<uint8_t>(unit, unit + 5), chunk);
  EXPECT_EQ(NEB_bufferingGetSize(f.get()), 0);
  EXPECT_EQ(NEB_bufferingGet(f.get(), 1, &unit), 0);
  NEB_bufferingUnlock(f.get());
  EXPECT_EQ(NEB_bufferingGetSize(f.get()), 0);
}

TEST(ByteFifo, NothingCanBeAskedForAtAnyTime) {
  const FifoPtr f = makeFifo(16);
  const uint8_t *unit;
  EXPECT_EQ(NEB_bufferingGet(f.get(), 0, &unit), 0);
  const std::vector<uint8_t> chunk = counting(3);
  NEB_bufferingLock(f.get(), chunk.data(), 3);
  EXPECT_EQ(NEB_bufferingGet(f.get(), 0, &unit), 0);
  EXPECT_EQ(NEB_bufferingGetSize(f.get()), 3);
}

TEST(ByteFifo, LockAboveTheCapacityIsRefused) {
  const FifoPtr f = makeFifo(4);
  const std::vector<uint8_t> chunk = counting(5);
  NEB_bufferingLock(f.get(), chunk.data(), 4);
  EXPECT_EQ(NEB_bufferingLock(f.get(), chunk.data(), 5), 1);
  EXPECT_EQ(get(f.get(), 4), counting(4)) << "what was there stays readable";
}

TEST(ByteFifo, EmptyLockChangesNothing) {
  const FifoPtr f = makeFifo(4);
  const std::vector<uint8_t> chunk = counting(3);
  NEB_bufferingLock(f.get(), chunk.data(), 3);
  NEB_bufferingUnlock(f.get());
  EXPECT_EQ(NEB_bufferingLock(f.get(), nullptr, 0), 0);
  EXPECT_EQ(NEB_bufferingGetSize(f.get()), 3);
  EXPECT_EQ(get(f.get(), 9), counting(3));
  NEB_bufferingUnlock(f.get());

  NEB_bufferingLock(f.get(), chunk.data(), 3);
  EXPECT_EQ(NEB_bufferingLock(f.get(), nullptr, 0), 0);
  EXPECT_EQ(get(f.get(), 3), counting(3)) << "also while a chunk is locked";
}

TEST(ByteFifo, LockThatCouldNotBeKeptIsRefused) {
  const FifoPtr f = makeFifo(8);
  const std::vector<uint8_t> chunk = counting(8);
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(NEB_bufferingLock(f.get(), chunk.data(), 8), 0);
    NEB_bufferingUnlock(f.get());
  }
  EXPECT_EQ(NEB_bufferingLock(f.get(), chunk.data(), 4), 1) << "20 bytes into 19";
  EXPECT_EQ(NEB_bufferingLock(f.get(), chunk.data(), 3), 0);
  NEB_bufferingUnlock(f.get());
  EXPECT_EQ(NEB_bufferingGetSize(f.get()), 19);
  EXPECT_EQ(NEB_bufferingLock(f.get(), chunk.data(), 1), 1);
  std::vector<uint8_t> all = counting(8);
  all.insert(all.end(), chunk.begin(), chunk.end());
  all.insert(all.end(), chunk.begin(), chunk.begin() + 3);
  EXPECT_EQ(get(f.get(), 19), all);
}

TEST(ByteFifo, UnitFromTheMiddleOfTheCarryThenAcross) {
  const FifoPtr f = makeFifo(16);
  const std::vector<uint8_t> chunk = counting(16), more = counting(4, 16);
  NEB_bufferingLock(f.get(), chunk.data(), 16);
  NEB_bufferingUnlock(f.get());
  EXPECT_EQ(get(f.get(), 3), counting(3));
  NEB_bufferingLock(f.get(), more.data(), 4);
  EXPECT_EQ(get(f.get(), 15), counting(15, 3)) << "13 carried bytes move down over themselves";
  EXPECT_EQ(get(f.get(), 2), counting(2, 18));
}

TEST(ByteFifo, TermTakesNull) { EXPECT_EQ(NEB_bufferingTerm(nullptr), 0); }

// Random calls against a plain queue. Chunks are freed right after the unlock, so that a sanitizer sees any use of them
// that comes too late.
TEST(ByteFifo, BehavesAsAQueue) {
  constexpr unsigned kSeed = 20240611;
  std::mt19937 random(kSeed);
  auto below = [&](size_t n) { return uint32_t(random() % n); };
  for (int round = 0; round < 300; ++round) {
    const uint32_t capacity = round % 10 == 0 ? 0 : 1 + below(200);
    const FifoPtr f = makeFifo(capacity);
    std::deque<uint8_t> model;
    uint8_t next = 0;
    for (int i = 0; i < 200; ++i) {
      const uint32_t len = below(2 * capacity + 2);
      auto chunk = std::make_unique<std::vector<uint8_t>>(len);
      for (uint8_t &byte : *chunk) byte = next++;
      const bool fits = len <= capacity && model.size() + len <= 2 * size_t(capacity) + 3;
      ASSERT_EQ(NEB_bufferingLock(f.get(), chunk->data(), len), len == 0 || fits ? 0 : 1) << "seed " << kSeed;
      if (fits) model.insert(model.end(), chunk->begin(), chunk->end());
      for (uint32_t gets = below(6); gets > 0; --gets) {
        const uint32_t n = below(below(4) == 0 ? 3 * capacity + 5 : capacity / 3 + 2);
        const uint8_t *unit = nullptr;
        const size_t expected = std::min<size_t>(n, model.size());
        ASSERT_EQ(NEB_bufferingGet(f.get(), n, &unit), int32_t(expected)) << "seed " << kSeed;
        ASSERT_TRUE(std::equal(unit, unit + expected, model.begin())) << "seed " << kSeed;
        model.erase(model.begin(), model.begin() + std::ptrdiff_t(expected));
        ASSERT_EQ(NEB_bufferingGetSize(f.get()), int32_t(model.size()));
      }
      ASSERT_EQ(NEB_bufferingUnlock(f.get()), 0);
      chunk.reset();
      ASSERT_EQ(NEB_bufferingGetSize(f.get()), int32_t(model.size())) << "seed " << kSeed;
    }
  }
}

}  // namespace
