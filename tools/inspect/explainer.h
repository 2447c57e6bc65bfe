// A report about a stream while it is encoded: with what the psychoacoustic model saw of the original.
#pragma once

#include <optional>
#include <string>

#include "tools/inspect/inspect_report.h"
#include "tools/io/output_file.h"
#include "tools/pcm/layer2_format.h"

namespace qav::tool {

class Explainer {
 public:
  // `page` is where the report goes.
  Explainer(const StreamFormat &format, const std::string &page, bool overwrite);

  // The 1152 sample frames that were encoded, and the frame, which stands at `offset` of the output.
  void add(const int16_t *samples, const uint8_t *frame, uint32_t frameBytes, uint64_t offset);

  // After the last frame: writes the report about the stream, which is called `file` and has so many bytes with what is
  // around it.
  void finish(const std::string &file, uint64_t bytes);

 private:
  OutputFile page_;
  StreamFormat format_;
  HeaderParser parser_;
  FrameDecoder decoder_;
  MaskingModel model_;
  LoudnessMeter meter_;
  StreamReport stream_;
  InspectReport report_;
  std::unique_ptr<InspectedFrame> frame_;
  Place place_;
};

}  // namespace qav::tool
