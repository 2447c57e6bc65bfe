#include "format/alloc_tables.h"

#include <bit>
#include <cstdint>

namespace qav {
namespace {

// The level counts that allocation index 1, 2, ... stand for; the field width in bits says how many there are.
struct RowRule {
  uint16_t width;
  uint16_t levels[15];
};

// Quantiser of a level count (ISO/IEC 11172-3 Table B.4): 3, 5 and 9 levels share a codeword between three samples.
constexpr AllocEntry entryOf(uint16_t levels) {
  switch (levels) {
    case 3: return {3, 5, 1, 0};
    case 5: return {5, 7, 1, 1};
    case 7: return {7, 3, 3, 2};
    case 9: return {9, 10, 1, 3};
    case 15: return {15, 4, 3, 4};
    default: {
      const auto bits = uint16_t(std::bit_width(levels));  // 2^bits - 1 levels
      return {levels, bits, 3, bits};
    }
  }
}

constexpr RowRule kFine = {4, {3, 7, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383, 32767, 65535}};
constexpr RowRule kMixed = {4, {3, 5, 7, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 65535}};
constexpr RowRule kShort = {3, {3, 5, 7, 9, 15, 31, 65535}};
constexpr RowRule kCoarse = {2, {3, 5, 65535}};
constexpr RowRule kLowFine = {4, {3, 5, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383, 32767}};
constexpr RowRule kLowShort = {3, {3, 5, 9, 15, 31, 63, 127}};
constexpr RowRule kLsfFine = {4, {3, 5, 7, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383}};
constexpr RowRule kLsfCoarse = {2, {3, 5, 9}};

constexpr void fillRows(AllocTable &table, int first, int last, const RowRule &rule) {
  for (int sb = first; sb <= last; ++sb) {
    table.rows[sb][0] = {0, rule.width, 0, 0};
    for (int index = 1; index < 1 << rule.width; ++index) table.rows[sb][index] = entryOf(rule.levels[index - 1]);
  }
}

constexpr AllocTable highRateTable(int lastCoarse) {
  AllocTable t{};
  fillRows(t, 0, 2, kFine);
  fillRows(t, 3, 10, kMixed);
  fillRows(t, 11, 22, kShort);
  fillRows(t, 23, lastCoarse, kCoarse);
  return t;
}

constexpr AllocTable lowRateTable(int lastShort) {
  AllocTable t{};
  fillRows(t, 0, 1, kLowFine);
  fillRows(t, 2, lastShort, kLowShort);
  return t;
}

constexpr AllocTable lsfTable() {
  AllocTable t{};
  fillRows(t, 0, 3, kLsfFine);
  fillRows(t, 4, 10, kLowShort);
  fillRows(t, 11, 29, kLsfCoarse);
  return t;
}

}  // namespace

constexpr AllocTable al_table0 = highRateTable(26);
constexpr AllocTable al_table1 = highRateTable(29);
constexpr AllocTable al_table2 = lowRateTable(7);
constexpr AllocTable al_table3 = lowRateTable(11);
constexpr AllocTable al_table4 = lsfTable();

const AllocRow *const allocTables[5] = {al_table0.rows, al_table1.rows, al_table2.rows, al_table3.rows, al_table4.rows};

}  // namespace qav
