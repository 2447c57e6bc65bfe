// What the lanes and maps of a report show, column by column. While there are few frames each has a column; then the
// frames of a second share one, and so on, so that memory and report stay small however long the stream is.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "tools/inspect/inspect_array.h"
#include "tools/inspect/inspect_frames.h"

namespace qav::tool {

inline constexpr size_t kMostColumns = 10000;

// Cuts the numbered frames of a stream into columns.
class ColumnGrid {
 public:
  explicit ColumnGrid(uint64_t firstFrame) : firstFrame_(firstFrame) {}

  uint64_t firstFrame() const { return firstFrame_; }
  uint64_t framesPerColumn() const { return framesPerColumn_; }
  const char *unit() const { return folds_ == 0 ? "frame" : folds_ == 1 ? "second" : "seconds"; }
  size_t columnOf(uint64_t frame) const { return static_cast<size_t>((frame - firstFrame_) / framesPerColumn_); }
  size_t count(uint64_t endFrame) const {
    return endFrame > firstFrame_ ? static_cast<size_t>((endFrame - firstFrame_ - 1) / framesPerColumn_) + 1 : 0;
  }

  // Makes room for a frame: how many columns become one. Call it until it says 1.
  size_t foldFor(uint64_t frame, const FrameHeader &header);

 private:
  uint64_t firstFrame_;
  uint64_t framesPerColumn_ = 1;
  unsigned folds_ = 0;
};

class InspectColumns {
 public:
  // Frames in ascending order.
  void add(const InspectedFrame &frame);

  bool isEmpty() const { return !grid_; }
  const ColumnGrid &grid() const { return *grid_; }
  unsigned channels() const { return channels_; }
  unsigned subbands() const { return subbands_; }

  // When the last frame was added. `endFrame` is the number behind the last; lost frames may have been there.
  Json wave(uint64_t endFrame, const ArrayWriter &array) const;
  Json lanes(uint64_t endFrame, const ArrayWriter &array) const;
  Json maps(uint64_t endFrame, const ArrayWriter &array) const;

 private:
  struct Channel {
    std::array<int16_t, kWavePoints> least, greatest;
    uint64_t samples = 0;
    double energy = 0;
    int32_t peak = 0;
    std::array<float, 32> bits{}, smrSum{}, nmrMost;
    std::array<uint8_t, 32> leastScaleFactor;  // the loudest
    std::array<uint32_t, 32> smrCount{};
    Channel();
  };
  struct Column {
    uint32_t frames = 0, clipped = 0, padded = 0;
    uint64_t kbps = 0, boundSum = 0, boundCount = 0, over = 0, modelled = 0;
    std::array<uint64_t, kFrameParts> bits{};
    std::array<uint64_t, 4> selection{};
    uint8_t mode = 255, checkFlags = 0;
    bool hasSelection = false;
    float smrMost, nmrMost;
    std::array<Channel, 2> channel;
    Column();
  };

  void fold(size_t columns);
  static void merge(Column &into, const Column &from);
  static void addWave(Column &column, const InspectedFrame &frame, size_t slot, size_t slots);
  static void addFields(Column &column, const InspectedFrame &frame);
  static void addModel(Column &column, const InspectedFrame &frame);
  template <typename T, typename Value>
  Json lane(uint64_t endFrame, const ArrayWriter &array, const ArrayCoding &coding, Value value) const;
  // For each channel and column, one value after another: what `value` makes of each of so many points.
  template <typename T, typename Value>
  std::vector<T> ofChannels(size_t count, const ArrayCoding &coding, size_t points, Value value) const;
  template <typename T, typename Value>
  Json channelLane(uint64_t endFrame, const ArrayWriter &array, const ArrayCoding &coding, size_t points,
                   Value value) const;
  template <typename T, typename Value>
  Json map(uint64_t endFrame, const ArrayWriter &array, const ArrayCoding &coding, Value value) const;

  std::optional<ColumnGrid> grid_;
  std::vector<Column> columns_;
  Column empty_;
  unsigned channels_ = 1, subbands_ = 0;
  bool hasModel_ = false, hasSelection_ = false;
};

}  // namespace qav::tool
