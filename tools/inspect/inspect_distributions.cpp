#include "tools/inspect/inspect_distributions.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace qav::tool {

namespace {

constexpr float kLeastNmrDb = -50.0f, kNmrBinDb = 2.0f;
constexpr float kNever = -1000.0f;

// 10^(db / 10) to a millionth of it; what is not between -300 and 300 counts as that. Of a kind that compilers do for
// several values at a time.
float ratioOf(float db) {
  constexpr float kOctavesPerDb = 0.332192809f, kMost = 100.0f;
  constexpr float kRound = 0x1.8p23f;  // adding it leaves no place for a fraction
  const float octaves = std::clamp(db * kOctavesPerDb, -kMost, kMost);
  const float whole = (octaves + kRound) - kRound;
  const float x = (octaves - whole) * 0.693147181f;
  const float fraction = 1.0f + x * (1.0f + x * (1.0f / 2 + x * (1.0f / 6 + x * (1.0f / 24 + x * (1.0f / 120)))));
  return fraction * std::bit_cast<float>((static_cast<int32_t>(whole) + 127) << 23);
}

}  // namespace

void InspectDistributions::add(const InspectedFrame &frame) {
  if (!frame.isGood()) return;
  ++frames_;
  ++kbps_[frame.header.kbps];
  ++modes_[frame.header.mode];
  ++unused_[frame.partBits(FramePart::unused)];
  hasModel_ = hasModel_ || frame.hasModel;
  hasSelection_ = hasSelection_ || frame.header.layer == 2;
  for (unsigned c = 0; c < frame.header.channels; ++c) {
    addFields(bands_[c], frame, c);
    if (frame.hasModel) addRatios(bands_[c], frame.nmrDb[c]);
  }
}

void InspectDistributions::addFields(Bands &bands, const InspectedFrame &frame, unsigned channel) {
  const NEB_InspectFrame &fields = frame.fields;
  const bool layer1 = frame.header.layer == 1;
  for (unsigned sb = 0; sb < 32; ++sb) bands.bits[sb] += static_cast<double>(frame.bandBits[channel][sb]);
  for (unsigned sb = 0; sb < static_cast<unsigned>(fields.header.sblimit); ++sb) {
    ++bands.allocation[sb][fields.allocation[channel][sb]];
    if (fields.allocation[channel][sb] == 0) continue;
    if (!layer1) ++bands.selection[sb][fields.selection[channel][sb]];
    for (size_t part = 0; part < (layer1 ? 1u : 3u); ++part)
      ++bands.scaleFactors[sb][fields.scaleFactor[channel][part][sb]];
  }
}

void InspectDistributions::addRatios(Bands &bands, const std::array<float, 32> &nmrDb) {
  for (size_t sb = 0; sb < nmrDb.size(); ++sb) {
    const float db = nmrDb[sb];
    const bool isThere = db > kNoLevel;
    bands.nmrCount[sb] += isThere;
    bands.nmrOver[sb] += db > 0.0f;
    bands.nmrSum[sb] += static_cast<double>(isThere ? ratioOf(db) : 0.0f);
    bands.nmrWorst[sb] = std::max(bands.nmrWorst[sb], db);
  }
  for (size_t sb = 0; sb < nmrDb.size(); ++sb) {
    if (!(nmrDb[sb] > kNoLevel)) continue;
    const float bin = (nmrDb[sb] - kLeastNmrDb) / kNmrBinDb;
    ++bands.nmr[sb][static_cast<size_t>(std::clamp(bin, 0.0f, static_cast<float>(kNmrBins - 1)))];
  }
}

Json InspectDistributions::json(unsigned channels, unsigned subbands, const ArrayWriter &array) const {
  const auto counts = [&](size_t width, auto values) {
    std::vector<uint32_t> raw;
    for (size_t c = 0; c < channels; ++c)
      for (size_t sb = 0; sb < subbands; ++sb) {
        const auto &list = values(bands_[c])[sb];
        raw.insert(raw.end(), list.begin(), list.end());
      }
    return array({channels, subbands, width}, raw);
  };
  const auto numbers = [&](const ArrayCoding &coding, auto value) {
    std::vector<float> raw;
    for (size_t c = 0; c < channels; ++c)
      for (size_t sb = 0; sb < subbands; ++sb) raw.push_back(static_cast<float>(value(bands_[c], sb)));
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
      16, [](const Bands &bands) -> auto & { return bands.allocation; });
  json["scaleFactors"] = counts(
      64, [](const Bands &bands) -> auto & { return bands.scaleFactors; });
  json["selection"] = nullptr;
  if (hasSelection_)
    json["selection"] = counts(
        4, [](const Bands &bands) -> auto & { return bands.selection; });
  const double frames = static_cast<double>(std::max<uint64_t>(frames_, 1));
  json["bits"] = numbers({}, [&](const Bands &bands, size_t sb) { return bands.bits[sb] / frames; });

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
    nmr["mean"] = numbers(level, [](const Bands &bands, size_t sb) {
      if (bands.nmrCount[sb] == 0) return static_cast<double>(kNever);
      return 10.0 * std::log10(bands.nmrSum[sb] / bands.nmrCount[sb]);
    });
    nmr["worst"] = numbers(level, [](const Bands &bands, size_t sb) { return std::max(bands.nmrWorst[sb], kNever); });
    nmr["over"] =
        numbers(level, [&](const Bands &bands, size_t sb) { return share(bands.nmrOver[sb], bands.nmrCount[sb]); });
    nmr["histogram"] = counts(
        kNmrBins, [](const Bands &bands) -> auto & { return bands.nmr; });
  }
  return json;
}

}  // namespace qav::tool
