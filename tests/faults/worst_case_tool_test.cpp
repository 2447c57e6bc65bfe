// Files made to keep the tool busy: its stream walker and its readers spend as much on a byte of a long one as on a byte
// of a short one, and no memory by what a header claims.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <time.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "tools/io/failure.h"
#include "tools/pcm/wav_reader.h"
#include "tools/riff/kept_chunks.h"
#include "tools/riff/riff.h"
#include "tools/stream/stream_report.h"
#include "tools/stream/stream_walker.h"

namespace {

using Bytes = std::string;
using namespace qav::tool;
using namespace std::string_literals;

class MemorySource final : public ByteSource {
 public:
  explicit MemorySource(const Bytes &content) : bytes(content) {}
  size_t read(uint8_t *to, size_t room) override {
    const size_t n = std::min(room, bytes.size() - at);
    std::memcpy(to, bytes.data() + at, n);
    at += n;
    return n;
  }

 private:
  const Bytes &bytes;
  size_t at = 0;
};

double cpuSeconds() {
  timespec t;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

double walkSeconds(const Bytes &file) {
  const double start = cpuSeconds();
  MemorySource source(file);
  StreamWalker walker(source);
  StreamReport report;
  size_t events = 0;
  for (;; ++events) {
    const Event &event = walker.next();
    report.observe(event);
    if (std::holds_alternative<EndEvent>(event)) break;
    if (events > file.size() + 16) {
      ADD_FAILURE() << "more events than bytes";
      break;
    }
  }
  return cpuSeconds() - start;
}

double readSeconds(const Bytes &file) {
  const double start = cpuSeconds();
  try {
    auto source = std::make_unique<MemorySource>(file);
    auto window = std::make_unique<ByteWindow>(*source);
    window->fill(12);
    WavReader reader(std::move(source), std::move(window));
    std::vector<int16_t> samples(8192);
    std::vector<double> values(8192);
    if (reader.isPlainPcm())
      while ((reader.format().fits16 ? reader.read(samples.data(), 4096) : reader.read(values.data(), 4096)) > 0) {
      }
  } catch (const Failure &) {
  }
  return cpuSeconds() - start;
}

// MPEG audio is looked for in the file as well, and its chunks are kept for another file.
double unwrapSeconds(const Bytes &file) {
  const double start = cpuSeconds();
  MemorySource source(file);
  ByteWindow window(source);
  KeptChunks chunks;
  if (const auto riff = readRiffHead(window, &chunks))
    while (window.fill(8) >= 8 && chunkBytesAt(window.data(), window.visible()) > 0)
      chunks.take(window, KeptChunks::Side::behindData);
  EXPECT_LE(chunks.bytes(KeptChunks::Side::beforeData) + chunks.bytes(KeptChunks::Side::behindData), file.size() + 1);
  return cpuSeconds() - start;
}

Bytes repeated(const Bytes &period, size_t bytes) {
  Bytes all;
  all.reserve(bytes + period.size());
  while (all.size() < bytes) all += period;
  return all;
}

Bytes le32(uint32_t v) {
  Bytes b(4, '\0');
  for (int i = 0; i < 4; ++i) b[size_t(i)] = char(v >> (8 * i));
  return b;
}

// A header of Layer II at 44100 Hz and a body that holds the same header again and again.
Bytes nestedHeaders(size_t period) {
  Bytes b = "\xFF\xFD\x80\x00"s;
  b.resize(period, '\x22');
  return b;
}

Bytes ape(uint32_t claimed, bool asFooter) {
  return "APETAGEX"s + le32(2000) + le32(claimed) + le32(1) + le32(asFooter ? 0 : 0xA0000000u) + Bytes(8, '\0');
}

Bytes id3(uint32_t claimed) {
  Bytes b = "ID3\4\0\0"s;
  for (int shift = 21; shift >= 0; shift -= 7) b += char(claimed >> shift & 0x7F);
  return b;
}

Bytes le64(uint64_t v) { return le32(uint32_t(v)) + le32(uint32_t(v >> 32)); }

Bytes wave(const Bytes &chunks) { return "RIFF"s + le32(0xFFFFFFFFu) + "WAVE" + chunks; }
const Bytes kPcmFormat = "fmt "s + le32(16) + "\1\0\2\0"s + le32(44100) + le32(176400) + "\4\0\20\0"s;

struct Attack {
  const char *name;
  Bytes head;    // once
  Bytes period;  // again and again
};
void PrintTo(const Attack &attack, std::ostream *out) { *out << attack.name; }

const Attack kStreams[] = {
    {"zeros", "", "\0"s},
    {"sync bytes", "", "\xFF"},
    {"headers back to back", "", "\xFF\xFD\x80\x00"s},
    {"headers a byte apart from where they lead", "", nestedHeaders(416)},
    {"headers that lead to headers that lead nowhere", "", nestedHeaders(417) + nestedHeaders(100)},
    {"headers all through each frame", nestedHeaders(417) + nestedHeaders(417), nestedHeaders(7)},
    {"Layer III", "", "\xFF\xFB\x90\x64"},
    {"free format", "", "\xFF\xFD\x00\x00"s},
    {"ID3v2 tags of nothing", "", id3(0)},
    {"ID3v2 tags that claim everything", "", id3(0x0FFFFFFF)},
    {"ID3v1 marks", "", "TAG"},
    {"APE headers that claim everything", "", ape(0xFFFFFFFFu, false)},
    {"APE footers that claim what came before", nestedHeaders(417) + nestedHeaders(417), ape(0x00FFFFFFu, true)},
    {"APE footers behind each other", nestedHeaders(417) + nestedHeaders(417), ape(64, true)},
};

const Attack kWavFiles[] = {
    {"chunks of nothing", wave(""), "JUNK"s + le32(0)},
    {"chunks that claim everything", wave(""), "JUNK"s + le32(0xFFFFFFFFu)},
    {"chunks that overlap", wave(kPcmFormat), "LIST"s + le32(4)},
    {"lists in lists in lists", wave(kPcmFormat), "LIST"s + le32(0x7FFFFFF0u) + "adtl"},
    {"data chunks that begin again", wave(kPcmFormat), "data"s + le32(2)},
    {"RIFF in RIFF", wave(""), wave("")},
    {"lists that end before what they hold", wave(kPcmFormat), "LIST"s + le32(12) + "adtl" + "LIST" + le32(0x1000)},
    {"sizes that lead back to where they stand", wave(kPcmFormat), "JUNK"s + le32(0xFFFFFFF8u)},
    {"odd sizes that wrap with their padding", wave(kPcmFormat), "JUNK"s + le32(0xFFFFFFFFu)},
    {"format chunks that claim everything", wave(""), "fmt "s + le32(0xFFFFFFF0u) + Bytes(16, '\1')},
    {"descriptions that claim everything", wave(kPcmFormat), "bext"s + le32(0x7FFFFFFEu) + Bytes(602, 'x')},
    {"samples of 2 to the power of 64 bytes",
     "RF64"s + le32(0xFFFFFFFFu) + "WAVE" + "ds64" + le32(28) + le64(~uint64_t{0}) + le64(~uint64_t{0} - 8) +
         le64(~uint64_t{0}) + le32(0xFFFFFFFFu) + kPcmFormat + "data" + le32(0xFFFFFFFFu),
     "\1\2\3\4"s},
    {"sizes of 64 bits again and again", "RF64"s + le32(0xFFFFFFFFu) + "WAVE",
     "ds64"s + le32(24) + le64(~uint64_t{0} - 7) + le64(~uint64_t{0} - 7) + le64(1)},
    {"format chunks without end", wave(""), kPcmFormat},
};

class WorstCase : public testing::TestWithParam<Attack> {
 protected:
  // The time of a file sixteen times as long, over sixteen times that of the short one.
  static double growth(const std::function<double(const Bytes &)> &seconds) {
    const Bytes brief = GetParam().head + repeated(GetParam().period, 1 << 17);
    const Bytes whole = GetParam().head + repeated(GetParam().period, 1 << 21);
    double few = 1e9, many = 1e9;
    for (int i = 0; i < 3; ++i) {
      few = std::min(few, seconds(brief));
      many = std::min(many, seconds(whole));
    }
    std::printf("%s: %.1f and %.1f ns a byte\n", GetParam().name, 1e9 * few / double(brief.size()),
                1e9 * many / double(whole.size()));
    return many / (16 * (few + 1e-4));
  }
};

TEST_P(WorstCase, WalkerIsLinear) { EXPECT_LT(growth(walkSeconds), 4); }

TEST_P(WorstCase, ClaimsTakeNoMemory) {
  const auto resident = [] {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;  // KiB
  };
  const Bytes file = GetParam().head + repeated(GetParam().period, 1 << 16);
  const long before = resident();
  walkSeconds(file);
  readSeconds(file);
  unwrapSeconds(file);
  EXPECT_LT(resident() - before, 8 << 10);
}

class WorstWavFile : public WorstCase {};

TEST_P(WorstWavFile, ReaderIsLinear) { EXPECT_LT(growth(readSeconds), 4); }

TEST_P(WorstWavFile, KeepingChunksIsLinear) { EXPECT_LT(growth(unwrapSeconds), 4); }

std::string nameOf(const testing::TestParamInfo<Attack> &attack) {
  std::string name = attack.param.name;
  std::replace(name.begin(), name.end(), ' ', '_');
  return name;
}
INSTANTIATE_TEST_SUITE_P(Streams, WorstCase, testing::ValuesIn(kStreams), nameOf);
INSTANTIATE_TEST_SUITE_P(WavFiles, WorstCase, testing::ValuesIn(kWavFiles), nameOf);
INSTANTIATE_TEST_SUITE_P(WavFiles, WorstWavFile, testing::ValuesIn(kWavFiles), nameOf);

}  // namespace
