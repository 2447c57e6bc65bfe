#include "tools/pcm/trimmed_target.h"

#include <gtest/gtest.h>

#include <numeric>
#include <random>
#include <vector>

namespace qav::tool {
namespace {

class Collector final : public PcmTarget {
 public:
  void open(uint32_t, uint32_t channels) override { channels_ = channels; }
  void write(const int16_t *samples, size_t frames) override {
    all.insert(all.end(), samples, samples + frames * channels_);
  }
  void close() override { closed = true; }

  std::vector<int16_t> all;
  bool closed = false;

 private:
  uint32_t channels_ = 0;
};

std::vector<int16_t> counting(size_t count) {
  std::vector<int16_t> samples(count);
  std::iota(samples.begin(), samples.end(), int16_t{0});
  return samples;
}

TEST(TrimmedTarget, HeadAndTailWhereverTheBlocksAreCut) {
  std::mt19937 random(1);
  for (const uint32_t channels : {1u, 2u}) {
    for (const std::optional<uint64_t> length :
         {std::optional<uint64_t>(), std::optional<uint64_t>(0), std::optional<uint64_t>(2000),
          std::optional<uint64_t>(4000 - 481), std::optional<uint64_t>(9999)}) {
      for (const size_t largest : {size_t{1}, size_t{7}, size_t{1152}, size_t{4000}}) {
        Collector collector;
        TrimmedTarget target(collector, 481, length);
        target.open(48000, channels);
        const std::vector<int16_t> given = counting(4000 * channels);
        for (size_t at = 0; at < 4000;) {
          const size_t n = std::min<size_t>(4000 - at, 1 + random() % largest);
          target.write(given.data() + at * channels, n);
          at += n;
        }
        target.close();
        const uint64_t kept = std::min<uint64_t>(length.value_or(4000), 4000 - 481);
        const auto first = given.begin() + 481 * static_cast<std::ptrdiff_t>(channels);
        EXPECT_EQ(collector.all, std::vector<int16_t>(first, first + static_cast<std::ptrdiff_t>(kept * channels)));
        EXPECT_EQ(target.padding(), 4000 - 481 - kept);
        EXPECT_TRUE(collector.closed);
      }
    }
  }
}

TEST(TrimmedTarget, LessThanTheDelayIsNothing) {
  Collector collector;
  TrimmedTarget target(collector, 481, 100);
  target.open(48000, 1);
  target.write(counting(480).data(), 480);
  EXPECT_TRUE(collector.all.empty());
  EXPECT_EQ(target.padding(), 0u);
}

TEST(TrimmedTarget, AForgottenLengthCutsNothing) {
  Collector collector;
  TrimmedTarget target(collector, 0, 10);
  target.open(48000, 1);
  target.write(counting(5).data(), 5);
  target.forgetLength();
  target.write(counting(100).data(), 100);
  EXPECT_EQ(collector.all.size(), 105u);
}

}  // namespace
}  // namespace qav::tool
