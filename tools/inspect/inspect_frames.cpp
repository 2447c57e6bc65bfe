#include "tools/inspect/inspect_frames.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <utility>

#include "tools/pcm/layer2_encoder.h"

namespace qav::tool {

namespace {

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

std::array<float, 32> bitsOfBands(const NEB_InspectFrame &f, unsigned channel) {
  std::array<float, 32> bits;
  for (unsigned sb = 0; sb < 32; ++sb) {
    const bool isShared = f.header.channels == 2 && static_cast<int32_t>(sb) >= f.header.jsbound;
    const int shared = f.allocationBits[channel][sb] + 12 * f.codeBits[channel][sb] * f.codesPerGranule[channel][sb];
    const int own =
        (f.header.layer == 2 && f.allocation[channel][sb] != 0 ? 2 : 0) + 6 * f.scaleFactorsSent[channel][sb];
    bits[sb] = static_cast<float>(own) + static_cast<float>(shared) * (isShared ? 0.5f : 1.0f);
  }
  return bits;
}

}  // namespace

bool hasMaskingModel(const FrameHeader &header) { return header.version == 1 && header.layer == 2; }

MaskingModel::MaskingModel(uint32_t freqHz) {
  FrameParams params{};
  params.freqHz = static_cast<int32_t>(freqHz);
  params.samplingIndex = freqHz == 44100 ? 0 : freqHz == 48000 ? 1 : 2;
  state_.reset(neb_psycho_analInit(&params));
  if (!state_) throw std::bad_alloc();
}

void MaskingModel::estimate(InspectedFrame &frame, const InspectedFrame *next) {
  for (unsigned c = 0; c < frame.header.channels; ++c) {
    std::array<int16_t, QAV_SAMPLES_PER_FRAME> original;
    const auto nextFrame = std::copy(frame.samples[c].begin() + kCodecDelay, frame.samples[c].end(), original.begin());
    if (next)
      std::copy_n(next->samples[c].begin(), kCodecDelay, nextFrame);
    else
      std::fill(nextFrame, original.end(), int16_t{0});
    analyseChannel(frame, c, original.data(), false);
  }
}

void MaskingModel::analyse(InspectedFrame &frame, const int16_t *original) {
  std::array<int16_t, QAV_SAMPLES_PER_FRAME> samples[2];
  separateChannels(original, frame.header.channels, QAV_SAMPLES_PER_FRAME, samples[0].data(), samples[1].data());
  for (unsigned c = 0; c < frame.header.channels; ++c) analyseChannel(frame, c, samples[c].data(), true);
}

void MaskingModel::analyseChannel(InspectedFrame &frame, unsigned channel, const int16_t *samples, bool isOriginal) {
  auto &smrDb = frame.smrDb[channel], &nmrDb = frame.nmrDb[channel];
  neb_psycho_anal(samples, channel, smrDb.data(), state_.get());
  const auto &allocation = frame.fields.allocation[channel];
  const auto &snrDb = quantiserSnrDb(frame.fields.header.allocTable);
  const auto subbands = static_cast<unsigned>(frame.fields.header.sblimit);
  for (unsigned sb = 0; sb < 32; ++sb) {
    if (!(smrDb[sb] > kSilenceDb)) smrDb[sb] = kNoLevel;
    const bool isKnown = sb < subbands && (isOriginal || allocation[sb] != 0);
    nmrDb[sb] = isKnown ? smrDb[sb] - snrDb[sb][allocation[sb]] : kNoLevel;
  }
  frame.hasModel = true;
}

const MaskingModel::SnrDb &MaskingModel::quantiserSnrDb(const AllocEntry (*table)[16]) {
  static constexpr float kSnrDb[17] = {7.0f,   11.0f,  16.0f,  20.84f, 25.28f, 31.59f, 37.75f, 43.84f, 49.89f,
                                       55.93f, 61.96f, 67.98f, 74.01f, 80.03f, 86.05f, 92.01f, 98.01f};
  if (std::exchange(table_, table) != table)
    for (size_t sb = 0; sb < snrDb_.size(); ++sb)
      for (size_t index = 1; index < snrDb_[sb].size(); ++index) snrDb_[sb][index] = kSnrDb[table[sb][index].quant];
  return snrDb_;
}

void readFrame(FrameDecoder &decoder, const FrameEvent &event, InspectedFrame &frame) {
  frame.place = event.place;
  frame.header = event.header;
  frame.hasModel = false;
  std::memcpy(frame.data.data(), event.data, event.header.frameBytes);
  frame.result = decoder.inspect(event.data, event.header.frameBytes, frame.pcm.data(), frame.fields);
  frame.bits = bitsOfParts(frame.fields);
  for (unsigned c = 0; c < 2; ++c) frame.bandBits[c] = bitsOfBands(frame.fields, c);
  const size_t channels = event.header.channels, count = event.header.frameSamples;
  if (!frame.isGood()) std::fill_n(frame.pcm.begin(), count * channels, int16_t{0});
  separateChannels(frame.pcm.data(), channels, count, frame.samples[0].data(), frame.samples[1].data());
  for (size_t c = 0; c < channels; ++c)
    for (size_t point = 0; point < kWavePoints; ++point) {
      const size_t from = count * point / kWavePoints, to = count * (point + 1) / kWavePoints;
      frame.wave[c][point] = levelsOf(frame.samples[c].data() + from, to - from);
    }
}

}  // namespace qav::tool
