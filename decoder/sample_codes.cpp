#include "decoder/sample_codes.h"

#include "format/format.h"

namespace qav {
namespace {

// The make-up of a granule, put together field by field.
class GranuleLayout {
 public:
  // Adds a field of `fieldBits` bits, 48 at most, read in pieces of which the last is `lastReadBits` long, and says in
  // `field` where it stands.
  void place(CodeField &field, uint32_t fieldBits, uint32_t lastReadBits) {
    if (wordCount == 0 || granuleBits + fieldBits > wordStart[wordCount - 1] + kWordBits)
      wordStart[wordCount++] = granuleBits;
    field.word = uint8_t(wordCount - 1);
    field.shift = uint8_t(granuleBits - wordStart[wordCount - 1]);
    granuleBits += fieldBits;
    lastRead = granuleBits - lastReadBits;
  }

  // When all fields were added, of a frame whose samples begin at bit `start`: also counts the granules whose every read
  // begins inside the frame.
  void finish(const BitReader &bits, uint32_t start, FrameCodes &codes) const {
    for (int32_t i = 0; i < wordCount; ++i) codes.wordBit[i] = uint16_t(wordStart[i]);
    codes.wordCount = wordCount;
    codes.granuleBits = granuleBits;
    codes.granules = kGranules;
    if (wordCount == 0) return;
    while (codes.granules > 0 && !bits.hasByteAt(start + uint32_t(codes.granules - 1) * granuleBits + lastRead))
      --codes.granules;
  }

 private:
  static constexpr uint32_t kWordBits = 57;  // what BitReader::wordAt() gives at any place

  uint32_t granuleBits = 0;
  uint32_t lastRead = 0;
  int32_t wordCount = 0;
  uint32_t wordStart[2 * 32];
};

}  // namespace

void I_place_samples(const BitReader &bits, uint32_t start, const SideInfo &side, const FrameParams &frame,
                     FrameCodes &codes) {
  GranuleLayout layout;
  for (int32_t sb = 0; sb < kSubbands; ++sb) {
    const bool shared = frame.channels == 2 && sb >= frame.jsbound;
    for (int32_t ch = 0; ch < (shared ? 1 : frame.channels); ++ch) {
      if (side.allocation[ch][sb] == 0) continue;
      const uint32_t width = side.allocation[ch][sb] + 1;
      CodeField field = {0, 0, uint8_t(width), 0, uint8_t(sb), uint8_t(ch), uint8_t(shared ? 1 : ch)};
      layout.place(field, width, width);
      codes.single.add(field);
    }
  }
  layout.finish(bits, start, codes);
}

void II_place_samples(const BitReader &bits, uint32_t start, const SideInfo &side, const FrameParams &frame,
                      FrameCodes &codes) {
  GranuleLayout layout;
  for (int32_t sb = 0; sb < frame.sblimit; ++sb) {
    const bool shared = frame.channels == 2 && sb >= frame.jsbound;
    for (int32_t ch = 0; ch < (shared ? 1 : frame.channels); ++ch) {
      if (side.allocation[ch][sb] == 0) continue;
      const AllocEntry &entry = frame.allocTable[sb][side.allocation[ch][sb]];
      CodeField field = {0,           0,           uint8_t(entry.bits),     uint8_t(entry.quant),
                         uint8_t(sb), uint8_t(ch), uint8_t(shared ? 1 : ch)};
      layout.place(field, entry.group * entry.bits, entry.bits);
      (entry.group == 1 ? codes.grouped : 3 * entry.bits <= 32 ? codes.shortTriples : codes.longTriples).add(field);
    }
  }
  layout.finish(bits, start, codes);
}

void readCodeWords(BitReader &bits, uint32_t start, FrameCodes &codes) {
  const uint32_t granuleBits = codes.granuleBits;
  const int32_t wordCount = codes.wordCount;
  bits.announce(start + kGranules * granuleBits);
  for (int32_t i = 0; i < wordCount; ++i) {
    const uint32_t first = start + codes.wordBit[i];
    for (int32_t g = 0; g < kGranules; ++g) codes.words[i][g] = bits.wordAt(first + uint32_t(g) * granuleBits);
  }
}

void I_buffer_sample(BitReader &bits, uint32_t start, const SideInfo &side, const FrameParams &frame,
                     FrameCodes &codes) {
  I_place_samples(bits, start, side, frame, codes);
  readCodeWords(bits, start, codes);
}

void II_buffer_sample(BitReader &bits, uint32_t start, const SideInfo &side, const FrameParams &frame,
                      FrameCodes &codes) {
  II_place_samples(bits, start, side, frame, codes);
  readCodeWords(bits, start, codes);
}

}  // namespace qav
