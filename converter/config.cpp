// Items, detection, release.
#include <algorithm>
#include <cstdlib>

#include "converter/handle.h"
#include "format/format.h"

namespace qav {

bool isCorrectMpegParam(uint32_t freqHz, uint32_t kbps, uint32_t channels) {
  if (channels != 1 && channels != 2) return false;
  for (int id = 0; id < 2; ++id) {
    const int32_t *const rates = freqHzTbl + id * 3;
    if (std::find(rates, rates + 3, int64_t(freqHz)) == rates + 3) continue;
    const int32_t *const bitrates = bitrateLSF + id * 30 + 15;
    return std::any_of(bitrates + 1, bitrates + 15,
                       [=](int32_t e) { return uint64_t(kbps) * 2 == uint64_t(e) * channels; });
  }
  return false;
}

namespace {

constexpr uint32_t kMaxUp = 24;   // the stream's rate over the input's
constexpr uint32_t kMaxDown = 4;  // the input's rate over the stream's
constexpr uint32_t kMinDecodeBuffer = 8192, kMinResampleBuffer = 8192;

// The field behind an item that a caller can set; null for the others.
uint32_t *fieldOf(QAV_Handle *h, uint32_t item) {
  switch (item) {
    case QAV_ITEM_IN_FREQ_HZ: return &h->inFreqHz;
    case QAV_ITEM_OUT_FREQ_HZ: return &h->outFreqHz;
    case QAV_ITEM_KBPS: return &h->kbps;
    case QAV_ITEM_CHANNELS: return &h->channels;
    case QAV_ITEM_IN_FORMAT: return &h->inFormat;
    case QAV_ITEM_OUT_FORMAT: return &h->outFormat;
    case QAV_ITEM_EMPHASIS: return &h->options[kEmphasis];
    case QAV_ITEM_COPYRIGHT: return &h->options[kCopyright];
    case QAV_ITEM_ORIGINAL: return &h->options[kOriginal];
    case QAV_ITEM_ERROR_PROTECTION: return &h->options[kErrorProtection];
    case QAV_ITEM_BUFFER_SIZE: return &h->bufferSize;
    case QAV_ITEM_INPUT_8BIT: return &h->input8bit;
    case QAV_ITEM_LPF_LEVEL: return &h->lpf.lpfLevel;
    case QAV_ITEM_BYTE_SWAP: return &h->options[kByteSwap];
    default: return nullptr;
  }
}

bool isAllowed(uint32_t item, uint32_t value) {
  switch (item) {
    case QAV_ITEM_CHANNELS: return value == 1 || value == 2;
    case QAV_ITEM_IN_FORMAT:
    case QAV_ITEM_OUT_FORMAT: return value <= QAV_FORMAT_LAYER2;
    case QAV_ITEM_EMPHASIS: return value <= 3 && value != 2;
    case QAV_ITEM_COPYRIGHT:
    case QAV_ITEM_ORIGINAL:
    case QAV_ITEM_ERROR_PROTECTION:
    case QAV_ITEM_INPUT_8BIT:
    case QAV_ITEM_BYTE_SWAP: return value <= 1;
    case QAV_ITEM_BUFFER_SIZE: return value >= 1 && value <= INT32_MAX;
    case QAV_ITEM_LPF_LEVEL: return value <= 7;
    default: return true;
  }
}

void releaseObjects(QAV_Handle *h) {
  zo_mpeg_Encode1FrameTerm(h->encoder);
  zo_mpeg_Decode1FrameTerm(h->decoder);
  NEB_bufferingTerm(h->inputFifo);
  NEB_bufferingTerm(h->resampledFifo);
  NEB_freqChangeTerm(h->resampler);
  std::free(h->scratch);
  h->encoder = nullptr;
  h->decoder = nullptr;
  h->inputFifo = nullptr;
  h->resampledFifo = nullptr;
  h->resampler = nullptr;
  h->scratch = nullptr;
}

uint32_t detectConfigureForEncoder(QAV_Handle *h) {
  if (h->inFreqHz == 0) return QAV_BAD_RATE;
  if (h->kbps == 0) h->kbps = 128;
  if (h->channels == 0) h->channels = 2;
  if (h->outFreqHz == 0) h->outFreqHz = h->inFreqHz;
  if (h->outFreqHz != 32000 && h->outFreqHz != 44100 && h->outFreqHz != 48000) return QAV_BAD_RATE;
  if (!isCorrectMpegParam(h->outFreqHz, h->kbps, h->channels)) return QAV_BAD_VALUE;
  if (h->outFreqHz > uint64_t(h->inFreqHz) * kMaxUp || h->inFreqHz > h->outFreqHz * kMaxDown) return QAV_BAD_VALUE;

  zo_mpeg_Encode1FrameInit(&h->encoder, h->outFreqHz, h->kbps, h->channels, h->options);
  if (h->encoder == nullptr) return QAV_BAD_STATE;
  h->frameBytes = h->channels * kFrameSamples * kSampleBytes;
  h->bufferSize = std::max(h->bufferSize, h->frameBytes);
  if (NEB_bufferingInit(&h->inputFifo, h->bufferSize * 2) != 0) return QAV_BAD_STATE;

  if (h->inFreqHz == h->outFreqHz) return QAV_OK;
  if (NEB_bufferingInit(&h->resampledFifo, kWorkBytes) != 0) return QAV_BAD_STATE;
  if (NEB_freqChangeInit(&h->resampler, h->inFreqHz, h->outFreqHz, h->channels, 0) != 0) return QAV_BAD_STATE;
  return QAV_OK;
}

uint32_t detectConfigureForDecoder(QAV_Handle *h) {
  if (h->inFreqHz != h->outFreqHz) return QAV_BAD_CONVERSION;
  zo_mpeg_Decode1FrameInit(&h->decoder);
  if (h->decoder == nullptr) return QAV_BAD_STATE;
  h->bufferSize = std::max(h->bufferSize, kMinDecodeBuffer);
  return NEB_bufferingInit(&h->inputFifo, h->bufferSize) == 0 ? QAV_OK : QAV_BAD_STATE;
}

uint32_t detectConfigureForFreqChange(QAV_Handle *h) {
  if (h->inFreqHz == h->outFreqHz) return QAV_OK;
  if (h->channels != 1 && h->channels != 2) return QAV_BAD_VALUE;
  if (h->inFreqHz < 4000 || h->inFreqHz > 96000) return QAV_BAD_VALUE;
  h->bufferSize = std::max(h->bufferSize, kMinResampleBuffer);
  return NEB_freqChangeInit(&h->resampler, h->inFreqHz, h->outFreqHz, h->channels, 0) == 0 ? QAV_OK : QAV_BAD_STATE;
}

uint32_t detectConversion(QAV_Handle *h) {
  if (h->inFormat == QAV_FORMAT_PCM && h->outFormat == QAV_FORMAT_LAYER2) {
    h->mode = Mode::Encode;
    return detectConfigureForEncoder(h);
  }
  if (h->inFormat == QAV_FORMAT_MPEG && h->outFormat == QAV_FORMAT_PCM) {
    h->mode = Mode::Decode;
    return detectConfigureForDecoder(h);
  }
  if (h->inFormat == QAV_FORMAT_PCM && h->outFormat == QAV_FORMAT_PCM) {
    h->mode = Mode::Resample;
    return detectConfigureForFreqChange(h);
  }
  return QAV_BAD_CONVERSION;
}

// Eight bytes for each byte that a block may have; only a quarter of that is ever reached. Cleared, since the filter
// runs over more than was widened. False when out of memory.
bool makeScratch(QAV_Handle *h) {
  const uint64_t bytes = uint64_t(h->bufferSize) * 8;
  if (bytes > SIZE_MAX) return false;
  h->scratch = static_cast<int16_t *>(std::calloc(std::max(size_t(bytes), size_t(1)), 1));
  h->scratchSamples = bytes / kSampleBytes;
  return h->scratch != nullptr;
}

}  // namespace
}  // namespace qav

