#include "stream/byte_fifo.h"

#include <cstdlib>
#include <cstring>

namespace {

uint8_t *storage(ByteFifo *f) { return reinterpret_cast<uint8_t *>(f + 1); }

// Moves the carry to the start of the storage and the first `n` bytes of the chunk behind it: one contiguous run.
void gather(ByteFifo *f, uint32_t n) {
  uint8_t *const start = storage(f);
  if (f->carryCount > 0 && f->carryPtr != start) std::memmove(start, f->carryPtr, f->carryCount);
  if (n == 0) return;
  std::memcpy(start + f->carryCount, f->chunkPtr, n);
  f->chunkPtr += n;
  f->chunkCount -= n;
}

}  // namespace

extern "C" {

int32_t NEB_bufferingInit(ByteFifo **out, uint32_t capacity) {
  *out = nullptr;
  const uint64_t storageBytes = 2 * uint64_t(capacity) + 3;
  if (storageBytes > SIZE_MAX - sizeof(ByteFifo)) return 1;
  auto *const f = static_cast<ByteFifo *>(std::calloc(1, sizeof(ByteFifo) + size_t(storageBytes)));
  if (f == nullptr) return 1;
  f->storageBytes = size_t(storageBytes);
  f->capacity = capacity;
  *out = f;
  return 0;
}

int32_t NEB_bufferingLock(ByteFifo *f, const uint8_t *data, uint32_t len) {
  if (len == 0) return 0;
  // What is locked must fit behind the carry: it may come back unread.
  const uint64_t unread = uint64_t(f->carryCount) + len;
  if (len > f->capacity || unread > f->storageBytes || unread > UINT32_MAX) return 1;
  f->chunkPtr = data;
  f->chunkCount = len;
  return 0;
}

int32_t NEB_bufferingGet(ByteFifo *f, uint32_t n, const uint8_t **unit) {
  const uint32_t carried = f->carryCount;
  if (n <= carried) {
    *unit = f->carryPtr;
    if (n > 0) f->carryPtr += n;
    f->carryCount -= n;
    return int32_t(n);
  }
  if (carried == 0 && n <= f->chunkCount) {
    *unit = f->chunkPtr;
    f->chunkPtr += n;
    f->chunkCount -= n;
    return int32_t(n);
  }
  const uint32_t readable = carried + f->chunkCount;
  if (n > readable) n = readable;
  gather(f, n - carried);
  f->carryPtr = storage(f);
  f->carryCount = 0;
  *unit = storage(f);
  return int32_t(n);
}

int32_t NEB_bufferingGetSize(const ByteFifo *f) { return int32_t(f->carryCount + f->chunkCount); }

int32_t NEB_bufferingUnlock(ByteFifo *f) {
  const uint32_t unread = f->carryCount + f->chunkCount;
  gather(f, f->chunkCount);
  f->chunkPtr = nullptr;
  f->carryPtr = storage(f);
  f->carryCount = unread;
  return 0;
}

int32_t NEB_bufferingTerm(ByteFifo *f) {
  std::free(f);
  return 0;
}

}  // extern "C"
