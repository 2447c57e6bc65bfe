// instruction_workload FRAMES DECODE: encodes FRAMES stereo frames at 192 kbit/s and 44100 Hz with check words, and decodes
// them if DECODE is 1, all with the kernels of the baseline. For counting instructions.
#include <cstdio>
#include <cstdlib>

#include "decoder/decoder.h"
#include "encoder/encoder.h"

namespace {

constexpr uint32_t kChannels = 2;

// A chord of square waves in some noise, different in both channels.
class Signal {
 public:
  int16_t next() {
    ++position;
    noise = noise * 1664525u + 1013904223u;
    const int32_t chord = (position / 200 % 2 ? 4000 : -4000) + (position / 74 % 2 ? 2000 : -2000);
    return int16_t(chord + int32_t(noise >> 19));
  }

 private:
  uint32_t position = 0;
  uint32_t noise = 1;
};

}  // namespace

int main(int argc, char **argv) {
  const int frames = argc == 3 ? std::atoi(argv[1]) : 0;
  const bool decode = argc == 3 && std::atoi(argv[2]) == 1;
  const uint32_t options[5] = {0, 0, 0, 1, 0};
  EncoderSession *encoder;
  DecoderSession *decoder;
  if (frames < 1 || qav::initDecoder(&decoder, qav::CpuLevel::Baseline) != QAV_DECODE_OK ||
      qav::initEncoder(&encoder, 44100, 192, kChannels, options, qav::CpuLevel::Baseline) != QAV_ENCODE_OK)
    return 1;

  Signal signal;
  int16_t pcm[QAV_SAMPLES_PER_FRAME * kChannels];
  uint8_t frame[QAV_MAX_FRAME_BYTES + QAV_ENCODE_SLACK_BYTES];
  uint32_t frameBytes, pcmBytes, consumed;
  for (int i = 0; i < frames; ++i) {
    for (int16_t &sample : pcm) sample = signal.next();
    if (zo_mpeg_Encode1Frame(encoder, pcm, QAV_SAMPLES_PER_FRAME, frame, &frameBytes) != 0) return 1;
    if (decode && zo_mpeg_Decode1Frame(decoder, frame, frameBytes, pcm, &pcmBytes, &consumed) != QAV_DECODE_OK)
      return 1;
  }
  zo_mpeg_Encode1FrameTerm(encoder);
  zo_mpeg_Decode1FrameTerm(decoder);
  return 0;
}
