#include "tools/inspect_frames.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

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
  std::array<int16_t, QAV_SAMPLES_PER_FRAME> own;
  for (unsigned c = 0; c < channels; ++c) {
    for (size_t i = 0; i < own.size(); ++i) own[i] = original[i * channels + c];
    neb_psycho_anal(own.data(), c, frame.smrDb[c], state_.get());
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

FrameReader::FrameReader(const std::string &name, Options options)
    : input_(name, {.verifyChecks = false}),
      options_(options),
      meter_(loudness_),
      joiner_(meter_),
      current_(std::make_unique<InspectedFrame>()),
      following_(std::make_unique<InspectedFrame>()) {}

const InspectedFrame *FrameReader::next() {
  if (!hasFollowing_ && !readOn()) return nullptr;
  std::swap(current_, following_);
  hasFollowing_ = false;
  // The next frame may bring another format, with a model of its own.
  std::optional<MaskingModel> model = std::exchange(model_, std::nullopt);
  const bool continues = readOn() && following_->place.frame == current_->place.frame + 1 &&
                         sameFormatAndChannels(current_->header, following_->header);
  if (model && hasMaskingModel(current_->header) && current_->isGood())
    model->estimate(*current_, continues ? following_->pcm.data() : nullptr);
  if (!model_) model_ = std::move(model);
  return current_.get();
}

// Reads up to the next frame and takes it as the following one.
bool FrameReader::readOn() {
  while (!ended_) {
    const Event &event = input_.next();
    report_.observe(event);
    if (const auto *frame = std::get_if<FrameEvent>(&event)) {
      take(*frame);
      hasFollowing_ = true;
      return true;
    }
    if (const auto *damage = std::get_if<DamageEvent>(&event)) {
      if (options_.measureLoudness && inFormat_ && damage->lostSamples > 0) joiner_.silence(damage->lostSamples);
    } else if (std::holds_alternative<FormatChangeEvent>(event)) {
      inFormat_ = false;
    } else if (const auto *end = std::get_if<EndEvent>(&event)) {
      ended_ = true;
      end_ = end->place;
      if (options_.measureLoudness) joiner_.finish();
    }
  }
  return false;
}

void FrameReader::startFormat(const FrameHeader &header) {
  inFormat_ = true;
  decoder_.restart();
  model_.reset();
  if (options_.estimateMasking && hasMaskingModel(header)) model_.emplace(header.freqHz);
  if (options_.measureLoudness) joiner_.begin(header.freqHz, header.channels);
}

void FrameReader::take(const FrameEvent &event) {
  if (!inFormat_) startFormat(event.header);
  if (!readFrame(decoder_, event, *following_)) report_.observeRefusal(event);
  if (options_.measureLoudness) joiner_.write(following_->pcm.data(), event.header.frameSamples);
}

}  // namespace qav::tool
