#include "tools/threads/stretch_encoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <complex>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/pcm/layer2_encoder.h"
#include "tools/threads/ordered_work.h"

namespace qav::tool {
namespace {

constexpr unsigned kFrame = QAV_SAMPLES_PER_FRAME;
constexpr unsigned kRates[] = {32000, 44100, 48000};
constexpr unsigned kBitrates[] = {32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384};

// Tones, which the model predicts from the frames before, under noise whose level changes from frame to frame: no frame
// is like another one.
class Signal {
 public:
  Signal(uint64_t frames, unsigned channels) : left_(frames), channels_(channels) {
    phasors_.fill(4000);
    for (size_t t = 0; t < steps_.size(); ++t) steps_[t] = std::polar(1.0, 0.043 * static_cast<double>(t * t + 1));
  }

  bool next(int16_t *samples) {
    if (left_ == 0) return false;
    --left_;
    const int shift = static_cast<int>(5 + random_() % 12);
    for (unsigned i = 0; i < kFrame; ++i) {
      double tones = 0;
      for (size_t t = 0; t < phasors_.size(); ++t) {
        phasors_[t] *= steps_[t];
        tones += phasors_[t].imag();
      }
      for (unsigned c = 0; c < channels_; ++c)
        *samples++ = static_cast<int16_t>(static_cast<int>(c == 0 ? tones : tones / 3) +
                                          (static_cast<int16_t>(random_()) >> shift));
    }
    return true;
  }

 private:
  std::minstd_rand random_{20261121};
  std::array<std::complex<double>, 6> phasors_, steps_;
  uint64_t left_;
  unsigned channels_;
};

// The stream, and a digest of the samples that came with its frames.
struct Result {
  std::vector<uint8_t> stream;
  std::vector<uint32_t> frameBytes;
  uint64_t digest = 0;
  bool operator==(const Result &) const = default;
};

Result encode(const StreamFormat &format, uint64_t frames, unsigned threads, const StreamRequest &request = {}) {
  Signal signal(frames, format.channels);
  Result result;
  encodeStretches(
      format, request, threads, [&](int16_t *samples) { return signal.next(samples); },
      [&](const int16_t *samples, const uint8_t *frame, uint32_t bytes) {
        result.stream.insert(result.stream.end(), frame, frame + bytes);
        result.frameBytes.push_back(bytes);
        for (unsigned i = 0; i < kFrame * format.channels; ++i)
          result.digest = result.digest * 31 + static_cast<uint16_t>(samples[i]);
      });
  return result;
}

TEST(StretchEncoder, AnyNumberOfThreadsMakesTheSameStreamAtEveryRate) {
  for (const unsigned rate : kRates) {
    for (const unsigned channels : {1u, 2u}) {
      const StreamFormat format{96 * channels, rate, channels};
      const Result serial = encode(format, 2000, 1);
      ASSERT_EQ(serial.frameBytes.size(), 2000u);
      for (const unsigned threads : {2u, 3u, 4u, 7u, 8u})
        EXPECT_TRUE(encode(format, 2000, threads) == serial) << rate << " Hz, " << channels << ", " << threads;
    }
  }
}

TEST(StretchEncoder, EveryBitrateKeepsItsPadding) {
  for (const unsigned kbps : kBitrates) {
    for (const unsigned channels : {1u, 2u}) {
      const auto &legal = layer2Bitrates(channels);
      if (std::find(legal.begin(), legal.end(), kbps) == legal.end()) continue;
      StreamRequest request;
      request.checkWord = kbps % 64 != 0;
      const StreamFormat format{kbps, 44100, channels};
      EXPECT_TRUE(encode(format, 700, 2, request) == encode(format, 700, 1, request)) << kbps << ", " << channels;
    }
  }
}

TEST(StretchEncoder, StreamsEndAnywhere) {
  const StreamFormat format{64, 44100, 1};
  for (const uint64_t frames : std::initializer_list<uint64_t>{0, 1, 2, 3, 48, 49, 50, 146, 147, 148, 149, 195, 196,
                                                               197, 198, 293, 294, 295, 400})
    EXPECT_TRUE(encode(format, frames, 3) == encode(format, frames, 1)) << frames;
}

TEST(StretchEncoder, MoreThreadsThanAreUsed) {
  const StreamFormat format{64, 44100, 1};
  EXPECT_TRUE(encode(format, 500, 4096) == encode(format, 500, 1));
}

// What the encoders' turns rest on: padding repeats after 49 frames, for longer than any stream lasts, although it is
// decided by sums in double precision that are not exact multiples of a 49th.
TEST(StretchEncoder, PaddingRepeats) {
  for (const unsigned kbps : kBitrates) {
    const StreamFormat format{kbps, 44100, 2};
    const Result encoded = encode(format, 100, 1);
    const double slots = kbps / 8 * 1152000.0 / 44100.0;
    const uint32_t whole = static_cast<uint32_t>(slots);
    const double fraction = slots - whole;
    double lag = -fraction;
    std::vector<bool> period;
    for (size_t frame = 0; frame < 3'000'000; ++frame) {
      const bool padded = !(lag > fraction - 1.0);
      lag += padded ? 1.0 - fraction : -fraction;
      if (frame < encoded.frameBytes.size()) {
        ASSERT_EQ(encoded.frameBytes[frame], whole + padded) << kbps << " kbit/s, frame " << frame;
      }
      if (frame < 49) period.push_back(padded);
      ASSERT_EQ(padded, period[frame % 49]) << kbps << " kbit/s, frame " << frame;
    }
  }
}

TEST(StretchEncoder, AFailureComesAfterTheFramesBeforeIt) {
  const StreamFormat format{64, 44100, 1};
  for (const unsigned threads : {1u, 2u, 4u}) {
    for (const size_t at : {0u, 1u, 100u, 333u}) {
      Signal signal(1000, 1);
      size_t given = 0, taken = 0;
      const auto next = [&](int16_t *samples) {
        if (given++ == at) throw std::runtime_error("the input broke");
        return signal.next(samples);
      };
      EXPECT_THROW(
          encodeStretches(format, {}, threads, next, [&](const int16_t *, const uint8_t *, uint32_t) { ++taken; }),
          std::runtime_error);
      EXPECT_EQ(taken, at);
    }
  }
}

TEST(StretchEncoder, AFailureToTakeEndsTheWork) {
  Signal signal(100'000'000, 1);  // would take a day
  size_t taken = 0;
  EXPECT_THROW(encodeStretches(
                   {64, 44100, 1}, {}, 4, [&](int16_t *samples) { return signal.next(samples); },
                   [&](const int16_t *, const uint8_t *, uint32_t) {
                     if (++taken == 1000) throw std::runtime_error("the output broke");
                   }),
               std::runtime_error);
  EXPECT_EQ(taken, 1000u);
}

}  // namespace
}  // namespace qav::tool
