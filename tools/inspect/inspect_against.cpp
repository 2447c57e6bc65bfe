#include "tools/inspect/inspect_against.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "tools/io/message.h"

namespace qav::tool {

namespace {

constexpr size_t kMostFields = 200;
constexpr uint8_t kNoIndex = NEB_INSPECT_NO_SCALE_FACTOR;
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kMostSnrDb = 120.0;

bool bitAt(const InspectedFrame &frame, uint32_t at) { return (frame.data[at / 8] >> (7 - at % 8) & 1) != 0; }

// Whether the bits from `fromA` and `fromB` on, to the ends of these parts, are the same.
bool sameBits(const InspectedFrame &a, uint32_t fromA, uint32_t toA, const InspectedFrame &b, uint32_t fromB,
              uint32_t toB) {
  if (toA - fromA != toB - fromB) return false;
  for (uint32_t i = 0; i < toA - fromA; ++i)
    if (bitAt(a, fromA + i) != bitAt(b, fromB + i)) return false;
  return true;
}

std::string levelsText(const NEB_InspectFrame &fields, unsigned c, unsigned sb) {
  const unsigned index = fields.allocation[c][sb];
  if (index == 0) return "nothing";
  return fmt::format("{} levels",
                     fields.header.layer == 1 ? (2u << index) - 1 : fields.header.allocTable[sb][index].steps);
}

std::string scaleFactorsText(const NEB_InspectFrame &fields, unsigned c, unsigned sb) {
  if (fields.allocation[c][sb] == 0) return "none";
  const auto &factors = fields.scaleFactor[c];
  if (fields.header.layer == 1) return fmt::format("{}", factors[0][sb]);
  return fmt::format("{}, {}, {}", factors[0][sb], factors[1][sb], factors[2][sb]);
}

// Notes the fields that differ, as long as there are not too many.
class Differences {
 public:
  template <typename T>
  void compare(const std::string &field, const T &a, const T &b) {
    if (a == b) return;
    all.push_back({field, fmt::format("{}", a), fmt::format("{}", b)});
  }
  void compareBit(const std::string &field, bool a, bool b) { compare<int>(field, a, b); }

