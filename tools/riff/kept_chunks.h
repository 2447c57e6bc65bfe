// The chunks of a WAVE file that are neither format nor samples (bext, cart, LIST, iXML, ...), kept byte for byte on
// their way into another WAVE file.
#pragma once

#include <cstdint>
#include <optional>

#include "tools/io/byte_window.h"
#include "tools/io/output_file.h"
#include "tools/io/spill_buffer.h"

namespace qav::tool {

class KeptChunks {
 public:
  enum class Side { beforeData, behindData };

  // Take the chunk that stands in the window, eight bytes of whose header are visible, and move behind it and its padding
  // byte. What describes the samples themselves is passed over: the new file has its own. Returns how many bytes there
  // were; of a chunk that is cut what is there is kept.
  uint64_t take(ByteWindow &window, Side side);

  // Write the chunks of one side, each padded to an even length.
  void write(OutputFile &out, Side side) const;
  uint64_t bytes(Side side) const { return buffer(side).size(); }

  // The content of the first bext chunk before the data: where it begins in what write() writes, and its length.
  struct Span {
    uint64_t offset;
    uint64_t bytes;
  };
  const std::optional<Span> &bext() const { return bext_; }

  void clear();

 private:
  const SpillBuffer &buffer(Side side) const { return side == Side::beforeData ? before_ : behind_; }

  SpillBuffer before_, behind_;
  std::optional<Span> bext_;
};

// Move behind the chunk that stands in the window, keeping it where `keep` is given. Returns how many bytes there were.
uint64_t passChunk(ByteWindow &window, KeptChunks *keep, KeptChunks::Side side);

}  // namespace qav::tool
