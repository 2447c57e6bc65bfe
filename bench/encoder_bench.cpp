#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/bench.h"
#include "encoder/encoder.h"
#include "encoder/encoder_session.h"
#include "encoder/formatting.h"

namespace qav::bench {
namespace {

constexpr uint32_t kFrames = 32;  // that a measurement runs through, over and over

struct TermEncoder {
  void operator()(EncoderSession *s) const { zo_mpeg_Encode1FrameTerm(s); }
};

// Interleaved: chords that fade, with noise that falls towards high frequencies.
std::vector<int16_t> music(uint32_t channels, uint32_t rateHz) {
  std::vector<int16_t> pcm(size_t(kFrames) * kChannelSamples * channels);
  std::mt19937 random(7);
  double low[2] = {};
  for (size_t i = 0; i < pcm.size() / channels; ++i) {
    const double t = double(i) / rateHz;
    const double fade = std::exp(-3.0 * std::fmod(t, 0.25));
    for (uint32_t ch = 0; ch < channels; ++ch) {
      const double noise = double(random()) / 4294967296.0 - 0.5;
      low[ch] = 0.7 * low[ch] + noise;
      double tones = 0.0;
      for (int k = 1; k <= 12; ++k) tones += std::sin(6.283185307 * 220.0 * k * (1.0 + 0.25 * ch) * t) / k;
      pcm[i * channels + ch] = int16_t(5000.0 * fade * tones + 1200.0 * low[ch]);
    }
  }
  return pcm;
}

// What goes from stage to stage in each of the frames.
struct Frame {
  SubbandFrame sbSample[2];
  ScaleIndices scaleIndex[2];
  uint32_t scfsi[2][32];
  float smr[2][32];
  uint32_t allocation[2][32];
  int32_t bits;
};

struct Stream {
  std::unique_ptr<EncoderSession, TermEncoder> session;
  std::vector<int16_t> pcm;
  std::vector<Frame> frames;
  std::vector<uint8_t> out = std::vector<uint8_t>(QAV_MAX_FRAME_BYTES + QAV_ENCODE_SLACK_BYTES);
  uint32_t channels, next = 0;

  Stream(uint32_t kbps, uint32_t channelCount, CpuLevel level)
      : pcm(music(channelCount, 44100)), frames(kFrames), channels(channelCount) {
    EncoderSession *s = nullptr;
    initEncoder(&s, 44100, kbps, channels, nullptr, level);
    session.reset(s);
    for (Frame &f : frames) {
      encode();
      std::memcpy(f.sbSample, s->sbSample, sizeof f.sbSample);
      II_scale_factor_calc(f.sbSample, f.scaleIndex, int32_t(channels), s->frame.sblimit);
      II_transmission_pattern(f.scaleIndex, f.scfsi, s->frame);
      std::memset(f.smr, 0, sizeof f.smr);
    }
    // The model once more: its ratios are not kept in the session.
    PsychoState *model = neb_psycho_analInit(&s->frame);
    for (uint32_t i = 0; i < kFrames; ++i) {
      Frame &f = frames[i];
      readEncFrame(channels, s->pcmBuf, pcm.data() + i * kChannelSamples * channels, kChannelSamples, 0);
      for (uint32_t ch = 0; ch < channels; ++ch) neb_psycho_anal(s->pcmBuf[ch] + kFilterHistory, ch, f.smr[ch], model);
      f.bits = int32_t(s->slotsPerFrame) * 8;
      int32_t left = f.bits;
      II_a_bit_allocation(f.smr, f.scfsi, f.allocation, left, s->allocationPlan);
    }
    std::free(model);
  }

  uint32_t advance() { return next = (next + 1) % kFrames; }

  void encode() {
    uint32_t bytes;
    const int16_t *const samples = pcm.data() + advance() * kChannelSamples * channels;
    zo_mpeg_Encode1Frame(session.get(), samples, kChannelSamples, out.data(), &bytes);
    keep(out.data());
  }
};

std::shared_ptr<Stream> stereo(CpuLevel level) { return std::make_shared<Stream>(192, 2, level); }

QAV_BENCH = addStageAtEveryLevel(
    "analysis filterbank, channel-frame",
    [](CpuLevel level) -> Run {
      return [s = stereo(level)] {
        for (uint32_t ch = 0; ch < 2; ++ch) {
          s->session->kernels.analysis(s->session->pcmBuf[ch], s->session->sbSample[ch]);
          keep(s->session->sbSample);
        }
      };
    },
    2);

QAV_BENCH = addStageAtEveryLevel("scale factors and selection, stereo frame", [](CpuLevel level) -> Run {
  return [s = stereo(level)] {
    const Frame &f = s->frames[s->advance()];
    ScaleIndices index[2];
    uint32_t scfsi[2][32];
    s->session->kernels.scaleFactors(f.sbSample, index, 2, s->session->frame.sblimit);
    II_transmission_pattern(index, scfsi, s->session->frame);
    keep(index);
    keep(scfsi);
  };
});

QAV_BENCH = addStageAtEveryLevel("bit allocation, stereo frame", [](CpuLevel level) -> Run {
  return [s = stereo(level)] {
    const Frame &f = s->frames[s->advance()];
    uint32_t allocation[2][32];
    int32_t bits = f.bits;
    s->session->kernels.allocation(f.smr, f.scfsi, allocation, bits, s->session->allocationPlan);
    keep(allocation);
  };
});

QAV_BENCH = addStageAtEveryLevel("quantisation and packing, stereo frame", [](CpuLevel level) -> Run {
  return [s = stereo(level)] {
    const Frame &f = s->frames[s->advance()];
    const FrameParams &frame = s->session->frame;
    BitWriter writer = {s->out.data(), 0};
    s->out[0] = 0;
    writeHeader(frame, writer);
    II_encode_bit_alloc(f.allocation, frame, writer);
    II_encode_scale(f.allocation, f.scfsi, f.scaleIndex, frame, writer);
    QuantizedFrame quantized[2];
    s->session->kernels.quantization(f.scaleIndex, f.sbSample, f.allocation, quantized, frame);
    s->session->kernels.sampleEncoding(quantized, f.allocation, frame, writer);
    keep(s->out.data());
  };
});

Run encodeFrames(uint32_t kbps, uint32_t channels, CpuLevel level) {
  return [s = std::make_shared<Stream>(kbps, channels, level)] { s->encode(); };
}

QAV_BENCH =
    addStageAtEveryLevel("encode, stereo 192 kbit/s", [](CpuLevel level) { return encodeFrames(192, 2, level); });
QAV_BENCH =
    addStageAtEveryLevel("encode, stereo 384 kbit/s", [](CpuLevel level) { return encodeFrames(384, 2, level); });
QAV_BENCH = addStageAtEveryLevel("encode, mono 64 kbit/s", [](CpuLevel level) { return encodeFrames(64, 1, level); });

}  // namespace
}  // namespace qav::bench
