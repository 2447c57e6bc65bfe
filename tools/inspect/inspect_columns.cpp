#include "tools/inspect/inspect_columns.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace qav::tool {

namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr uint8_t kNoIndex = 63;

double mean(double sum, uint64_t count) { return count > 0 ? sum / static_cast<double>(count) : 0.0; }
double meanOrNone(double sum, uint64_t count) { return count > 0 ? sum / static_cast<double>(count) : kNan; }

double levelDb(double amplitude) { return amplitude > 0.0 ? 20.0 * std::log10(amplitude / 32768.0) : -1000.0; }

// 2^(1 - index / 3)
double scaleFactorDb(uint8_t index) { return 20.0 * std::log10(2.0) * (1.0 - index / 3.0); }

}  // namespace

size_t ColumnGrid::foldFor(uint64_t frame, const FrameHeader &header) {
  if (columnOf(frame) < kMostColumns) return 1;
  size_t columns = 2;
  if (folds_ == 0) columns = std::max<size_t>(2, (header.freqHz + header.frameSamples / 2) / header.frameSamples);
  ++folds_;
  framesPerColumn_ *= columns;
  return columns;
}

InspectColumns::Channel::Channel() {
  least.fill(std::numeric_limits<int16_t>::max());
  greatest.fill(std::numeric_limits<int16_t>::min());
  nmrMost.fill(kNoLevel);
  leastScaleFactor.fill(kNoIndex);
}

InspectColumns::Column::Column() : smrMost(kNoLevel), nmrMost(kNoLevel) {}

void InspectColumns::add(const InspectedFrame &frame) {
  if (!grid_) grid_.emplace(frame.place.frame);
  for (size_t columns = 0; (columns = grid_->foldFor(frame.place.frame, frame.header)) > 1;) fold(columns);
  const size_t index = grid_->columnOf(frame.place.frame);
  if (columns_.size() <= index) columns_.resize(index + 1);
  Column &column = columns_[index];
  if (frame.header.hasCheck) column.checkFlags |= 1;
  if (!frame.isGood()) {
    column.checkFlags |= frame.result == NEB_INSPECT_BAD_CHECK ? 2 : 4;
    return;
  }
  channels_ = std::max(channels_, frame.header.channels);
  subbands_ = std::max(subbands_, static_cast<unsigned>(frame.fields.header.sblimit));
  const uint64_t slots = grid_->framesPerColumn();
  addWave(column, frame, static_cast<size_t>((frame.place.frame - grid_->firstFrame()) % slots),
          static_cast<size_t>(slots));
  addFields(column, frame);
  hasSelection_ = hasSelection_ || column.hasSelection;
  if (!frame.hasModel) return;
  hasModel_ = true;
  addModel(column, frame);
}

// `slot` of the column's `slots` is the frame's own.
void InspectColumns::addWave(Column &column, const InspectedFrame &frame, size_t slot, size_t slots) {
  for (unsigned c = 0; c < frame.header.channels; ++c) {
    Channel &channel = column.channel[c];
    uint64_t energy = 0;
    for (size_t piece = 0; piece < kWavePoints; ++piece) {
      const WaveLevels &levels = frame.wave[c][piece];
      energy += levels.energy;
      column.clipped += levels.clipped;
      const size_t point = (slot * kWavePoints + piece) / slots;
      channel.least[point] = std::min(channel.least[point], levels.least);
      channel.greatest[point] = std::max(channel.greatest[point], levels.greatest);
      channel.peak = std::max({channel.peak, -int32_t{levels.least}, int32_t{levels.greatest}});
    }
    channel.energy += static_cast<double>(energy);
    channel.samples += frame.header.frameSamples;
  }
}

