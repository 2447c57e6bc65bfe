#include "tools/stream/mpeg_input.h"

#include <fmt/format.h>

#include "tools/io/failure.h"

namespace qav::tool {

namespace {

void refuseOtherWave(const RiffContainer &riff) {
  switch (riff.formatTag) {
    case 0:  // no fmt chunk: look at the data
    case kFormatMpeg:
    case kFormatMpegLayer3:  // some programs say so of Layer II too; the frames will tell
      return;
    case kFormatPcm: failNotMpegAudio("is a WAV file of PCM, not of MPEG audio", "there is nothing to decode");
    default:
      failNotMpegAudio(fmt::format("is a WAV file of format {:#06x}, not of MPEG audio", riff.formatTag),
                       "decode it with a program for that format");
  }
}

}  // namespace

MpegInput::MpegInput(const std::string &name, StreamWalker::Options options)
    : source_(name), walker_(source_, options) {}

const Event &MpegInput::next() {
  const Event &event = walker_.next();
  if (std::holds_alternative<FrameEvent>(event)) {
    hasFrames_ = true;
  } else if (const auto *container = std::get_if<ContainerEvent>(&event)) {
    refuseOtherWave(container->riff);
  } else if (const auto *foreign = std::get_if<ForeignEvent>(&event)) {
    if (!hasFrames_)
      failNotMpegAudio(fmt::format("is {}, which is not decoded", foreign->name), "give Layer I or Layer II");
  } else if (const auto *end = std::get_if<EndEvent>(&event)) {
    if (end->place.offset == 0) failNotMpegAudio("is empty", "give a file with MPEG audio");
    if (!hasFrames_) failNotMpegAudio("is no MPEG audio of Layer I or II", "check that it is the right file");
  }
  return event;
}

}  // namespace qav::tool
