// One stream on several threads: decoding gives the samples and findings that one thread gives, and encoding the bytes,
// whatever the stream and wherever in it frames are refused, lost or of another format.
#include <string>

#include "fuzz/fuzz.h"
#include "tests/support/memory_file.h"
#include "tools/io/failure.h"
#include "tools/threads/stream_decoder.h"
#include "tools/threads/stretch_encoder.h"

using namespace qav::fuzz;
using namespace qav::tool;

namespace {

constexpr size_t kLongestStream = 150000;

// Everything that decoding says and gives.
struct Decoding {
  std::vector<std::string> said;
  Samples samples;
  bool operator==(const Decoding &) const = default;
};

Decoding decode(const qav::test::MemoryFile &file, unsigned threads) {
  Decoding result;
  uint32_t channels = 0;
  const auto say = [&](const std::string &what) {
    result.said.push_back("at " + std::to_string(result.samples.size()) + " " + what);
  };
  StreamReport report;
  PcmReceiver receiver;
  receiver.begin = [&](const FrameHeader &header) {
    channels = header.channels;
    say("begin " + formatText(header));
  };
  receiver.write = [&](const int16_t *pcm, size_t frames) {
    result.samples.insert(result.samples.end(), pcm, pcm + frames * channels);
  };
  receiver.silence = [&](uint64_t frames) { say("silence " + std::to_string(frames)); };
  receiver.tell = [&](const Finding &finding) {
    say(std::to_string(finding.place.frame) + "@" + std::to_string(finding.place.offset) + describeFinding(finding));
  };
  try {
    MpegInput input(file.name(), {.verifyChecks = false});
    decodeStream(input, report, receiver, threads);
  } catch (const Failure &failure) {
    say(failure.complaint.what);
  }
  say(report.json(0).dump());
  return result;
}

// A frame with a good header and a body of noise. Where little is allocated it decodes; otherwise its bits mostly run out
// after some of its samples.
Bytes frameFrom(Input &in) {
  Bytes frame = {0xFF, uint8_t(0xF4 | (in.byte() & 0x0B)),
                 uint8_t((1 + in.below(14)) << 4 | in.below(3) << 2 | (in.byte() & 3)), in.byte()};
  FrameHeader header;
  FUZZ_CHECK(HeaderParser().parse(frame.data(), header));
  const Bytes begin = in.bytes(in.byte() % 48);
  const uint8_t quiet = in.byte() % 64;
  Noise noise(in.byte());
  frame.insert(frame.end(), begin.begin(), begin.end());
  frame.resize(std::min(frame.size() + quiet, size_t(header.frameBytes)));
  while (frame.size() < header.frameBytes) frame.push_back(uint8_t(noise.next() >> 16));
  return frame;
}

// Pieces, and how often each is repeated: a stream long enough for several stretches from few bytes.
Bytes streamFrom(Input &in) {
  std::vector<Bytes> pieces(1 + in.below(6));
  for (Bytes &piece : pieces) piece = in.byte() < 208 ? frameFrom(in) : in.bytes(in.byte());
  Bytes stream;
  while (!in.empty()) {
    Bytes piece = pieces[in.below(uint32_t(pieces.size()))];
    const uint8_t repeats = in.byte();
    if (repeats == 0 && !piece.empty()) {  // once, with a bit changed
      const uint8_t at = in.byte();
      piece[at % piece.size()] ^= uint8_t(1u << in.byte() % 8);
    }
    for (int i = 0; i <= repeats; ++i) {
      if (stream.size() + piece.size() > kLongestStream) return stream;
      stream.insert(stream.end(), piece.begin(), piece.end());
    }
  }
  return stream;
}

void decoding(Input &in) {
  const unsigned threads = 2 + in.below(7);
  const Bytes stream = streamFrom(in);
  const qav::test::MemoryFile file(stream.data(), stream.size());
  FUZZ_CHECK(decode(file, threads) == decode(file, 1));
}

struct Encoding {
  Bytes stream;
  std::vector<uint32_t> frameBytes;
  Samples samples;
  bool operator==(const Encoding &) const = default;
};

// The signal repeats after a number of frames that no stretch is a multiple of, its level does not.
Encoding encode(const StreamFormat &format, const StreamRequest &request, const Samples &period, size_t frames,
                unsigned threads) {
  const size_t frameSamples = size_t(QAV_SAMPLES_PER_FRAME) * format.channels;
  Encoding result;
  size_t given = 0;
  Noise noise{uint32_t(frames)};
  encodeStretches(
      format, request, threads,
      [&](int16_t *samples) {
        if (given == frames) return false;
        const size_t from = given++ * frameSamples;
        const int32_t shift = int32_t(noise.next() % 4);
        for (size_t i = 0; i < frameSamples; ++i) samples[i] = int16_t(period[(from + i) % period.size()] >> shift);
        return true;
      },
      [&](const int16_t *samples, const uint8_t *frame, uint32_t bytes) {
        result.stream.insert(result.stream.end(), frame, frame + bytes);
        result.frameBytes.push_back(bytes);
        result.samples.insert(result.samples.end(), samples, samples + frameSamples);
      });
  return result;
}

void encoding(Input &in) {
  const unsigned channels = 1 + in.below(2), threads = 2 + in.below(7);
  const auto &bitrates = layer2Bitrates(channels);
  const StreamFormat format{bitrates[in.below(uint32_t(bitrates.size()))],
                            kLayer2Rates[in.below(uint32_t(kLayer2Rates.size()))], channels};
  StreamRequest request;
  request.checkWord = in.byte() & 1;
  const size_t frames = 90 + in.byte();  // up to three stretches
  const Samples period = madeSamples(in, 5 * QAV_SAMPLES_PER_FRAME + 77);
  FUZZ_CHECK(encode(format, request, period, frames, threads) == encode(format, request, period, frames, 1));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in(data, size);
  // Encoding takes many times as long.
  if (in.byte() < 240)
    decoding(in);
  else
    encoding(in);
  return 0;
}
