// Good streams and streams damaged on purpose, judged by the tool's own verdict: damaged_streams COUNT
// TEST-DATA, COUNT of each. No good one may be called anything else; damage of every kind must be found at the rate that
// the format allows, at the place where it was done. Prints the rates.
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "include/qav.h"
#include "tests/endurance/expect.h"
#include "tests/support/memory_file.h"
#include "tools/io/failure.h"
#include "tools/threads/stream_decoder.h"

namespace {

using Bytes = std::vector<uint8_t>;
namespace tool = qav::tool;

std::mt19937 chance(1993);
size_t below(size_t n) { return n == 0 ? 0 : chance() % n; }

struct Stream {
  Bytes bytes;
  std::vector<size_t> frames;  // where each begins, and the end
  bool hasCheck = false;
  uint32_t channels = 0, layer = 0;
};

struct Base {
  std::vector<Bytes> frames;
  bool hasCheck = false;
  uint32_t channels = 0, layer = 0;
};

Base split(const Bytes &stream) {
  Base base;
  DecoderSession *s = nullptr;
  EXPECT(zo_mpeg_Decode1FrameInit(&s) == QAV_DECODE_OK);
  for (size_t at = 0; at + 4 <= stream.size();) {
    const int32_t n = NEB_mpeg_get1FrameSize(&stream[at], s);
    if (n < 0 || at + size_t(n) > stream.size()) break;
    base.frames.emplace_back(stream.begin() + ptrdiff_t(at), stream.begin() + ptrdiff_t(at) + n);
    at += size_t(n);
  }
  EXPECT(base.frames.size() >= 4);
  base.hasCheck = (base.frames[0][1] & 1) == 0;
  base.channels = NEB_mpeg_getChannel(s);
  base.layer = (base.frames[0][1] >> 1 & 3) == 3 ? 1 : 2;
  zo_mpeg_Decode1FrameTerm(s);
  return base;
}

Base encode(uint32_t hz, uint32_t kbps, uint32_t channels, bool check) {
  const uint32_t options[5] = {0, 0, 1, check, 0};
  EncoderSession *s = nullptr;
  EXPECT(zo_mpeg_Encode1FrameInit(&s, hz, kbps, channels, options) == QAV_ENCODE_OK);
  Bytes stream;
  std::vector<int16_t> pcm(1152 * channels);
  int32_t slow = 0;
  for (int frame = 0; frame < 16; ++frame) {
    for (int16_t &v : pcm) v = int16_t(slow += (int32_t(chance() % 16384) - 8192 - slow) / 6);
    uint8_t bytes[QAV_MAX_FRAME_BYTES + QAV_ENCODE_SLACK_BYTES];
    uint32_t n = 0;
    EXPECT(zo_mpeg_Encode1Frame(s, pcm.data(), 1152, bytes, &n) == 0);
    stream.insert(stream.end(), bytes, bytes + n);
  }
  zo_mpeg_Encode1FrameTerm(s);
  return split(stream);
}

std::vector<Base> makeBases(const std::filesystem::path &data) {
  std::vector<Base> bases;
  for (const char *name :
       {"l1_joint_44k_192_crc.mp1", "l1_stereo_32k_320.mp1", "l2_dual_48k_256.mp2", "l2_joint_44k_128.mp2",
        "l2_joint_48k_64_crc.mp2", "l2_mono_lsf_22k_56.mp2", "l2_stereo_44k_192_crc.mp2"}) {
    std::ifstream in(data / name, std::ios::binary);
    bases.push_back(split(Bytes(std::istreambuf_iterator<char>(in), {})));
  }
  for (const uint32_t hz : {32000u, 44100u, 48000u})
    for (const bool check : {false, true}) {
      for (const uint32_t kbps : {64u, 128u, 192u, 320u}) bases.push_back(encode(hz, kbps, 2, check));
      for (const uint32_t kbps : {32u, 64u, 128u}) bases.push_back(encode(hz, kbps, 1, check));
    }
  return bases;
}

Stream pickStream(const std::vector<Base> &bases) {
  const Base &base = bases[below(bases.size())];
  Stream stream;
  stream.hasCheck = base.hasCheck;
  stream.channels = base.channels;
  stream.layer = base.layer;
  // Frames of one stream from anywhere on: each stands alone.
  const size_t count = 6 + below(30), first = below(base.frames.size());
  for (size_t i = 0; i < count; ++i) {
    const Bytes &frame = base.frames[(first + i) % base.frames.size()];
    stream.frames.push_back(stream.bytes.size());
    stream.bytes.insert(stream.bytes.end(), frame.begin(), frame.end());
  }
  stream.frames.push_back(stream.bytes.size());
  return stream;
}

Bytes noise(size_t n) {
  Bytes b(n);
  for (uint8_t &v : b) v = uint8_t(chance());
  return b;
}

Bytes tag(const char *mark, size_t bytes) {
  Bytes b(bytes, 0);
  std::copy_n(mark, 3, b.begin());
  return b;
}

Bytes id3v2(size_t content) {
  Bytes b = tag("ID3", 10 + content);
  b[3] = 4;
  for (int i = 0; i < 4; ++i) b[6 + size_t(i)] = uint8_t(content >> (7 * (3 - i)) & 0x7F);
  return b;
}

// One kind of damage; false where it cannot be done to this stream. `first` and `last` receive the bytes of the damaged stream between which it shows.
struct Kind {
  const char *name;
  double least;  // of the damaged streams that must be found, %
  bool (*damage)(Stream &stream, size_t &first, size_t &last);
};

size_t pickFrame(const Stream &s) { return 1 + below(s.frames.size() - 3); }  // neither the first nor the last

bool flip(Stream &s, size_t fromBit, size_t toBit, size_t &first, size_t &last) {
  const size_t frame = pickFrame(s);
  const size_t bit = fromBit + below(toBit - fromBit);
  s.bytes[s.frames[frame] + bit / 8] ^= uint8_t(0x80 >> bit % 8);
  first = s.frames[frame];
  last = s.frames[frame + 1];
  return true;
}

void erase(Stream &s, size_t at, size_t n) {
  s.bytes.erase(s.bytes.begin() + ptrdiff_t(at), s.bytes.begin() + ptrdiff_t(at + n));
}
void insert(Stream &s, size_t at, const Bytes &b) {
  s.bytes.insert(s.bytes.begin() + ptrdiff_t(at), b.begin(), b.end());
}

const Kind kKinds[] = {
    {"sync word or layer broken", 100.0,
     [](Stream &s, size_t &first, size_t &last) { return flip(s, 0, 12, first, last); }},
    {"protected header bit flipped, with check word", 100.0,
     [](Stream &s, size_t &first, size_t &last) { return s.hasCheck && flip(s, 16, 32, first, last); }},
    {"the bit that announces the check word flipped", 50.0,
     [](Stream &s, size_t &first, size_t &last) { return flip(s, 15, 16, first, last); }},
    {"any header bit flipped, no check word", 55.0,
     [](Stream &s, size_t &first, size_t &last) { return !s.hasCheck && flip(s, 0, 32, first, last); }},
    {"check word flipped", 100.0,
     [](Stream &s, size_t &first, size_t &last) { return s.hasCheck && flip(s, 32, 48, first, last); }},
    {"allocation flipped, with check word", 100.0,
     [](Stream &s, size_t &first, size_t &last) { return s.hasCheck && flip(s, 48, 48 + 24, first, last); }},
    {"a sample's bit flipped (the format protects none)", 0.0,
     [](Stream &s, size_t &first, size_t &last) {
       const size_t frame = pickFrame(s);
       const size_t at = s.frames[frame] + (s.frames[frame + 1] - s.frames[frame]) / 2;
       s.bytes[at] ^= uint8_t(1u << below(8));
       first = s.frames[frame];
       last = s.frames[frame + 1];
       return true;
     }},
    {"header overwritten", 100.0,
     [](Stream &s, size_t &first, size_t &last) {
       const size_t frame = pickFrame(s);
       first = s.frames[frame];
       last = s.frames[frame + 1];
       std::fill_n(s.bytes.begin() + ptrdiff_t(first), 4, uint8_t(0));
       return true;
     }},
    {"a frame and more overwritten with noise", 99.9,
     [](Stream &s, size_t &first, size_t &last) {
       const size_t frame = pickFrame(s);
       first = s.frames[frame];
       const Bytes b = noise(std::min(s.frames[frame + 1] - first + below(200), s.bytes.size() - first));
       std::copy(b.begin(), b.end(), s.bytes.begin() + ptrdiff_t(first));
       last = first + b.size() + 1800;
       return true;
     }},
    {"bytes deleted", 99.9,
     [](Stream &s, size_t &first, size_t &last) {
       const size_t frame = pickFrame(s), length = s.frames[frame + 1] - s.frames[frame];
       const size_t n = 1 + below(length - 2);
       const size_t at = s.frames[frame] + below(length - n);
       erase(s, at, n);
       first = s.frames[frame];
       last = s.frames[frame + 1];
       return true;
     }},
    {"bytes inserted", 99.9,
     [](Stream &s, size_t &first, size_t &last) {
       const size_t frame = pickFrame(s);
       const Bytes b = noise(1 + below(300));
       insert(s, s.frames[frame] + below(s.frames[frame + 1] - s.frames[frame]), b);
       first = s.frames[frame];
       last = s.frames[frame + 1] + b.size();
       return true;
     }},
    {"cut off inside the last frame", 100.0,
     [](Stream &s, size_t &first, size_t &last) {
       first = s.frames[s.frames.size() - 2];
       last = s.frames.back();
       s.bytes.resize(first + 1 + below(last - first - 1));
       return true;
     }},
    {"begins inside a frame", 100.0,
     [](Stream &s, size_t &first, size_t &last) {
       erase(s, 0, 1 + below(s.frames[1] - 1));
       first = 0;
       last = s.frames[1];
       return true;
     }},
    {"noise before the first frame", 100.0,
     [](Stream &s, size_t &first, size_t &last) {
       const Bytes b = noise(1 + below(500));
       insert(s, 0, b);
       first = 0;
       last = b.size();
       return true;
     }},
    {"noise behind the last frame", 100.0,
     [](Stream &s, size_t &first, size_t &last) {
       first = s.bytes.size();
       insert(s, s.bytes.size(), noise(1 + below(500)));
       last = s.bytes.size();
       return true;
     }},
    {"noise between two frames", 99.9,
     [](Stream &s, size_t &first, size_t &last) {
       first = s.frames[pickFrame(s)];
       const Bytes b = noise(1 + below(500));
       insert(s, first, b);
       last = first + b.size();
       return true;
     }},
};

struct Outcome {
  bool isStream = true;
  tool::Verdict verdict = tool::Verdict::good;
  std::vector<tool::Finding> findings;
  uint64_t samples = 0;  // decoded and silent, per channel
};

Outcome judge(const Bytes &bytes) {
  const qav::test::MemoryFile file(bytes.data(), bytes.size());
  Outcome outcome;
  try {
    tool::MpegInput input(file.name(), {.verifyChecks = false});
    tool::StreamReport report;
    tool::PcmReceiver receiver;
    receiver.write = [&](const int16_t *, size_t frames) { outcome.samples += frames; };
    receiver.silence = [&](uint64_t frames) { outcome.samples += frames; };
    tool::decodeStream(input, report, receiver);
    outcome.verdict = report.verdict();
    outcome.findings = report.kept();
  } catch (const tool::Failure &) {
    outcome.isStream = false;
  }
  return outcome;
}

void judgeGood(size_t count, const std::vector<Base> &bases) {
  for (size_t i = 0; i < count; ++i) {
    Stream s = pickStream(bases);
    if (below(4) == 0) insert(s, 0, id3v2(below(2000)));
    if (below(4) == 0) insert(s, s.bytes.size(), tag("TAG", 128));
    const Outcome outcome = judge(s.bytes);
    EXPECT(outcome.isStream && outcome.verdict == tool::Verdict::good);
    EXPECT(outcome.samples == (s.frames.size() - 1) * (s.layer == 1 ? 384 : 1152));
  }
  std::printf("%zu good streams: all called good\n", count);
}

struct Tally {
  size_t done = 0, found = 0, inPlace = 0, inTime = 0;
};

void judgeDamaged(size_t count, const std::vector<Base> &bases) {
  std::map<const Kind *, Tally> tallies;
  constexpr size_t kKindCount = sizeof kKinds / sizeof *kKinds;
  for (size_t i = 0; i < count; ++i) {
    const Kind &kind = kKinds[i % kKindCount];
    Stream s = pickStream(bases);
    size_t first = 0, last = 0;
    while (!kind.damage(s, first, last)) s = pickStream(bases);
    const Outcome outcome = judge(s.bytes);
    Tally &t = tallies[&kind];
    ++t.done;
    if (!outcome.isStream || outcome.verdict != tool::Verdict::good) ++t.found;
    for (const tool::Finding &finding : outcome.findings)
      if (finding.place.offset + finding.bytes + 1 >= first && finding.place.offset <= last) {
        ++t.inPlace;
        break;
      }
    if (outcome.samples == (s.frames.size() - 1) * (s.layer == 1 ? 384 : 1152)) ++t.inTime;
  }
  std::printf("%-52s %7s %8s %9s %9s\n", "damage", "streams", "found %", "in place", "in time");
  bool holds = true;
  for (const Kind &kind : kKinds) {
    const Tally &t = tallies[&kind];
    const auto percent = [&](size_t n) { return 100.0 * double(n) / double(t.done); };
    const bool enough = percent(t.found) >= kind.least && (kind.least < 99 || percent(t.inPlace) >= 99);
    std::printf("%-52s %7zu %8.2f %9.2f %9.2f%s\n", kind.name, t.done, percent(t.found), percent(t.inPlace),
                percent(t.inTime), enough ? "" : "   too few");
    holds = holds && enough;
  }
  EXPECT(holds);
}

}  // namespace

int main(int argc, char **argv) {
  EXPECT(argc == 3);
  const size_t count = size_t(std::atoll(argv[1]));
  const std::vector<Base> bases = makeBases(argv[2]);
  judgeGood(count, bases);
  judgeDamaged(count, bases);
  return 0;
}
