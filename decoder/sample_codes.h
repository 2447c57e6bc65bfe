// Where the sample codes of a frame are.
//
// A frame's samples stand in twelve granules of the same make-up: the codes of one subband lie at the same distance from
// the granule's start in each. So the make-up is worked out once, and then all granules are read side by side: a few
// fields of neighbouring subbands at a time as one word per granule, from which vector shifts get the single codes.
#pragma once

#include <cstdint>

#include "decoder/bit_reader.h"
#include "decoder/side_info.h"
#include "include/qav.h"

namespace qav {

inline constexpr int32_t kGranules = 12;

// The field of one subband in every granule, of one channel or of both where they share it.
struct CodeField {
  uint8_t word;   // in which words it stands,
  uint8_t shift;  // and at how many bits below the top
  uint8_t bits;   // of one codeword, 2 .. 16
  uint8_t quant;  // Layer II: quantisation class
  uint8_t sb;
  uint8_t firstChannel, lastChannel;
};

struct FieldList {
  int32_t count = 0;
  CodeField field[2 * 32];

  void add(const CodeField &f) { field[count++] = f; }
};

struct FrameCodes {
  // [.][g] holds some fields of granule g, first bit on top. The places beyond twelve are of no meaning.
  alignas(64) uint64_t words[2 * 32][16];
  uint16_t wordBit[2 * 32];  // where in its granule a word begins
  int32_t wordCount;
  uint32_t granuleBits;

  // By what is to be done with them: one codeword for the three samples of a granule (Layer II); one code (Layer I);
  // three codes, in 32 bits together or in more (Layer II).
  FieldList grouped, single, shortTriples, longTriples;

  // How many granules are complete: kGranules but in a frame that runs out. The others are of no meaning.
  int32_t granules;
};

// `start` is the bit at which the samples begin. The two steps: everything but the words, then these.
void I_place_samples(const BitReader &bits, uint32_t start, const SideInfo &side, const FrameParams &frame,
                     FrameCodes &codes);
void II_place_samples(const BitReader &bits, uint32_t start, const SideInfo &side, const FrameParams &frame,
                      FrameCodes &codes);
void readCodeWords(BitReader &bits, uint32_t start, FrameCodes &codes);

// Both.
void I_buffer_sample(BitReader &bits, uint32_t start, const SideInfo &side, const FrameParams &frame,
                     FrameCodes &codes);
void II_buffer_sample(BitReader &bits, uint32_t start, const SideInfo &side, const FrameParams &frame,
                      FrameCodes &codes);

}  // namespace qav
