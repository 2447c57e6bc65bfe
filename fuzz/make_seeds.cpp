// Writes the seeds of every fuzz target: make_seeds TEST-DATA FOLDER makes FOLDER/TARGET/... afresh, always the same.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "fuzz/fuzz.h"
#include "include/qav.h"

using namespace qav::fuzz;
namespace fs = std::filesystem;

namespace {

fs::path root;

Bytes operator+(Bytes a, const Bytes &b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

Bytes noise(uint32_t seed, size_t n) {
  Noise random(seed * 2654435761u);
  Bytes b(n);
  for (uint8_t &v : b) v = uint8_t(random.next() >> 11);
  return b;
}

Bytes word(uint32_t v) { return {uint8_t(v), uint8_t(v >> 8)}; }

Bytes firstBytes(const fs::path &file, size_t n) {
  std::ifstream in(file, std::ios::binary);
  Bytes b(std::istreambuf_iterator<char>(in), {});
  b.resize(std::min(b.size(), n));
  return b;
}

void seed(const std::string &target, const std::string &name, const Bytes &bytes) {
  fs::create_directories(root / target);
  std::ofstream out(root / target / name, std::ios::binary);
  out.write(reinterpret_cast<const char *>(bytes.data()), std::streamsize(bytes.size()));
}

Bytes headerOf(uint32_t id, uint32_t layer, uint32_t bitrateIndex, uint32_t samplingIndex, uint32_t mode) {
  return {0xFF, uint8_t(0xF1 | id << 3 | (4 - layer) << 1), uint8_t(bitrateIndex << 4 | samplingIndex << 2),
          uint8_t(mode << 6 | 0x10)};
}

Bytes encoded(uint32_t hz, uint32_t kbps, uint32_t channels, int frames) {
  EncoderSession *s = nullptr;
  if (zo_mpeg_Encode1FrameInit(&s, hz, kbps, channels, nullptr) != QAV_ENCODE_OK) return {};
  Bytes stream;
  for (int i = 0; i < frames; ++i) {
    Input in(reinterpret_cast<const uint8_t *>("\5\20\377\37\1"), 5);
    const Samples pcm = madeSamples(in, 1152 * channels);
    Bytes frame(QAV_MAX_FRAME_BYTES + QAV_ENCODE_SLACK_BYTES);
    uint32_t bytes = 0;
    zo_mpeg_Encode1Frame(s, pcm.data(), 1152, frame.data(), &bytes);
    frame.resize(bytes);
    stream = stream + frame;
  }
  zo_mpeg_Encode1FrameTerm(s);
  return stream;
}

void unitSeeds() {
  for (uint32_t i = 0; i < 12; ++i) {
    const std::string name = std::to_string(i);
    seed("byte_fifo", name, word(i * i * 40) + noise(i, 200));
    seed("frame_header", name,
         headerOf(i & 1, 1 + i / 6, 1 + i, i % 3, i % 4) + noise(i, 133) + headerOf(1, 2, 10, 0, 1));
    seed("freq_change", name, Bytes{uint8_t(i << 3)} + noise(i, 20 + i * 30));
    seed("freq_change", "any" + name, Bytes{uint8_t(i * 7 | 3)} + noise(i, 300));
  }
  for (uint8_t i = 0; i < 15; ++i) seed("rdft", std::to_string(i), Bytes{uint8_t(i | i << 6), 8, 2} + noise(i, 4));
  seed("rdft", "samples", Bytes{8, 10} + noise(1, 2048));
}

void encoderSeeds() {
  for (uint8_t i = 0; i < 28; ++i) {
    const std::string name = std::to_string(i);
    const Bytes frames = Bytes{0, 1, 2, 0, 0, 7, 7, 0, 1, 5, 9, 0, 9, 3, 3, 255, 100, 0, 1, 1, 9, 0, 0, 0, 0};
    seed("encoder", name,
         Bytes{uint8_t(i / 14 << 3 | 16), i, uint8_t(1 + i % 14), 0, 1, 0, uint8_t(i & 1), 0} + frames);
    seed("reconstruction", "trip" + name,
         Bytes{1, uint8_t(i / 14), uint8_t(i % 3), uint8_t(i % 14), uint8_t(i & 1)} +
             Bytes{uint8_t(i), 40, 255, 31, 3, uint8_t(i + 1), 99, 99, 99, 9});
  }
  seed("encoder", "refused", Bytes{7, 129, 1, 0, 3, 40, 2});
  seed("encoder", "samples", Bytes{8, 1, 8, 0, 0} + noise(5, 3000));
}

// Calls as the converter's target reads them.
Bytes setItem(uint8_t item, uint8_t valueIndex) { return {0, 0, uint8_t(item - 1), 0, valueIndex}; }
const Bytes kDetect = {100};
const Bytes kConvert2048 = {150, 1, 0, 8, 1};
const Bytes kConvertMade = {150, 1, 0, 40, 0, 5, 20, 255, 31, 3};
const Bytes kEnd = {150, 0, 0, 0};

void converterSeeds() {
  for (uint8_t i = 0; i < 8; ++i) {
    const Bytes items = setItem(1, uint8_t(9 + i % 4)) + setItem(4, uint8_t(1 + i % 2)) + setItem(10, i & 1);
    const Bytes eightBit = i & 4 ? Bytes{0, 0, 11, 0, 1, 0, 0, 12, 0, 3} : Bytes();
    const Bytes calls = kDetect + kConvertMade + kConvertMade + kEnd + kEnd + Bytes{245} + kDetect;
    const std::string name = std::to_string(i);
    seed("converter", "encode" + name, setItem(6, 2) + setItem(2, 13) + items + eightBit + calls);
    seed("converter", "resample" + name, setItem(2, uint8_t(9 + i)) + items + eightBit + calls);
    seed("converter", "noise" + name, noise(i, 400));
  }
}

Bytes text(const std::string &s) { return Bytes(s.begin(), s.end()); }
Bytes number(uint32_t v) { return word(v & 0xFFFF) + word(v >> 16); }
Bytes chunk(const std::string &name, const Bytes &content, uint32_t declared) {
  return text(name) + number(declared) + content;
}
Bytes chunk(const std::string &name, const Bytes &content) { return chunk(name, content, uint32_t(content.size())); }

Bytes formatChunk(uint32_t tag, uint32_t channels, uint32_t hz, uint32_t bits) {
  return chunk("fmt ", word(tag) + word(channels) + number(hz) + number(hz * channels * bits / 8) +
                           word(channels * bits / 8) + word(bits));
}

Bytes wave(const Bytes &chunks, uint32_t declared) { return text("RIFF") + number(declared) + text("WAVE") + chunks; }

void toolSeeds(const fs::path &data) {
  const Bytes stream = firstBytes(data / "l2_stereo_44k_192_crc.mp2", 2600);
  const Bytes tagBefore = text("ID3") + Bytes{4, 0, 0, 0, 0, 0, 10} + Bytes(10, 0),
              tagBehind = text("TAG") + Bytes(125, 0);
  const Bytes cuts = {3, 1, 90, 7};
  seed("stream_walker", "tags", cuts + tagBefore + stream + tagBehind);
  seed("stream_walker", "gap", cuts + stream + noise(7, 50) + stream);
  seed("stream_walker", "joined", cuts + stream + firstBytes(data / "l2_mono_lsf_22k_56.mp2", 1500));
  seed("stream_walker", "wave",
       cuts + wave(formatChunk(0x50, 2, 44100, 0) + chunk("fact", number(4608)) + chunk("data", stream) +
                       chunk("LIST", noise(1, 20)),
                   4000));
  seed("stream_walker", "ape", cuts + stream + text("APETAGEX") + number(2000) + number(32) + number(0) + Bytes(12, 0));
  static constexpr uint32_t kBits[] = {8, 16, 24, 32, 64};
  for (const uint32_t bits : kBits)
    for (uint32_t channels = 1; channels <= 2; ++channels) {
      const std::string name = std::to_string(bits) + "_" + std::to_string(channels);
      const Bytes samples = noise(bits + channels, 2000);
      seed("pcm_reader", "wave" + name,
           Bytes{0} + cuts + wave(formatChunk(1, channels, 44100, bits) + chunk("data", samples), 2036));
      if (bits < 32) continue;
      seed("pcm_reader", "float" + name,
           Bytes{0} + cuts +
               wave(formatChunk(3, channels, 48000, bits) + chunk("JUNK", Bytes(6, 0)) + chunk("data", samples), 2050));
    }
  for (const uint32_t declared : {0u, 0x7FFFFFFFu, 0xFFFFFFFFu, 1u, 5000u})
    seed("pcm_reader", "lie" + std::to_string(declared),
         Bytes{0} + cuts + wave(formatChunk(1, 2, 32000, 16) + chunk("data", noise(3, 999), declared), declared));
  for (uint8_t i = 0; i < 10; ++i)
    seed("pcm_reader", "raw" + std::to_string(i), Bytes{uint8_t(1 | i << 1), i} + cuts + noise(i, 300));
}

// As the target of threads reads them: kind, threads, pieces, and what is made of those.
void threadSeeds() {
  const Bytes quiet = {0, 9, 7, 0, 0, 0, 4, 0x11, 0x10, 1, 0, 40, 5}, loud = {0, 9, 7, 0, 0, 0, 0, 0, 9};
  const Bytes layer1 = {0, 15, 9, 0, 0, 0x40, 2, 0x33, 0, 60, 77}, garbage = {255, 5, 1, 2, 3, 4, 5};
  const Bytes pieces = Bytes{3} + quiet + loud + layer1 + garbage;
  for (uint8_t i = 0; i < 6; ++i) {
    const std::string name = std::to_string(i);
    seed("threads", "refused" + name, Bytes{0, i} + pieces + Bytes{0, 200, 1, i, 0, 100, 1, uint8_t(40 * i), 0, 255});
    seed("threads", "mixed" + name,
         Bytes{0, i} + pieces + Bytes{2, 255, 3, 0, 9, 1, 2, 255, 0, 99, 2, i, 0, 0, 8, i, 0, 90});
    seed("threads", "encode" + name,
         Bytes{250, i, i, uint8_t(3 * i), i, 1, uint8_t(60 + 30 * i), uint8_t(2 + i % 3), 90, 9, 31, i});
  }
}

void streamSeeds(const fs::path &data) {
  size_t streams = 0;
  const auto add = [&](const std::string &name, const Bytes &stream) {
    ++streams;
    seed("decoder", name, Bytes{1} + stream);
    seed("stream_walker", name, Bytes{3, 1, 90, 7} + stream);
    seed("cuts", name, Bytes{0, 3, 1, 90, 7} + stream);
    seed("inspect", name, stream);
    seed("converter", name, setItem(5, 1) + kDetect + kConvert2048 + stream);
    seed("reconstruction", name, Bytes{0, 0x3A} + Bytes(stream.begin() + 2, stream.end()));
  };
  for (const auto &entry : fs::directory_iterator(data)) {
    const std::string extension = entry.path().extension().string();
    if (extension != ".mp1" && extension != ".mp2") continue;
    add(entry.path().stem().string(), firstBytes(entry.path(), 2600));
  }
  add("encoded", encoded(48000, 64, 1, 3));
  add("damaged", encoded(44100, 128, 2, 2) + noise(3, 100) + encoded(44100, 128, 2, 2));
  for (uint32_t i = 0; i < 12; ++i) {
    const Bytes body = headerOf(i & 1, 1 + i / 6, 1 + i, i % 3, i % 4) + noise(i, 900);
    seed("inspect", "header" + std::to_string(i), body);
    seed("decoder", "header" + std::to_string(i), Bytes{0, 0} + body);
    seed("decoder", "body" + std::to_string(i), Bytes{0, 3} + body);
    seed("cuts", "encode" + std::to_string(i), Bytes{uint8_t(2 | i << 2), 4, 9, 200, 3, 1} + noise(i, 20));
    seed("cuts", "resample" + std::to_string(i), Bytes{uint8_t(3 | i << 2), 4, 9, 200, 3, 1} + noise(i, 20));
  }
  if (streams < 10) {
    std::fprintf(stderr, "make_seeds: no streams in %s\n", data.c_str());
    std::exit(1);
  }
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: make_seeds TEST-DATA FOLDER\n");
    return 1;
  }
  root = argv[2];
  fs::remove_all(root);
  unitSeeds();
  encoderSeeds();
  converterSeeds();
  streamSeeds(argv[1]);
  toolSeeds(argv[1]);
  threadSeeds();
  return 0;
}
