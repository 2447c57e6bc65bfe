#include "tools/stream/tags.h"

#include <cstring>

#include "tools/io/little_endian.h"

namespace qav::tool {

namespace {

constexpr size_t kId3v1Bytes = 128;
constexpr size_t kId3v1ExtensionBytes = 227;
constexpr size_t kApeBytes = 32;  // header and footer each

bool starts(const uint8_t *data, size_t visible, const char *with) {
  const size_t n = std::strlen(with);
  return visible >= n && std::memcmp(data, with, n) == 0;
}

// Ten bytes: "ID3", version, revision, flags, and a length of four times seven bits.
uint64_t id3v2Bytes(const uint8_t *data, size_t visible) {
  if (visible < 10 || !starts(data, visible, "ID3") || data[3] == 0xFF || data[4] == 0xFF) return 0;
  if (((data[6] | data[7] | data[8] | data[9]) & 0x80) != 0) return 0;
  const uint32_t length = uint32_t{data[6]} << 21 | uint32_t{data[7]} << 14 | uint32_t{data[8]} << 7 | data[9];
  const bool hasFooter = data[3] >= 4 && (data[5] & 0x10) != 0;
  return uint64_t{10} + length + (hasFooter ? 10 : 0);
}

// "APETAGEX", version, length of items and footer, number of items, flags, eight zero bytes.
bool isApe(const uint8_t *data, size_t visible, bool wantHeader) {
  if (visible < kApeBytes || !starts(data, visible, "APETAGEX")) return false;
  const uint32_t version = getLe32(data + 8);
  if (version != 1000 && version != 2000) return false;
  const bool isHeader = version == 2000 && (getLe32(data + 20) & 0x20000000) != 0;
  return isHeader == wantHeader && getLe32(data + 12) >= kApeBytes && getLe64(data + 24) == 0;
}

}  // namespace

const char *tagName(TagKind kind) {
  switch (kind) {
    case TagKind::id3v2: return "ID3v2";
    case TagKind::id3v1: return "ID3v1";
    case TagKind::id3v1Extension: return "ID3v1 extension";
    case TagKind::ape: return "APE";
  }
  return "";
}

TagStart tagAt(const uint8_t *data, size_t visible) {
  if (const uint64_t bytes = id3v2Bytes(data, visible)) return {TagKind::id3v2, bytes};
  if (isApe(data, visible, true)) return {TagKind::ape, kApeBytes + uint64_t{getLe32(data + 12)}};
  if (starts(data, visible, "TAG+") && visible > kId3v1ExtensionBytes &&
      starts(data + kId3v1ExtensionBytes, visible - kId3v1ExtensionBytes, "TAG"))
    return {TagKind::id3v1Extension, kId3v1ExtensionBytes};
  if (starts(data, visible, "TAG") && visible >= kId3v1Bytes) return {TagKind::id3v1, kId3v1Bytes};
  return {TagKind::id3v2, 0};
}

uint64_t apeFooterAt(const uint8_t *data, size_t visible) {
  return isApe(data, visible, false) ? getLe32(data + 12) : 0;
}

}  // namespace qav::tool
