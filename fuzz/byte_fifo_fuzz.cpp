// The byte queue against a std::deque, under any sequence of calls that its manual allows.
#include "include/qav.h"

#include <deque>
#include <optional>

#include "fuzz/fuzz.h"

using namespace qav::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in(data, size);
  const uint32_t capacity = in.word();
  ByteFifo *fifo = nullptr;
  FUZZ_CHECK(NEB_bufferingInit(&fifo, capacity) == 0 && fifo != nullptr);

  std::deque<uint8_t> model;
  std::optional<Block<uint8_t>> chunk;  // what is locked
  uint8_t next = 0;
  while (!in.empty()) {
    switch (in.byte() % 4) {
      case 0: {
        if (chunk) break;
        const uint32_t length = in.byte() & 1 ? in.below(capacity + 2) : in.below(64);
        chunk.emplace(length);
        for (size_t i = 0; i < length; ++i) chunk->data()[i] = next++;
        const bool fits = length <= capacity && model.size() + length <= 2 * size_t(capacity) + 3;
        FUZZ_CHECK(NEB_bufferingLock(fifo, chunk->data(), length) == (fits ? 0 : 1));
        if (fits) {
          model.insert(model.end(), chunk->data(), chunk->data() + length);
        } else {
          chunk.reset();
        }
        break;
      }
      case 1: {
        const uint32_t wanted = in.anyNumber();
        const uint8_t *unit = nullptr;
        const int32_t got = NEB_bufferingGet(fifo, wanted, &unit);
        FUZZ_CHECK(size_t(got) == std::min(size_t(wanted), model.size()));
        for (int32_t i = 0; i < got; ++i) {
          FUZZ_CHECK(unit[i] == model.front());
          model.pop_front();
        }
        break;
      }
      case 2:
        FUZZ_CHECK(NEB_bufferingUnlock(fifo) == 0);
        chunk.reset();
        break;
      default: break;
    }
    FUZZ_CHECK(size_t(NEB_bufferingGetSize(fifo)) == model.size());
  }
  FUZZ_CHECK(NEB_bufferingTerm(fifo) == 0);
  return 0;
}