extern "C" {

uint32_t QAV_createHandle(QAV_Handle **out) {
  *out = static_cast<QAV_Handle *>(std::calloc(1, sizeof(QAV_Handle)));
  return *out != nullptr ? QAV_OK : QAV_NO_MEMORY;
}

uint32_t QAV_setConfigure(QAV_Handle *h, uint32_t item, uint32_t value) {
  if (h == nullptr) return QAV_NO_MEMORY;
  if (h->encoder != nullptr) return QAV_BAD_VALUE;
  uint32_t *const field = qav::fieldOf(h, item);
  if (field == nullptr || !qav::isAllowed(item, value)) return QAV_BAD_VALUE;
  *field = value;
  return QAV_OK;
}

uint32_t QAV_detectConfigure(QAV_Handle *h) {
  if (h == nullptr || h->state != qav::State::NotDetected) return QAV_BAD_STATE;
  qav::releaseObjects(h);  // of a detection that failed half-way
  const uint32_t result = qav::detectConversion(h);
  if (result != QAV_OK) return result;
  if (h->input8bit == 1) {
    qav::ResetLPF(h->lpf);
    if (!qav::makeScratch(h)) {
      QAV_releaseConfigure(h);
      return QAV_NO_MEMORY;
    }
  }
  h->state = qav::State::Detected;
  return QAV_OK;
}

uint32_t QAV_getConfigure(QAV_Handle *h, uint32_t item, uint32_t *value, uint32_t *value2) {
  if (item == QAV_ITEM_VERSION) {
    *value = QAV_VERSION;
    return QAV_OK;
  }
  if (h == nullptr || h->state == qav::State::NotDetected) return QAV_BAD_STATE;
  if (item == QAV_ITEM_LOSSES) {
    if (value != QAV_LOSS_SKIPPED_BYTES && value != QAV_LOSS_BAD_FRAMES) return QAV_BAD_VALUE;
    *value2 = value == QAV_LOSS_SKIPPED_BYTES ? h->skippedBytes : h->badFrames;
    return QAV_OK;
  }
  const uint32_t *const field = item == QAV_ITEM_FRAME_COUNT ? &h->frameCount : qav::fieldOf(h, item);
  if (field == nullptr) return QAV_BAD_VALUE;
  *value = *field;
  return QAV_OK;
}

uint32_t QAV_releaseConfigure(QAV_Handle *h) {
  if (h == nullptr) return QAV_OK;
  qav::releaseObjects(h);
  *h = QAV_Handle{};
  return QAV_OK;
}

uint32_t QAV_deleteHandle(QAV_Handle *h) {
  if (h == nullptr) return QAV_BAD_STATE;
  qav::releaseObjects(h);
  std::free(h);
  return QAV_OK;
}

}  // extern "C"
