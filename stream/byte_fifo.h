// The byte queue that hands out whole units, without copying those that lie whole in the caller's chunk. Its functions
// are in the public header.
#pragma once

#include <cstddef>
#include <cstdint>

#include "include/qav.h"

// One heap block: this header, then the storage. What can be read is the carry followed by the chunk.
struct ByteFifo {
  size_t storageBytes;  // 2 * capacity + 3
  uint32_t capacity;    // the longest chunk that may be locked

  // The carry: unread bytes of earlier chunks, anywhere in the storage.
  const uint8_t *carryPtr;  // null when nothing was ever carried
  uint32_t carryCount;

  // The unread rest of the caller's chunk.
  const uint8_t *chunkPtr;
  uint32_t chunkCount;  // carryCount + chunkCount <= storageBytes
};
