#include "format/alloc_tables.h"

#include <gtest/gtest.h>

#include <vector>

namespace qav {
namespace {

// Table B.4, level by level.
struct Quantiser {
  int steps, bits, group, quant;
};
const Quantiser kQuantisers[] = {
    {3, 5, 1, 0},      {5, 7, 1, 1},      {7, 3, 3, 2},       {9, 10, 1, 3},      {15, 4, 3, 4},      {31, 5, 3, 5},
    {63, 6, 3, 6},     {127, 7, 3, 7},    {255, 8, 3, 8},     {511, 9, 3, 9},     {1023, 10, 3, 10},  {2047, 11, 3, 11},
    {4095, 12, 3, 12}, {8191, 13, 3, 13}, {16383, 14, 3, 14}, {32767, 15, 3, 15}, {65535, 16, 3, 16},
};

const int kSblimits[5] = {27, 30, 8, 12, 30};

TEST(AllocTables, EveryEntryIsAQuantiserOfTheStandard) {
  for (int t = 0; t < 5; ++t)
    for (int sb = 0; sb < 32; ++sb) {
      const AllocRow &row = allocTables[t][sb];
      const int valid = sb < kSblimits[t] ? (1 << row[0].bits) - 1 : 0;
      EXPECT_EQ(row[0].bits != 0, sb < kSblimits[t]) << t << " " << sb;
      EXPECT_EQ(row[0].steps + row[0].group + row[0].quant, 0);
      for (int index = 1; index < 16; ++index) {
        const AllocEntry &e = row[index];
        if (index > valid) {
          EXPECT_EQ(e.steps + e.bits + e.group + e.quant, 0) << t << " " << sb << " " << index;
          continue;
        }
        bool listed = false;
        for (const Quantiser &q : kQuantisers)
          listed = listed || (e.steps == q.steps && e.bits == q.bits && e.group == q.group && e.quant == q.quant);
        EXPECT_TRUE(listed) << t << " " << sb << " " << index;
        EXPECT_GT(e.steps, row[index - 1].steps) << t << " " << sb << " " << index;
      }
    }
}

std::vector<int> levels(const AllocRow &row) {
  std::vector<int> list;
  for (int index = 1; index < 16 && row[index].steps != 0; ++index) list.push_back(row[index].steps);
  return list;
}

using Levels = std::vector<int>;

TEST(AllocTables, RowsAsPublished) {
  const Levels fine = {3, 7, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383, 32767, 65535};
  const Levels mixed = {3, 5, 7, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 65535};
  for (int t : {0, 1}) {
    for (int sb = 0; sb <= 2; ++sb) EXPECT_EQ(levels(allocTables[t][sb]), fine);
    for (int sb = 3; sb <= 10; ++sb) EXPECT_EQ(levels(allocTables[t][sb]), mixed);
    for (int sb = 11; sb <= 22; ++sb) EXPECT_EQ(levels(allocTables[t][sb]), (Levels{3, 5, 7, 9, 15, 31, 65535}));
    for (int sb = 23; sb < kSblimits[t]; ++sb) EXPECT_EQ(levels(allocTables[t][sb]), (Levels{3, 5, 65535}));
  }
  for (int t : {2, 3}) {
    for (int sb = 0; sb <= 1; ++sb)
      EXPECT_EQ(levels(allocTables[t][sb]),
                (Levels{3, 5, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383, 32767}));
    for (int sb = 2; sb < kSblimits[t]; ++sb) EXPECT_EQ(levels(allocTables[t][sb]), (Levels{3, 5, 9, 15, 31, 63, 127}));
  }
  for (int sb = 0; sb <= 3; ++sb)
    EXPECT_EQ(levels(allocTables[4][sb]),
              (Levels{3, 5, 7, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383}));
  for (int sb = 4; sb <= 10; ++sb) EXPECT_EQ(levels(allocTables[4][sb]), (Levels{3, 5, 9, 15, 31, 63, 127}));
  for (int sb = 11; sb <= 29; ++sb) EXPECT_EQ(levels(allocTables[4][sb]), (Levels{3, 5, 9}));
}

}  // namespace
}  // namespace qav
