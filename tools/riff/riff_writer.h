// A WAVE file chunk by chunk, whose lengths are filled in when they are known. It becomes an RF64 file in the end when it
// has grown longer than a RIFF file can be. Where nothing can be filled in, on a pipe, the lengths of the file and of its
// data stay the customary unknown one, 0xFFFFFFFF.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tools/io/output_file.h"
#include "tools/riff/kept_chunks.h"

namespace qav::tool {

class RiffWriter {
 public:
  // Where so much data is expected that a RIFF file may not hold it, or nobody knows, the place for the longer lengths is
  // reserved. `chunks` may be null.
  RiffWriter(OutputFile &out, const KeptChunks *chunks, std::optional<uint64_t> expectedBytes);

  // Write a chunk; returns where its content begins.
  uint64_t chunk(const char *id, const void *content, size_t bytes);

  // The data chunk begins: the kept chunks that belong before it, and its header. Everything that is written to the output
  // from here on is its content. Returns where the kept chunks begin.
  uint64_t beginData();

  // Everything is written: the kept chunks that belong behind the data follow, where they are wanted. `samples`: per
  // channel. Returns what is to be said about it; empty: nothing.
  std::string finish(uint64_t samples, bool withChunksBehind = true);

 private:
  OutputFile &out_;
  const KeptChunks *chunks_;
  bool roomForRf64_;
  uint64_t dataOffset_ = 0;  // of the data chunk's content
};

}  // namespace qav::tool
