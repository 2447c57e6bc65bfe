#include "tools/pcm/sample_format.h"

#include <fmt/format.h>

#include <array>
#include <bit>
#include <cstring>
#include <utility>

namespace qav::tool {

namespace {

constexpr SampleKind kUnsigned = SampleKind::unsignedInteger;
constexpr SampleKind kSigned = SampleKind::signedInteger;
constexpr SampleKind kFloating = SampleKind::floating;

constexpr std::array<std::pair<const char *, SampleFormat>, 10> kRawFormats{{
    {"s8", {kSigned, 1, false}},
    {"u8", {kUnsigned, 1, false}},
    {"s16le", {kSigned, 2, false}},
    {"s16be", {kSigned, 2, true}},
    {"s24le", {kSigned, 3, false}},
    {"s24be", {kSigned, 3, true}},
    {"s32le", {kSigned, 4, false}},
    {"s32be", {kSigned, 4, true}},
    {"f32le", {kFloating, 4, false}},
    {"f32be", {kFloating, 4, true}},
}};

// The sample's bytes at the top of the word, most significant first; whatever is stored below them is 0.
template <unsigned bytes, bool bigEndian>
uint64_t word(const uint8_t *from) {
  uint64_t value = 0;
  for (unsigned i = 0; i < bytes; ++i) value = value << 8 | from[bigEndian ? i : bytes - 1 - i];
  return value << (64 - 8 * bytes);
}

template <unsigned bytes, bool bigEndian>
void convert(SampleKind kind, const uint8_t *from, double *to, size_t count) {
  const uint64_t offset = kind == kUnsigned ? uint64_t{1} << 63 : 0;
  for (size_t i = 0; i < count; ++i, from += bytes) {
    const uint64_t bits = word<bytes, bigEndian>(from);
    if (kind != kFloating)
      to[i] = static_cast<double>(static_cast<int64_t>(bits ^ offset)) * 0x1p-63;
    else if constexpr (bytes == 4)
      to[i] = static_cast<double>(std::bit_cast<float>(static_cast<uint32_t>(bits >> 32)));
    else if constexpr (bytes == 8)
      to[i] = std::bit_cast<double>(bits);
  }
}

template <unsigned bytes>
void convert(const SampleFormat &format, const uint8_t *from, double *to, size_t count) {
  if (format.bigEndian)
    convert<bytes, true>(format.kind, from, to, count);
  else
    convert<bytes, false>(format.kind, from, to, count);
}

}  // namespace

std::string rawFormatNames() {
  std::string names;
  for (const auto &[name, format] : kRawFormats) {
    if (!names.empty()) names += ' ';
    names += name;
  }
  return names;
}

std::optional<SampleFormat> rawFormatNamed(std::string_view name) {
  for (const auto &[known, format] : kRawFormats)
    if (name == known) return format;
  return std::nullopt;
}

std::string formatName(const SampleFormat &format) {
  const char *const kind = format.kind == kFloating ? "f" : format.kind == kUnsigned ? "u" : "s";
  return fmt::format("{}{}{}", kind, 8 * format.bytes, format.bytes == 1 ? "" : format.bigEndian ? "be" : "le");
}

void toInt16(const SampleFormat &format, const uint8_t *from, int16_t *to, size_t count) {
  if (format.bytes == 1) {
    const unsigned offset = format.kind == kUnsigned ? 0x8000 : 0;
    for (size_t i = 0; i < count; ++i) to[i] = static_cast<int16_t>((unsigned{from[i]} << 8) ^ offset);
    return;
  }
  std::memcpy(to, from, 2 * count);
  if (format.bigEndian != (std::endian::native == std::endian::big))
    for (size_t i = 0; i < count; ++i) to[i] = static_cast<int16_t>(__builtin_bswap16(static_cast<uint16_t>(to[i])));
}

void toDouble(const SampleFormat &format, const uint8_t *from, double *to, size_t count) {
  switch (format.bytes) {
    case 1: return convert<1>(format, from, to, count);
    case 2: return convert<2>(format, from, to, count);
    case 3: return convert<3>(format, from, to, count);
    case 4: return convert<4>(format, from, to, count);
    default: return convert<8>(format, from, to, count);
  }
}

}  // namespace qav::tool
