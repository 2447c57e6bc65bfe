// Streams made to be slow: the time a byte takes may not grow with the length of the input.
#include <gtest/gtest.h>
#include <time.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <vector>

#include "include/qav.h"

namespace {

using Bytes = std::vector<uint8_t>;

double cpuSeconds() {
  timespec t;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

// Processor time of decoding the stream in blocks of `block` bytes.
double decodeSeconds(const Bytes &stream, uint32_t block) {
  QAV_Handle *h = nullptr;
  QAV_createHandle(&h);
  QAV_setConfigure(h, QAV_ITEM_IN_FORMAT, QAV_FORMAT_MPEG);
  QAV_setConfigure(h, QAV_ITEM_BUFFER_SIZE, block);
  EXPECT_EQ(QAV_detectConfigure(h), uint32_t(QAV_OK));
  Bytes out(QAV_DECODE_OUT_BYTES(block));
  const double start = cpuSeconds();
  for (size_t at = 0; at < stream.size(); at += block) {
    uint32_t n = 0;
    const uint32_t bytes = uint32_t(std::min(size_t(block), stream.size() - at));
    EXPECT_EQ(QAV_convert(h, stream.data() + at, bytes, out.data(), &n), uint32_t(QAV_OK));
  }
  const double seconds = cpuSeconds() - start;
  QAV_deleteHandle(h);
  return seconds;
}

double best(const std::function<double()> &measure) {
  double least = measure();
  for (int i = 0; i < 4; ++i) least = std::min(least, measure());
  return least;
}

struct Attack {
  const char *name;
  Bytes period;
};

// The smallest frame, with its check word wrong; 32 kbit/s mono at 48 kHz, Layer I.
Bytes refusedFrame() {
  Bytes frame(32, 0);
  const uint8_t header[] = {0xFF, 0xFE, 0x14, 0xC0};
  std::copy(header, header + 4, frame.begin());
  return frame;
}

Bytes repeated(const Bytes &period, size_t bytes) {
  Bytes stream;
  stream.reserve(bytes + period.size());
  while (stream.size() < bytes) stream.insert(stream.end(), period.begin(), period.end());
  return stream;
}

// The longest frames announced at every fourth byte: each is taken up, waited for, refused, and overlaps the next.
const Attack kAttacks[] = {
    {"nothing but sync words", {0xFF}},
    {"sync words with nothing behind them", {0xFF, 0xF0, 0x00}},
    {"headers that overlap the frames they begin", {0xFF, 0xFC, 0xE8, 0x00}},
    {"headers of both layers in turn", {0xFF, 0xFC, 0xE8, 0x00, 0xFF, 0xFE, 0x14, 0xC0}},
    {"frames with wrong check words", refusedFrame()},
};

class WorstCase : public testing::TestWithParam<Attack> {};

// A byte more than four times as dear in a stream sixteen times as long would be a cost that grows with the length.
TEST_P(WorstCase, CostsAsMuchPerByteInALongStreamAsInAShortOne) {
  const Bytes shortStream = repeated(GetParam().period, 1 << 17), longStream = repeated(GetParam().period, 1 << 21);
  for (const uint32_t block : {4096u, 1u << 17}) {
    const double brief = best([&] { return decodeSeconds(shortStream, block); });
    const double whole = best([&] { return decodeSeconds(longStream, block); });
    std::printf("%s, blocks of %u bytes: %.1f and %.1f ns a byte\n", GetParam().name, unsigned(block),
                1e9 * brief / double(shortStream.size()), 1e9 * whole / double(longStream.size()));
    EXPECT_LT(whole, 4 * 16 * (brief + 1e-4));
  }
}

TEST_P(WorstCase, IsNoDearerByteByByteThanLinear) {
  const Bytes shortStream = repeated(GetParam().period, 1 << 15), longStream = repeated(GetParam().period, 1 << 19);
  const double brief = best([&] { return decodeSeconds(shortStream, 1); });
  const double whole = best([&] { return decodeSeconds(longStream, 1); });
  EXPECT_LT(whole, 4 * 16 * (brief + 1e-4));
}

INSTANTIATE_TEST_SUITE_P(Streams, WorstCase, testing::ValuesIn(kAttacks),
                         [](const auto &attack) { return std::to_string(attack.index); });

}  // namespace
