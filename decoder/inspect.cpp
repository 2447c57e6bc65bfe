// The fields of one frame, read by the stages of the decoder, as include/qav_inspect.h hands them out.
#include "decoder/inspect.h"

#include "decoder/bit_reader.h"
#include "format/format.h"

namespace qav {
namespace {

constexpr uint32_t kHeaderBits = 8 * kHeaderBytes;

void copySideInfo(const SideInfo &side, NEB_InspectFrame &frame) {
  for (int32_t ch = 0; ch < frame.header.channels; ++ch)
    for (int32_t sb = 0; sb < kSubbands; ++sb) {
      const bool coded = side.allocation[ch][sb] != 0;
      frame.allocation[ch][sb] = uint8_t(side.allocation[ch][sb]);
      const bool selects = coded && frame.header.layer == 2;
      if (selects) frame.selection[ch][sb] = uint8_t(side.scfsi[ch][sb]);
      frame.scaleFactorsSent[ch][sb] = uint8_t(selects ? scaleFactorsSent(side.scfsi[ch][sb]) : coded ? 1 : 0);
      for (int32_t part = 0; part < 3; ++part)
        frame.scaleFactor[ch][part][sb] = uint8_t(coded ? side.scaleFactor[ch][part][sb] : kNoScaleFactor);
    }
}

// The order of the fields is theirs in the stream, so each begins where those before it end.
void placeSideInfo(NEB_InspectFrame &frame) {
  const FrameParams &header = frame.header;
  const int32_t subbands = header.sblimit;
  uint32_t at = frame.allocationPartAt;
  for (int32_t sb = 0; sb < subbands; ++sb)
    for (int32_t ch = 0; ch < header.channels; ++ch) {
      frame.allocationBits[ch][sb] = uint8_t(header.layer == 1 ? 4 : header.allocTable[sb][0].bits);
      if (ch == 1 && sb >= header.jsbound) {
        frame.allocationAt[1][sb] = frame.allocationAt[0][sb];
        continue;
      }
      frame.allocationAt[ch][sb] = uint16_t(at);
      at += frame.allocationBits[ch][sb];
    }
  frame.selectionPartAt = at;
  for (int32_t sb = 0; sb < subbands; ++sb)
    for (int32_t ch = 0; ch < header.channels; ++ch) {
      if (header.layer == 1 || frame.allocation[ch][sb] == 0) continue;
      frame.selectionAt[ch][sb] = uint16_t(at);
      at += 2;
    }
  frame.scaleFactorPartAt = at;
  for (int32_t sb = 0; sb < subbands; ++sb)
    for (int32_t ch = 0; ch < header.channels; ++ch) {
      if (frame.scaleFactorsSent[ch][sb] == 0) continue;
      frame.scaleFactorAt[ch][sb] = uint16_t(at);
      at += 6u * frame.scaleFactorsSent[ch][sb];
    }
}

// One code of a field in granule g, `index` codes behind its first.
uint32_t codeOf(const FrameCodes &codes, const CodeField &field, int32_t g, uint32_t index) {
  return uint32_t(codes.words[field.word][g] << (field.shift + index * field.bits) >> (64 - field.bits));
}

void readCodes(const FrameCodes &codes, const CodeField &field, const NEB_InspectFrame &frame, uint16_t *samples) {
  for (int32_t g = 0; g < codes.granules; ++g) {
    if (frame.header.layer == 1) {
      samples[g] = uint16_t(codeOf(codes, field, g, 0));
    } else if (frame.codesPerGranule[field.firstChannel][field.sb] == 3) {
      for (uint32_t i = 0; i < 3; ++i) samples[3 * g + int32_t(i)] = uint16_t(codeOf(codes, field, g, i));
    } else {
      const uint32_t steps = frame.header.allocTable[field.sb][frame.allocation[field.firstChannel][field.sb]].steps;
      uint32_t shared = codeOf(codes, field, g, 0);
      for (int32_t i = 0; i < 3; ++i, shared /= steps) samples[3 * g + i] = uint16_t(shared % steps);
    }
  }
}

void takeFields(const FrameCodes &codes, const FieldList &fields, uint8_t codesPerGranule, NEB_InspectFrame &frame,
                NEB_InspectCodes *wanted) {
  for (int32_t i = 0; i < fields.count; ++i) {
    const CodeField &field = fields.field[i];
    for (int32_t ch = field.firstChannel; ch <= field.lastChannel; ++ch) {
      frame.codeBits[ch][field.sb] = field.bits;
      frame.codesPerGranule[ch][field.sb] = codesPerGranule;
      frame.sampleAt[ch][field.sb] = uint16_t(frame.samplesAt + codes.wordBit[field.word] + field.shift);
      if (wanted != nullptr) readCodes(codes, field, frame, wanted->code[ch][field.sb]);
    }
  }
}

uint32_t inspectBody(const uint8_t *payload, NEB_InspectFrame &frame, NEB_InspectCodes *wanted) {
  const FrameParams &header = frame.header;
  BitReader bits(payload, frame.frameBytes - kHeaderBytes);
  BitReader::Place place;
  SideInfo side;
  const CheckWords check = readSideInfo(bits, place, header, side);
  describeSideInfo(check, side, place.bit, frame);
  frame.sideInfoWhole = bits.hasByteAt(place.lastRead) ? 1 : 0;
  if (frame.sideInfoWhole == 0) return NEB_INSPECT_RUNS_OUT;

  FrameCodes codes;
  (header.layer == 1 ? I_place_samples : II_place_samples)(bits, place.bit, side, header, codes);
  if (wanted != nullptr) readCodeWords(bits, place.bit, codes);
  describeSamples(codes, frame, wanted);
  if (check.given != check.computed) return NEB_INSPECT_BAD_CHECK;
  return codes.granules == kGranules ? NEB_INSPECT_GOOD : NEB_INSPECT_RUNS_OUT;
}

}  // namespace

void describeHeader(uint32_t frameBytes, NEB_InspectFrame &frame) {
  frame.frameBytes = frameBytes;
  for (auto &channel : frame.scaleFactor)
    for (auto &part : channel)
      for (uint8_t &index : part) index = kNoScaleFactor;
}

void describeSideInfo(const CheckWords &check, const SideInfo &side, uint32_t bits, NEB_InspectFrame &frame) {
  frame.checkGiven = check.given;
  frame.checkComputed = check.computed;
  frame.sideInfoWhole = 1;
  frame.allocationPartAt = kHeaderBits + (frame.header.protection != 0 ? 16 : 0);
  frame.samplesAt = frame.endAt = kHeaderBits + bits;
  copySideInfo(side, frame);
  placeSideInfo(frame);
}

void describeSamples(const FrameCodes &codes, NEB_InspectFrame &frame, NEB_InspectCodes *wanted) {
  frame.granules = uint32_t(codes.granules);
  frame.granuleBits = codes.granuleBits;
  frame.endAt += kGranules * codes.granuleBits;
  takeFields(codes, codes.grouped, 1, frame, wanted);
  takeFields(codes, codes.single, 1, frame, wanted);
  takeFields(codes, codes.shortTriples, 3, frame, wanted);
  takeFields(codes, codes.longTriples, 3, frame, wanted);
}

}  // namespace qav

using namespace qav;

extern "C" uint32_t NEB_inspectFrame(const uint8_t *data, uint32_t available, NEB_InspectFrame *frame,
                                     NEB_InspectCodes *codes) {
  *frame = {};
  if (codes != nullptr) *codes = {};
  if (available < kHeaderBytes) return NEB_INSPECT_NO_HEADER;
  const int32_t frameBytes = parseFrameHeader(data, frame->header);
  if (frameBytes < 0) {
    frame->header = {};
    return NEB_INSPECT_NO_HEADER;
  }
  describeHeader(uint32_t(frameBytes), *frame);
  if (frame->frameBytes > available) return NEB_INSPECT_INCOMPLETE;
  return inspectBody(data + kHeaderBytes, *frame, codes);
}
