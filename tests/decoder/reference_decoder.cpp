#include "tests/decoder/reference_decoder.h"

#include <algorithm>
#include <cmath>

#include "format/format.h"

namespace qav::test {

uint32_t ReferenceBits::read(uint32_t n) {
  if (at / 8 >= bytes.size()) throw RanOut();
  uint32_t value = 0;
  for (; n > 0; --n, ++at) {
    const uint32_t bit = at / 8 < bytes.size() ? bytes[at / 8] >> (7 - at % 8) & 1u : 0u;
    value = value << 1 | bit;
  }
  return value;
}

ReferenceSideInfo readReferenceSideInfo(ReferenceBits &bits, const FrameParams &fp) {
  ReferenceSideInfo side;
  const auto n = uint32_t(fp.channels);
  const auto bound = uint32_t(fp.jsbound), limit = uint32_t(fp.sblimit);
  const auto width = [&](uint32_t sb) -> uint32_t { return fp.layer == 1 ? 4 : fp.allocTable[sb][0].bits; };
  for (uint32_t sb = 0; sb < bound; ++sb)
    for (uint32_t ch = 0; ch < n; ++ch) side.allocation[ch][sb] = bits.read(width(sb));
  for (uint32_t sb = bound; sb < limit; ++sb) {
    const uint32_t shared = bits.read(width(sb));
    for (uint32_t ch = 0; ch < n; ++ch) side.allocation[ch][sb] = shared;
  }
  if (fp.layer == 2)
    for (uint32_t sb = 0; sb < limit; ++sb)
      for (uint32_t ch = 0; ch < n; ++ch)
        if (side.allocation[ch][sb] > 0) side.scfsi[ch][sb] = bits.read(2);
  for (uint32_t sb = 0; sb < 32; ++sb)
    for (uint32_t ch = 0; ch < n; ++ch) {
      auto &part = side.scaleFactor[ch];
      part[0][sb] = part[1][sb] = part[2][sb] = 63;
      if (side.allocation[ch][sb] == 0) continue;
      part[0][sb] = bits.read(6);
      if (fp.layer == 1) continue;
      switch (side.scfsi[ch][sb]) {
        case 0:
          part[1][sb] = bits.read(6);
          part[2][sb] = bits.read(6);
          break;
        case 1:
          part[1][sb] = part[0][sb];
          part[2][sb] = bits.read(6);
          break;
        case 2: part[1][sb] = part[2][sb] = part[0][sb]; break;
        default: part[1][sb] = part[2][sb] = bits.read(6);
      }
    }
  return side;
}

float referenceFraction1(uint32_t allocation, uint32_t code) {
  const float power = float(1u << allocation);
  const float m = (code >> allocation & 1) != 0 ? 0.0f : -1.0f;
  const float rest = float(code % (1u << allocation)) / power;
  return (m + rest + 1.0f / power) * (2.0f * power) / (2.0f * power - 1.0f);
}

float referenceFraction2(uint32_t levels, uint32_t code) {
  uint32_t x = 0;
  while (1u << x < levels) ++x;
  const uint32_t half = 1u << (x - 1);
  const float c = float(double(2 * half) / levels);
  float d = levels == 3 || levels == 5 || levels == 9 ? 0.5f : 1.0f / float(half);
  if (levels == 32767) d = 0.00006103516f;
  if (levels == 65535) d = 0.00003051758f;
  const float m = (code >> (x - 1) & 1) != 0 ? 0.0f : -1.0f;
  return (m + float(code % half) / float(half) + d) * c;
}

namespace {

std::array<double, 128> cosines() {
  std::array<double, 128> table;
  for (size_t i = 0; i < 128; ++i) table[i] = std::cos(double(i) * M_PI / 64.0);
  return table;
}

}  // namespace

std::array<double, 32> ReferenceSynthesis::block(const std::array<float, 32> &samples) {
  static const std::array<double, 128> cosine = cosines();
  offset = (offset + 1024 - 64) % 1024;
  for (size_t i = 0; i < 64; ++i) {
    double sum = 0.0;
    for (size_t k = 0; k < 32; ++k) sum += cosine[(16 + i) * (2 * k + 1) % 128] * double(samples[k]);
    v[offset + i] = sum;
  }
  std::array<double, 32> out;
  for (size_t j = 0; j < 32; ++j) {
    double sum = 0.0;
    for (size_t i = 0; i < 16; ++i)
      sum += synthesisWindow65536[j + 32 * i] / 65536.0 * v[(j + 32 * i + (i + 1) / 2 * 64 + offset) % 1024];
    out[j] = sum * 32768.0;
  }
  return out;
}

ReferenceFrame ReferenceDecoder::decode(const FrameParams &fp, const std::vector<uint8_t> &body) {
  ReferenceFrame result;
  ReferenceBits bits(body);
  const auto n = uint32_t(fp.channels);
  try {
    const uint32_t checkWord = fp.protection == 1 ? bits.read(16) : 0;
    const ReferenceSideInfo side = readReferenceSideInfo(bits, fp);
    if (fp.protection == 1) {
      uint32_t computed;
      if (fp.layer == 1)
        neb_I_CRC_calc(&fp, side.allocation, &computed);
      else
        neb_II_CRC_calc(&fp, side.allocation, side.scfsi, &computed);
      if (computed != checkWord) {
        result.refused = true;
        return result;
      }
    }
    const size_t perGranule = fp.layer == 1 ? 1 : 3;
    for (uint32_t g = 0; g < 12; ++g) {
      std::array<float, 32> samples[2][3] = {};
      for (uint32_t sb = 0; sb < uint32_t(fp.sblimit); ++sb) {
        const bool shared = sb >= uint32_t(fp.jsbound);
        uint32_t codes[3] = {};
        for (uint32_t ch = 0; ch < n; ++ch) {
          const uint32_t a = side.allocation[ch][sb];
          if (a == 0) continue;
          if (!shared || ch == 0) {
            if (fp.layer == 1) {
              codes[0] = bits.read(a + 1);
            } else if (const AllocEntry &entry = fp.allocTable[sb][a]; entry.group == 3) {
              for (uint32_t &code : codes) code = bits.read(entry.bits);
            } else {
              uint32_t codeword = bits.read(entry.bits);
              for (uint32_t &code : codes) {
                code = codeword % entry.steps;
                codeword /= entry.steps;
              }
            }
          }
          for (size_t k = 0; k < perGranule; ++k) {
            const float fraction = fp.layer == 1 ? referenceFraction1(a, codes[k])
                                                 : referenceFraction2(fp.allocTable[sb][a].steps, codes[k]);
            const uint32_t part = fp.layer == 1 ? 0 : g / 4;
            samples[ch][k][sb] = fraction * multiple[side.scaleFactor[ch][part][sb]];
          }
        }
      }
      for (size_t k = 0; k < perGranule; ++k) {
        std::array<double, 32> y[2];
        for (uint32_t ch = 0; ch < n; ++ch) y[ch] = synthesis[ch].block(samples[ch][k]);
        for (size_t t = 0; t < 32; ++t)
          for (uint32_t ch = 0; ch < n; ++ch) result.pcm.push_back(y[ch][t]);
      }
    }
  } catch (const ReferenceBits::RanOut &) {
    result.refused = true;
  }
  return result;
}

int16_t referenceSample(int32_t layer, double y) {
  if (layer == 2) y = y > 0 ? y + 0.5 : y - 0.5;
  return int16_t(std::clamp(std::trunc(y), -32768.0, 32767.0));
}

}  // namespace qav::test
