// What the decoder's tests share: sessions, files, random frames.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "base/cpu.h"
#include "decoder/decoder_session.h"
#include "tests/decoder/reference_decoder.h"

namespace qav::test {

using Bytes = std::vector<uint8_t>;
using Samples = std::vector<int16_t>;

struct TermDecoder {
  void operator()(DecoderSession *s) const { zo_mpeg_Decode1FrameTerm(s); }
};
using DecoderPtr = std::unique_ptr<DecoderSession, TermDecoder>;

inline DecoderPtr makeDecoder(CpuLevel level = detectCpuLevel()) {
  DecoderSession *s = nullptr;
  EXPECT_EQ(initDecoder(&s, level), uint32_t(QAV_DECODE_OK));
  return DecoderPtr(s);
}

inline std::vector<CpuLevel> levelsHere() {
  std::vector<CpuLevel> levels;
  for (const CpuLevel level : kCpuLevels)
    if (level <= detectCpuLevel()) levels.push_back(level);
  return levels;
}

// A file of tests/data.
Bytes readFile(const std::string &name);

inline Samples readPcm(const std::string &name) {
  const Bytes bytes = readFile(name);
  Samples pcm(bytes.size() / 2);
  for (size_t i = 0; i < pcm.size(); ++i) pcm[i] = int16_t(bytes[2 * i] | bytes[2 * i + 1] << 8);
  return pcm;
}

// The frames of a stream that is nothing but frames.
inline std::vector<Bytes> framesOf(const Bytes &stream) {
  std::vector<Bytes> frames;
  for (size_t at = 0; at < stream.size();) {
    FrameParams fp{};
    const int32_t length = parseFrameHeader(&stream[at], fp);
    if (length < 0 || at + size_t(length) > stream.size()) {
      ADD_FAILURE() << "no frame at " << at;
      break;
    }
    frames.emplace_back(stream.begin() + long(at), stream.begin() + long(at) + length);
    at += size_t(length);
  }
  return frames;
}

struct Decoded {
  uint32_t result;
  uint32_t outBytes;
  uint32_t consumed;
  Samples pcm;  // the whole output memory, filled with kUntouched before
};

inline constexpr int16_t kUntouched = 0x5AA5;

// Input and output are heap blocks of exactly their sizes, so that a sanitizer sees every step beyond them.
inline Decoded decodeFrame(DecoderSession *s, const Bytes &frame) {
  Decoded d{~0u, ~0u, ~0u, Samples(QAV_MAX_FRAME_PCM_BYTES / 2, kUntouched)};
  const auto exact = std::make_unique<uint8_t[]>(frame.size());
  std::copy(frame.begin(), frame.end(), exact.get());
  d.result = zo_mpeg_Decode1Frame(s, exact.get(), uint32_t(frame.size()), d.pcm.data(), &d.outBytes, &d.consumed);
  return d;
}

inline Decoded decodeBody(DecoderSession *s, const Bytes &body) {
  Decoded d{~0u, ~0u, 0, Samples(QAV_MAX_FRAME_PCM_BYTES / 2, kUntouched)};
  const auto exact = std::make_unique<uint8_t[]>(body.size());
  std::copy(body.begin(), body.end(), exact.get());
  d.result = zo_mpeg_Decode1FrameWithoutHeader(s, exact.get(), uint32_t(body.size()), d.pcm.data(), &d.outBytes);
  return d;
}

// Body bits, each set with probability `density`; the sparser, the fewer subbands have samples.
inline Bytes randomBody(std::mt19937 &random, size_t length, double density) {
  std::bernoulli_distribution bit(density);
  Bytes body(length);
  for (uint8_t &b : body)
    for (int i = 0; i < 8; ++i) b = uint8_t(b << 1 | int(bit(random)));
  return body;
}

// Puts the check word that its side information asks for into a protected frame's body.
inline void putCheckWord(const FrameParams &fp, Bytes &body) {
  ReferenceBits bits(body);
  uint32_t word = 0;
  try {
    bits.read(16);
    const ReferenceSideInfo side = readReferenceSideInfo(bits, fp);
    if (fp.layer == 1)
      neb_I_CRC_calc(&fp, side.allocation, &word);
    else
      neb_II_CRC_calc(&fp, side.allocation, side.scfsi, &word);
  } catch (const ReferenceBits::RanOut &) {
    return;
  }
  body[0] = uint8_t(word >> 8);
  body[1] = uint8_t(word);
}

// Samples are those of the reference but where single precision puts a value on the other side of a rounding border.
inline void expectPcm(const Samples &pcm, const std::vector<double> &reference, int32_t layer, const char *what) {
  ASSERT_GE(pcm.size(), reference.size());
  double loudest = 3e4;  // of the frame before, perhaps
  for (const double y : reference) loudest = std::max(loudest, std::abs(y));
  const double slack = 1e-6 * loudest;
  for (size_t i = 0; i < reference.size(); ++i) {
    const double y = reference[i];
    const int16_t low = referenceSample(layer, y - slack), high = referenceSample(layer, y + slack);
    ASSERT_TRUE(low <= pcm[i] && pcm[i] <= high) << what << ": sample " << i << " is " << pcm[i] << ", not " << y;
  }
}

}  // namespace qav::test
