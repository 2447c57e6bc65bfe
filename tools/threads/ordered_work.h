// A sequence of items worked on by several threads: read in order, worked on in any order, written in order.
//
// Reading and writing stay on the calling thread, which works on items too when there is nothing to read or write. So
// only the work itself must be safe on other threads, failures surface where they would without threads, and the number of
// items in memory is bounded.
#pragma once

#include <cstddef>
#include <functional>

namespace qav::tool {

// More threads than this are never used on one sequence.
inline constexpr unsigned kMostThreads = 64;

// Items live in slots, numbered from 0, which are used again and again.
struct OrderedWork {
  std::function<bool(size_t slot)> read;   // false: the sequence has ended, there is no item
  std::function<void(size_t slot)> work;   // on any thread
  std::function<void(size_t slot)> write;  // no sooner than the item before has been written
};

// How many slots runInOrder() uses for so many threads.
constexpr size_t slotsFor(unsigned threads) { return 2 * size_t{threads} + 1; }

// Run the sequence on up to `threads` threads, 1 .. kMostThreads, this one included. What `read` throws is thrown when all
// items before have been written, what `work` throws when it is that item's turn, what `write` throws at once.
void runInOrder(unsigned threads, const OrderedWork &steps);

}  // namespace qav::tool
