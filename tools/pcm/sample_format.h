// How PCM samples are stored, and how they become numbers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qav::tool {

enum class SampleKind { unsignedInteger, signedInteger, floating };

struct SampleFormat {
  SampleKind kind = SampleKind::signedInteger;
  unsigned bytes = 2;  // integers 1, 2, 3, 4 or 8; floating 4 or 8
  bool bigEndian = false;

  // Whether every value is one of 16 bits, so that nothing is lost by reading 16-bit samples.
  bool fits16() const { return kind != SampleKind::floating && bytes <= 2; }
};

// The names of raw formats, as a user writes them: "s8, u8, s16le, ...".
std::string rawFormatNames();

// The format of a name; nothing when there is none of it.
std::optional<SampleFormat> rawFormatNamed(std::string_view name);

// "s24le"
std::string formatName(const SampleFormat &format);

// Convert `count` stored samples of a format that fits16().
void toInt16(const SampleFormat &format, const uint8_t *from, int16_t *to, size_t count);

// Convert `count` stored samples to the range -1 .. 1. Floating values are taken as they are.
void toDouble(const SampleFormat &format, const uint8_t *from, double *to, size_t count);

}  // namespace qav::tool
