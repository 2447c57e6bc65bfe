#include "format/frame_header.h"

#include <gtest/gtest.h>

#include <cmath>

#include "format/alloc_tables.h"

namespace qav {
namespace {

int32_t parse(FrameParams &fp, int b0, int b1, int b2, int b3) {
  const uint8_t header[4] = {uint8_t(b0), uint8_t(b1), uint8_t(b2), uint8_t(b3)};
  return parseFrameHeader(header, fp);
}

int32_t frameSize(int b1, int b2, int b3 = 0) {
  FrameParams fp{};
  return parse(fp, 0xFF, b1, b2, b3);
}

TEST(FrameHeader, SizesOfKnownHeaders) {
  EXPECT_EQ(frameSize(0xFC, 0x80), 417);  // Layer II, 128 kbit/s, 44100 Hz
  EXPECT_EQ(frameSize(0xFC, 0x82), 418);  // padded
  EXPECT_EQ(frameSize(0xFC, 0x90), 522);  // index 9 is 160 kbit/s
  EXPECT_EQ(frameSize(0xFC, 0x92), 523);
  EXPECT_EQ(frameSize(0xFC, 0x94), 480);   // 160 kbit/s, 48000 Hz
  EXPECT_EQ(frameSize(0xFC, 0xE8), 1728);  // 384 kbit/s, 32000 Hz
  EXPECT_EQ(frameSize(0xFC, 0xEA), QAV_MAX_FRAME_BYTES);
  EXPECT_EQ(frameSize(0xFC, 0x10), 104);  // 32 kbit/s, 44100 Hz
  EXPECT_EQ(frameSize(0xFE, 0xE0), 484);  // Layer I, 448 kbit/s, 44100 Hz
  EXPECT_EQ(frameSize(0xFE, 0xE2), 488);  // a slot of Layer I is 4 bytes
  EXPECT_EQ(frameSize(0xF4, 0x84), 384);  // Layer II, 64 kbit/s, 24000 Hz
  EXPECT_EQ(frameSize(0xFE, 0x14), 32);   // the shortest: Layer I, 32 kbit/s, 48000 Hz
}

TEST(FrameHeader, EveryAcceptedSizeIsTheFormulaOfTheStandardInDoublePrecision) {
  int accepted = 0;
  for (int b1 = 0; b1 < 256; ++b1)
    for (int b2 = 0; b2 < 256; ++b2) {
      FrameParams fp{};
      const int32_t size = parse(fp, 0xFF, b1, b2, 0);
      if (size == -1) continue;
      ++accepted;
      const double slots = (fp.layer == 1 ? 12 : 144) * double(fp.kbps) / (fp.freqHz * 0.001);
      EXPECT_EQ(size, (int32_t(slots) + fp.padding) * (fp.layer == 1 ? 4 : 1)) << b1 << " " << b2;
      EXPECT_LE(size, QAV_MAX_FRAME_BYTES);
      EXPECT_GE(size, 32);
    }
  EXPECT_EQ(accepted, 2 * 2 * 2 * 14 * 3 * 4);  // version, layer, protection, bitrate, rate, padding and private bit
}

// ISO/IEC 11172-3, 2.4.2.3, and ISO/IEC 13818-3, 2.4.2.3: the steps between the bitrates grow with them.
TEST(FrameHeader, Bitrates) {
  const auto kbpsOf = [](int b1, int index) {
    FrameParams fp{};
    return parse(fp, 0xFF, b1, index << 4, 0) > 0 ? fp.kbps : 0;
  };
  // Three that come before 64 kbit/s, and from there on in steps of 16.
  const auto inSixteens = [](int index) { return index < 4 ? 32 + (index > 1 ? 8 * index : 0) : 16 * index; };
  for (int index = 1; index < 15; ++index) {
    EXPECT_EQ(kbpsOf(0xFE, index), 32 * index) << "MPEG-1, Layer I";
    EXPECT_EQ(kbpsOf(0xFC, index), index < 9    ? inSixteens(index)
                                   : index < 13 ? 32 * (index - 4)
                                                : 64 * (index - 8))
        << "MPEG-1, Layer II";
    EXPECT_EQ(kbpsOf(0xF6, index), index < 12 ? inSixteens(index) : 32 * (index - 6)) << "MPEG-2, Layer I";
    EXPECT_EQ(kbpsOf(0xF4, index), index < 9 ? 8 * index : 16 * (index - 4)) << "MPEG-2, Layer II";
  }
}

TEST(FrameHeader, Refusals) {
  FrameParams fp{};
  EXPECT_EQ(parse(fp, 0xFE, 0xFC, 0x90, 0), -1);  // sync word
  EXPECT_EQ(frameSize(0xEC, 0x90), -1);
  EXPECT_EQ(frameSize(0xFB, 0x90), -1);  // Layer III
  EXPECT_EQ(frameSize(0xF9, 0x90), -1);  // reserved layer
  EXPECT_EQ(frameSize(0xFC, 0x00), -1);  // free format
  EXPECT_EQ(frameSize(0xFC, 0xF0), -1);  // forbidden bitrate index
  EXPECT_EQ(frameSize(0xFC, 0x9C), -1);  // reserved sampling rate
}

TEST(FrameHeader, FieldsAreStoredAsTheirMeaning) {
  FrameParams fp{};
  ASSERT_EQ(parse(fp, 0xFF, 0xFC, 0x83, 0x6D), 418);
  EXPECT_EQ(fp.id, 1);
  EXPECT_EQ(fp.layer, 2);
  EXPECT_EQ(fp.protection, 1);
  EXPECT_EQ(fp.bitrateIndex, 8);
  EXPECT_EQ(fp.samplingIndex, 0);
  EXPECT_EQ(fp.padding, 1);
  EXPECT_EQ(fp.privateBit, 1);
  EXPECT_EQ(fp.mode, kModeJointStereo);
  EXPECT_EQ(fp.modeExt, 2);
  EXPECT_EQ(fp.copyright, 1);
  EXPECT_EQ(fp.original, 1);
  EXPECT_EQ(fp.emphasis, 1);
  EXPECT_EQ(fp.channels, 2);
  EXPECT_EQ(fp.freqHz, 44100);
  EXPECT_EQ(fp.kbps, 128);
  EXPECT_EQ(fp.jsbound, 12);
  ASSERT_EQ(parse(fp, 0xFF, 0xFD, 0x80, 0xC2), 417);
  EXPECT_EQ(fp.protection, 0);
  EXPECT_EQ(fp.channels, 1);
  EXPECT_EQ(fp.emphasis, 2);  // reserved, accepted
}

TEST(FrameHeader, RefusedHeaderKeepsTheFieldsReadSoFarAndTheLastRates) {
  FrameParams fp{};
  ASSERT_EQ(parse(fp, 0xFF, 0xFC, 0x82, 0x00), 418);
  EXPECT_EQ(parse(fp, 0xFF, 0xF5, 0xA9 | 0x0C, 0xC0), -1);  // low sampling frequencies, no check word, reserved rate
  EXPECT_EQ(fp.id, 0);
  EXPECT_EQ(fp.protection, 0);
  EXPECT_EQ(fp.layer, 2);
  EXPECT_EQ(fp.bitrateIndex, 10);
  EXPECT_EQ(fp.padding, 0);
  EXPECT_EQ(fp.privateBit, 1);
  EXPECT_EQ(fp.samplingIndex, 3);
  EXPECT_EQ(fp.freqHz, 44100);
  EXPECT_EQ(fp.kbps, 128);
  EXPECT_EQ(fp.channels, 2);
  EXPECT_EQ(fp.allocTable, al_table0.rows);

  EXPECT_EQ(parse(fp, 0xFF, 0xFA, 0x10, 0), -1);  // Layer III: the layer is not stored
  EXPECT_EQ(fp.layer, 2);
  EXPECT_EQ(fp.id, 1);
  EXPECT_EQ(fp.bitrateIndex, 10);
}

struct Choice {
  int b1, b2, b3;
  const AllocTable *table;
  int sblimit;
};

TEST(FrameHeader, TableChoice) {
  const Choice choices[] = {
      {0xFC, 0xA0, 0x00, &al_table1, 30},  // 96 a channel, 44100 Hz
      {0xFC, 0xA4, 0x00, &al_table0, 27},  // 48000 Hz
      {0xFC, 0x40, 0x00, &al_table2, 8},   // 32 a channel, 44100 Hz
      {0xFC, 0x44, 0x00, &al_table2, 8},   // 48000 Hz
      {0xFC, 0x48, 0x00, &al_table3, 12},  // 32000 Hz
      {0xFC, 0x80, 0x00, &al_table0, 27},  // 64 a channel
      {0xFC, 0x50, 0xC0, &al_table0, 27},  // mono 80
      {0xFC, 0x60, 0xC0, &al_table1, 30},  // mono 96
      {0xF4, 0x84, 0x00, &al_table4, 30},  // low sampling frequencies
  };
  for (const Choice &c : choices) {
    FrameParams fp{};
    ASSERT_GT(parse(fp, 0xFF, c.b1, c.b2, c.b3), 0);
    EXPECT_EQ(fp.allocTable, c.table->rows) << c.b1 << " " << c.b2;
    EXPECT_EQ(fp.sblimit, c.sblimit) << c.b1 << " " << c.b2;
    EXPECT_EQ(fp.jsbound, c.sblimit);
  }
}

TEST(FrameHeader, JointStereoBound) {
  for (int ext = 0; ext < 4; ++ext)
    for (int b1 : {0xFC, 0xFE}) {
      FrameParams fp{};
      ASSERT_GT(parse(fp, 0xFF, b1, 0x40, 0x40 | ext << 4), 0);
      EXPECT_EQ(fp.jsbound, 4 * (ext + 1)) << "also beyond the 8 subbands of this Layer II table";
    }
  FrameParams fp{};
  ASSERT_GT(parse(fp, 0xFF, 0xFE, 0x40, 0x00), 0);
  EXPECT_EQ(fp.jsbound, 32);
}

TEST(FrameHeader, LayerOneLeavesTheAllocationTable) {
  FrameParams fp{};
  ASSERT_GT(parse(fp, 0xFF, 0xFE, 0x40, 0x00), 0);
  EXPECT_EQ(fp.allocTable, nullptr);
  ASSERT_GT(parse(fp, 0xFF, 0xFC, 0x40, 0x00), 0);
  ASSERT_GT(parse(fp, 0xFF, 0xFE, 0x40, 0x00), 0);
  EXPECT_EQ(fp.allocTable, al_table2.rows);
  EXPECT_EQ(fp.sblimit, 32);
}

TEST(FrameHeader, AnUnfilledRecordIsDerivedWithoutHarm) {
  FrameParams fp{};
  fp.layer = 2;
  neb_hdr_to_frps(&fp);
  EXPECT_EQ(fp.allocTable, al_table4.rows);
  EXPECT_EQ(fp.sblimit, 30);
}

}  // namespace
}  // namespace qav
