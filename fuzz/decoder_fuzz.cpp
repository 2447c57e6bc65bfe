// The decoder's functions under any sequence of calls and any bytes, one session at every CPU level side by side: all
// answer the same and write the same PCM, and nothing is touched outside what was handed in.
#include "decoder/decoder.h"

#include <cstring>

#include "fuzz/fuzz.h"

using namespace qav;
using namespace qav::fuzz;

namespace {

constexpr int16_t kUntouched = 0x5AA5;

struct Result {
  uint32_t code, outBytes, consumed;
  Samples pcm;
  bool operator==(const Result &) const = default;
};

// All levels decode it; what the first one says.
class Sessions {
 public:
  Sessions() {
    for (const CpuLevel level : levelsHere()) {
      sessions.push_back(nullptr);
      FUZZ_CHECK(initDecoder(&sessions.back(), level) == QAV_DECODE_OK && sessions.back() != nullptr);
    }
  }
  ~Sessions() {
    for (DecoderSession *s : sessions) FUZZ_CHECK(zo_mpeg_Decode1FrameTerm(s) == 0);
  }
  Sessions(const Sessions &) = delete;
  Sessions &operator=(const Sessions &) = delete;

  int32_t header(const uint8_t *bytes) {
    const int32_t length = NEB_mpeg_get1FrameSize(bytes, sessions[0]);
    for (DecoderSession *s : sessions) FUZZ_CHECK(NEB_mpeg_get1FrameSize(bytes, s) == length);
    FUZZ_CHECK(length == -1 || (length >= 32 && length <= QAV_MAX_FRAME_BYTES));
    return length;
  }

  Result decode(const Bytes &bytes, bool withHeader) {
    std::vector<Result> results;
    for (DecoderSession *s : sessions) {
      const Block<uint8_t> exact(bytes);
      Block<int16_t> out(QAV_MAX_FRAME_PCM_BYTES / 2);
      std::fill_n(out.data(), out.size(), kUntouched);
      Result r = {~0u, ~0u, ~0u, {}};
      if (withHeader)
        r.code = zo_mpeg_Decode1Frame(s, exact.data(), uint32_t(exact.size()), out.data(), &r.outBytes, &r.consumed);
      else
        r.code = zo_mpeg_Decode1FrameWithoutHeader(s, exact.data(), uint32_t(exact.size()), out.data(), &r.outBytes);
      r.pcm.assign(out.data(), out.data() + out.size());
      results.push_back(std::move(r));
    }
    for (const Result &r : results) FUZZ_CHECK(r == results[0]);
    check(results[0], bytes.size(), withHeader);
    return results[0];
  }

 private:
  void check(const Result &r, size_t size, bool withHeader) const {
    const uint32_t channels = NEB_mpeg_getChannel(sessions[0]);
    if (r.code == QAV_DECODE_OK) {
      const bool whole = r.outBytes == 768 * channels || r.outBytes == 2304 * channels;
      FUZZ_CHECK(whole || (r.outBytes == 0 && !withHeader));
      FUZZ_CHECK(NEB_mpeg_getFreqHz(sessions[0]) >= 16000 || r.outBytes == 0);
      for (size_t i = r.outBytes / 2; i < r.pcm.size(); ++i) FUZZ_CHECK(r.pcm[i] == kUntouched);
    } else {
      FUZZ_CHECK(r.code == QAV_DECODE_REFUSED || (withHeader && r.code == QAV_DECODE_INCOMPLETE));
      FUZZ_CHECK(r.outBytes == 0);
    }
    if (!withHeader) return;
    FUZZ_CHECK(r.consumed <= size);
    FUZZ_CHECK(r.code != QAV_DECODE_OK || r.consumed >= 32);
    FUZZ_CHECK(r.code != QAV_DECODE_INCOMPLETE || r.consumed == 0);
  }

  std::vector<DecoderSession *> sessions;
};

void walk(Sessions &sessions, const Bytes &stream) {
  for (size_t at = 0; at < stream.size();) {
    const size_t room = std::min(stream.size() - at, size_t(QAV_MAX_FRAME_BYTES) + 8);
    const Result r =
        sessions.decode(Bytes(stream.begin() + ptrdiff_t(at), stream.begin() + ptrdiff_t(at + room)), true);
    at += std::max(r.consumed, 1u);
    if (r.consumed == 0)
      while (at < stream.size() && stream[at] != 0xFF) ++at;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in(data, size);
  Sessions sessions;
  if (in.byte() & 1) {
    walk(sessions, in.rest());
    return 0;
  }
  while (!in.empty()) {
    switch (in.byte() % 4) {
      case 0: {
        Bytes header = in.bytes(4);
        header.resize(4);
        sessions.header(Block<uint8_t>(header).data());
        break;
      }
      case 1: sessions.decode(in.bytes(in.word() % 2048), false); break;
      case 2: sessions.decode(in.bytes(in.word() % 2048), true); break;
      default: {  // a header that is good but for its last two fields, and bytes for the frame it announces
        const uint8_t header[4] = {0xFF, uint8_t(0xF4 | (in.byte() & 0x0B)),
                                   uint8_t((1 + in.below(14)) << 4 | in.below(3) << 2 | (in.byte() & 3)), in.byte()};
        const int32_t length = sessions.header(header);
        FUZZ_CHECK(length > 0);
        Bytes body = in.bytes(in.byte() & 1 ? size_t(length) - 4 : size_t(in.byte()) * 8);
        if (in.byte() & 1) body.resize(size_t(length) - 4);
        sessions.decode(body, false);
      }
    }
  }
  return 0;
}
