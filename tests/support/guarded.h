// An object among bytes that nobody may write.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>

namespace qav::test {

template <typename T>
class Guarded {
 public:
  // The object stands `shift` bytes behind a multiple of 64 and is filled with guard bytes itself.
  explicit Guarded(size_t shift = 0) : shift_(shift % kBytes / alignof(T) * alignof(T)) {
    std::memset(memory_, kGuard, sizeof memory_);
  }

  T &operator*() { return *reinterpret_cast<T *>(memory_ + kBytes + shift_); }

  // Whether all bytes around the object are as they were.
  bool isIntact() const {
    const auto isGuard = [](uint8_t byte) { return byte == kGuard; };
    const uint8_t *const object = memory_ + kBytes + shift_;
    return std::all_of(memory_, object, isGuard) && std::all_of(object + sizeof(T), std::end(memory_), isGuard);
  }

 private:
  static constexpr size_t kBytes = 64;
  static constexpr uint8_t kGuard = 0x5A;

  size_t shift_;
  alignas(64) uint8_t memory_[kBytes + sizeof(T) + 2 * kBytes];
};

}  // namespace qav::test
