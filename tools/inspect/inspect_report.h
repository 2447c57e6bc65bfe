// Everything that a report about a stream shows, gathered frame by frame.
#pragma once

#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "tools/inspect/inspect_columns.h"
#include "tools/inspect/inspect_details.h"
#include "tools/inspect/inspect_distributions.h"
#include "tools/inspect/inspect_frames.h"
#include "tools/inspect/inspect_head.h"

namespace qav::tool {

// A part of the stream; seconds from its start.
struct InspectRange {
  double from = 0.0;
  double to = std::numeric_limits<double>::infinity();

  // Frames that begin before the end, and end behind the start.
  bool holds(const InspectedFrame &frame) const { return holds(frame, frame.place.seconds); }
  bool holds(const InspectedFrame &frame, double seconds) const;  // if it began then
  bool isWhole() const { return from == 0.0 && to == std::numeric_limits<double>::infinity(); }
};

// Where the values of the model come from.
enum class ModelSource { estimate, encoder };

class InspectReport {
 public:
  InspectReport(InspectRange range, ModelSource source) : range_(range), source_(source) {}

  // Every frame of the stream, in its order; `report` has seen the next one too.
  void add(const InspectedFrame &frame, const StreamReport &report);

  // After the last frame.
  const InspectColumns &columns() const { return columns_; }
  uint64_t endFrame(const InspectedStream &stream) const;
  Json json(const std::string &file, int status, const InspectedStream &stream, const ArrayWriter &array) const;

 private:
  bool isNearFinding(uint64_t frame, const StreamReport &report) const;

  InspectRange range_;
  ModelSource source_;
  InspectHead head_;
  InspectColumns columns_;
  InspectDistributions distributions_;
  InspectTables tables_;
  InspectDetails details_;
  uint64_t lastFrame_ = 0;
  bool hasModel_ = false;
};

// The findings, each with the bytes around its place where the input can be read again.
Json findingsJson(const std::string &file, const StreamReport &report);

// The time at which a numbered frame begins.
double secondsOfFrame(uint64_t frame, const StreamReport &report);

}  // namespace qav::tool
