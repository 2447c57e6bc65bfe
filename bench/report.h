// What has been measured.
#pragma once

#include <string>

#include "base/cpu.h"

namespace qav::bench {

// Medians: a time in nanoseconds, the same in F, and F itself meanwhile.
struct Figure {
  std::string name;
  double ns;
  double f;
  double unitNs;
};

// The name of a stage at a CPU level: the stage's own at the level that a session picks here, with the level behind it at
// the others.
std::string figureName(const std::string &stage, CpuLevel level);

void addFigure(const Figure &figure);

// All figures as JSON: {"cpu", "variant", "F_ns", "results": [{"name", "ns", "F"}]}. False when it cannot be written.
bool writeReport(const char *path);

}  // namespace qav::bench
