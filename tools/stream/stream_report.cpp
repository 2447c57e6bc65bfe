#include "tools/stream/stream_report.h"

#include <fmt/format.h>

#include <algorithm>

#include "tools/io/message.h"
#include "tools/stream/check_word.h"

namespace qav::tool {

std::string describeFinding(const Finding &finding) {
  const std::string text = fmt::format("{}{}: {}", finding.isWarning ? "warning: " : "", finding.kind, finding.what);
  return finding.bytes > 0 ? fmt::format("{} ({})", text, counted(finding.bytes, "byte")) : text;
}

Json findingJson(const Finding &finding) {
  return {{"kind", finding.kind},
          {"warning", finding.isWarning},
          {"frame", finding.place.frame},
          {"offset", finding.place.offset},
          {"seconds", finding.place.seconds},
          {"bytes", finding.bytes},
          {"lostFrames", finding.lostFrames},
          {"what", finding.what}};
}

const char *verdictName(Verdict verdict) {
  switch (verdict) {
    case Verdict::good: return "good";
    case Verdict::damaged: return "damaged";
    case Verdict::truncated: return "truncated";
    case Verdict::joined: return "joined";
  }
  return "";
}

namespace {

// A whole number of ticks at every sampling rate.
constexpr uint32_t kTicksPerSecond = 14112000;

const char *kindName(DamageKind kind) {
  switch (kind) {
    case DamageKind::lostSync: return "lost sync";
    case DamageKind::missingBytes: return "missing bytes";
    case DamageKind::truncated: return "truncated";
  }
  return "";
}

}  // namespace

std::optional<Finding> StreamReport::observe(const Event &event) {
  if (const auto *frame = std::get_if<FrameEvent>(&event)) {
    observeFrame(*frame);
    if (frame->check == Check::bad) return observeRefusal(*frame);
  } else if (const auto *damage = std::get_if<DamageEvent>(&event)) {
    (damage->kind == DamageKind::truncated ? isTruncated_ : isDamaged_) = true;
    lostFrames_ += damage->lostFrames;
    if (!stretches_.empty()) stretches_.back().samples += damage->lostSamples;
    return note({damage->place, kindName(damage->kind), damage->bytes, damage->lostFrames, damage->what, false});
  } else if (const auto *change = std::get_if<FormatChangeEvent>(&event)) {
    return note({change->place, "format change", 0, 0,
                 fmt::format("{} becomes {}", formatText(change->before), formatText(change->after)), false});
  } else if (const auto *oddity = std::get_if<OddityEvent>(&event)) {
    const bool reserved = oddity->kind == OddityEvent::Kind::reservedValue;
    return note({oddity->place, reserved ? "reserved value" : "illegal combination", 0, 0, oddity->what, true});
  } else if (const auto *foreign = std::get_if<ForeignEvent>(&event)) {
    isDamaged_ = true;
    return note(
        {foreign->place, "format change", 0, 0, fmt::format("{} begins, which is not decoded", foreign->name), false});
  } else if (const auto *container = std::get_if<ContainerEvent>(&event)) {
    container_ = container->riff;
  } else if (const auto *tag = std::get_if<TagEvent>(&event)) {
    if (tags_.size() < kKeptTags) tags_.push_back(*tag);
  } else if (const auto *end = std::get_if<EndEvent>(&event)) {
    end_ = end->place;
  }
  return std::nullopt;
}

void StreamReport::observeFrame(const FrameEvent &frame) {
  const FrameHeader &header = frame.header;
  if (stretches_.empty() || !sameFormatAndChannels(stretches_.back().format, header)) {
    ++stretchCount_;
    if (stretches_.size() == kKeptStretches) stretches_.pop_back();
    stretches_.push_back({header, frame.place.frame, frame.place.offset});
  }
  stretches_.back().samples += header.frameSamples;
  ++frames_;
  ++modes_[header.mode];
  if (header.hasCheck) ++checkedFrames_;
  leastKbps_ = std::min(leastKbps_, header.kbps);
  greatestKbps_ = std::max(greatestKbps_, header.kbps);
  const uint64_t ticks = uint64_t{header.frameSamples} * (kTicksPerSecond / header.freqHz);
  frameTicks_ += ticks;
  kbpsTicks_ += header.kbps * ticks;
}

std::optional<Finding> StreamReport::observeRefusal(const FrameEvent &frame) {
  isDamaged_ = true;
  if (verifyCheckWord(frame.data, frame.header) == Check::bad) {
    ++wrongChecks_;
    return note({frame.place, "check word", frame.header.frameBytes, 1, "the check word is wrong", false});
  }
  return note(
      {frame.place, "missing bytes", frame.header.frameBytes, 1, "the frame ends before its samples do", false});
}

Finding StreamReport::note(Finding finding) {
  ++(finding.isWarning ? warnings_ : findings_);
  if (kept_.size() < kKeptFindings) kept_.push_back(finding);
  return finding;
}

// What is lost weighs more than what is cut, and that more than what is joined.
Verdict StreamReport::verdict() const {
  if (isDamaged_) return Verdict::damaged;
  if (isTruncated_) return Verdict::truncated;
  return stretchCount_ > 1 ? Verdict::joined : Verdict::good;
}

double StreamReport::meanKbps() const {
  return frameTicks_ > 0 ? static_cast<double>(kbpsTicks_) / static_cast<double>(frameTicks_) : 0;
}

std::string StreamReport::bitrateText() const {
  if (leastKbps_ == greatestKbps_) return fmt::format("{} kbit/s", leastKbps_);
  return fmt::format("{} to {} kbit/s, mean {:.1f}", leastKbps_, greatestKbps_, meanKbps());
}

std::string StreamReport::checkWordsText() const {
  std::string text = "none";
  if (checkedFrames_ == frames_)
    text = "in every frame";
  else if (checkedFrames_ > 0)
    text = fmt::format("in {} of {}", checkedFrames_, counted(frames_, "frame"));
  if (wrongChecks_ > 0) text += fmt::format(", {} wrong", wrongChecks_);
  return text;
}

std::string StreamReport::modesText() const {
  std::string text;
  for (uint32_t mode = 0; mode < 4; ++mode) {
    if (modes_[mode] == 0) continue;
    FrameHeader header{};
    header.mode = mode;
    if (!text.empty()) text += " and ";
    text += modeName(header);
  }
  return text;
}

Json StreamReport::json(int status) const {
  Json j;
  j["status"] = status;
  j["verdict"] = verdictName(verdict());
  j["container"] = container_ ? Json("wav") : Json();
  j["frames"] = frames_;
  j["lostFrames"] = lostFrames_;
  j["seconds"] = end_.seconds;
  j["stretches"] = Json::array();
  for (const Stretch &stretch : stretches_) {
    const FrameHeader &format = stretch.format;
    j["stretches"].push_back({{"firstFrame", stretch.firstFrame},
                              {"offset", stretch.offset},
                              {"mpeg", format.version},
                              {"layer", format.layer},
                              {"freqHz", format.freqHz},
                              {"channels", format.channels},
                              {"samples", stretch.samples}});
  }
  j["modes"] = Json::array();
  for (uint32_t mode = 0; mode < 4; ++mode) {
    FrameHeader header{};
    header.mode = mode;
    if (modes_[mode] > 0) j["modes"].push_back(modeName(header));
  }
  j["kbps"] = {{"least", leastKbps_}, {"mean", meanKbps()}, {"greatest", greatestKbps_}};
  j["checkWords"] = {{"present", checkedFrames_}, {"wrong", wrongChecks_}};
  j["tags"] = Json::array();
  for (const TagEvent &tag : tags_)
    j["tags"].push_back({{"kind", tagName(tag.kind)}, {"offset", tag.place.offset}, {"bytes", tag.bytes}});
  j["findings"] = Json::array();
  for (const Finding &finding : kept_) j["findings"].push_back(findingJson(finding));
  j["findingsOmitted"] = omitted();
  return j;
}

}  // namespace qav::tool
