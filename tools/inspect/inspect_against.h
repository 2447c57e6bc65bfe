// Two streams of the same programme, frame by frame: where they differ, and in what.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/inspect/inspect_columns.h"
#include "tools/inspect/inspect_frames.h"
#include "tools/inspect/inspect_report.h"

namespace qav::tool {

// One field of a frame that is not the same in both, as text.
struct FieldDifference {
  std::string field, a, b;
};

// All of them; samples are told by the first code that differs of each subband.
std::vector<FieldDifference> fieldDifferences(const InspectedFrame &a, const InspectedFrame &b);

class InspectAgainst {
 public:
  // `shift`: what is added to the frame numbers of the second stream.
  InspectAgainst(InspectRange range, int64_t shift) : range_(range), shift_(shift) {}

  // Frames of the same number, in ascending order; null: this stream has none of this number.
  void add(const InspectedFrame *a, const InspectedFrame *b);

  uint64_t compared() const { return compared_; }
  uint64_t differing() const { return differing_; }
  // "30 frames compared, 2 differ; the first is frame 7, byte 4387 (0x1123), 0:00.182: padding"
  std::string text() const;

  // `columns` and `endFrame` are those of the report about the first stream.
  Json json(const std::string &fileB, int statusB, const InspectedStream &streamB, const InspectColumns &columns,
            uint64_t endFrame, const ArrayWriter &array) const;

 private:
  // What of a frame may differ, in the order of the report's lanes.
  static constexpr size_t kParts = 6;
  using Parts = std::array<bool, kParts>;

  struct Column {
    uint32_t compared = 0, differs = 0;
    std::array<uint32_t, kParts> parts{};
    int64_t bits = 0;
    double signal = 0, difference = 0;
    bool hasPcm = false;
    std::array<std::array<float, 32>, 2> bandBits{};
    std::array<std::array<std::array<uint8_t, 32>, 2>, 2> leastScaleFactor;  // of both streams
    Column();
  };
  struct First {
    Place a, b;
    std::vector<FieldDifference> fields;
  };

  static Parts differingParts(const InspectedFrame &a, const InspectedFrame &b);
  static void addSignals(Column &column, const InspectedFrame &a, const InspectedFrame &b);
  void compare(const InspectedFrame &a, const InspectedFrame &b);
  Column &columnOf(const InspectedFrame &frame);
  void fold(size_t columns);

  InspectRange range_;
  int64_t shift_;
  InspectHead headB_;
  std::optional<ColumnGrid> grid_;
  std::vector<Column> columns_;
  uint64_t compared_ = 0, differing_ = 0, onlyInA_ = 0, onlyInB_ = 0;
  std::optional<First> first_;
};

}  // namespace qav::tool
