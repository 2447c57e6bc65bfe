#include "tools/inspect/explainer.h"

#include "tools/inspect/inspect_page.h"
#include "tools/io/failure.h"

namespace qav::tool {

Explainer::Explainer(const StreamFormat &format, const std::string &page, bool overwrite)
    : page_(page, overwrite),
      format_(format),
      model_(format.freqHz),
      meter_(format.freqHz, format.channels),
      report_({}, ModelSource::encoder),
      frame_(std::make_unique<InspectedFrame>()) {}

void Explainer::add(const int16_t *samples, const uint8_t *frame, uint32_t frameBytes, uint64_t offset) {
  // What stands before the first frame is the head of a WAVE file.
  if (place_.frame == 0 && offset > 0) {
    RiffContainer head;
    head.formatTag = kFormatMpeg;
    head.dataOffset = offset;
    stream_.observe(ContainerEvent{head});
  }
  place_.offset = offset;
  FrameEvent event{place_, {}, frame, Check::none};
  const bool isFrame = parser_.parse(frame, event.header) && event.header.frameBytes == frameBytes;
  if (isFrame) readFrame(decoder_, event, *frame_);
  if (!isFrame || !frame_->isGood()) fail("an encoded frame does not decode", "report this as an error of the encoder");
  model_.analyse(*frame_, samples);
  meter_.add(frame_->pcm.data(), event.header.frameSamples);
  stream_.observe(event);
  report_.add(*frame_, stream_);
  ++place_.frame;
  place_.offset = offset + frameBytes;
  place_.seconds = static_cast<double>(place_.frame * QAV_SAMPLES_PER_FRAME) / format_.freqHz;
}

void Explainer::finish(const std::string &file, uint64_t bytes) {
  place_.offset = bytes;
  stream_.observe(EndEvent{place_, place_.frame});
  const InspectedStream stream{stream_, place_, meter_.finish(), bytes};
  const std::string text = reportPage(report_.json(file, kGood, stream, ArrayWriter(ArrayWriter::Form::packed)));
  page_.write(text.data(), text.size());
  page_.commit();
}

}  // namespace qav::tool