void InspectColumns::addFields(Column &column, const InspectedFrame &frame) {
  const NEB_InspectFrame &fields = frame.fields;
  ++column.frames;
  column.kbps += frame.header.kbps;
  column.mode = static_cast<uint8_t>(frame.header.mode);
  if (frame.header.mode == 1) {
    column.boundSum += static_cast<uint64_t>(std::min(fields.header.jsbound, fields.header.sblimit));
    ++column.boundCount;
  }
  if (frame.header.padding) ++column.padded;
  for (size_t part = 0; part < kFrameParts; ++part) column.bits[part] += frame.bits[part];
  column.hasSelection = column.hasSelection || frame.header.layer == 2;
  for (unsigned c = 0; c < frame.header.channels; ++c) {
    Channel &channel = column.channel[c];
    for (unsigned sb = 0; sb < 32; ++sb) channel.bits[sb] += frame.bandBits[c][sb];
    for (unsigned sb = 0; sb < 32; ++sb) {
      if (fields.allocation[c][sb] == 0) continue;
      if (frame.header.layer == 2) ++column.selection[fields.selection[c][sb]];
      for (const auto &part : fields.scaleFactor[c])
        channel.leastScaleFactor[sb] = std::min(channel.leastScaleFactor[sb], part[sb]);
    }
  }
}

void InspectColumns::addModel(Column &column, const InspectedFrame &frame) {
  ++column.modelled;
  for (unsigned c = 0; c < frame.header.channels; ++c) {
    Channel &channel = column.channel[c];
    const auto &smrDb = frame.smrDb[c], &nmrDb = frame.nmrDb[c];
    uint32_t over = 0;
    for (unsigned sb = 0; sb < static_cast<unsigned>(frame.fields.header.sblimit); ++sb) {
      const bool hasSignal = smrDb[sb] > kNoLevel;
      channel.smrSum[sb] += hasSignal ? smrDb[sb] : 0.0f;
      channel.smrCount[sb] += hasSignal;
      column.smrMost = std::max(column.smrMost, smrDb[sb]);
      channel.nmrMost[sb] = std::max(channel.nmrMost[sb], nmrDb[sb]);
      column.nmrMost = std::max(column.nmrMost, nmrDb[sb]);
      over += nmrDb[sb] > 0.0f;
    }
    column.over += over;
  }
}

void InspectColumns::merge(Column &into, const Column &from) {
  into.frames += from.frames;
  into.clipped += from.clipped;
  into.padded += from.padded;
  into.kbps += from.kbps;
  into.boundSum += from.boundSum;
  into.boundCount += from.boundCount;
  into.over += from.over;
  into.modelled += from.modelled;
  for (size_t part = 0; part < kFrameParts; ++part) into.bits[part] += from.bits[part];
  for (size_t i = 0; i < 4; ++i) into.selection[i] += from.selection[i];
  if (from.mode != 255) into.mode = from.mode;
  into.checkFlags |= from.checkFlags;
  into.hasSelection = into.hasSelection || from.hasSelection;
  into.smrMost = std::max(into.smrMost, from.smrMost);
  into.nmrMost = std::max(into.nmrMost, from.nmrMost);
  for (size_t c = 0; c < 2; ++c) {
    Channel &a = into.channel[c];
    const Channel &b = from.channel[c];
    a.samples += b.samples;
    a.energy += b.energy;
    a.peak = std::max(a.peak, b.peak);
    for (size_t sb = 0; sb < 32; ++sb) {
      a.bits[sb] += b.bits[sb];
      a.smrSum[sb] += b.smrSum[sb];
      a.smrCount[sb] += b.smrCount[sb];
      a.nmrMost[sb] = std::max(a.nmrMost[sb], b.nmrMost[sb]);
      a.leastScaleFactor[sb] = std::min(a.leastScaleFactor[sb], b.leastScaleFactor[sb]);
    }
  }
}

// Every `columns` columns become one.
void InspectColumns::fold(size_t columns) {
  std::vector<Column> folded((columns_.size() + columns - 1) / columns);
  for (size_t i = 0; i < columns_.size(); ++i) {
    Column &into = folded[i / columns];
    merge(into, columns_[i]);
    for (size_t c = 0; c < 2; ++c)
      for (size_t piece = 0; piece < kWavePoints; ++piece) {
        const size_t point = (i % columns * kWavePoints + piece) / columns;
        Channel &a = into.channel[c];
        const Channel &b = columns_[i].channel[c];
        a.least[point] = std::min(a.least[point], b.least[piece]);
        a.greatest[point] = std::max(a.greatest[point], b.greatest[piece]);
      }
  }
  columns_ = std::move(folded);
}

