// Tags that stand around and between MPEG audio streams: ID3v2, ID3v1 with its extension, APE.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qav::tool {

enum class TagKind { id3v2, id3v1, id3v1Extension, ape };

const char *tagName(TagKind kind);

// The most bytes that the functions below look at.
inline constexpr size_t kTagSightBytes = 227 + 3;

struct TagStart {
  TagKind kind;
  uint64_t bytes;  // of the whole tag; 0: no tag
};

// The tag that starts at `data`, of which `visible` bytes can be seen. An ID3v1 tag has no mark but three letters: the
// caller judges by what follows it.
TagStart tagAt(const uint8_t *data, size_t visible);

// The length of an APE tag whose footer, 32 bytes, starts at `data`, without its optional header: items and footer.
// 0: no footer.
uint64_t apeFooterAt(const uint8_t *data, size_t visible);

}  // namespace qav::tool
