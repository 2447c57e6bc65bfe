// The frames that a report holds whole: bytes and fields. All of them while they are few; then every second, every fourth
// and so on; and those around what was found wrong.
#pragma once

#include <cstdint>
#include <vector>

#include "tools/inspect/inspect_array.h"
#include "tools/inspect/inspect_frames.h"

namespace qav::tool {

// The allocation tables that the frames of a stream use, numbered as they come.
class InspectTables {
 public:
  uint8_t indexOf(const NEB_InspectFrame &fields);
  Json json() const;

 private:
  struct Table {
    const AllocEntry (*rows)[16];  // null: Layer I
    int32_t subbands;
    bool isLowRate;
  };
  std::vector<Table> tables_;
};

class InspectDetails {
 public:
  // `isPinned`: near a finding.
  void add(const InspectedFrame &frame, uint8_t table, bool isPinned);

  Json json(unsigned channels, unsigned subbands, const ArrayWriter &array) const;

 private:
  struct Detail {
    uint64_t frame, offset;
    std::vector<uint8_t> data;
    uint32_t result, kbps, freqHz;
    NEB_InspectFrame fields;
    std::array<uint32_t, kFrameParts> bits;
    bool hasModel, isPinned;
    uint8_t table;
    std::array<std::array<float, 32>, 2> smrDb, nmrDb;
  };
  static size_t costOf(const Detail &detail) { return detail.data.size() + 384; }
  bool isInStep(uint64_t frame) const { return frame % every_ == 0; }
  void thinOut();
  template <typename T, typename Value>
  Json series(const ArrayWriter &array, size_t width, const ArrayCoding &coding, Value value) const;
  template <typename T, typename Value>
  Json pairs(unsigned channels, unsigned subbands, const ArrayWriter &array, const ArrayCoding &coding,
             Value value) const;

  std::vector<Detail> kept_;
  uint64_t every_ = 1;
  size_t cost_ = 0, pinnedCost_ = 0;
  bool hasModel_ = false;
};

}  // namespace qav::tool
