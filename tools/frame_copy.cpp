#include "tools/frame_copy.h"

#include <fmt/format.h>

#include <string>
#include <string_view>
#include <vector>

#include "tools/io/message.h"

namespace qav::tool {

namespace {

// What becomes of it.
const char *consequence(const Finding &finding, WrongChecks wrongChecks) {
  const std::string_view kind = finding.kind;
  if (finding.isWarning) return "it plays all the same";
  if (kind == "format change" || (kind == "check word" && wrongChecks == WrongChecks::takeOver))
    return "taken over as it is";
  return finding.lostFrames > 0 || finding.bytes > 0 ? "left out" : "";
}

void tellOfTags(Job &job, const StreamReport &report) {
  std::string text;
  for (const TagEvent &tag : report.tags())
    text += fmt::format("{}{} at byte {} ({})", text.empty() ? "" : ", ", tagName(tag.kind), tag.place.offset,
                        counted(tag.bytes, "byte"));
  if (!text.empty()) job.complain({{}, "tags are left out: " + text, {}});
}

}  // namespace

int copyFrames(Job &job, const CommonOptions &options, MpegInput &input, StreamReport &report, WrongChecks wrongChecks,
               const std::function<void(const FrameEvent &)> &take) {
  std::vector<Finding> held;  // until it is certain that this is a stream at all
  const auto tell = [&](const Finding &finding) {
    if (finding.isWarning && options.quiet) return;
    job.complain({placeText(finding.place.frame, finding.place.offset, finding.place.seconds), describeFinding(finding),
                  consequence(finding, wrongChecks)});
  };
  for (;;) {
    const Event &event = input.next();
    const auto finding = report.observe(event);
    if (report.frames() > 0) {
      for (const Finding &earlier : held) tell(earlier);
      held.clear();
    }
    if (finding && report.frames() > 0)
      tell(*finding);
    else if (finding)
      held.push_back(*finding);
    if (const auto *frame = std::get_if<FrameEvent>(&event)) {
      job.advance(input.fractionAt(frame->place.offset), frame->place.seconds);
      if (frame->check != Check::bad || wrongChecks == WrongChecks::takeOver) take(*frame);
    }
    if (std::holds_alternative<EndEvent>(event)) break;
  }
  if (!options.quiet) tellOfTags(job, report);
  return report.verdict() == Verdict::good ? kGood : kDamaged;
}

double endSeconds(const FrameEvent &frame) {
  return frame.place.seconds + static_cast<double>(frame.header.frameSamples) / frame.header.freqHz;
}

double middleSeconds(const FrameEvent &frame) { return (frame.place.seconds + endSeconds(frame)) / 2.0; }

}  // namespace qav::tool
