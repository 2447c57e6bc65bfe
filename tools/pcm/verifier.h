// What the encoder made, decoded at once and compared with what it was given.
#pragma once

#include <qav.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "tools/pcm/layer2_format.h"

namespace qav::tool {

class Verifier {
 public:
  explicit Verifier(const StreamFormat &format);

  // A frame's 1152 sample frames and the encoded frame. Throws Failure when it does not decode.
  void add(const int16_t *samples, const uint8_t *frame, uint32_t frameBytes);

  // After the last frame: its samples too are compared, as far as they have come out of the decoder.
  void finish();

  // Signal to noise, the codec's delay taken out; plus infinity without noise, NaN without signal.
  double snrDb() const { return snrDb(signal_[0] + signal_[1], noise_[0] + noise_[1]); }
  double snrDb(unsigned channel) const { return snrDb(signal_[channel], noise_[channel]); }

  // Noise to mask of one subband, by the encoder's own psychoacoustic model: below 0 dB the noise is masked. The mean is
  // that of the energies over all frames and channels. Minus infinity where there was nothing.
  struct NoiseToMask {
    double meanDb;
    double worstDb;
  };
  NoiseToMask noiseToMask(unsigned subband) const;

  // The share of the frames in which the noise of no subband exceeds its mask.
  double maskedShare() const;

 private:
  // The model sees 480 samples before a frame.
  static constexpr size_t kBefore = 480, kFrame = QAV_SAMPLES_PER_FRAME;

  struct Channel {
    std::array<float, kBefore + kFrame> signal{}, noise{};  // the frame under analysis and what lies before it
    std::array<float, 32> smrDb{};                          // of that frame
  };
  struct TermDecoder {
    void operator()(DecoderSession *session) const { zo_mpeg_Decode1FrameTerm(session); }
  };
  struct FreeModel {
    void operator()(PsychoState *state) const { std::free(state); }
  };

  static double snrDb(double signal, double noise);
  void analyse();
  void bandEnergies(const float *samples, std::array<double, 32> &energies);

  unsigned channels_;
  std::unique_ptr<DecoderSession, TermDecoder> decoder_;
  std::unique_ptr<PsychoState, FreeModel> model_;
  std::array<Channel, 2> channel_;
  std::array<int16_t, 2 * kFrame> decoded_{};
  std::array<float, 1024> window_{}, spectrum_{};
  std::array<int32_t, 32> fftIndex_{};
  std::array<float, 512> fftTable_{};
  uint64_t frames_ = 0, analysed_ = 0, masked_ = 0;
  std::array<double, 2> signal_{}, noise_{};
  std::array<double, 32> ratioSum_{}, ratioWorst_{};
  std::array<uint64_t, 32> ratioCount_{};
};

}  // namespace qav::tool
