#include "tools/loudness/loudness_blocks.h"

#include <algorithm>
#include <cmath>

namespace qav::tool {

namespace {

constexpr double kAbsoluteGateLufs = -70.0;

double lufsOf(double energy) { return 10.0 * std::log10(energy) - 0.691; }

}  // namespace

size_t LoudnessClasses::classAt(double lufs) {
  const double at = (lufs - kAbsoluteGateLufs) * kPerLu;
  return at > 0.0 ? static_cast<size_t>(std::min(at, static_cast<double>(kClasses - 1))) : 0;
}

void LoudnessClasses::add(double energy) {
  const double lufs = lufsOf(energy);
  if (!(lufs >= kAbsoluteGateLufs)) return;
  Class &own = classes_[classAt(lufs)];
  ++own.blocks;
  own.energy += energy;
  ++blocks_;
}

double LoudnessClasses::meanEnergy(double leastLufs) const {
  Class sum;
  for (size_t i = classAt(leastLufs); i < kClasses; ++i) {
    sum.blocks += classes_[i].blocks;
    sum.energy += classes_[i].energy;
  }
  return sum.blocks > 0 ? sum.energy / static_cast<double>(sum.blocks) : 0.0;
}

double LoudnessClasses::percentileLufs(double leastLufs, double fraction) const {
  const size_t first = classAt(leastLufs);
  uint64_t blocks = 0;
  for (size_t i = first; i < kClasses; ++i) blocks += classes_[i].blocks;
  auto before = static_cast<uint64_t>(std::lround(static_cast<double>(blocks - 1) * fraction));
  size_t at = first;
  while (before >= classes_[at].blocks) before -= classes_[at++].blocks;
  return lufsOf(classes_[at].energy / static_cast<double>(classes_[at].blocks));
}

double LoudnessBlocks::meanOfLast(uint64_t steps) const {
  double sum = 0.0;
  for (uint64_t i = steps_ - steps; i < steps_; ++i) sum += last_[i % kShortTermSteps];
  return sum / (static_cast<double>(steps) * static_cast<double>(stepFrames_));
}

void LoudnessBlocks::add(double energy) {
  last_[steps_ % kShortTermSteps] = energy;
  ++steps_;
  if (steps_ >= kMomentarySteps) {
    const double mean = meanOfLast(kMomentarySteps);
    momentary_.add(mean);
    greatestMomentary_ = std::max(greatestMomentary_, mean);
  }
  if (steps_ >= kShortTermSteps) {
    const double mean = meanOfLast(kShortTermSteps);
    if (steps_ % kShortTermEvery == 0) shortTerm_.add(mean);
    greatestShortTerm_ = std::max(greatestShortTerm_, mean);
  }
}

double LoudnessBlocks::integratedLufs() const {
  const double ungated = momentary_.meanEnergy(kAbsoluteGateLufs);
  return lufsOf(momentary_.meanEnergy(lufsOf(ungated) - 10.0));
}

double LoudnessBlocks::rangeLu() const {
  if (shortTerm_.isEmpty()) return 0.0;
  const double gate = lufsOf(shortTerm_.meanEnergy(kAbsoluteGateLufs)) - 20.0;
  return shortTerm_.percentileLufs(gate, 0.95) - shortTerm_.percentileLufs(gate, 0.10);
}

double LoudnessBlocks::greatestMomentaryLufs() const { return lufsOf(greatestMomentary_); }

double LoudnessBlocks::greatestShortTermLufs() const { return lufsOf(greatestShortTerm_); }

}  // namespace qav::tool
