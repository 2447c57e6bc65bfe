#include "tools/pcm/verifier.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <numbers>

#include "tools/io/failure.h"
#include "tools/pcm/layer2_encoder.h"

namespace qav::tool {

namespace {

// The model's two passes over a frame begin so many samples after the first of the 480 before it.
constexpr size_t kPasses[2] = {0, 576};

double square(float value) { return double(value) * double(value); }

double decibels(double ratio) { return 10.0 * std::log10(ratio); }

}  // namespace

Verifier::Verifier(const StreamFormat &format) : channels_(format.channels) {
  DecoderSession *session = nullptr;
  if (zo_mpeg_Decode1FrameInit(&session) != QAV_DECODE_OK) throw std::bad_alloc();
  decoder_.reset(session);
  FrameParams params{};
  params.freqHz = static_cast<int32_t>(format.freqHz);
  params.samplingIndex = format.freqHz == 44100 ? 0 : format.freqHz == 48000 ? 1 : 2;
  model_.reset(neb_psycho_analInit(&params));
  if (!model_) throw std::bad_alloc();
  for (size_t i = 0; i < window_.size(); ++i)
    window_[i] =
        static_cast<float>(0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * (static_cast<double>(i) + 0.5) / 1024));
}

void Verifier::add(const int16_t *samples, const uint8_t *frame, uint32_t frameBytes) {
  uint32_t outBytes = 0, consumed = 0;
  if (zo_mpeg_Decode1Frame(decoder_.get(), frame, frameBytes, decoded_.data(), &outBytes, &consumed) != QAV_DECODE_OK ||
      consumed != frameBytes || outBytes != kFrame * channels_ * sizeof(int16_t))
    fail("an encoded frame does not decode", "report this as an error of the encoder");

  // The first 481 decoded samples belong to the end of the frame before.
  constexpr size_t kLate = kCodecDelay;
  for (unsigned c = 0; c < channels_; ++c) {
    Channel &channel = channel_[c];
    const auto decoded = [&](size_t i) { return static_cast<float>(decoded_[i * channels_ + c]); };
    if (frames_ > 0)
      for (size_t i = 0; i < kLate; ++i) channel.noise[kBefore + kFrame - kLate + i] -= decoded(i);
  }
  if (frames_ > 0) analyse();

  for (unsigned c = 0; c < channels_; ++c) {
    Channel &channel = channel_[c];
    std::copy_n(channel.signal.end() - kBefore, kBefore, channel.signal.begin());
    std::copy_n(channel.noise.end() - kBefore, kBefore, channel.noise.begin());
    std::array<int16_t, kFrame> own;
    for (size_t i = 0; i < kFrame; ++i) {
      own[i] = samples[i * channels_ + c];
      channel.signal[kBefore + i] = channel.noise[kBefore + i] = own[i];
    }
    for (size_t i = kLate; i < kFrame; ++i)
      channel.noise[kBefore + i - kLate] -= static_cast<float>(decoded_[i * channels_ + c]);
    neb_psycho_anal(own.data(), c, channel.smrDb.data(), model_.get());
  }
  ++frames_;
}

void Verifier::finish() {
  if (frames_ == 0) return;
  for (Channel &channel : channel_) {
    std::fill(channel.signal.end() - kCodecDelay, channel.signal.end(), 0.0f);
    std::fill(channel.noise.end() - kCodecDelay, channel.noise.end(), 0.0f);
  }
  analyse();
}

// Energies of the lines that the model counts to each subband.
void Verifier::bandEnergies(const float *samples, std::array<double, 32> &energies) {
  for (size_t i = 0; i < 1024; ++i) spectrum_[i] = window_[i] * samples[i];
  neb_rdft(1024, 1, spectrum_.data(), fftIndex_.data(), fftTable_.data());
  const auto line = [&](size_t k) {
    if (k == 0 || k == 512) return square(spectrum_[k / 512]);
    return square(spectrum_[2 * k]) + square(spectrum_[2 * k + 1]);
  };
  for (size_t band = 0; band < 32; ++band)
    for (size_t k = 16 * band; k <= 16 * band + 16; ++k) energies[band] += line(k);
}

void Verifier::analyse() {
  bool masked = true;
  for (unsigned c = 0; c < channels_; ++c) {
    const Channel &channel = channel_[c];
    for (size_t i = kBefore; i < kBefore + kFrame; ++i) {
      signal_[c] += square(channel.signal[i]);
      noise_[c] += square(channel.noise[i]);
    }
    std::array<double, 32> signal{}, noise{};
    for (const size_t pass : kPasses) {
      bandEnergies(channel.signal.data() + pass, signal);
      bandEnergies(channel.noise.data() + pass, noise);
    }
    for (size_t band = 0; band < 32; ++band) {
      if (signal[band] <= 0.0) continue;
      const double ratio = noise[band] / signal[band] * std::pow(10.0, double(channel.smrDb[band]) / 10.0);
      ratioSum_[band] += ratio;
      ratioWorst_[band] = std::max(ratioWorst_[band], ratio);
      ++ratioCount_[band];
      masked = masked && ratio <= 1.0;
    }
  }
  ++analysed_;
  if (masked) ++masked_;
}

double Verifier::snrDb(double signal, double noise) {
  if (signal <= 0.0) return std::numeric_limits<double>::quiet_NaN();
  return decibels(signal / noise);
}

Verifier::NoiseToMask Verifier::noiseToMask(unsigned subband) const {
  if (ratioCount_[subband] == 0) return {-HUGE_VAL, -HUGE_VAL};
  return {decibels(ratioSum_[subband] / static_cast<double>(ratioCount_[subband])), decibels(ratioWorst_[subband])};
}

double Verifier::maskedShare() const {
  return analysed_ > 0 ? static_cast<double>(masked_) / static_cast<double>(analysed_) : 1.0;
}

}  // namespace qav::tool
