// What the fuzz targets share: taking an input apart, and stopping at what must not be.
//
// A target is one LLVMFuzzerTestOneInput. Linked with libFuzzer it is driven by coverage; linked with replay_main.cpp it
// is a plain program that any compiler builds and the test suite runs.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "base/cpu.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace qav::fuzz {

using Bytes = std::vector<uint8_t>;
using Samples = std::vector<int16_t>;

[[noreturn]] inline void stop(const char *condition, const char *file, int line) {
  std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, condition);
  std::abort();
}

// Holds in every build.
#define FUZZ_CHECK(condition) ((condition) ? void() : ::qav::fuzz::stop(#condition, __FILE__, __LINE__))

// Takes values from the front of an input. At its end everything is 0.
class Input {
 public:
  Input(const uint8_t *data, size_t size) : at(data), end(data + size) {}

  bool empty() const { return at == end; }
  size_t left() const { return size_t(end - at); }

  uint8_t byte() { return at == end ? uint8_t(0) : *at++; }
  uint16_t word() {
    const uint32_t low = byte();
    return uint16_t(low | uint32_t(byte()) << 8);
  }
  uint32_t number() {
    const uint32_t low = word();
    return low | uint32_t(word()) << 16;
  }

  // Small numbers often, all numbers sometimes.
  uint32_t anyNumber() {
    const uint8_t kind = byte();
    if (kind < 128) return byte();
    if (kind < 192) return word();
    if (kind < 224) return (1u << (kind & 31)) + byte() - 128u;
    return number();
  }

  uint32_t below(uint32_t n) { return n <= 256 ? byte() % n : n <= 65536 ? word() % n : number() % n; }

  template <typename T, size_t N>
  T pick(const T (&values)[N]) {
    return values[below(N)];
  }

  // Up to `n` bytes.
  Bytes bytes(size_t n) {
    n = std::min(n, left());
    const Bytes taken(at, at + n);
    at += n;
    return taken;
  }
  Bytes rest() { return bytes(left()); }

  Samples samples(size_t n) {
    Samples taken(std::min(n, left() / 2));
    for (int16_t &v : taken) v = int16_t(word());
    return taken;
  }

 private:
  const uint8_t *at, *end;
};

// A heap block of exactly `size` objects, so that a sanitizer sees every step beyond it; null for none.
template <typename T>
class Block {
 public:
  explicit Block(size_t size) : memory(size == 0 ? nullptr : new T[size]()), count(size) {}
  Block(const T *source, size_t size) : Block(size) { std::copy(source, source + size, memory.get()); }
  explicit Block(const std::vector<T> &source) : Block(source.data(), source.size()) {}

  T *data() { return memory.get(); }
  const T *data() const { return memory.get(); }
  size_t size() const { return count; }

 private:
  std::unique_ptr<T[]> memory;
  size_t count;
};

// Every CPU level that can run here, the baseline first.
inline std::vector<CpuLevel> levelsHere() {
  std::vector<CpuLevel> levels;
  for (const CpuLevel level : kCpuLevels)
    if (level <= detectCpuLevel()) levels.push_back(level);
  return levels;
}

// Numbers without pattern, for contents that need not come from the input.
class Noise {
 public:
  explicit Noise(uint32_t seed) : state(seed | 1) {}
  uint32_t next() {
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    return state;
  }

 private:
  uint32_t state;
};

// `frames` sample frames made from a few bytes of the input: silence, a square, noise, a ramp, or a mixture.
inline Samples madeSamples(Input &in, size_t count) {
  const uint8_t kind = in.byte();
  const uint32_t period = 2u + in.byte();
  const int32_t level = in.word();
  Noise noise(in.word());
  Samples samples(count);
  for (size_t i = 0; i < count; ++i) {
    switch (kind % 6) {
      case 0: break;
      case 1: samples[i] = i / period % 2 ? int16_t(32767) : int16_t(-32768); break;
      case 2: samples[i] = int16_t(noise.next() >> 16); break;
      case 3: samples[i] = int16_t(uint32_t(level) * uint32_t(i)); break;
      case 4: samples[i] = int16_t(i % period == 0 ? level : 0); break;
      default: samples[i] = int16_t(int32_t(noise.next() % uint32_t(level + 1)) - level / 2); break;
    }
  }
  return samples;
}

}  // namespace qav::fuzz
