// How often what occurs in the frames of a stream.
#pragma once

#include <array>
#include <cstdint>
#include <map>

#include "tools/inspect/inspect_array.h"
#include "tools/inspect/inspect_frames.h"

namespace qav::tool {

class InspectDistributions {
 public:
  void add(const InspectedFrame &frame);

  Json json(unsigned channels, unsigned subbands, const ArrayWriter &array) const;

 private:
  static constexpr size_t kNmrBins = 40, kUnusedBins = 64;

  // Of the subbands of a channel.
  struct Bands {
    std::array<std::array<uint32_t, 16>, 32> allocation{};
    std::array<std::array<uint32_t, 64>, 32> scaleFactors{};
    std::array<std::array<uint32_t, 4>, 32> selection{};
    std::array<double, 32> bits{};
    std::array<uint32_t, 32> nmrCount{}, nmrOver{};
    std::array<double, 32> nmrSum{};  // of the ratios
    std::array<float, 32> nmrWorst;
    std::array<std::array<uint32_t, kNmrBins>, 32> nmr{};
    Bands() { nmrWorst.fill(kNoLevel); }
  };
  static void addFields(Bands &bands, const InspectedFrame &frame, unsigned channel);
  static void addRatios(Bands &bands, const std::array<float, 32> &nmrDb);

  std::array<Bands, 2> bands_;
  std::map<uint32_t, uint64_t> kbps_, modes_;
  std::map<uint32_t, uint64_t> unused_;
  uint64_t frames_ = 0;
  bool hasModel_ = false, hasSelection_ = false;
};

}  // namespace qav::tool
