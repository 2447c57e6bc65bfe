#include "tools/inspect_distributions.h"

#include <algorithm>
#include <cmath>

#include "tools/inspect_columns.h"

namespace qav::tool {

namespace {

constexpr float kLeastNmrDb = -50.0f, kNmrBinDb = 2.0f;
constexpr float kNever = -1000.0f;

// 10^(x / 10) = 2^(x * log2(10) / 10)
constexpr double kBitsPerDb = 0.33219280948873623;

}  // namespace

void InspectDistributions::add(const InspectedFrame &frame) {
  if (!frame.isGood()) return;
  ++frames_;
  ++kbps_[frame.header.kbps];
  ++modes_[frame.header.mode];
  ++unused_[frame.partBits(FramePart::unused)];
  hasModel_ = hasModel_ || frame.hasModel;
  const NEB_InspectFrame &fields = frame.fields;
  const bool layer1 = frame.header.layer == 1;
  hasSelection_ = hasSelection_ || !layer1;
  for (unsigned c = 0; c < frame.header.channels; ++c)
    for (unsigned sb = 0; sb < static_cast<unsigned>(fields.header.sblimit); ++sb) {
      Band &band = band_[c][sb];
      ++band.allocation[fields.allocation[c][sb]];
      band.bits += static_cast<uint64_t>(2.0f * subbandBits(fields, c, sb));
      if (const auto nmr = noiseToMaskDb(frame, c, sb)) addNmr(band, *nmr);
      if (fields.allocation[c][sb] == 0) continue;
      if (!layer1) ++band.selection[fields.selection[c][sb]];
      for (size_t part = 0; part < (layer1 ? 1u : 3u); ++part) ++band.scaleFactors[fields.scaleFactor[c][part][sb]];
    }
}

void InspectDistributions::addNmr(Band &band, float nmrDb) {
  ++band.nmrCount;
  if (nmrDb > 0.0f) ++band.nmrOver;
  band.nmrSum += std::exp2(kBitsPerDb * static_cast<double>(nmrDb));
  band.nmrWorst = std::max(band.nmrWorst, nmrDb);
  const float bin = std::floor((nmrDb - kLeastNmrDb) / kNmrBinDb);
  ++band.nmr[static_cast<size_t>(std::clamp(bin, 0.0f, static_cast<float>(kNmrBins - 1)))];
}

Json InspectDistributions::json(unsigned channels, unsigned subbands, const ArrayWriter &array) const {
  const auto counts = [&](size_t width, auto values) {
    std::vector<uint32_t> raw;
    for (size_t c = 0; c < channels; ++c)
      for (size_t sb = 0; sb < subbands; ++sb) {
        const auto &list = values(band_[c][sb]);
        raw.insert(raw.end(), list.begin(), list.end());
      }
    return array({channels, subbands, width}, raw);
  };
  const auto numbers = [&](const ArrayCoding &coding, auto value) {
    std::vector<float> raw;
    for (size_t c = 0; c < channels; ++c)
      for (size_t sb = 0; sb < subbands; ++sb) raw.push_back(static_cast<float>(value(band_[c][sb])));
    return array({channels, subbands}, raw, coding);
  };
  const auto list = [](const std::map<uint32_t, uint64_t> &all) {
    Json json = Json::array();
    for (const auto &[value, count] : all) json.push_back(Json::array({value, count}));
    return json;
  };
  Json json;
  json["kbps"] = list(kbps_);
  json["modes"] = list(modes_);
  json["allocation"] = counts(
      16, [](const Band &band) -> auto & { return band.allocation; });
  json["scaleFactors"] = counts(
      64, [](const Band &band) -> auto & { return band.scaleFactors; });
  json["selection"] = nullptr;
  if (hasSelection_)
    json["selection"] = counts(
        4, [](const Band &band) -> auto & { return band.selection; });
  const double frames = static_cast<double>(std::max<uint64_t>(frames_, 1));
  json["bits"] = numbers({}, [&](const Band &band) { return static_cast<double>(band.bits) / 2.0 / frames; });

  const uint32_t most = unused_.empty() ? 0 : unused_.rbegin()->first;
  const uint32_t width = most / static_cast<uint32_t>(kUnusedBins) + 1;
  std::vector<uint32_t> bins(kUnusedBins);
  for (const auto &[bits, count] : unused_) bins[bits / width] += static_cast<uint32_t>(count);
  json["unusedBinBits"] = width;
  json["unusedBits"] = array({kUnusedBins}, bins);

  json["nmr"] = nullptr;
  if (hasModel_) {
    const ArrayCoding level{.none = static_cast<double>(kNever)};
    const auto share = [](uint64_t part, uint64_t all) {
      return all > 0 ? static_cast<double>(part) / static_cast<double>(all) : static_cast<double>(kNever);
    };
    Json &nmr = json["nmr"];
    nmr["mean"] = numbers(level, [](const Band &band) {
      if (band.nmrCount == 0) return static_cast<double>(kNever);
      return 10.0 * std::log10(band.nmrSum / static_cast<double>(band.nmrCount));
    });
    nmr["worst"] = numbers(level, [](const Band &band) { return band.nmrWorst; });
    nmr["over"] = numbers(level, [&](const Band &band) { return share(band.nmrOver, band.nmrCount); });
    nmr["histogram"] = counts(
        kNmrBins, [](const Band &band) -> auto & { return band.nmr; });
  }
  return json;
}

}  // namespace qav::tool
