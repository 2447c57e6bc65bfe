#include "decoder/sample_codes.h"

#include <bit>

#include "format/format.h"

namespace qav {
namespace {

// A codeword of three samples of few levels, taken apart: what it would be if each sample had its own code of `width`
// bits, aligned at the top of 16 bits (ISO/IEC 11172-3 clause 2.4.3.3.4).
template <uint32_t Levels, uint32_t CodewordBits>
struct Ungrouped {
  static constexpr int32_t width = std::bit_width(Levels);
  uint16_t codes[1u << CodewordBits];

  constexpr Ungrouped() : codes() {
    for (uint32_t v = 0; v < 1u << CodewordBits; ++v) {
      const uint32_t first = v % Levels, second = v / Levels % Levels, third = v / Levels / Levels % Levels;
      codes[v] = uint16_t(((first << width | second) << width | third) << (16 - 3 * width));
    }
  }
};

constexpr Ungrouped<3, 5> ungrouped3;
constexpr Ungrouped<5, 7> ungrouped5;
constexpr Ungrouped<9, 10> ungrouped9;

// Where the fields of the granules lie, put together field by field.
class GranuleLayout {
 public:
  GranuleLayout(BitReader &frameBits, FrameCodes &frameCodes)
      : bits(frameBits), codes(frameCodes), start(frameBits.position()) {
    codes.count = 0;
  }

  // Adds a field of `fieldBits` bits, read in pieces of which the last is `lastReadBits` long.
  SubbandCodes &add(int32_t sb, int32_t ch, bool shared, uint32_t fieldBits, uint32_t lastReadBits) {
    SubbandCodes &subband = codes.subbands[codes.count];
    subband.sb = sb;
    subband.firstChannel = ch;
    subband.lastChannel = shared ? 1 : ch;
    offset[codes.count] = uint16_t(granuleBits);
    granuleBits += fieldBits;
    lastRead = granuleBits - lastReadBits;
    ++codes.count;
    return subband;
  }

  // To be called when all fields were added: counts the granules whose every read begins inside the frame.
  void finish() {
    bits.announce(start + kGranules * granuleBits);
    codes.granules = kGranules;
    if (codes.count == 0) return;
    while (codes.granules > 0 && !bits.hasByteAt(start + uint32_t(codes.granules - 1) * granuleBits + lastRead))
      --codes.granules;
  }

  // The bits of field `i` in granule `g`, first bit on top.
  uint64_t wordOf(int32_t i, int32_t g) const { return bits.wordAt(start + uint32_t(g) * granuleBits + offset[i]); }

 private:
  BitReader &bits;
  FrameCodes &codes;
  uint32_t start;
  uint32_t granuleBits = 0;
  uint32_t lastRead = 0;
  uint16_t offset[2 * 32];
};

// Takes the codewords of one subband apart; `codewordBits` is their length.
template <uint32_t Levels, uint32_t CodewordBits>
void ungroup(const GranuleLayout &layout, int32_t i, const Ungrouped<Levels, CodewordBits> &table, SubbandCodes &out) {
  out.bits = table.width;
  for (int32_t g = 0; g < kGranules; ++g)
    out.upper[g] = uint32_t(table.codes[layout.wordOf(i, g) >> (64 - CodewordBits)]) << 16;
}

}  // namespace

void I_buffer_sample(BitReader &bits, const SideInfo &side, const FrameParams &frame, FrameCodes &codes) {
  GranuleLayout layout(bits, codes);
  for (int32_t sb = 0; sb < kSubbands; ++sb) {
    const bool shared = sb >= frame.jsbound;
    for (int32_t ch = 0; ch < (shared ? 1 : frame.channels); ++ch) {
      if (side.allocation[ch][sb] == 0) continue;
      const uint32_t width = side.allocation[ch][sb] + 1;
      layout.add(sb, ch, shared && frame.channels == 2, width, width).bits = int32_t(width);
    }
  }
  layout.finish();
  for (int32_t i = 0; i < codes.count; ++i)
    for (int32_t g = 0; g < kGranules; ++g) codes.subbands[i].upper[g] = uint32_t(layout.wordOf(i, g) >> 32);
}

void II_buffer_sample(BitReader &bits, const SideInfo &side, const FrameParams &frame, FrameCodes &codes) {
  GranuleLayout layout(bits, codes);
  for (int32_t sb = 0; sb < frame.sblimit; ++sb) {
    const bool shared = frame.channels == 2 && sb >= frame.jsbound;
    for (int32_t ch = 0; ch < (shared ? 1 : frame.channels); ++ch) {
      if (side.allocation[ch][sb] == 0) continue;
      const AllocEntry &entry = frame.allocTable[sb][side.allocation[ch][sb]];
      const uint32_t codewords = entry.group == 1 ? 1 : 3;
      SubbandCodes &subband = layout.add(sb, ch, shared, codewords * entry.bits, entry.bits);
      subband.bits = entry.bits;
      subband.levels = entry.steps;
      subband.quant = entry.quant;
    }
  }
  layout.finish();
  for (int32_t i = 0; i < codes.count; ++i) {
    SubbandCodes &subband = codes.subbands[i];
    switch (subband.levels) {
      case 3: ungroup(layout, i, ungrouped3, subband); break;
      case 5: ungroup(layout, i, ungrouped5, subband); break;
      case 9: ungroup(layout, i, ungrouped9, subband); break;
      default:
        for (int32_t g = 0; g < kGranules; ++g) {
          const uint64_t word = layout.wordOf(i, g);
          subband.upper[g] = uint32_t(word >> 32);
          subband.lower[g] = uint32_t(word << (2 * subband.bits) >> 32);
        }
    }
  }
}

}  // namespace qav
