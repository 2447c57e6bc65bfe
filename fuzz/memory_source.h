// An input of the tool that is handed out in pieces of chosen lengths.
#pragma once

#include <cstring>

#include "fuzz/fuzz.h"
#include "tools/io/byte_source.h"

namespace qav::fuzz {

class MemorySource final : public tool::ByteSource {
 public:
  // No `cuts`: as much as is asked for.
  MemorySource(const Bytes &input, Bytes cuts, bool knowsSize)
      : bytes(input), pieces(std::move(cuts)), known(knowsSize) {}

  size_t read(uint8_t *to, size_t room) override {
    size_t n = std::min(room, bytes.size() - at);
    if (!pieces.empty()) n = std::min(n, size_t(1) + pieces[turn++ % pieces.size()]);
    if (n > 0) std::memcpy(to, bytes.data() + at, n);
    at += n;
    return n;
  }
  std::optional<uint64_t> size() const override { return known ? std::optional<uint64_t>(bytes.size()) : std::nullopt; }

 private:
  const Bytes &bytes;
  Bytes pieces;
  bool known;
  size_t at = 0, turn = 0;
};

}  // namespace qav::fuzz
