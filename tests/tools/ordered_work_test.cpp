#include "tools/threads/ordered_work.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <numeric>
#include <stdexcept>
#include <thread>
#include <vector>

namespace qav::tool {
namespace {

using testing::ElementsAreArray;

// A sequence of the numbers 0 .. length - 1, worked on by squaring.
class Squares {
 public:
  explicit Squares(size_t length) : length_(length) {}

  std::vector<size_t> written;
  size_t readFailsAt = SIZE_MAX, workFailsAt = SIZE_MAX, writeFailsAt = SIZE_MAX;
  std::atomic<size_t> most{0};  // items in memory at once

  void run(unsigned threads) {
    items_.resize(slotsFor(threads));
    runInOrder(threads, {.read = [this](size_t slot) { return read(slot); },
                         .work = [this](size_t slot) { work(slot); },
                         .write = [this](size_t slot) { write(slot); }});
  }

 private:
  struct Item {
    size_t number = 0;
    size_t square = 0;
  };

  bool read(size_t slot) {
    if (next_ == readFailsAt) throw std::runtime_error("read");
    if (next_ == length_) return false;
    items_[slot] = {next_++, 0};
    most = std::max<size_t>(most, next_ - written.size());
    return true;
  }
  void work(size_t slot) {
    Item &item = items_[slot];
    if (item.number == workFailsAt) throw std::runtime_error("work");
    std::this_thread::sleep_for(std::chrono::microseconds(item.number * 7919 % 97));
    item.square = item.number * item.number;
  }
  void write(size_t slot) {
    if (items_[slot].number == writeFailsAt) throw std::runtime_error("write");
    written.push_back(items_[slot].square);
  }

  size_t length_, next_ = 0;
  std::vector<Item> items_;
};

std::vector<size_t> firstSquares(size_t count) {
  std::vector<size_t> squares(count);
  for (size_t i = 0; i < count; ++i) squares[i] = i * i;
  return squares;
}

class OrderedWorkOn : public testing::TestWithParam<unsigned> {};

TEST_P(OrderedWorkOn, WritesEverythingInOrder) {
  for (const size_t length : {0u, 1u, 2u, 5u, 500u}) {
    Squares squares(length);
    squares.run(GetParam());
    EXPECT_THAT(squares.written, ElementsAreArray(firstSquares(length)));
    EXPECT_LE(squares.most, slotsFor(GetParam()));
  }
}

TEST_P(OrderedWorkOn, AFailureComesInItsTurn) {
  for (const size_t at : {0u, 1u, 77u, 99u}) {
    Squares reading(100), working(100), writing(100);
    reading.readFailsAt = working.workFailsAt = writing.writeFailsAt = at;
    EXPECT_THROW(reading.run(GetParam()), std::runtime_error);
    EXPECT_THROW(working.run(GetParam()), std::runtime_error);
    EXPECT_THROW(writing.run(GetParam()), std::runtime_error);
    for (const Squares *const squares : {&reading, &working, &writing})
      EXPECT_THAT(squares->written, ElementsAreArray(firstSquares(at)));
  }
}

INSTANTIATE_TEST_SUITE_P(Threads, OrderedWorkOn, testing::Values(1u, 2u, 3u, 8u, kMostThreads));

TEST(OrderedWork, OtherThreadsHelp) {
  // Each of two items waits until the other one has begun: one thread alone would never finish.
  std::atomic<int> begun{0}, read{0}, written{0};
  runInOrder(2, {.read = [&](size_t) { return read++ < 2; },
                 .work =
                     [&](size_t) {
                       ++begun;
                       while (begun < 2) std::this_thread::yield();
                     },
                 .write = [&](size_t) { ++written; }});
  EXPECT_EQ(written, 2);
}

}  // namespace
}  // namespace qav::tool
