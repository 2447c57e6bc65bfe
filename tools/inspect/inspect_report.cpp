#include "tools/inspect/inspect_report.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <fstream>

#include "tools/cli/command_line.h"
#include "tools/io/message.h"

namespace qav::tool {

namespace {

constexpr uint64_t kBytesBefore = 16, kBytesFrom = 48;

double secondsOf(const FrameHeader &header) { return static_cast<double>(header.frameSamples) / header.freqHz; }

Json bytesAround(std::ifstream &in, uint64_t offset) {
  const uint64_t start = offset - std::min(offset, kBytesBefore);
  std::string bytes(static_cast<size_t>(offset - start + kBytesFrom), '\0');
  in.clear();
  in.seekg(static_cast<std::streamoff>(start));
  in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<size_t>(std::max<std::streamsize>(in.gcount(), 0)));
  std::string digits;
  for (const char byte : bytes) digits += fmt::format("{:02x}", static_cast<uint8_t>(byte));
  return {{"offset", start}, {"data", digits}};
}

}  // namespace

bool InspectRange::holds(const InspectedFrame &frame, double seconds) const {
  return isWhole() || (seconds < to && seconds + secondsOf(frame.header) > from);
}

double secondsOfFrame(uint64_t frame, const StreamReport &report) {
  const auto &stretches = report.stretches();
  double start = 0.0;
  for (size_t i = 0; i < stretches.size(); ++i) {
    const auto &stretch = stretches[i];
    if (i + 1 < stretches.size() && frame >= stretches[i + 1].firstFrame)
      start += static_cast<double>(stretch.samples) / stretch.format.freqHz;
    else
      return start + static_cast<double>(frame - stretch.firstFrame) * secondsOf(stretch.format);
  }
  return start;
}

Json findingsJson(const std::string &file, const StreamReport &report) {
  Json all = Json::array();
  std::ifstream in;
  if (file != "-" && !report.kept().empty()) in.open(file, std::ios::binary);
  // A pipe has been read to its end.
  const bool canRead = in.is_open() && in.seekg(0, std::ios::end) && in.tellg() > 0;
  for (const Finding &finding : report.kept()) {
    all.push_back(findingJson(finding));
    all.back()["hex"] = canRead ? bytesAround(in, finding.place.offset) : Json();
  }
  return all;
}

// The reader is one frame ahead, so that what is found at the next frame is known.
bool InspectReport::isNearFinding(uint64_t frame, const StreamReport &report) const {
  for (auto at = report.kept().rbegin(); at != report.kept().rend(); ++at) {
    const uint64_t last = at->place.frame + std::max<uint64_t>(at->lostFrames, 1);
    if (frame + 1 >= at->place.frame && frame <= last) return true;
    if (last + 1000 < frame) break;
  }
  return false;
}

void InspectReport::add(const InspectedFrame &frame, const StreamReport &report) {
  head_.add(frame);
  if (!range_.holds(frame)) return;
  lastFrame_ = frame.place.frame;
  hasModel_ = hasModel_ || frame.hasModel;
  columns_.add(frame);
  distributions_.add(frame);
  details_.add(frame, tables_.indexOf(frame.fields), isNearFinding(frame.place.frame, report));
}

// Frames lost at the end count too where they are in the range.
uint64_t InspectReport::endFrame(const InspectedStream &stream) const {
  return range_.to == std::numeric_limits<double>::infinity() ? std::max(lastFrame_ + 1, stream.end.frame)
                                                              : lastFrame_ + 1;
}

Json InspectReport::json(const std::string &file, int status, const InspectedStream &stream,
                         const ArrayWriter &array) const {
  const StreamReport &report = stream.report;
  const unsigned channels = columns_.channels(), subbands = columns_.subbands();
  const ColumnGrid &grid = columns_.grid();
  const uint64_t end = endFrame(stream);
  const size_t count = grid.count(end);

  Json json;
  json["format"] = "qav-inspect";
  json["version"] = 1;
  json["tool"] = versionText();
  json["stream"] = {{"file", toUtf8(file)}};
  json["stream"].update(report.json(status));
  json["head"] = head_.json(stream);
  json["range"] = {{"fromSeconds", secondsOfFrame(grid.firstFrame(), report)},
                   {"toSeconds", secondsOfFrame(end, report)},
                   {"firstFrame", grid.firstFrame()},
                   {"endFrame", end},
                   {"whole", range_.isWhole()}};
  json["findings"] = findingsJson(file, report);

  std::vector<float> seconds;
  for (size_t i = 0; i <= count; ++i)
    seconds.push_back(
        static_cast<float>(secondsOfFrame(std::min(grid.firstFrame() + i * grid.framesPerColumn(), end), report)));
  json["columns"] = {{"count", count},      {"firstFrame", grid.firstFrame()},
                     {"endFrame", end},     {"framesPerColumn", grid.framesPerColumn()},
                     {"unit", grid.unit()}, {"channels", channels},
                     {"subbands", subbands}};
  json["columns"]["seconds"] = array({count + 1}, seconds);
  json["wave"] = columns_.wave(end, array);
  json["lanes"] = columns_.lanes(end, array);
  json["maps"] = columns_.maps(end, array);
  json["model"] = nullptr;
  if (hasModel_) {
    const bool isTrue = source_ == ModelSource::encoder;
    json["model"] = {{"kind", isTrue ? "true" : "estimate"},
                     {"text", isTrue ? "As the encoder's psychoacoustic model saw the original."
                                     : "Estimate: psychoacoustic model 2 run on the decoded signal. What the encoder "
                                       "left out is not in it."}};
  }
  json["distributions"] = distributions_.json(channels, subbands, array);
  json["tables"] = tables_.json();
  json["details"] = details_.json(channels, subbands, array);
  json["against"] = nullptr;
  return json;
}

}  // namespace qav::tool
