#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "bench/bench.h"
#include "decoder/decoder_session.h"
#include "decoder/kernels.h"
#include "format/format.h"

namespace qav::bench {
namespace {

constexpr int kFrames = 64;  // different ones, so that no branch is learnt by heart

// Frames whose subbands are allocated as an encoder would: the lower ones finely, the upper ones coarsely or not at all.
// Scale factors and codes are random.
class Frames {
 public:
  Frames(uint8_t b2, uint8_t b3) {
    std::mt19937 random(192);
    const uint8_t header[4] = {0xFF, 0xFC, b2, b3};
    FrameParams fp{};
    const auto length = size_t(parseFrameHeader(header, fp));
    for (int i = 0; i < kFrames; ++i) {
      frame.assign(header, header + 4);
      frame.resize(length);
      at = 48;
      put(fp, random);
      frames.push_back(frame);
    }
  }

  const std::vector<uint8_t> &operator[](int i) const { return frames[size_t(i)]; }

 private:
  void write(uint32_t value, uint32_t bits) {
    for (; bits > 0; --bits, ++at) frame[at / 8] = uint8_t(frame[at / 8] | (value >> (bits - 1) & 1) << (7 - at % 8));
  }

  void put(const FrameParams &fp, std::mt19937 &random) {
    uint32_t allocation[2][32] = {}, scfsi[2][32] = {};
    const auto channels = uint32_t(fp.channels);
    const auto sblimit = uint32_t(fp.sblimit);
    uint32_t spent = 48, granule = 0;
    for (uint32_t sb = 0; sb < sblimit; ++sb) spent += channels * fp.allocTable[sb][0].bits;
    // Whoever is worst off gets the next finer quantiser, until the frame is full.
    for (bool full = false; !full;) {
      full = true;
      double worst = 0.0;
      uint32_t worstSb = 0, worstCh = 0;
      for (uint32_t sb = 0; sb < sblimit; ++sb)
        for (uint32_t ch = 0; ch < channels; ++ch) {
          const double need = 20.0 - 0.75 * sb - 4.0 * allocation[ch][sb] + double(random() % 8);
          if (allocation[ch][sb] + 1 < 1u << fp.allocTable[sb][0].bits && need > worst) {
            worst = need;
            worstSb = sb;
            worstCh = ch;
          }
        }
      if (worst == 0.0) break;
      const AllocEntry *row = fp.allocTable[worstSb];
      uint32_t &a = allocation[worstCh][worstSb];
      const auto bitsOf = [&](uint32_t i) -> uint32_t {
        return i == 0 ? 0 : row[i].bits * (row[i].group == 3 ? 3u : 1u);
      };
      const uint32_t more = (a == 0 ? 20u : 0u) + 12 * (bitsOf(a + 1) - bitsOf(a));
      if (spent + more <= frame.size() * 8) {
        spent += more;
        granule += bitsOf(a + 1) - bitsOf(a);
        ++a;
        full = false;
      }
    }
    for (uint32_t sb = 0; sb < sblimit; ++sb)
      for (uint32_t ch = 0; ch < channels; ++ch) write(allocation[ch][sb], fp.allocTable[sb][0].bits);
    for (uint32_t sb = 0; sb < sblimit; ++sb)
      for (uint32_t ch = 0; ch < channels; ++ch)
        if (allocation[ch][sb] != 0) write(scfsi[ch][sb] = uint32_t(random() % 4), 2);
    for (uint32_t sb = 0; sb < sblimit; ++sb)
      for (uint32_t ch = 0; ch < channels; ++ch)
        if (allocation[ch][sb] != 0)
          for (uint32_t n = scfsi[ch][sb] == 0 ? 3 : scfsi[ch][sb] == 2 ? 1 : 2; n > 0; --n)
            write(uint32_t(20 + random() % 20), 6);
    for (uint32_t i = 0; i < 12 * granule; ++i) write(uint32_t(random() & 1), 1);
    uint32_t word;
    neb_II_CRC_calc(&fp, allocation, scfsi, &word);
    frame[4] = uint8_t(word >> 8);
    frame[5] = uint8_t(word);
  }

