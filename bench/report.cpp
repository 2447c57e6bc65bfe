#include "bench/report.h"

#include <cmath>
#include <fstream>
#include <nlohmann/json.hpp>
#include <vector>

#include "bench/statistics.h"

namespace qav::bench {
namespace {

std::vector<Figure> &figures() {
  static std::vector<Figure> list;
  return list;
}

std::string cpuModel() {
  std::ifstream info("/proc/cpuinfo");
  for (std::string line; std::getline(info, line);)
    if (line.rfind("model name", 0) == 0) return line.substr(line.find(':') + 2);
  return "unknown";
}

double rounded(double value, double perUnit) { return std::round(value * perUnit) / perUnit; }

}  // namespace

std::string figureName(const std::string &stage, CpuLevel level) {
  return level == detectCpuLevel() ? stage : stage + " (" + cpuLevelName(level) + ")";
}

void addFigure(const Figure &figure) { figures().push_back(figure); }

bool writeReport(const char *path) {
  nlohmann::ordered_json report;
  std::vector<double> units;
  for (const Figure &figure : figures()) units.push_back(figure.unitNs);
  report["cpu"] = cpuModel();
  report["variant"] = cpuLevelName(detectCpuLevel());
  report["F_ns"] = units.empty() ? 0.0 : rounded(median(units), 10.0);
  report["results"] = nlohmann::ordered_json::array();
  for (const Figure &figure : figures())
    report["results"].push_back(
        {{"name", figure.name}, {"ns", rounded(figure.ns, 10.0)}, {"F", rounded(figure.f, 1000.0)}});
  std::ofstream out(path);
  out << report.dump(2) << '\n';
  return bool(out.flush());
}

}  // namespace qav::bench
