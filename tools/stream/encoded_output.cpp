#include "tools/stream/encoded_output.h"

namespace qav::tool {

void EncodedOutput::write(const uint8_t *frame, uint32_t bytes) {
  FrameHeader header;
  if (wave_ && parser_.parse(frame, header))
    wave_->write(frame, header);
  else
    file_.write(frame, bytes);
}

std::string EncodedOutput::finish(uint64_t samples, const Loudness *loudness) {
  std::string remark = wave_ ? wave_->finish(samples, loudness) : std::string();
  file_.commit();
  return remark;
}

}  // namespace qav::tool
