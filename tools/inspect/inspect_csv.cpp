#include "tools/inspect/inspect_csv.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "tools/io/message.h"

namespace qav::tool {

namespace {

// As RFC 4180 wants a text that may hold commas and quotes; control characters are escaped besides.
std::string quoted(const std::string &text) {
  std::string result = "\"";
  for (const char c : inertText(text)) {
    if (c == '"') result += '"';
    result += c;
  }
  return result + '"';
}

const char *statusName(uint32_t result) {
  switch (result) {
    case NEB_INSPECT_GOOD: return "good";
    case NEB_INSPECT_BAD_CHECK: return "check word";
    default: return "missing bytes";
  }
}

std::string decibels(double value) { return std::isfinite(value) ? fmt::format("{:.1f}", value) : std::string(); }

}  // namespace

std::string csvHead() {
  return "file,frame,offset,seconds,status,bytes,kbps,freqHz,mode,channels,bound,padding,checkGiven,checkComputed,"
         "headerBits,checkBits,allocationBits,selectionBits,scaleFactorBits,sampleBits,unusedBits,"
         "selection0,selection1,selection2,selection3,peakDbfs,rmsDbfs,smrMaxDb,nmrMaxDb,nmrOver";
}

std::string csvLine(const std::string &file, const InspectedFrame &frame) {
  const NEB_InspectFrame &fields = frame.fields;
  const FrameHeader &header = frame.header;
  std::string line = fmt::format("{},{},{},{:.6f},{},{},{},{},{},{},{},{},", quoted(file), frame.place.frame,
                                 frame.place.offset, frame.place.seconds, statusName(frame.result), header.frameBytes,
                                 header.kbps, header.freqHz, modeName(header), header.channels,
                                 std::min(fields.header.jsbound, fields.header.sblimit), header.padding ? 1 : 0);
  line += header.hasCheck ? fmt::format("{:04x},{:04x}", fields.checkGiven, fields.checkComputed) : ",";
  for (const uint32_t bits : frame.bits) line += fmt::format(",{}", bits);
  if (!frame.isGood()) return line + std::string(9, ',');

  uint64_t selections[4] = {};
  double smrMost = -HUGE_VAL, nmrMost = -HUGE_VAL;
  unsigned over = 0;
  for (unsigned c = 0; c < header.channels; ++c)
    for (unsigned sb = 0; sb < static_cast<unsigned>(fields.header.sblimit); ++sb) {
      if (header.layer == 2 && fields.allocation[c][sb] != 0) ++selections[fields.selection[c][sb]];
      if (!frame.hasModel) continue;
      smrMost = std::max(smrMost, static_cast<double>(frame.smrDb[c][sb]));
      nmrMost = std::max(nmrMost, static_cast<double>(frame.nmrDb[c][sb]));
      if (frame.nmrDb[c][sb] > 0.0f) ++over;
    }
  for (const uint64_t count : selections) line += fmt::format(",{}", count);

  const size_t samples = size_t{header.frameSamples} * header.channels;
  uint64_t energy = 0;
  int32_t peak = 0;
  for (unsigned c = 0; c < header.channels; ++c)
    for (const WaveLevels &levels : frame.wave[c]) {
      peak = std::max({peak, -int32_t{levels.least}, int32_t{levels.greatest}});
      energy += levels.energy;
    }
  line += fmt::format(",{},{},{},{},", decibels(20.0 * std::log10(peak / 32768.0)),
                      decibels(10.0 * std::log10(static_cast<double>(energy) / static_cast<double>(samples)) -
                               20.0 * std::log10(32768.0)),
                      decibels(smrMost), decibels(nmrMost));
  if (frame.hasModel) line += fmt::format("{}", over);
  return line;
}

}  // namespace qav::tool
