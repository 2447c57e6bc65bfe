// The parser of frames under any bytes: it judges as the decoder does, and what it tells lies in the frame.
#include "include/qav_inspect.h"

#include "fuzz/fuzz.h"

using namespace qav;
using namespace qav::fuzz;

namespace {

void checkPlaces(const NEB_InspectFrame &f) {
  FUZZ_CHECK(f.allocationPartAt <= f.selectionPartAt && f.selectionPartAt <= f.scaleFactorPartAt &&
             f.scaleFactorPartAt <= f.samplesAt && f.samplesAt <= f.endAt);
  FUZZ_CHECK(f.granules <= 12);
  uint32_t scaleFactorBits = 0, granuleBits = 0;
  for (int ch = 0; ch < f.header.channels; ++ch)
    for (int sb = 0; sb < 32; ++sb) {
      const bool coded = f.allocation[ch][sb] != 0;
      FUZZ_CHECK(coded == (f.scaleFactorsSent[ch][sb] != 0));
      FUZZ_CHECK(f.allocation[ch][sb] < 16 && f.selection[ch][sb] < 4 && f.codeBits[ch][sb] <= 16);
      scaleFactorBits += 6u * f.scaleFactorsSent[ch][sb];
      const bool isShadow = ch == 1 && sb >= f.header.jsbound;
      if (!isShadow) granuleBits += uint32_t(f.codeBits[ch][sb]) * f.codesPerGranule[ch][sb];
      if (!coded || f.sideInfoWhole == 0) continue;
      FUZZ_CHECK(f.scaleFactorAt[ch][sb] >= f.scaleFactorPartAt && f.scaleFactorAt[ch][sb] < f.samplesAt);
      FUZZ_CHECK(f.sampleAt[ch][sb] >= f.samplesAt && f.sampleAt[ch][sb] < f.samplesAt + f.granuleBits);
    }
  FUZZ_CHECK(f.samplesAt - f.scaleFactorPartAt == scaleFactorBits);
  if (f.sideInfoWhole != 0) FUZZ_CHECK(f.granuleBits == granuleBits && f.endAt == f.samplesAt + 12 * granuleBits);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const Block<uint8_t> exact(data, size);
  NEB_InspectFrame frame;
  const auto codes = std::make_unique<NEB_InspectCodes>();
  const uint32_t result = NEB_inspectFrame(exact.data(), uint32_t(size), &frame, codes.get());

  DecoderSession *session = nullptr;
  FUZZ_CHECK(zo_mpeg_Decode1FrameInit(&session) == QAV_DECODE_OK);
  Block<int16_t> pcm(QAV_MAX_FRAME_PCM_BYTES / 2);
  uint32_t outBytes = 0, consumed = 0;
  const uint32_t decoded =
      zo_mpeg_Decode1Frame(session, exact.data(), uint32_t(size), pcm.data(), &outBytes, &consumed);
  FUZZ_CHECK(zo_mpeg_Decode1FrameTerm(session) == QAV_DECODE_OK);

  FUZZ_CHECK((result == NEB_INSPECT_GOOD) == (decoded == QAV_DECODE_OK));
  if (result == NEB_INSPECT_NO_HEADER) {
    FUZZ_CHECK(frame.frameBytes == 0 && consumed == 0);
    return 0;
  }
  FUZZ_CHECK((result == NEB_INSPECT_INCOMPLETE) == (decoded == QAV_DECODE_INCOMPLETE));
  if (result == NEB_INSPECT_INCOMPLETE) return 0;
  FUZZ_CHECK(frame.frameBytes == consumed);
  if (frame.granules < 12 && frame.sideInfoWhole != 0) FUZZ_CHECK(frame.endAt > 8 * frame.frameBytes);
  if (frame.granules == 12) FUZZ_CHECK(frame.endAt < 8 * frame.frameBytes + 16);
  checkPlaces(frame);
  return 0;
}
