// Writing the frame bit by bit, most significant bit first.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace qav {

// Bits from `position` on, up to the end of its byte, are 0; the bytes behind it are not yet written.
struct BitWriter {
  uint8_t *bytes;
  uint32_t position;  // in bits from the start of the frame
};

// Appends the low `n` bits of `value`, n <= 32. Of 25 bits and more, the low 16 come first. Three bytes behind the current
// one are overwritten.
inline void putbits(BitWriter &writer, uint32_t value, uint32_t n) {
  if (n >= 25) {
    putbits(writer, value & 0xFFFF, 16);
    putbits(writer, value >> 16, n - 16);
    return;
  }
  uint8_t *const byte = writer.bytes + writer.position / 8;
  const uint32_t shifted = n == 0 ? 0 : value << (32 - n);
  const uint32_t word = shifted >> (writer.position % 8);
  byte[0] = uint8_t(byte[0] | word >> 24);
  byte[1] = uint8_t(word >> 16);
  byte[2] = uint8_t(word >> 8);
  byte[3] = uint8_t(word);
  writer.position += n;
}

// Fields of at most 8 bits on their way to the writer, several at a time.
struct ShortFields {
  uint32_t bits = 0;
  uint32_t count = 0;  // of bits, 0 .. 16
};

inline void flush(ShortFields &fields, BitWriter &writer) {
  putbits(writer, fields.bits, fields.count);
  fields = {};
}

// The bits of `value` above the low `n` are 0.
inline void append(ShortFields &fields, uint32_t value, uint32_t n, BitWriter &writer) {
  fields.bits = fields.bits << n | value;
  fields.count += n;
  if (fields.count > 16) flush(fields, writer);
}

}  // namespace qav
