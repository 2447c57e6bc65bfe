#include "encoder/encoder_session.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "encoder/encoder.h"
#include "format/frame_header.h"
#include "psycho/psycho.h"

namespace qav {
namespace {

// Bitrates of Layer II in kbit/s by bitrate index.
constexpr uint32_t bitrate[15] = {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384};

constexpr int32_t kNotFound = -1;

int32_t samplingIndexOf(uint32_t hz) {
  switch (hz) {
    case 44100: return 0;
    case 48000: return 1;
    case 32000: return 2;
    default: return kNotFound;
  }
}

int32_t bitrateIndexOf(uint32_t kbps) {
  const uint32_t *const found = std::find(std::begin(bitrate), std::end(bitrate), kbps);
  return found == std::end(bitrate) ? kNotFound : int32_t(found - bitrate);
}

constexpr uint32_t kDefaultOptions[5] = {0, 0, 0, 1, 0};

int16_t swapBytes(int16_t sample) { return int16_t(uint16_t(sample) << 8 | uint16_t(sample) >> 8); }

}  // namespace

uint32_t initEncoder(EncoderSession **session, uint32_t samplingRateHz, uint32_t bitrateKbps, uint32_t channels,
                     const uint32_t *options, CpuLevel level) {
  *session = nullptr;

  FrameParams frame = {};
  frame.id = 1;
  frame.layer = 2;
  frame.mode = channels == 1 ? kModeSingleChannel : kModeStereo;
  frame.freqHz = int32_t(samplingRateHz);
  frame.samplingIndex = samplingIndexOf(samplingRateHz);
  if (frame.samplingIndex == kNotFound) return QAV_ENCODE_BAD_RATE;
  frame.bitrateIndex = bitrateIndexOf(bitrateKbps);
  if (frame.bitrateIndex == kNotFound) return QAV_ENCODE_BAD_BITRATE;
  frame.kbps = int32_t(bitrateKbps);
  frame.channels = int32_t(channels);

  if (options == nullptr) options = kDefaultOptions;
  frame.emphasis = int32_t(options[0]);
  frame.copyright = int32_t(options[1]);
  frame.original = int32_t(options[2]);
  frame.protection = options[3] != 0;
  neb_hdr_to_frps(&frame);

  auto *const s = static_cast<EncoderSession *>(std::calloc(1, sizeof(EncoderSession)));
  if (s == nullptr) return QAV_ENCODE_NO_MEMORY;
  s->frame = frame;
  s->psycho = initPsycho(s->frame, level);
  if (s->psycho == nullptr) {
    std::free(s);
    return QAV_ENCODE_NO_MEMORY;
  }

  // Evaluated from left to right in double precision: which frames are padded hangs on every bit of it.
  const double slots = double(bitrateKbps / 8) * 1152000.0 / double(samplingRateHz);
  s->slotsPerFrame = uint32_t(slots);
  s->fracSlots = slots - double(s->slotsPerFrame);
  s->slotLag = -s->fracSlots;
  s->byteSwap = options[4];
  s->allocationPlan = planAllocation(frame);
  s->kernels = {analysisFor(level), scaleFactorsFor(level), allocationFor(level), quantizationFor(level),
                sampleEncodingFor(level)};
  *session = s;
  return QAV_ENCODE_OK;
}

void readEncFrame(uint32_t channels, int16_t pcmBuf[2][kInputSamples], const int16_t *pcm, uint32_t samplesPerChannel,
                  uint32_t byteSwap) {
  for (uint32_t ch = 0; ch < 2; ++ch) std::copy(pcmBuf[ch] + kChannelSamples, pcmBuf[ch] + kInputSamples, pcmBuf[ch]);

  int16_t *const first = pcmBuf[0] + kFilterHistory, *const second = pcmBuf[1] + kFilterHistory;
  const uint32_t given = std::min(samplesPerChannel, kChannelSamples);
  if (channels == 2) {
    for (uint32_t i = 0; i < given; ++i) {
      first[i] = pcm[2 * i];
      second[i] = pcm[2 * i + 1];
    }
    if (byteSwap != 0)
      for (int16_t *const samples : {first, second}) std::transform(samples, samples + given, samples, swapBytes);
  } else {
    std::copy_n(pcm, given, first);
    std::fill_n(second, given, int16_t(0));
  }
  for (int16_t *const samples : {first, second}) std::fill(samples + given, samples + kChannelSamples, int16_t(0));
}

}  // namespace qav

using namespace qav;

extern "C" uint32_t zo_mpeg_Encode1FrameInit(EncoderSession **session, uint32_t samplingRateHz, uint32_t bitrateKbps,
                                             uint32_t channels, const uint32_t *options) {
  return initEncoder(session, samplingRateHz, bitrateKbps, channels, options, detectCpuLevel());
}

extern "C" uint32_t zo_mpeg_Encode1FrameTerm(EncoderSession *session) {
  if (session == nullptr) return QAV_ENCODE_OK;
  std::free(session->psycho);
  std::free(session);
  return QAV_ENCODE_OK;
}
