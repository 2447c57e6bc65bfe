// What the tests of the converter share.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "include/qav.h"

namespace qav::test {

using Bytes = std::vector<uint8_t>;
using Samples = std::vector<int16_t>;

struct DeleteHandle {
  void operator()(QAV_Handle *h) const { QAV_deleteHandle(h); }
};
using HandlePtr = std::unique_ptr<QAV_Handle, DeleteHandle>;

using Items = std::vector<std::pair<uint32_t, uint32_t>>;

// A handle with these items set.
inline HandlePtr makeHandle(const Items &items) {
  QAV_Handle *h = nullptr;
  EXPECT_EQ(QAV_createHandle(&h), QAV_OK);
  for (const auto &[item, value] : items) EXPECT_EQ(QAV_setConfigure(h, item, value), QAV_OK) << "item " << item;
  return HandlePtr(h);
}

inline HandlePtr makeDetected(const Items &items) {
  HandlePtr h = makeHandle(items);
  EXPECT_EQ(QAV_detectConfigure(h.get()), QAV_OK);
  return h;
}

inline HandlePtr makeDecoding() {
  return makeDetected({{QAV_ITEM_IN_FORMAT, QAV_FORMAT_MPEG}, {QAV_ITEM_OUT_FORMAT, QAV_FORMAT_PCM}});
}

inline uint32_t item(const HandlePtr &h, uint32_t which) {
  uint32_t value = 0xDEAD;
  EXPECT_EQ(QAV_getConfigure(h.get(), which, &value, nullptr), QAV_OK) << "item " << which;
  return value;
}

inline uint32_t losses(const HandlePtr &h, uint32_t *selector) {
  uint32_t value = 0xDEAD;
  EXPECT_EQ(QAV_getConfigure(h.get(), QAV_ITEM_LOSSES, selector, &value), QAV_OK);
  return value;
}

// One block through the converter. Input and output are heap blocks of exactly `in`'s size and `room` bytes, so that a
// sanitizer sees every step beyond them. A result other than `expected` fails the test.
inline Bytes convert(const HandlePtr &h, const Bytes &in, size_t room, uint32_t expected = QAV_OK) {
  const Bytes block = in;
  Bytes out(room);
  uint32_t outBytes = 0;
  EXPECT_EQ(QAV_convert(h.get(), block.data(), uint32_t(block.size()), out.data(), &outBytes), expected);
  EXPECT_LE(outBytes, room);
  out.resize(outBytes);
  return out;
}

// A file of tests/data.
Bytes testData(const std::string &name);

inline Bytes bytesOf(const Samples &samples) {
  const auto *const p = reinterpret_cast<const uint8_t *>(samples.data());
  return {p, p + samples.size() * sizeof(int16_t)};
}

inline Samples noise(size_t n, unsigned seed, int amplitude = 20000) {
  std::mt19937 random(seed);
  Samples samples(n);
  for (int16_t &v : samples) v = int16_t(int(random() % unsigned(2 * amplitude + 1)) - amplitude);
  return samples;
}

// `all`, cut into blocks of the sizes that `blockBytes` gives.
inline std::vector<Bytes> cut(const Bytes &all, const std::function<size_t()> &blockBytes) {
  std::vector<Bytes> blocks;
  for (size_t at = 0; at < all.size();) {
    const size_t n = std::min(blockBytes(), all.size() - at);
    blocks.emplace_back(all.begin() + std::ptrdiff_t(at), all.begin() + std::ptrdiff_t(at + n));
    at += n;
  }
  return blocks;
}

inline void append(Bytes &to, const Bytes &more) { to.insert(to.end(), more.begin(), more.end()); }

}  // namespace qav::test
