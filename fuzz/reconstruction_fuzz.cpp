// Encode, decode, and compare the PCM with the direct reconstruction: what the frame's bits stand for by the standard,
// through the synthesis filterbank as sums of cosines in double precision. The same for bodies of any bits.
#include "include/qav.h"

#include <cmath>

#include "format/frame_header.h"
#include "fuzz/fuzz.h"
#include "tests/decoder/reference_decoder.h"

using namespace qav;
using namespace qav::fuzz;

namespace {

struct Decoding {
  DecoderSession *session = nullptr;
  test::ReferenceDecoder reference;
  double loudest = 3e4;  // so far, times 32768; what single precision loses is relative to it

  Decoding() { FUZZ_CHECK(zo_mpeg_Decode1FrameInit(&session) == QAV_DECODE_OK); }
  ~Decoding() { zo_mpeg_Decode1FrameTerm(session); }
  Decoding(const Decoding &) = delete;
  Decoding &operator=(const Decoding &) = delete;

  bool check(const Bytes &frame) {
    FrameParams fp{};
    FUZZ_CHECK(parseFrameHeader(frame.data(), fp) == int32_t(frame.size()));
    const Block<uint8_t> exact(frame);
    Samples pcm(QAV_MAX_FRAME_PCM_BYTES / 2);
    uint32_t outBytes = ~0u, consumed = ~0u;
    const uint32_t result =
        zo_mpeg_Decode1Frame(session, exact.data(), uint32_t(exact.size()), pcm.data(), &outBytes, &consumed);
    const test::ReferenceFrame expected = reference.decode(fp, Bytes(frame.begin() + 4, frame.end()));
    FUZZ_CHECK((result == QAV_DECODE_REFUSED) == expected.refused);
    if (expected.refused) return false;
    FUZZ_CHECK(outBytes == expected.pcm.size() * 2);
    for (const double y : expected.pcm) loudest = std::max(loudest, std::fabs(y));
    const double slack = 1e-6 * loudest;
    for (size_t i = 0; i < expected.pcm.size(); ++i) {
      const int16_t low = test::referenceSample(fp.layer, expected.pcm[i] - slack);
      const int16_t high = test::referenceSample(fp.layer, expected.pcm[i] + slack);
      FUZZ_CHECK(low <= pcm[i] && pcm[i] <= high);
    }
    return true;
  }
};

void roundTrip(Input &in) {
  static constexpr uint32_t kRates[] = {32000, 44100, 48000};
  static constexpr uint32_t kBitrates[] = {32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384};
  const uint32_t channels = 1 + (in.byte() & 1);
  const uint32_t hz = in.pick(kRates), kbps = in.pick(kBitrates);
  const uint32_t options[5] = {0, 0, 0, in.byte() & 1u, 0};
  EncoderSession *encoder = nullptr;
  FUZZ_CHECK(zo_mpeg_Encode1FrameInit(&encoder, hz, kbps, channels, options) == QAV_ENCODE_OK);
  Decoding decoding;
  for (int frames = 0; frames < 3; ++frames) {
    Samples pcm = in.left() > 64 ? in.samples(1152 * channels) : madeSamples(in, 1152 * channels);
    pcm.resize(1152 * channels);
    Bytes frame(QAV_MAX_FRAME_BYTES + QAV_ENCODE_SLACK_BYTES);
    uint32_t bytes = 0;
    FUZZ_CHECK(zo_mpeg_Encode1Frame(encoder, pcm.data(), 1152, frame.data(), &bytes) == 0);
    frame.resize(bytes);
    FUZZ_CHECK(decoding.check(frame));
  }
  zo_mpeg_Encode1FrameTerm(encoder);
}

// A frame whose header is good and whose body is anything.
void anyBody(Input &in) {
  Decoding decoding;
  for (int frames = 0; frames < 3 && !in.empty(); ++frames) {
    // Unprotected more often than not: a body of any bits seldom has the right check word.
    const uint8_t choice = in.byte();
    Bytes frame = {0xFF, uint8_t(0xF4 | (choice & 0x0A) | (choice & 0x30 ? 1 : 0)),
                   uint8_t((1 + in.below(14)) << 4 | in.below(3) << 2 | (choice & 3)), in.byte()};
    FrameParams fp{};
    const int32_t length = parseFrameHeader(frame.data(), fp);
    FUZZ_CHECK(length > 0);
    const Bytes body = in.bytes(size_t(length) - 4);
    frame.insert(frame.end(), body.begin(), body.end());
    frame.resize(size_t(length));
    decoding.check(frame);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in(data, size);
  if (in.byte() & 1)
    roundTrip(in);
  else
    anyBody(in);
  return 0;
}
