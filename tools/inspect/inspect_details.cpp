#include "tools/inspect/inspect_details.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "tools/inspect/inspect_columns.h"

namespace qav::tool {

namespace {

// As base64 it takes a third more in the page.
constexpr size_t kBudget = size_t{3} << 19;
constexpr size_t kPinnedBudget = size_t{1} << 18;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

std::string hexDigits(const std::vector<uint8_t> &data) {
  std::string text;
  for (const uint8_t byte : data) text += fmt::format("{:02x}", byte);
  return text;
}

}  // namespace

// ------------------------------------------------------------------------------------------------------- tables ----

uint8_t InspectTables::indexOf(const NEB_InspectFrame &fields) {
  const AllocEntry(*const rows)[16] = fields.header.layer == 1 ? nullptr : fields.header.allocTable;
  const auto at = std::find_if(tables_.begin(), tables_.end(), [&](const Table &table) { return table.rows == rows; });
  if (at != tables_.end()) return static_cast<uint8_t>(at - tables_.begin());
  tables_.push_back({rows, fields.header.sblimit, fields.header.id == 0});
  return static_cast<uint8_t>(tables_.size() - 1);
}

Json InspectTables::json() const {
  Json all = Json::array();
  for (const Table &table : tables_) {
    const auto subbands = static_cast<size_t>(table.subbands);
    const char *const name = !table.rows       ? "Layer I"
                             : table.isLowRate ? "ISO/IEC 13818-3 B.1"
                             : subbands == 27  ? "ISO/IEC 11172-3 B.2a"
                             : subbands == 30  ? "ISO/IEC 11172-3 B.2b"
                             : subbands == 8   ? "ISO/IEC 11172-3 B.2c"
                                               : "ISO/IEC 11172-3 B.2d";
    Json widths = Json::array(), levels = Json::array(), codewords = Json::array(), grouped = Json::array();
    for (size_t sb = 0; sb < subbands; ++sb) {
      const unsigned width = table.rows ? table.rows[sb][0].bits : 4u;
      widths.push_back(width);
      Json rowLevels{0}, rowBits{0}, rowGrouped{0};
      for (unsigned i = 1; i < (table.rows ? 1u << width : 15u); ++i) {
        rowLevels.push_back(table.rows ? table.rows[sb][i].steps : (2u << i) - 1);
        rowBits.push_back(table.rows ? table.rows[sb][i].bits : i + 1);
        rowGrouped.push_back(table.rows && table.rows[sb][i].group == 1 ? 1 : 0);
      }
      levels.push_back(std::move(rowLevels));
      codewords.push_back(std::move(rowBits));
      grouped.push_back(std::move(rowGrouped));
    }
    all.push_back({{"name", name},
                   {"layer", table.rows ? 2 : 1},
                   {"subbands", subbands},
                   {"allocationBits", std::move(widths)},
                   {"levels", std::move(levels)},
                   {"codewordBits", std::move(codewords)},
                   {"grouped", std::move(grouped)}});
  }
  return all;
}

// ------------------------------------------------------------------------------------------------------ details ----

void InspectDetails::add(const InspectedFrame &frame, uint8_t table, bool isPinned) {
  if (isPinned && pinnedCost_ > kPinnedBudget) isPinned = false;
  if (!isPinned && !isInStep(frame.place.frame)) return;
  Detail detail{.frame = frame.place.frame,
                .offset = frame.place.offset,
                .data = {frame.data.begin(), frame.data.begin() + frame.header.frameBytes},
                .result = frame.result,
                .kbps = frame.header.kbps,
                .freqHz = frame.header.freqHz,
                .fields = frame.fields,
                .bits = frame.bits,
                .hasModel = frame.hasModel,
                .isPinned = isPinned,
                .table = table,
                .smrDb = frame.smrDb,
                .nmrDb = frame.nmrDb};
  hasModel_ = hasModel_ || frame.hasModel;
  cost_ += costOf(detail);
  if (isPinned) pinnedCost_ += costOf(detail);
  kept_.push_back(std::move(detail));
  while (cost_ > kBudget) thinOut();
}

void InspectDetails::thinOut() {
  every_ *= 2;
  std::erase_if(kept_, [&](const Detail &detail) {
    const bool goes = !detail.isPinned && !isInStep(detail.frame);
    if (goes) cost_ -= costOf(detail);
    return goes;
  });
}

// `value` gives number i of each frame's `width`; no width: one number a frame.
template <typename T, typename Value>
Json InspectDetails::series(const ArrayWriter &array, size_t width, const ArrayCoding &coding, Value value) const {
  std::vector<T> raw;
  raw.reserve(kept_.size() * std::max<size_t>(width, 1));
  for (const Detail &detail : kept_)
    for (size_t i = 0; i < std::max<size_t>(width, 1); ++i)
      raw.push_back(coded<T>(static_cast<double>(value(detail, i)), coding));
  std::vector<size_t> shape{kept_.size()};
  if (width > 0) shape.push_back(width);
  return array(shape, raw, coding);
}

template <typename T, typename Value>
Json InspectDetails::pairs(unsigned channels, unsigned subbands, const ArrayWriter &array, const ArrayCoding &coding,
                           Value value) const {
  std::vector<T> raw;
  raw.reserve(kept_.size() * channels * subbands);
  for (const Detail &detail : kept_)
    for (unsigned c = 0; c < channels; ++c)
      for (unsigned sb = 0; sb < subbands; ++sb)
        raw.push_back(coded<T>(static_cast<double>(value(detail, c, sb)), coding));
  return array({kept_.size(), channels, subbands}, raw, coding);
}

Json InspectDetails::json(unsigned channels, unsigned subbands, const ArrayWriter &array) const {
  const auto one = [&]<typename T>(T, auto value) {
    return series<T>(array, 0, {}, [&](const Detail &detail, size_t) { return value(detail); });
  };
  Json json;
  json["every"] = every_;
  json["count"] = kept_.size();
  json["frame"] = one(uint32_t{}, [](const Detail &d) { return d.frame; });
  json["offset"] = Json::array();
  for (const Detail &detail : kept_) json["offset"].push_back(detail.offset);
  json["bytes"] = one(uint16_t{}, [](const Detail &d) { return d.data.size(); });
  if (array.isPlain()) {
    json["data"] = Json::array();
    for (const Detail &detail : kept_) json["data"].push_back(hexDigits(detail.data));
  } else {
    std::vector<uint8_t> all;
    for (const Detail &detail : kept_) all.insert(all.end(), detail.data.begin(), detail.data.end());
    json["data"] = base64(all.data(), all.size());
  }
  json["table"] = one(uint8_t{}, [](const Detail &d) { return d.table; });
  json["status"] = one(uint8_t{}, [](const Detail &d) { return d.result; });
  json["header"] = series<uint8_t>(array, 12, {}, [](const Detail &d, size_t i) {
    const FrameParams &h = d.fields.header;
    const int32_t all[12] = {h.id,         h.layer, h.protection, h.bitrateIndex, h.samplingIndex, h.padding,
                             h.privateBit, h.mode,  h.modeExt,    h.copyright,    h.original,      h.emphasis};
    return all[i];
  });
  json["sblimit"] = one(uint8_t{}, [](const Detail &d) { return d.fields.header.sblimit; });
  json["bound"] =
      one(uint8_t{}, [](const Detail &d) { return std::min(d.fields.header.jsbound, d.fields.header.sblimit); });
  json["channels"] = one(uint8_t{}, [](const Detail &d) { return d.fields.header.channels; });
  json["kbps"] = one(uint16_t{}, [](const Detail &d) { return d.kbps; });
  json["freqHz"] = one(uint32_t{}, [](const Detail &d) { return d.freqHz; });
  const ArrayCoding checkWord{.none = 4294967295.0};
  const auto check = [&](uint32_t NEB_InspectFrame::*word) {
    return series<uint32_t>(array, 0, checkWord, [&](const Detail &d, size_t) {
      return d.fields.header.protection != 0 ? static_cast<double>(d.fields.*word) : kNan;
    });
  };
  json["checkGiven"] = check(&NEB_InspectFrame::checkGiven);
  json["checkComputed"] = check(&NEB_InspectFrame::checkComputed);
  json["bits"] = series<uint16_t>(array, kFrameParts, {}, [](const Detail &d, size_t i) { return d.bits[i]; });

  const ArrayCoding byteOrNone{.none = 255.0};
  const auto isCoded = [](const Detail &d, unsigned c, unsigned sb) { return d.fields.allocation[c][sb] != 0; };
  json["allocation"] = pairs<uint8_t>(channels, subbands, array, {}, [](const Detail &d, unsigned c, unsigned sb) {
    return d.fields.allocation[c][sb];
  });
  json["selection"] =
      pairs<uint8_t>(channels, subbands, array, byteOrNone, [&](const Detail &d, unsigned c, unsigned sb) {
        return isCoded(d, c, sb) && d.fields.header.layer == 2 ? d.fields.selection[c][sb] : kNan;
      });
  std::vector<uint8_t> factors;
  for (const Detail &detail : kept_)
    for (unsigned c = 0; c < channels; ++c)
      for (unsigned part = 0; part < 3; ++part)
        for (unsigned sb = 0; sb < subbands; ++sb)
          factors.push_back(isCoded(detail, c, sb) ? detail.fields.scaleFactor[c][part][sb] : uint8_t{255});
  json["scaleFactor"] = array({kept_.size(), channels, 3, subbands}, factors, byteOrNone);
  json["smr"] = json["nmr"] = nullptr;
  if (hasModel_) {
    const auto isModelled = [](const Detail &d, unsigned c) {
      return d.hasModel && c < static_cast<unsigned>(d.fields.header.channels);
    };
    json["smr"] = pairs<int8_t>(
        channels, subbands, array, {.none = -128.0},
        [&](const Detail &d, unsigned c, unsigned sb) { return isModelled(d, c) ? d.smrDb[c][sb] : kNoLevel; });
    json["nmr"] = pairs<int8_t>(
        channels, subbands, array, {.scale = 0.5, .none = -128.0},
        [&](const Detail &d, unsigned c, unsigned sb) { return isModelled(d, c) ? d.nmrDb[c][sb] : kNoLevel; });
  }
  return json;
}

}  // namespace qav::tool
