// How often what occurs in the frames of a stream.
#pragma once

#include <array>
#include <cstdint>
#include <map>

#include "tools/inspect_array.h"
#include "tools/inspect_frames.h"

namespace qav::tool {

class InspectDistributions {
 public:
  void add(const InspectedFrame &frame);

  Json json(unsigned channels, unsigned subbands, const ArrayWriter &array) const;

 private:
  static constexpr size_t kNmrBins = 40, kUnusedBins = 64;

  struct Band {
    std::array<uint32_t, 16> allocation{};
    std::array<uint32_t, 64> scaleFactors{};
    std::array<uint32_t, 4> selection{};
    uint64_t bits = 0;  // in halves of a bit
    uint64_t nmrCount = 0, nmrOver = 0;
    double nmrSum = 0;  // of the ratios
    float nmrWorst = -1000.0f;
    std::array<uint32_t, kNmrBins> nmr{};
  };
  static void addNmr(Band &band, float nmrDb);

  std::array<std::array<Band, 32>, 2> band_;
  std::map<uint32_t, uint64_t> kbps_, modes_;
  std::map<uint32_t, uint64_t> unused_;
  uint64_t frames_ = 0;
  bool hasModel_ = false, hasSelection_ = false;
};

}  // namespace qav::tool
