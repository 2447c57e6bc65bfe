#include "tools/inspect_csv.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "tools/inspect_columns.h"
#include "tools/message.h"

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
      const auto nmr = noiseToMaskDb(frame, c, sb);
      if (nmr) nmrMost = std::max(nmrMost, static_cast<double>(*nmr));
      if (nmr && *nmr > 0.0f) ++over;
    }
  for (const uint64_t count : selections) line += fmt::format(",{}", count);

  const size_t samples = size_t{header.frameSamples} * header.channels;
  double energy = 0.0;
  int32_t peak = 0;
  for (size_t i = 0; i < samples; ++i) {
    peak = std::max(peak, std::abs(int32_t{frame.pcm[i]}));
    energy += static_cast<double>(frame.pcm[i]) * frame.pcm[i];
  }
  line += fmt::format(",{},{},{},{},", decibels(20.0 * std::log10(peak / 32768.0)),
                      decibels(10.0 * std::log10(energy / static_cast<double>(samples)) - 20.0 * std::log10(32768.0)),
                      decibels(smrMost), decibels(nmrMost));
  if (frame.hasModel) line += fmt::format("{}", over);
  return line;
}

}  // namespace qav::tool
