// Loudness from the energies of every 100 ms: ITU-R BS.1770 gates the blocks of 0.4 seconds that they make up, EBU
// Tech 3342 takes the range from those of 3 seconds.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace qav::tool {

// Blocks by their loudness, from the absolute gate up. Each class keeps its sum, so that only the gates and percentiles
// are as coarse as a class; and the memory does not grow with the length.
class LoudnessClasses {
 public:
  LoudnessClasses() : classes_(kClasses) {}

  void add(double energy);  // the mean square of a block

  // Of the blocks at least so loud; 0 without any.
  double meanEnergy(double leastLufs) const;
  // The loudness of the block below which `fraction` of those at least so loud lie. There must be one.
  double percentileLufs(double leastLufs, double fraction) const;
  bool isEmpty() const { return blocks_ == 0; }

 private:
  static constexpr double kPerLu = 100.0;
  static constexpr size_t kClasses = 10000;
  struct Class {
    uint64_t blocks = 0;
    double energy = 0.0;
  };
  static size_t classAt(double lufs);

  std::vector<Class> classes_;
  uint64_t blocks_ = 0;
};

class LoudnessBlocks {
 public:
  explicit LoudnessBlocks(size_t stepFrames) : stepFrames_(stepFrames) {}

  // The weighted energy of the next 100 ms, all channels together.
  void add(double energy);

  double integratedLufs() const;  // minus infinity where nothing passes the gates
  double rangeLu() const;
  // Minus infinity for silence, and for less than one block.
  double greatestMomentaryLufs() const;
  double greatestShortTermLufs() const;

 private:
  static constexpr uint64_t kMomentarySteps = 4, kShortTermSteps = 30;
  static constexpr uint64_t kShortTermEvery = 10;  // for the range

  double meanOfLast(uint64_t steps) const;

  size_t stepFrames_;
  uint64_t steps_ = 0;
  std::array<double, kShortTermSteps> last_{};
  LoudnessClasses momentary_, shortTerm_;
  double greatestMomentary_ = 0.0, greatestShortTerm_ = 0.0;
};

}  // namespace qav::tool