// -------------------------------------------------------------------------------------------------------- as JSON ----

template <typename T, typename Value>
Json InspectColumns::lane(uint64_t endFrame, const ArrayWriter &array, const ArrayCoding &coding, Value value) const {
  const size_t count = grid_->count(endFrame);
  std::vector<T> raw(count);
  for (size_t i = 0; i < count; ++i)
    raw[i] = coded<T>(static_cast<double>(value(i < columns_.size() ? columns_[i] : empty_)), coding);
  return array({count}, raw, coding);
}

template <typename T, typename Value>
std::vector<T> InspectColumns::ofChannels(size_t count, const ArrayCoding &coding, size_t points, Value value) const {
  std::vector<T> raw;
  raw.reserve(channels_ * count * points);
  for (size_t c = 0; c < channels_; ++c)
    for (size_t i = 0; i < count; ++i)
      for (size_t p = 0; p < points; ++p) {
        const Column &column = i < columns_.size() ? columns_[i] : empty_;
        raw.push_back(coded<T>(value(column, column.channel[c], p), coding));
      }
  return raw;
}

template <typename T, typename Value>
Json InspectColumns::channelLane(uint64_t endFrame, const ArrayWriter &array, const ArrayCoding &coding, size_t points,
                                 Value value) const {
  const size_t count = grid_->count(endFrame);
  return array({channels_, count * points}, ofChannels<T>(count, coding, points, value), coding);
}

template <typename T, typename Value>
Json InspectColumns::map(uint64_t endFrame, const ArrayWriter &array, const ArrayCoding &coding, Value value) const {
  const size_t count = grid_->count(endFrame);
  return array({channels_, count, subbands_}, ofChannels<T>(count, coding, subbands_, value), coding);
}

Json InspectColumns::wave(uint64_t endFrame, const ArrayWriter &array) const {
  const ArrayCoding amplitude{.scale = 1.0 / 127.0, .none = -128.0};
  const ArrayCoding level{.scale = 0.5, .offset = -127.0, .none = 255.0};
  Json json;
  json["pointsPerColumn"] = kWavePoints;
  const auto point = [](const Channel &channel, size_t p, int16_t value) {
    return channel.least[p] <= channel.greatest[p] ? value / 32768.0 : kNan;
  };
  json["min"] = channelLane<int8_t>(
      endFrame, array, amplitude, kWavePoints,
      [&](const Column &, const Channel &channel, size_t p) { return point(channel, p, channel.least[p]); });
  json["max"] = channelLane<int8_t>(
      endFrame, array, amplitude, kWavePoints,
      [&](const Column &, const Channel &channel, size_t p) { return point(channel, p, channel.greatest[p]); });
  json["rms"] = channelLane<uint8_t>(endFrame, array, level, 1, [](const Column &, const Channel &channel, size_t) {
    return channel.samples > 0 ? levelDb(std::sqrt(channel.energy / static_cast<double>(channel.samples))) : kNan;
  });
  json["peak"] = channelLane<uint8_t>(endFrame, array, level, 1, [](const Column &, const Channel &channel, size_t) {
    return channel.samples > 0 ? levelDb(channel.peak) : kNan;
  });
  json["clipped"] = lane<uint16_t>(endFrame, array, {}, [](const Column &column) { return column.clipped; });
  return json;
}

