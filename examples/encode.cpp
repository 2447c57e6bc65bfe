// Encode raw PCM from standard input into a Layer II stream on standard output, with the owners of qav.hpp.
//
//   encode RATE CHANNELS KBPS < samples.s16 > stream.mp2
#include <cstdio>
#include <cstdlib>
#include <qav.hpp>
#include <vector>

int main(int argc, char **argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: encode RATE CHANNELS KBPS < samples.s16 > stream.mp2\n");
    return 1;
  }
  const auto number = [&](int i) { return static_cast<uint32_t>(std::strtoul(argv[i], nullptr, 10)); };
  const uint32_t rate = number(1), channels = number(2);

  const qav::Converter converter = qav::makeConverter();
  if (!converter) return 1;
  QAV_Handle *const h = converter.get();
  QAV_setConfigure(h, QAV_ITEM_IN_FORMAT, QAV_FORMAT_PCM);
  QAV_setConfigure(h, QAV_ITEM_OUT_FORMAT, QAV_FORMAT_LAYER2);
  QAV_setConfigure(h, QAV_ITEM_IN_FREQ_HZ, rate);
  QAV_setConfigure(h, QAV_ITEM_CHANNELS, channels);
  QAV_setConfigure(h, QAV_ITEM_KBPS, number(3));
  QAV_setConfigure(h, QAV_ITEM_ERROR_PROTECTION, 1);
  QAV_setConfigure(h, QAV_ITEM_BUFFER_SIZE, 65536);
  if (QAV_detectConfigure(h) != QAV_OK) {
    std::fprintf(stderr, "encode: Layer II has no such combination\n");
    return 1;
  }

  std::vector<uint8_t> in(65536), out(QAV_ENCODE_OUT_BYTES(65536, rate, rate));
  uint32_t outBytes = 0;
  const auto put = [&](size_t inBytes) {
    return QAV_convert(h, in.data(), static_cast<uint32_t>(inBytes), out.data(), &outBytes) == QAV_OK &&
           std::fwrite(out.data(), 1, outBytes, stdout) == outBytes;
  };
  while (const size_t n = std::fread(in.data(), 1, in.size(), stdin)) {
    if (!put(n)) return 1;
  }
  // Silence pushes out the 481 sample frames that encoder and decoder hold back together.
  in.assign(size_t{481} * 2 * channels, 0);
  return put(in.size()) && put(0) ? 0 : 1;
}
