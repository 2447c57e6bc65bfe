#include "tools/threads/stage_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace qav::tool {
namespace {

using testing::ElementsAreArray;

// The numbers 0 .. length - 1, each summed up with those before by one stage and negated by the next.
class Sums {
 public:
  explicit Sums(int length) : length_(length) {}

  int readFailsAt = -1, sumFailsAt = -1;
  std::atomic<int> mostAtOnce{0};  // calls of one stage

  std::vector<int> run(unsigned threads) {
    std::vector<int> results;
    StageLine line(
        {.read = [this](size_t slot) { return read(slots_[slot]); },
         .stages = {[this](size_t slot) { sum(slots_[slot]); }, [this](size_t slot) { negate(slots_[slot]); }}},
        kSlots, threads);
    try {
      while (results.size() < static_cast<size_t>(length_)) {
        const int own = slots_[line.next()];
        pause(results.size());
        results.push_back(own);
      }
    } catch (const std::runtime_error &error) {
      failure = error.what();
    }
    return results;
  }

  std::string failure;

 private:
  static constexpr size_t kSlots = 4;

  static void pause(size_t seed) { std::this_thread::sleep_for(std::chrono::microseconds(seed * 7919 % 97)); }

  class Inside {
   public:
    Inside(std::atomic<int> &count, std::atomic<int> &most) : count_(count) { most = std::max<int>(most, ++count_); }
    ~Inside() { --count_; }

   private:
    std::atomic<int> &count_;
  };

  bool read(int &own) {
    const Inside inside(reading_, mostAtOnce);
    if (next_ == readFailsAt) throw std::runtime_error("read");
    own = next_++;
    return next_ < length_;
  }
  void sum(int &own) {
    const Inside inside(summing_, mostAtOnce);
    if (own == sumFailsAt) throw std::runtime_error("sum");
    pause(static_cast<size_t>(own));
    own = sum_ += own;
  }
  void negate(int &own) {
    const Inside inside(negating_, mostAtOnce);
    own = -own;
  }

  int length_, next_ = 0, sum_ = 0;
  std::atomic<int> reading_{0}, summing_{0}, negating_{0};
  int slots_[kSlots] = {};
};

std::vector<int> negatedSums(int length) {
  std::vector<int> sums(static_cast<size_t>(length));
  for (int i = 0, sum = 0; i < length; ++i) sums[static_cast<size_t>(i)] = -(sum += i);
  return sums;
}

TEST(StageLine, EveryStageTakesAllItemsInTheirOrder) {
  for (const unsigned threads : {1u, 2u, 3u, 8u})
    for (const int length : {1, 3, 4, 5, 300}) {
      Sums sums(length);
      EXPECT_THAT(sums.run(threads), ElementsAreArray(negatedSums(length))) << threads << " " << length;
      EXPECT_EQ(sums.mostAtOnce, 1);
      EXPECT_EQ(sums.failure, "");
    }
}

TEST(StageLine, AFailureComesWhenItIsTheItemsTurn) {
  for (const unsigned threads : {1u, 2u, 8u})
    for (const int at : {0, 1, 50}) {
      Sums reading(100), summing(100);
      reading.readFailsAt = summing.sumFailsAt = at;
      EXPECT_THAT(reading.run(threads), ElementsAreArray(negatedSums(at)));
      EXPECT_EQ(reading.failure, "read");
      EXPECT_THAT(summing.run(threads), ElementsAreArray(negatedSums(at)));
      EXPECT_EQ(summing.failure, "sum");
    }
}

TEST(StageLine, StagesWorkAtTheSameTime) {
  // Each stage waits until the other one has an item too.
  std::atomic<bool> first{false}, second{false};
  const auto meet = [](std::atomic<bool> &own, std::atomic<bool> &other) {
    own = true;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!other && std::chrono::steady_clock::now() < end) std::this_thread::yield();
    EXPECT_TRUE(other);
  };
  int read = 0;
  StageLine line({.read =
                      [&](size_t) {
                        if (read++ == 1) meet(first, second);
                        return read < 2;
                      },
                  .stages = {[&](size_t) { meet(second, first); }}},
                 3, 2);
  line.next();
  line.next();
}

TEST(StageLine, MayBeLeftBeforeTheEnd) {
  for (const unsigned threads : {1u, 2u, 8u}) {
    int read = 0;
    {
      StageLine line({.read = [&](size_t) { return ++read > 0; }, .stages = {[](size_t) {}}}, 3, threads);
      line.next();
      line.next();
    }
    EXPECT_GE(read, 2);
    EXPECT_LE(read, 1 + 3);  // one slot was given back
  }
}

}  // namespace
}  // namespace qav::tool
