// A thousand converters, fed in turn by eight threads: each gives what it gives alone.
#include <atomic>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "include/qav.h"
#include "tests/endurance/expect.h"
#include "tests/support/one_in.h"

namespace {

constexpr uint32_t kThreads = 8, kRounds = 4;
constexpr uint32_t kBlockBytes = 4608;

struct Job {
  QAV_Handle *encoder = nullptr, *decoder = nullptr;
  std::vector<uint8_t> pcm, decoded;
};

Job makeJob(uint32_t number) {
  Job job;
  EXPECT(QAV_createHandle(&job.encoder) == QAV_OK && QAV_createHandle(&job.decoder) == QAV_OK);
  const uint32_t items[][2] = {{QAV_ITEM_OUT_FORMAT, QAV_FORMAT_LAYER2},
                               {QAV_ITEM_IN_FREQ_HZ, number % 3 == 0   ? 44100u
                                                     : number % 3 == 1 ? 48000u
                                                                       : 24000u},
                               {QAV_ITEM_OUT_FREQ_HZ, number % 3 == 0 ? 44100u : 48000u},
                               {QAV_ITEM_KBPS, number % 2 == 0 ? 192u : 96u},
                               {QAV_ITEM_ERROR_PROTECTION, number % 2}};
  for (const auto &item : items) EXPECT(QAV_setConfigure(job.encoder, item[0], item[1]) == QAV_OK);
  EXPECT(QAV_setConfigure(job.decoder, QAV_ITEM_IN_FORMAT, QAV_FORMAT_MPEG) == QAV_OK);
  EXPECT(QAV_detectConfigure(job.encoder) == QAV_OK && QAV_detectConfigure(job.decoder) == QAV_OK);
  return job;
}

// One block of the job's own signal.
void feed(Job &job, uint32_t number, uint32_t round) {
  std::vector<uint8_t> in(kBlockBytes);
  uint32_t random = number % 10 * 7919 + round;
  for (uint8_t &b : in) b = uint8_t((random = random * 1664525u + 1013904223u) >> 24);
  std::vector<uint8_t> stream(QAV_ENCODE_OUT_BYTES(kBlockBytes, 24000, 48000));
  std::vector<uint8_t> out(QAV_DECODE_OUT_BYTES(stream.size()));
  uint32_t n = 0, m = 0;
  EXPECT(QAV_convert(job.encoder, in.data(), kBlockBytes, stream.data(), &n) == QAV_OK);
  EXPECT(QAV_convert(job.decoder, stream.data(), n, out.data(), &m) == QAV_OK);
  job.decoded.insert(job.decoded.end(), out.begin(), out.begin() + m);
}

void finish(Job &job) { EXPECT(QAV_deleteHandle(job.encoder) == QAV_OK && QAV_deleteHandle(job.decoder) == QAV_OK); }

}  // namespace

int main() {
  const uint32_t handles = 1000 / qav::test::oneIn();
  constexpr uint32_t kDistinct = 30;  // signals repeat after 10, settings after 6
  std::vector<std::vector<uint8_t>> expected;
  for (uint32_t number = 0; number < kDistinct; ++number) {
    Job job = makeJob(number);
    for (uint32_t round = 0; round < kRounds; ++round) feed(job, number, round);
    finish(job);
    EXPECT(job.decoded.size() >= kBlockBytes);
    expected.push_back(std::move(job.decoded));
  }
  EXPECT(expected[0] != expected[1]);

  std::vector<Job> jobs(handles);
  for (uint32_t number = 0; number < handles; ++number) jobs[number] = makeJob(number);
  // A handle goes from thread to thread, but never to two at once.
  for (uint32_t round = 0; round < kRounds; ++round) {
    std::atomic<uint32_t> next = 0;
    std::vector<std::thread> threads;
    for (uint32_t t = 0; t < kThreads; ++t)
      threads.emplace_back([&] {
        for (uint32_t number = next++; number < handles; number = next++) feed(jobs[number], number, round);
      });
    for (std::thread &thread : threads) thread.join();
  }
  for (uint32_t number = 0; number < handles; ++number) {
    EXPECT(jobs[number].decoded == expected[number % kDistinct]);
    finish(jobs[number]);
  }
  std::printf("%u converters of each kind on %u threads, %u blocks each\n", unsigned(handles), unsigned(kThreads),
              unsigned(kRounds));
  return 0;
}
