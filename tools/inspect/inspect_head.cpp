#include "tools/inspect/inspect_head.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "tools/io/message.h"

namespace qav::tool {

void PaddingRule::add(const InspectedFrame &frame) {
  const FrameHeader &header = frame.header;
  ++frames_;
  if (header.padding) ++padded_;
  if (!usesPadding(header)) return;
  needed_ = true;
  const bool continues =
      last_ && sameFormat(*last_, header) && last_->kbps == header.kbps && frame.place.frame == lastFrame_ + 1;
  last_ = header;
  lastFrame_ = frame.place.frame;
  if (!continues) ahead_ = least_ = greatest_ = 0;
  // A slot is a byte, or four in Layer I.
  const int64_t slots = header.frameBytes / (header.layer == 1 ? 4 : 1);
  const int64_t perSecond = int64_t{header.kbps} * (header.layer == 1 ? 12000 : 144000);
  ahead_ += slots * header.freqHz - perSecond;
  least_ = std::min(least_, ahead_);
  greatest_ = std::max(greatest_, ahead_);
  if (greatest_ - least_ < header.freqHz) return;
  ++irregular_;
  least_ = greatest_ = ahead_;
}

std::string PaddingRule::text() const {
  const double share = frames_ > 0 ? 100.0 * static_cast<double>(padded_) / static_cast<double>(frames_) : 0.0;
  if (!needed_ && padded_ == 0) return "none, and none is needed";
  if (!needed_) return fmt::format("in {:.1f} % of the frames, though none is needed", share);
  if (irregular_ == 0) return fmt::format("in {:.1f} % of the frames, regular", share);
  return fmt::format("in {:.1f} % of the frames, irregular at {}", share, counted(irregular_, "frame"));
}

void InspectHead::add(const InspectedFrame &frame) {
  padding_.add(frame);
  if (!frame.isGood()) return;
  ++frames_;
  if (frame.header.privateBit) ++privateBits_;
  if (frame.header.copyright) ++copyrights_;
  if (frame.header.original) ++originals_;
  ++emphases_[frame.header.emphasis];

  const uint32_t all = 8 * frame.header.frameBytes, used = all - frame.partBits(FramePart::unused);
  bits_ += all;
  unusedBits_ += all - used;
  bool isZero =
      used % 8 == 0 || used / 8 >= frame.header.frameBytes || (frame.data[used / 8] & (0xFF >> used % 8)) == 0;
  for (uint32_t at = (used + 7) / 8; at < frame.header.frameBytes; ++at) {
    const uint8_t byte = frame.data[at];
    isZero = isZero && byte == 0;
    tailsDiffer_ = tailsDiffer_ || byte != tailByte_.value_or(byte);
    tailByte_ = byte;
  }
  if (!isZero) ++nonZeroTails_;

  uint32_t clipped = 0;
  for (unsigned c = 0; c < frame.header.channels; ++c)
    for (const WaveLevels &levels : frame.wave[c]) clipped += levels.clipped;
  clippedSamples_ += clipped;
  if (clipped > 0) ++clippedFrames_;
}

std::string verdictText(const StreamReport &report, uint64_t lostFrames) {
  const std::string findings = counted(report.findings(), "finding");
  switch (report.verdict()) {
    case Verdict::good: return fmt::format("Good: {} without damage.", counted(report.frames(), "frame"));
    case Verdict::damaged: return fmt::format("Damaged: {}, {} lost.", findings, counted(lostFrames, "frame"));
    case Verdict::truncated: return fmt::format("Truncated: the end is missing; {}.", findings);
    case Verdict::joined: return fmt::format("Joined: the format changes; {}.", findings);
  }
  return "";
}

Json InspectHead::json(const InspectedStream &stream) const {
  const StreamReport &report = stream.report;
  const auto number = [](double value) { return std::isfinite(value) ? Json(std::round(value * 100) / 100) : Json(); };
  Json json;
  // Those that are there but do not decode are lost too.
  json["verdictText"] = verdictText(report, report.lostFrames() + report.frames() - frames_);
  const auto &stretches = report.stretches();
  json["formatText"] = stretches.empty() ? "" : formatText(stretches[0].format);
  if (stretches.size() > 1) json["formatText"] = formatText(stretches[0].format) + " and others";
  json["modeText"] = report.modesText();
  json["bitrateText"] = report.bitrateText();
  json["checkText"] = report.checkWordsText();
  json["durationText"] = timeText(report.seconds());
  json["bytes"] = stream.bytes ? Json(*stream.bytes) : Json();
  json["chunks"] = Json::array();
  if (report.container())
    json["chunks"].push_back({{"kind", "RIFF/WAVE head"}, {"offset", 0}, {"bytes", report.container()->dataOffset}});
  for (const TagEvent &tag : report.tags())
    json["chunks"].push_back(
        {{"kind", std::string(tagName(tag.kind)) + " tag"}, {"offset", tag.place.offset}, {"bytes", tag.bytes}});
  json["header"] = {{"privateBit", privateBits_}, {"copyright", copyrights_}, {"original", originals_}};
  json["header"]["emphasis"] = Json::object();
  for (uint32_t emphasis = 0; emphasis < 4; ++emphasis) {
    FrameHeader header{};
    header.emphasis = emphasis;
    if (emphases_[emphasis] > 0) json["header"]["emphasis"][emphasisName(header)] = emphases_[emphasis];
  }
  json["padding"] = {{"padded", padding_.padded()},
                     {"frames", padding_.frames()},
                     {"uses", padding_.isNeeded()},
                     {"pattern", padding_.text()},
                     {"irregular", padding_.irregular()}};
  const double frames = static_cast<double>(std::max<uint64_t>(frames_, 1));
  json["unused"] = {{"bits", unusedBits_},
                    {"meanBits", number(static_cast<double>(unusedBits_) / frames)},
                    {"share", static_cast<double>(unusedBits_) / static_cast<double>(std::max<uint64_t>(bits_, 1))},
                    {"zero", nonZeroTails_ == 0},
                    {"nonZeroFrames", nonZeroTails_},
                    {"constantByte", tailByte_ && !tailsDiffer_ ? Json(*tailByte_) : Json()}};
  json["loudness"] = nullptr;
  if (const auto &loudness = stream.loudness)
    json["loudness"] = {{"integratedLufs", number(loudness->integratedLufs)},
                        {"rangeLu", number(loudness->rangeLu)},
                        {"truePeakDbtp", number(loudness->truePeakDbtp)}};
  json["clipped"] = {{"samples", clippedSamples_}, {"frames", clippedFrames_}};
  return json;
}

}  // namespace qav::tool
