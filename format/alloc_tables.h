// The Layer II bit allocation tables (ISO/IEC 11172-3 Tables B.2a to B.2d, ISO/IEC 13818-3 Table B.1).
#pragma once

#include "include/qav.h"

namespace qav {

using AllocRow = AllocEntry[16];

// One row per subband. Entry 0 of a row holds the width of the allocation field; entries past the last valid index, and
// rows past the table's subbands, are zero.
struct AllocTable {
  AllocRow rows[32];
};

extern const AllocTable al_table0;  // B.2a: 27 subbands
extern const AllocTable al_table1;  // B.2b: 30 subbands
extern const AllocTable al_table2;  // B.2c: 8 subbands
extern const AllocTable al_table3;  // B.2d: 12 subbands
extern const AllocTable al_table4;  // low sampling frequencies: 30 subbands

// The rows of the five, in that order.
extern const AllocRow *const allocTables[5];

}  // namespace qav
