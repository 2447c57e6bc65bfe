#include "tools/inspect_frames.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>

#include "tools/layer2_encoder.h"

namespace qav::tool {

namespace {

constexpr float kNothing = -std::numeric_limits<float>::infinity();
// What the model says of digital silence is far below; no signal of 16 bits comes near.
constexpr float kSilenceDb = -300.0f;

std::array<uint32_t, kFrameParts> bitsOfParts(const NEB_InspectFrame &f) {
  const uint32_t all = 8 * f.frameBytes;
  const uint32_t ends[kFrameParts] = {
      32, f.allocationPartAt, f.selectionPartAt, f.scaleFactorPartAt, f.samplesAt, f.endAt, all};
  std::array<uint32_t, kFrameParts> bits{};
  uint32_t from = 0;
  for (size_t part = 0; part < kFrameParts; ++part) {
    const uint32_t to = std::min(std::max(ends[part], from), all);  // what runs out ends with the frame
    bits[part] = to - from;
    from = to;
  }
  return bits;
}

}  // namespace

float quantiserSnrDb(const NEB_InspectFrame &fields, unsigned channel, unsigned subband) {
  static constexpr float kSnrDb[17] = {7.0f,   11.0f,  16.0f,  20.84f, 25.28f, 31.59f, 37.75f, 43.84f, 49.89f,
                                       55.93f, 61.96f, 67.98f, 74.01f, 80.03f, 86.05f, 92.01f, 98.01f};
  const unsigned index = fields.allocation[channel][subband];
  return index == 0 ? 0.0f : kSnrDb[fields.header.allocTable[subband][index].quant];
}

bool hasMaskingModel(const FrameHeader &header) { return header.version == 1 && header.layer == 2; }

MaskingModel::MaskingModel(uint32_t freqHz) {
  FrameParams params{};
  params.freqHz = static_cast<int32_t>(freqHz);
  params.samplingIndex = freqHz == 44100 ? 0 : freqHz == 48000 ? 1 : 2;
  state_.reset(neb_psycho_analInit(&params));
  if (!state_) throw std::bad_alloc();
}

void MaskingModel::estimate(InspectedFrame &frame, const int16_t *next) {
  const size_t frameSamples = size_t{QAV_SAMPLES_PER_FRAME} * frame.header.channels;
  const size_t late = kCodecDelay * frame.header.channels;
  std::array<int16_t, 2 * QAV_SAMPLES_PER_FRAME> original{};
  std::copy(frame.pcm.begin() + static_cast<std::ptrdiff_t>(late),
            frame.pcm.begin() + static_cast<std::ptrdiff_t>(frameSamples), original.begin());
  if (next) std::copy_n(next, late, original.begin() + static_cast<std::ptrdiff_t>(frameSamples - late));
  analyse(frame, original.data());
  frame.modelSawOriginal = false;
}

void MaskingModel::analyse(InspectedFrame &frame, const int16_t *original) {
  const unsigned channels = frame.header.channels;
  int16_t own[QAV_SAMPLES_PER_FRAME];
  for (unsigned c = 0; c < channels; ++c) {
    if (channels == 2)
      for (size_t i = 0; i < QAV_SAMPLES_PER_FRAME; ++i) own[i] = original[2 * i + c];
    else
      std::copy_n(original, QAV_SAMPLES_PER_FRAME, own);
    neb_psycho_anal(own, c, frame.smrDb[c], state_.get());
    for (float &smr : frame.smrDb[c])
      if (!(smr > kSilenceDb)) smr = kNothing;
  }
  frame.hasModel = frame.modelSawOriginal = true;
}

bool readFrame(FrameDecoder &decoder, const FrameEvent &event, InspectedFrame &frame) {
  frame.place = event.place;
  frame.header = event.header;
  frame.hasModel = false;
  std::memcpy(frame.data.data(), event.data, event.header.frameBytes);
  frame.result = NEB_inspectFrame(event.data, event.header.frameBytes, &frame.fields, nullptr);
  frame.bits = bitsOfParts(frame.fields);
  if (decoder.decode(event.data, event.header.frameBytes, frame.pcm.data())) return true;
  std::fill_n(frame.pcm.begin(), size_t{event.header.frameSamples} * event.header.channels, int16_t{0});
  return false;
}

}  // namespace qav::tool