Json InspectColumns::lanes(uint64_t endFrame, const ArrayWriter &array) const {
  Json json;
  json["frames"] = lane<uint32_t>(endFrame, array, {}, [](const Column &column) { return column.frames; });
  const size_t count = grid_->count(endFrame);
  std::vector<uint32_t> lost(count);
  for (size_t i = 0; i < count; ++i) {
    const uint64_t from = grid_->firstFrame() + i * grid_->framesPerColumn();
    const uint64_t numbers = std::min(grid_->framesPerColumn(), endFrame - from);
    lost[i] = static_cast<uint32_t>(numbers - (i < columns_.size() ? columns_[i].frames : 0));
  }
  json["lost"] = array({count}, lost);
  json["kbps"] = lane<uint16_t>(
      endFrame, array, {}, [](const Column &column) { return mean(static_cast<double>(column.kbps), column.frames); });
  const ArrayCoding byteOrNone{.none = 255.0};
  json["mode"] = lane<uint8_t>(endFrame, array, byteOrNone, [](const Column &column) { return column.mode; });
  json["bound"] = lane<uint8_t>(endFrame, array, byteOrNone, [](const Column &column) {
    return meanOrNone(static_cast<double>(column.boundSum), column.boundCount);
  });
  const auto bits = [&](std::initializer_list<FramePart> parts) {
    return lane<uint16_t>(endFrame, array, {.scale = 0.25}, [&](const Column &column) {
      uint64_t sum = 0;
      for (const FramePart part : parts) sum += column.bits[static_cast<size_t>(part)];
      return mean(static_cast<double>(sum), column.frames);
    });
  };
  json["bitsHeader"] = bits({FramePart::header, FramePart::checkWord});
  json["bitsAllocation"] = bits({FramePart::allocation});
  json["bitsSelection"] = bits({FramePart::selection});
  json["bitsScaleFactors"] = bits({FramePart::scaleFactors});
  json["bitsSamples"] = bits({FramePart::samples});
  json["bitsUnused"] = bits({FramePart::unused});
  json["selection"] = nullptr;
  if (hasSelection_) {
    const ArrayCoding coding{.scale = 0.25};
    std::vector<uint8_t> raw;
    for (size_t kind = 0; kind < 4; ++kind)
      for (size_t i = 0; i < count; ++i) {
        const Column &column = i < columns_.size() ? columns_[i] : empty_;
        raw.push_back(coded<uint8_t>(mean(static_cast<double>(column.selection[kind]), column.frames), coding));
      }
    json["selection"] = array({4, count}, raw, coding);
  }
  json["check"] = lane<uint8_t>(endFrame, array, {}, [](const Column &column) { return column.checkFlags; });
  json["padding"] = lane<uint8_t>(endFrame, array, {.scale = 1.0 / 250.0},
                                  [](const Column &column) { return mean(column.padded, column.frames); });
  json["smrMax"] = json["nmrMax"] = json["nmrOver"] = nullptr;
  if (hasModel_) {
    json["smrMax"] =
        lane<int8_t>(endFrame, array, {.none = -128.0}, [](const Column &column) { return column.smrMost; });
    json["nmrMax"] = lane<int8_t>(endFrame, array, {.scale = 0.5, .none = -128.0},
                                  [](const Column &column) { return column.nmrMost; });
    json["nmrOver"] = lane<uint8_t>(endFrame, array, {.scale = 0.25}, [](const Column &column) {
      return mean(static_cast<double>(column.over), column.modelled);
    });
  }
  return json;
}

Json InspectColumns::maps(uint64_t endFrame, const ArrayWriter &array) const {
  Json json;
  json["bits"] =
      map<uint8_t>(endFrame, array, {.scale = 3.0}, [](const Column &column, const Channel &channel, size_t sb) {
        return mean(static_cast<double>(channel.bits[sb]), column.frames);
      });
  json["scale"] = map<int8_t>(endFrame, array, {.none = -128.0}, [](const Column &, const Channel &channel, size_t sb) {
    return channel.leastScaleFactor[sb] < kNoIndex ? scaleFactorDb(channel.leastScaleFactor[sb]) : kNan;
  });
  json["smr"] = json["nmr"] = nullptr;
  if (!hasModel_) return json;
  json["smr"] = map<int8_t>(endFrame, array, {.none = -128.0}, [](const Column &, const Channel &channel, size_t sb) {
    return meanOrNone(static_cast<double>(channel.smrSum[sb]), channel.smrCount[sb]);
  });
  json["nmr"] = map<int8_t>(
      endFrame, array, {.scale = 0.5, .none = -128.0},
      [](const Column &, const Channel &channel, size_t sb) { return static_cast<double>(channel.nmrMost[sb]); });
  return json;
}

}  // namespace qav::tool
