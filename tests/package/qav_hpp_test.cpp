#include <gtest/gtest.h>

#include <qav.hpp>
#include <type_traits>

namespace {

// An owner is no larger than a pointer and moves without throwing.
static_assert(sizeof(qav::Converter) == sizeof(QAV_Handle *));
static_assert(std::is_nothrow_move_constructible_v<qav::Decoder>);
static_assert(!std::is_copy_constructible_v<qav::Encoder>);

TEST(QavHpp, EveryMakerGivesAnObject) {
  EXPECT_TRUE(qav::makeConverter());
  EXPECT_TRUE(qav::makeDecoder());
  EXPECT_TRUE(qav::makeEncoder(48000, 192, 2));
  EXPECT_TRUE(qav::makeFreqChange(44100, 48000, 2));
  EXPECT_TRUE(qav::makeFifo(4096));
  FrameParams fp{};
  fp.samplingIndex = 1;
  fp.freqHz = 48000;
  EXPECT_TRUE(qav::makePsycho(fp));
}

TEST(QavHpp, WhatTheInterfaceRefusesIsAnEmptyOwner) {
  EXPECT_FALSE(qav::makeEncoder(22050, 192, 2));
  EXPECT_FALSE(qav::makeEncoder(48000, 100, 2));
}

TEST(QavHpp, MovingHandsTheObjectOn) {
  qav::Fifo a = qav::makeFifo(16);
  ByteFifo *const object = a.get();
  const qav::Fifo b = std::move(a);
  EXPECT_EQ(b.get(), object);
  EXPECT_FALSE(a);
}

// The leak check of the address sanitizer's build looks at what stays behind.
TEST(QavHpp, AConverterTakesAllItBuiltWithIt) {
  const qav::Converter converter = qav::makeConverter();
  ASSERT_TRUE(converter);
  QAV_setConfigure(converter.get(), QAV_ITEM_IN_FORMAT, QAV_FORMAT_PCM);
  QAV_setConfigure(converter.get(), QAV_ITEM_OUT_FORMAT, QAV_FORMAT_LAYER2);
  QAV_setConfigure(converter.get(), QAV_ITEM_IN_FREQ_HZ, 44100);
  QAV_setConfigure(converter.get(), QAV_ITEM_OUT_FREQ_HZ, 48000);
  QAV_setConfigure(converter.get(), QAV_ITEM_INPUT_8BIT, 1);
  EXPECT_EQ(QAV_detectConfigure(converter.get()), QAV_OK);
}

}  // namespace