  std::vector<std::vector<uint8_t>> frames;
  std::vector<uint8_t> frame;
  size_t at = 0;
};

struct TermDecoder {
  void operator()(DecoderSession *s) const { zo_mpeg_Decode1FrameTerm(s); }
};

std::shared_ptr<DecoderSession> makeDecoder(CpuLevel level) {
  DecoderSession *s = nullptr;
  initDecoder(&s, level);
  return {s, TermDecoder()};
}

Run decode(CpuLevel level, uint8_t b2, uint8_t b3) {
  const auto frames = std::make_shared<Frames>(b2, b3);
  const auto session = makeDecoder(level);
  return [frames, session] {
    int16_t pcm[QAV_MAX_FRAME_PCM_BYTES / 2];
    for (int i = 0; i < kFrames; ++i) {
      uint32_t outBytes, consumed;
      const std::vector<uint8_t> &frame = (*frames)[i];
      zo_mpeg_Decode1Frame(session.get(), frame.data(), uint32_t(frame.size()), pcm, &outBytes, &consumed);
      keep(pcm);
    }
  };
}

Run decode192(CpuLevel level) { return decode(level, 0xA0, 0x00); }
Run decode384(CpuLevel level) { return decode(level, 0xE0, 0x00); }
Run decodeMono64(CpuLevel level) { return decode(level, 0x40, 0xC0); }

// What stands before the samples, and the samples' bits.
Run sideInfo(CpuLevel) {
  const auto frames = std::make_shared<Frames>(uint8_t(0xA0), uint8_t(0x00));
  return [frames] {
    FrameParams fp{};
    for (int i = 0; i < kFrames; ++i) {
      const std::vector<uint8_t> &frame = (*frames)[i];
      parseFrameHeader(frame.data(), fp);
      BitReader bits(frame.data() + 4, uint32_t(frame.size()) - 4);
      SideInfo side;
      BitReader::Place place;
      bits.getbits(place, 16);
      II_decode_bitalloc(bits, place, fp, side);
      II_decode_scale(bits, place, fp, side);
      keep(&side);
    }
  };
}

struct Parsed {
  FrameParams fp{};
  SideInfo side{};
  FrameCodes codes{};
  SubbandSamples samples{};
  SynthesisHistory history[2] = {};
  int16_t pcm[QAV_MAX_FRAME_PCM_BYTES / 2];
  std::vector<uint8_t> body;
};

std::shared_ptr<Parsed> parsedFrame() {
  const Frames frames(0xA0, 0x00);
  const auto p = std::make_shared<Parsed>();
  parseFrameHeader(frames[0].data(), p->fp);
  p->body.assign(frames[0].begin() + 4, frames[0].end());
  return p;
}

Run bufferSamples(CpuLevel) {
  const auto p = parsedFrame();
  BitReader bits(p->body.data(), uint32_t(p->body.size()));
  BitReader::Place place;
  bits.getbits(place, 16);
  II_decode_bitalloc(bits, place, p->fp, p->side);
  II_decode_scale(bits, place, p->fp, p->side);
  return [p, bits, place]() mutable {
    p->codes.grouped.count = p->codes.shortTriples.count = p->codes.longTriples.count = 0;
    II_buffer_sample(bits, place.bit, p->side, p->fp, p->codes);
    keep(&p->codes);
  };
}

Run dequantize(CpuLevel level) {
  const auto p = parsedFrame();
  BitReader bits(p->body.data(), uint32_t(p->body.size()));
  BitReader::Place place;
  bits.getbits(place, 16);
  II_decode_bitalloc(bits, place, p->fp, p->side);
  II_decode_scale(bits, place, p->fp, p->side);
  II_buffer_sample(bits, place.bit, p->side, p->fp, p->codes);
  const DecoderKernels &kernels = decoderKernelsFor(level);
  return [p, &kernels] {
    for (int ch = 0; ch < 2; ++ch) kernels.clearUnallocated(p->side.allocation[ch], ch, p->samples);
    kernels.II_dequantize_sample(p->codes, p->side, p->samples);
    keep(&p->samples);
  };
}

Run synthesis(CpuLevel level, int channels) {
  const auto p = std::make_shared<Parsed>();
  std::mt19937 random(36);
  for (auto &sb : p->samples.value)
    for (float &v : sb) v = std::uniform_real_distribution<float>(-0.1f, 0.1f)(random);
  const DecoderKernels &kernels = decoderKernelsFor(level);
  return [p, &kernels, channels] {
    kernels.II_SubBandSynthesis[channels - 1](p->samples, p->history, p->pcm);
    for (int ch = 0; ch < channels; ++ch) p->history[ch].advance(kMaxBlocks);
    keep(p->pcm);
  };
}

QAV_BENCH = addStageAtEveryLevel("decode stereo 192 kbit/s", decode192, kFrames);
QAV_BENCH = addStageAtEveryLevel("decode stereo 384 kbit/s", decode384, kFrames);
QAV_BENCH = addStageAtEveryLevel("decode mono 64 kbit/s", decodeMono64, kFrames);
QAV_BENCH = addStage(
    "getbits and side information", [] { return sideInfo(CpuLevel::Baseline); }, kFrames);
QAV_BENCH = addStage("sample codes", [] { return bufferSamples(CpuLevel::Baseline); });
QAV_BENCH = addStageAtEveryLevel("dequantisation", dequantize);
// Both channels of a frame, told for one.
QAV_BENCH = addStageAtEveryLevel(
    "synthesis, channel-frame", [](CpuLevel level) { return synthesis(level, 2); }, 2);
QAV_BENCH = addStageAtEveryLevel("synthesis, mono frame", [](CpuLevel level) { return synthesis(level, 1); });

}  // namespace
}  // namespace qav::bench
