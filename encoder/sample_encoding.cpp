#include "encoder/sample_encoding.h"

#include <bit>

#include "base/attributes.h"
#include "base/lanes.h"
#include "encoder/coded_channels.h"

namespace qav {
namespace {

// All granules of a frame hold the same fields. So they are put together side by side, a lane each, and then written one
// after the other.
using Lane4 = Lanes<uint32_t, 4>;

struct Granules {
  Lane4 v[3];
};

NEB_INLINE Granules loadGranules(const uint32_t *p) {
  return {loadLanes<Lane4>(p), loadLanes<Lane4>(p + 4), loadLanes<Lane4>(p + 8)};
}

template <typename Op>
NEB_INLINE Granules forEach(Op op) {
  return {op(0), op(1), op(2)};
}

// At most 48 bits for each of 32 subbands of two channels, and a part of a word.
constexpr uint32_t kMaxWords = 2 * 32 * 48 / 32 + 1;

// Twelve strings of bits of one length, in words of 32.
struct BitStrings {
  uint32_t words[kMaxWords][kGranules];
  uint32_t wordCount;
  Granules last;       // in its low bits what does not fill a word; what stands above that belongs to no one
  uint32_t lastCount;  // 0 .. 31
};

// Appends `n` bits, 1 .. 31; the bits of `field` above them are 0.
NEB_INLINE void append(BitStrings &s, const Granules &field, uint32_t n) {
  const uint32_t count = s.lastCount + n;
  if (count < 32) {
    s.last = forEach([&](int i) { return s.last.v[i] << n | field.v[i]; });
    s.lastCount = count;
    return;
  }
  const uint32_t rest = count - 32;
  for (int i = 0; i < 3; ++i) storeLanes(s.words[s.wordCount] + 4 * i, s.last.v[i] << (n - rest) | field.v[i] >> rest);
  ++s.wordCount;
  s.last = field;
  s.lastCount = rest;
}

NEB_INLINE void appendCodes(BitStrings &s, const uint32_t codes[kSubbandSamples], const AllocEntry &e) {
  const uint32_t bits = e.bits, mask = (1u << bits) - 1;
  const Granules q0 = loadGranules(codes), q1 = loadGranules(codes + kGranules),
                 q2 = loadGranules(codes + 2 * kGranules);
  if (e.group == 1) {
    // q0 + steps q1 + steps^2 q2, where steps is 2^k + 1.
    const int k = std::bit_width(e.steps) - 1;
    append(s, forEach([&](int i) {
             const Lane4 high = q1.v[i] + q2.v[i] + (q2.v[i] << k);
             return (q0.v[i] + high + (high << k)) & mask;
           }),
           bits);
  } else if (3 * bits < 32) {
    append(s,
           forEach([&](int i) { return (q0.v[i] & mask) << (2 * bits) | (q1.v[i] & mask) << bits | (q2.v[i] & mask); }),
           3 * bits);
  } else {
    append(s, forEach([&](int i) { return q0.v[i] & mask; }), bits);
    append(s, forEach([&](int i) { return q1.v[i] & mask; }), bits);
    append(s, forEach([&](int i) { return q2.v[i] & mask; }), bits);
  }
}

void storeBigEndian(uint8_t *p, uint32_t word) {
  const uint32_t bytes = std::endian::native == std::endian::little ? __builtin_bswap32(word) : word;
  std::memcpy(p, &bytes, sizeof bytes);
}

// The 32 bits that begin `shift` bits before the end of `before` and go on in `word`.
uint32_t joined(uint32_t before, uint32_t word, uint32_t shift) {
  return uint32_t((uint64_t(before) << 32 | word) >> shift);
}

// Writes the strings one after the other.
void writeStrings(const BitStrings &s, BitWriter &writer) {
  const uint32_t length = s.wordCount * 32 + s.lastCount;
  uint8_t *out = writer.bytes + writer.position / 32 * 4;
  uint32_t shift = writer.position % 32;

  // The bits that stand already in the word in which the strings begin, at its low end.
  uint32_t before = 0;
  for (uint32_t i = 0; i <= shift / 8; ++i) before = before << 8 | out[i];
  before >>= 7 - shift % 8;
  before >>= 1;

  for (uint32_t granule = 0; granule < kGranules; ++granule) {
    for (uint32_t w = 0; w < s.wordCount; ++w) {
      const uint32_t word = s.words[w][granule];
      storeBigEndian(out, joined(before, word, shift));
      out += 4;
      before = word;
    }
    // What is left of the string joins what is left of the words before.
    const uint32_t rest = s.last.v[granule / 4][granule % 4] & ((1u << s.lastCount) - 1);
    before &= shift == 0 ? 0 : ~0u >> (32 - shift);
    const uint64_t tail = uint64_t(before) << s.lastCount | rest;
    shift += s.lastCount;
    if (shift >= 32) {
      shift -= 32;
      storeBigEndian(out, uint32_t(tail >> shift));
      out += 4;
    }
    before = uint32_t(tail);
  }

  // The last bytes, up to the one in which the next field begins.
  const uint32_t last = joined(before, 0, shift);
  for (uint32_t i = 0; i <= shift / 8; ++i) out[i] = uint8_t(last >> (24 - 8 * i));
  writer.position += kGranules * length;
}

NEB_INLINE void sampleEncodingBody(const QuantizedFrame quantized[2], const uint32_t allocation[2][32],
                                   const FrameParams &frame, BitWriter &writer) {
  const int32_t channels = codedChannels(frame);
  BitStrings strings;
  strings.wordCount = 0;
  strings.last = {};
  strings.lastCount = 0;
  for (int32_t sb = 0; sb < frame.sblimit; ++sb)
    for (int32_t ch = 0; ch < channels; ++ch)
      if (allocation[ch][sb] != 0) appendCodes(strings, quantized[ch][sb], frame.allocTable[sb][allocation[ch][sb]]);
  writeStrings(strings, writer);
}

#ifdef NEB_TARGET
NEB_TARGET("avx2")
void sampleEncodingAvx2(const QuantizedFrame quantized[2], const uint32_t allocation[2][32], const FrameParams &frame,
                        BitWriter &writer) {
  sampleEncodingBody(quantized, allocation, frame, writer);
}
#endif

}  // namespace

void II_sample_encoding(const QuantizedFrame quantized[2], const uint32_t allocation[2][32], const FrameParams &frame,
                        BitWriter &writer) {
  sampleEncodingBody(quantized, allocation, frame, writer);
}

SampleEncodingFn sampleEncodingFor(CpuLevel level) {
#ifdef NEB_TARGET
  if (level >= CpuLevel::Avx2) return sampleEncodingAvx2;
#endif
  static_cast<void>(level);
  return II_sample_encoding;
}

}  // namespace qav