  std::vector<FieldDifference> all;
};

void compareHeaders(const FrameHeader &a, const FrameHeader &b, Differences &to) {
  to.compare("MPEG version", a.version, b.version);
  to.compare("layer", a.layer, b.layer);
  to.compare<std::string>("check word", a.hasCheck ? "present" : "none", b.hasCheck ? "present" : "none");
  to.compare("bitrate", fmt::format("{} kbit/s", a.kbps), fmt::format("{} kbit/s", b.kbps));
  to.compare("sampling rate", fmt::format("{} Hz", a.freqHz), fmt::format("{} Hz", b.freqHz));
  to.compareBit("padding", a.padding, b.padding);
  to.compareBit("private bit", a.privateBit, b.privateBit);
  to.compare<std::string>("mode", modeName(a), modeName(b));
  to.compare("mode extension", a.modeExt, b.modeExt);
  to.compareBit("copyright", a.copyright, b.copyright);
  to.compareBit("original", a.original, b.original);
  to.compare<std::string>("emphasis", emphasisName(a), emphasisName(b));
}

// The first code of each subband that differs, where both code it alike.
void compareSamples(const InspectedFrame &a, const InspectedFrame &b, Differences &to) {
  NEB_InspectFrame fields;
  NEB_InspectCodes codesA, codesB;
  NEB_inspectFrame(a.data.data(), a.header.frameBytes, &fields, &codesA);
  NEB_inspectFrame(b.data.data(), b.header.frameBytes, &fields, &codesB);
  for (unsigned c = 0; c < std::min(a.header.channels, b.header.channels); ++c)
    for (unsigned sb = 0; sb < 32; ++sb) {
      if (a.fields.allocation[c][sb] != b.fields.allocation[c][sb]) continue;
      const auto &codeA = codesA.code[c][sb], &codeB = codesB.code[c][sb];
      const auto at = std::mismatch(std::begin(codeA), std::end(codeA), std::begin(codeB));
      if (at.first != std::end(codeA))
        to.compare(fmt::format("sample {}, subband {}, channel {}", at.first - codeA, sb, c), *at.first, *at.second);
    }
}

}  // namespace

std::vector<FieldDifference> fieldDifferences(const InspectedFrame &a, const InspectedFrame &b) {
  Differences to;
  compareHeaders(a.header, b.header, to);
  if (a.header.hasCheck && b.header.hasCheck)
    to.compare("check word", fmt::format("{:04x}", a.fields.checkGiven), fmt::format("{:04x}", b.fields.checkGiven));
  const unsigned channels = std::min(a.header.channels, b.header.channels);
  const auto eachBand = [&](const char *what, auto textOf) {
    for (unsigned sb = 0; sb < 32; ++sb)
      for (unsigned c = 0; c < channels; ++c)
        to.compare<std::string>(fmt::format("{}, subband {}, channel {}", what, sb, c), textOf(a.fields, c, sb),
                                textOf(b.fields, c, sb));
  };
  eachBand("allocation", levelsText);
  eachBand("selection information", [](const NEB_InspectFrame &fields, unsigned c, unsigned sb) {
    return fields.allocation[c][sb] == 0 ? std::string("none") : fmt::format("{}", fields.selection[c][sb]);
  });
  eachBand("scale factors", scaleFactorsText);
  compareSamples(a, b, to);
  if (!sameBits(a, std::min(a.fields.endAt, 8 * a.header.frameBytes), 8 * a.header.frameBytes, b,
                std::min(b.fields.endAt, 8 * b.header.frameBytes), 8 * b.header.frameBytes))
    to.all.push_back({"unused bits", fmt::format("{} bits", a.partBits(FramePart::unused)),
                      fmt::format("{} bits", b.partBits(FramePart::unused))});
  return to.all;
}

InspectAgainst::Column::Column() {
  for (auto &stream : leastScaleFactor)
    for (auto &channel : stream) channel.fill(kNoIndex);
}

InspectAgainst::Parts InspectAgainst::differingParts(const InspectedFrame &a, const InspectedFrame &b) {
  const NEB_InspectFrame &fa = a.fields, &fb = b.fields;
  const auto differ = [](const auto &x, const auto &y) { return std::memcmp(x, y, sizeof x) != 0; };
  const uint32_t endA = 8 * a.header.frameBytes, endB = 8 * b.header.frameBytes;
  const uint32_t usedA = std::min(fa.endAt, endA), usedB = std::min(fb.endAt, endB);
  return {std::memcmp(a.data.data(), b.data.data(), kHeaderBytes) != 0,
          differ(fa.allocation, fb.allocation),
          differ(fa.selection, fb.selection),
          differ(fa.scaleFactor, fb.scaleFactor),
          !sameBits(a, std::min(fa.samplesAt, endA), usedA, b, std::min(fb.samplesAt, endB), usedB),
          !sameBits(a, usedA, endA, b, usedB, endB)};
}

void InspectAgainst::addSignals(Column &column, const InspectedFrame &a, const InspectedFrame &b) {
  if (!sameFormatAndChannels(a.header, b.header) || !a.isGood() || !b.isGood()) return;
  column.hasPcm = true;
  const size_t samples = size_t{a.header.frameSamples} * a.header.channels;
  int64_t signal = 0, difference = 0;
  for (size_t i = 0; i < samples; ++i) {
    const int64_t x = a.pcm[i], d = x - b.pcm[i];
    signal += x * x;
    difference += d * d;
  }
  column.signal += static_cast<double>(signal);
  column.difference += static_cast<double>(difference);
}

// As the columns of the report about the first stream are made.
InspectAgainst::Column &InspectAgainst::columnOf(const InspectedFrame &frame) {
  if (!grid_) grid_.emplace(frame.place.frame);
  for (size_t columns = 0; (columns = grid_->foldFor(frame.place.frame, frame.header)) > 1;) fold(columns);
  const size_t index = grid_->columnOf(frame.place.frame);
  if (columns_.size() <= index) columns_.resize(index + 1);
  return columns_[index];
}

void InspectAgainst::add(const InspectedFrame *a, const InspectedFrame *b) {
  if (b) headB_.add(*b);
  if (a) {
    if (!range_.holds(*a)) return;
    if (b) {
      compare(*a, *b);
    } else {
      ++onlyInA_;
      columnOf(*a);
    }
  } else if (b) {
    const double frameSeconds = static_cast<double>(b->header.frameSamples) / b->header.freqHz;
    if (range_.holds(*b, b->place.seconds + static_cast<double>(shift_) * frameSeconds)) ++onlyInB_;
  }
}

void InspectAgainst::compare(const InspectedFrame &a, const InspectedFrame &b) {
  Column &column = columnOf(a);
  ++compared_;
  ++column.compared;
  column.bits += 8 * (int64_t{b.header.frameBytes} - int64_t{a.header.frameBytes});
  for (unsigned c = 0; c < 2; ++c)
    for (unsigned sb = 0; sb < 32; ++sb) {
      column.bandBits[c][sb] += b.bandBits[c][sb] - a.bandBits[c][sb];
      for (size_t third = 0; third < 3; ++third) {
        uint8_t &leastA = column.leastScaleFactor[0][c][sb], &leastB = column.leastScaleFactor[1][c][sb];
        if (a.fields.allocation[c][sb] != 0) leastA = std::min(leastA, a.fields.scaleFactor[c][third][sb]);
        if (b.fields.allocation[c][sb] != 0) leastB = std::min(leastB, b.fields.scaleFactor[c][third][sb]);
      }
    }
  addSignals(column, a, b);
  if (a.header.frameBytes == b.header.frameBytes && std::memcmp(a.data.data(), b.data.data(), a.header.frameBytes) == 0)
    return;
  ++differing_;
  ++column.differs;
  const Parts parts = differingParts(a, b);
  for (size_t part = 0; part < kParts; ++part) column.parts[part] += parts[part] ? 1 : 0;
  if (!first_) first_ = First{a.place, b.place, fieldDifferences(a, b)};
}

void InspectAgainst::fold(size_t columns) {
  std::vector<Column> folded((columns_.size() + columns - 1) / columns);
  for (size_t i = 0; i < columns_.size(); ++i) {
    Column &into = folded[i / columns];
    const Column &from = columns_[i];
    into.compared += from.compared;
    into.differs += from.differs;
    for (size_t part = 0; part < kParts; ++part) into.parts[part] += from.parts[part];
    into.bits += from.bits;
    into.signal += from.signal;
    into.difference += from.difference;
    into.hasPcm = into.hasPcm || from.hasPcm;
    for (size_t c = 0; c < 2; ++c)
      for (size_t sb = 0; sb < 32; ++sb) {
        into.bandBits[c][sb] += from.bandBits[c][sb];
        for (size_t stream = 0; stream < 2; ++stream)
          into.leastScaleFactor[stream][c][sb] =
              std::min(into.leastScaleFactor[stream][c][sb], from.leastScaleFactor[stream][c][sb]);
      }
  }
  columns_ = std::move(folded);
}

std::string InspectAgainst::text() const {
  std::string text;
  if (shift_ != 0)
    text = fmt::format("the second begins {} {}; ", counted(static_cast<uint64_t>(std::abs(shift_)), "frame"),
                       shift_ > 0 ? "later" : "sooner");
  text += fmt::format(
      "{} compared, {}", counted(compared_, "frame"),
      differing_ == 0 ? "none differs" : fmt::format("{} differ{}", differing_, differing_ == 1 ? "s" : ""));
  if (onlyInA_ > 0) text += fmt::format(", {} missing from the second", onlyInA_);
  if (onlyInB_ > 0) text += fmt::format(", {} missing from the first", onlyInB_);
  if (first_ && !first_->fields.empty())
    text +=
        fmt::format("; the first is {}: {}, {} and {}", placeText(first_->a.frame, first_->a.offset, first_->a.seconds),
                    first_->fields[0].field, first_->fields[0].a, first_->fields[0].b);
  return text;
}

Json InspectAgainst::json(const std::string &fileB, int statusB, const InspectedStream &streamB,
                          const InspectColumns &columns, uint64_t endFrame, const ArrayWriter &array) const {
  Json json;
  json["file"] = toUtf8(fileB);
  json["stream"] = {{"file", toUtf8(fileB)}};
  json["stream"].update(streamB.report.json(statusB));
  json["head"] = headB_.json(streamB);
  json["frameShift"] = shift_;
  json["framesCompared"] = compared_;
  json["framesDiffering"] = differing_;
  json["onlyInA"] = onlyInA_;
  json["onlyInB"] = onlyInB_;
  json["first"] = nullptr;
  if (first_) {
    const size_t shown = std::min(first_->fields.size(), kMostFields);
    Json fields = Json::array();
    for (size_t i = 0; i < shown; ++i) {
      const FieldDifference &one = first_->fields[i];
      fields.push_back({{"field", one.field}, {"a", one.a}, {"b", one.b}});
    }
    json["first"] = {{"frame", first_->a.frame},
                     {"frameB", first_->b.frame},
                     {"seconds", first_->a.seconds},
                     {"offsetA", first_->a.offset},
                     {"offsetB", first_->b.offset},
                     {"fields", std::move(fields)},
                     {"fieldsOmitted", first_->fields.size() - shown}};
  }

  const size_t count = columns.grid().count(endFrame);
  const Column empty;
  const auto lane = [&]<typename T>(T, const ArrayCoding &coding, auto value) {
    std::vector<T> raw(count);
    for (size_t i = 0; i < count; ++i)
      raw[i] = coded<T>(static_cast<double>(value(i < columns_.size() ? columns_[i] : empty)), coding);
    return array({count}, raw, coding);
  };
  Json &lanes = json["lanes"];
  lanes["differs"] = lane(uint16_t{}, {}, [](const Column &column) { return column.differs; });
  static constexpr const char *kNames[kParts] = {"header",       "allocation", "selection",
                                                 "scaleFactors", "samples",    "unused"};
  for (size_t part = 0; part < kParts; ++part)
    lanes[kNames[part]] = lane(uint16_t{}, {}, [&](const Column &column) { return column.parts[part]; });
  lanes["bits"] = lane(int16_t{}, {}, [](const Column &column) {
    return column.compared > 0 ? static_cast<double>(column.bits) / column.compared : 0.0;
  });
  const auto snr = [](const Column &column) {
    if (!column.hasPcm || column.difference <= 0.0) return kNan;
    return std::clamp(10.0 * std::log10(column.signal / column.difference), 0.0, kMostSnrDb);
  };
  lanes["snr"] = nullptr;
  if (std::any_of(columns_.begin(), columns_.end(), [](const Column &column) { return column.hasPcm; }))
    lanes["snr"] = lane(uint8_t{}, {.none = 255.0}, snr);

  const auto map = [&](const ArrayCoding &coding, auto value) {
    std::vector<int8_t> raw;
    for (unsigned c = 0; c < columns.channels(); ++c)
      for (size_t i = 0; i < count; ++i)
        for (unsigned sb = 0; sb < columns.subbands(); ++sb)
          raw.push_back(coded<int8_t>(value(i < columns_.size() ? columns_[i] : empty, c, sb), coding));
    return array({columns.channels(), count, columns.subbands()}, raw, coding);
  };
  json["maps"]["bits"] = map({.scale = 6.0}, [](const Column &column, unsigned c, unsigned sb) {
    return column.compared > 0 ? static_cast<double>(column.bandBits[c][sb]) / column.compared : 0.0;
  });
  json["maps"]["scale"] = map({.none = -128.0}, [](const Column &column, unsigned c, unsigned sb) {
    const int a = column.leastScaleFactor[0][c][sb], b = column.leastScaleFactor[1][c][sb];
    // An index more is a third of a factor of two less.
    return a < kNoIndex && b < kNoIndex ? 20.0 * std::log10(2.0) * (a - b) / 3.0 : kNan;
  });
  return json;
}

}  // namespace qav::tool
