/** @file qav.hpp
 *
 *  Owners for the objects of qav.h, for C++11 and later. An owner is a std::unique_ptr that calls the matching Term or
 *  delete function; a make function answers an empty owner where qav.h answers a failure. Everything else is done with
 *  the functions of qav.h, handed `owner.get()`.
 *
 *  @code
 *  qav::Decoder decoder = qav::makeDecoder();
 *  if (!decoder) return 1;
 *  zo_mpeg_Decode1Frame(decoder.get(), data, available, pcm, &pcmBytes, &consumed);
 *  @endcode
 */
#ifndef QAV_HPP
#define QAV_HPP

#include <qav.h>

#include <cstdlib>
#include <memory>

namespace qav {

struct Deleter {
  // Whatever a failed detection has left behind goes with the handle, too.
  void operator()(QAV_Handle *h) const noexcept {
    QAV_releaseConfigure(h);
    QAV_deleteHandle(h);
  }
  void operator()(DecoderSession *s) const noexcept { zo_mpeg_Decode1FrameTerm(s); }
  void operator()(EncoderSession *s) const noexcept { zo_mpeg_Encode1FrameTerm(s); }
  void operator()(FreqChangeState *s) const noexcept { NEB_freqChangeTerm(s); }
  void operator()(ByteFifo *f) const noexcept { NEB_bufferingTerm(f); }
  void operator()(PsychoState *s) const noexcept { std::free(s); }
};

using Converter = std::unique_ptr<QAV_Handle, Deleter>;
using Decoder = std::unique_ptr<DecoderSession, Deleter>;
using Encoder = std::unique_ptr<EncoderSession, Deleter>;
using FreqChange = std::unique_ptr<FreqChangeState, Deleter>;
using Fifo = std::unique_ptr<ByteFifo, Deleter>;
using Psycho = std::unique_ptr<PsychoState, Deleter>;

/** QAV_createHandle(). */
inline Converter makeConverter() noexcept {
  QAV_Handle *h = nullptr;
  return QAV_createHandle(&h) == QAV_OK ? Converter(h) : Converter();
}

/** zo_mpeg_Decode1FrameInit(). */
inline Decoder makeDecoder() noexcept {
  DecoderSession *s = nullptr;
  return zo_mpeg_Decode1FrameInit(&s) == QAV_DECODE_OK ? Decoder(s) : Decoder();
}

/** zo_mpeg_Encode1FrameInit(); ask that function itself where the reason of a failure matters. */
inline Encoder makeEncoder(uint32_t samplingRateHz, uint32_t bitrateKbps, uint32_t channels,
                           const uint32_t *options = nullptr) noexcept {
  EncoderSession *s = nullptr;
  const uint32_t result = zo_mpeg_Encode1FrameInit(&s, samplingRateHz, bitrateKbps, channels, options);
  return result == QAV_ENCODE_OK ? Encoder(s) : Encoder();
}

/** NEB_freqChangeInit(). */
inline FreqChange makeFreqChange(uint32_t inFreqHz, uint32_t outFreqHz, uint32_t channels,
                                 uint32_t totalFrames = 0) noexcept {
  FreqChangeState *s = nullptr;
  return NEB_freqChangeInit(&s, inFreqHz, outFreqHz, channels, totalFrames) == 0 ? FreqChange(s) : FreqChange();
}

/** NEB_bufferingInit(). */
inline Fifo makeFifo(uint32_t capacity) noexcept {
  ByteFifo *f = nullptr;
  return NEB_bufferingInit(&f, capacity) == 0 ? Fifo(f) : Fifo();
}

/** neb_psycho_analInit(). */
inline Psycho makePsycho(const FrameParams &fp) noexcept { return Psycho(neb_psycho_analInit(&fp)); }

}  // namespace qav

#endif
