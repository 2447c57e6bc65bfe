#include "tools/loudness/wave_levels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "tests/tools/loudness_support.h"

namespace qav::tool {
namespace {

using test::Random;

std::vector<int16_t> samples(size_t count, double least, double greatest) {
  Random random(17);
  std::vector<int16_t> all(count);
  for (int16_t &sample : all)
    sample = static_cast<int16_t>(std::clamp(uniform(random, least, greatest), -32768.0, 32767.0));
  return all;
}

TEST(WaveLevels, AreThoseOfEverySample) {
  for (const auto &[least, greatest] :
       {std::pair(-40000.0, 40000.0), std::pair(-9.0, 9.0), std::pair(-32768.0, -32000.0), std::pair(32767.0, 32767.0),
        std::pair(-32768.0, -32768.0)})
    for (const size_t count : {1u, 2u, 15u, 47u, 48u, 143u, 144u, 1152u, 65535u}) {
      const std::vector<int16_t> all = samples(count, least, greatest);
      uint64_t energy = 0;
      for (const int16_t x : all) energy += static_cast<uint64_t>(int64_t{x} * x);
      for (const VectorLevel level : vectorLevels()) {
        const WaveLevels levels = levelsOf(all.data(), count, level);
        EXPECT_EQ(levels.least, *std::min_element(all.begin(), all.end()));
        EXPECT_EQ(levels.greatest, *std::max_element(all.begin(), all.end()));
        EXPECT_EQ(levels.energy, energy) << least << " " << count;
        EXPECT_EQ(levels.clipped,
                  std::count_if(all.begin(), all.end(), [](int16_t x) { return x == -32768 || x == 32767; }));
      }
    }
}

TEST(WaveLevels, ChannelsAreTakenApart) {
  for (const size_t count : {1u, 31u, 384u, 1152u}) {
    const std::vector<int16_t> all = samples(2 * count, -40000.0, 40000.0);
    for (const VectorLevel level : vectorLevels()) {
      std::vector<int16_t> left(count), right(count);
      separateChannels(all.data(), 2, count, left.data(), right.data(), level);
      for (size_t i = 0; i < count; ++i) ASSERT_TRUE(left[i] == all[2 * i] && right[i] == all[2 * i + 1]) << i;
      separateChannels(all.data(), 1, count, left.data(), nullptr, level);
      EXPECT_TRUE(std::equal(left.begin(), left.end(), all.begin()));
    }
  }
}

}  // namespace
}  // namespace qav::tool
