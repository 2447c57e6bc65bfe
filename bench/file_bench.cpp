// Whole files through the tool, against the library on the same frames in memory: what reading, finding the frames and
// writing add, and what a second thread spares.
#include <benchmark/benchmark.h>
#include <fcntl.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bench/bench.h"
#include "bench/fftw_unit.h"
#include "bench/report.h"
#include "bench/statistics.h"
#include "include/qav.h"

namespace qav::bench {
namespace {

constexpr int kRounds = 9;
constexpr int kTransforms = 20000;  // of the unit, before each run
constexpr uint32_t kFreqHz = 44100, kKbps = 192, kChannels = 2;
constexpr size_t kBlockFrames = 2297, kBlocks = 60;  // a minute, sixty times
constexpr size_t kFrameSamples = size_t(QAV_SAMPLES_PER_FRAME) * kChannels;
constexpr size_t kPcmBytes = kBlocks * kBlockFrames * kFrameSamples * sizeof(int16_t);

double seconds(clockid_t clock) {
  timespec now;
  clock_gettime(clock, &now);
  return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

double seconds(const timeval &time) { return double(time.tv_sec) + double(time.tv_usec) * 1e-6; }

[[noreturn]] void die(const std::string &what) {
  std::fprintf(stderr, "qav_bench: %s\n", what.c_str());
  std::exit(2);
}

// Seconds that something took: of the processors, and of the clock on the wall.
struct Took {
  double cpu, elapsed;
};

Took timed(const std::function<void()> &work) {
  const double cpu = seconds(CLOCK_PROCESS_CPUTIME_ID), start = seconds(CLOCK_MONOTONIC);
  work();
  return {seconds(CLOCK_PROCESS_CPUTIME_ID) - cpu, seconds(CLOCK_MONOTONIC) - start};
}

Took runTool(std::vector<std::string> words) {
  words.insert(words.begin(), QAV_TOOL);
  std::vector<char *> arguments;
  for (std::string &word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  const double start = seconds(CLOCK_MONOTONIC);
  const pid_t child = fork();
  if (child == 0) {
    execv(arguments[0], arguments.data());
    _exit(127);
  }
  int status = 0;
  rusage usage;
  if (child < 0 || wait4(child, &status, 0, &usage) != child || status != 0) die("the tool failed: " + words[1]);
  return {seconds(usage.ru_utime) + seconds(usage.ru_stime), seconds(CLOCK_MONOTONIC) - start};
}

// Chords that fade, over some noise.
std::vector<int16_t> music() {
  std::vector<int16_t> pcm(kBlockFrames * kFrameSamples);
  uint32_t noise = 1;
  for (size_t i = 0; i < pcm.size(); ++i) {
    const double t = double(i / kChannels) / kFreqHz, step = std::floor(t * 4), fade = std::exp(-3 * (t * 4 - step));
    const double pitch = 110.0 * std::exp2(std::fmod(step * 7, 24) / 12) * (1 + 0.01 * double(i % kChannels));
    double sum = 0;
    for (int k = 1; k <= 8; ++k) sum += std::sin(2 * M_PI * pitch * k * t) / k;
    noise = noise * 1664525 + 1013904223;
    pcm[i] = int16_t(7000 * fade * sum + double(noise >> 22) - 512);
  }
  return pcm;
}

struct TermEncoder {
  void operator()(EncoderSession *s) const { zo_mpeg_Encode1FrameTerm(s); }
};
struct TermDecoder {
  void operator()(DecoderSession *s) const { zo_mpeg_Decode1FrameTerm(s); }
};

// An hour of music as files, and a minute of it in memory.
class Hour {
 public:
  Hour() : pcm_(music()) {
    std::string pattern = (std::filesystem::temp_directory_path() / "qav-bench-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) die("no folder for temporary files");
    folder_ = pattern;
    writeWav();
    encodeFrames(1, [this](const uint8_t *frame, uint32_t bytes) {
      stream_.insert(stream_.end(), frame, frame + bytes);
      frameBytes_.push_back(bytes);
    });
    runTool({"encode", "-q", "-j", "1", wav(), "-o", mp2()});
  }
  ~Hour() { std::filesystem::remove_all(folder_); }
  Hour(const Hour &) = delete;
  Hour &operator=(const Hour &) = delete;

  std::string wav() const { return folder_ / "hour.wav"; }
  std::string mp2() const { return folder_ / "hour.mp2"; }
  std::string output() const { return folder_ / "output"; }

  // Taking back the space of an old output is no part of writing a new one.
  void removeOutput() const { std::filesystem::remove(output()); }

  void encodeFrames(size_t blocks, const std::function<void(const uint8_t *, uint32_t)> &take) const {
    EncoderSession *s = nullptr;
    zo_mpeg_Encode1FrameInit(&s, kFreqHz, kKbps, kChannels, nullptr);
    const std::unique_ptr<EncoderSession, TermEncoder> session(s);
    uint8_t frame[QAV_MAX_FRAME_BYTES + QAV_ENCODE_SLACK_BYTES];
    for (size_t i = 0; i < blocks * kBlockFrames; ++i) {
      uint32_t bytes = 0;
      zo_mpeg_Encode1Frame(s, pcm_.data() + i % kBlockFrames * kFrameSamples, QAV_SAMPLES_PER_FRAME, frame, &bytes);
      take(frame, bytes);
    }
  }

  void decodeFrames() const {
    DecoderSession *s = nullptr;
    zo_mpeg_Decode1FrameInit(&s);
    const std::unique_ptr<DecoderSession, TermDecoder> session(s);
    int16_t pcm[QAV_MAX_FRAME_PCM_BYTES / 2];
    for (size_t block = 0; block < kBlocks; ++block) {
      const uint8_t *frame = stream_.data();
      for (const uint32_t length : frameBytes_) {
        uint32_t bytes = 0, consumed = 0;
        zo_mpeg_Decode1Frame(s, frame, length, pcm, &bytes, &consumed);
        keep(pcm);
        frame += length;
      }
    }
  }

  // What the system alone takes to write and to read as many samples.
  void writeSamples() const { copy("/dev/zero", output(), O_WRONLY | O_CREAT | O_TRUNC); }
  void readSamples() const { copy(wav(), "/dev/null", O_WRONLY); }

 private:
  void copy(const std::string &from, const std::string &to, int flags) const {
    static uint8_t buffer[256 * 1024];
    const int in = open(from.c_str(), O_RDONLY), out = open(to.c_str(), flags, 0666);
    const bool reads = to == "/dev/null";
    for (size_t done = 0; done < kPcmBytes;) {
      const ssize_t n = reads ? read(in, buffer, sizeof buffer) : write(out, buffer, sizeof buffer);
      if (n <= 0) die("no room for temporary files");
      done += size_t(n);
    }
    close(in);
    close(out);
  }

  void writeWav() const {
    uint8_t header[44] = "RIFF\0\0\0\0WAVEfmt \20\0\0\0\1\0\2\0";
    const auto number = [&](size_t at, size_t value) {
      for (size_t i = 0; i < 4; ++i) header[at + i] = uint8_t(value >> (8 * i));
    };
    number(4, kPcmBytes + 36);
    number(24, kFreqHz);
    number(28, kFreqHz * 4);
    number(32, 16 << 16 | 4);
    std::copy_n("data", 4, header + 36);
    number(40, kPcmBytes);
    std::FILE *const file = std::fopen(wav().c_str(), "wb");
    if (file == nullptr) die("no room for temporary files");
    bool good = std::fwrite(header, sizeof header, 1, file) == 1;
    for (size_t block = 0; block < kBlocks; ++block)
      good = std::fwrite(pcm_.data(), sizeof(int16_t), pcm_.size(), file) == pcm_.size() && good;
    if (std::fclose(file) != 0 || !good) die("no room for temporary files");
  }

  std::filesystem::path folder_;
  std::vector<int16_t> pcm_;
  std::vector<uint8_t> stream_;
  std::vector<uint32_t> frameBytes_;
};

struct Task {
  std::string name;
  std::function<Took()> run;
  bool elapsed;  // whether that is told too
};

// The tasks take turns, so that what slows the machine down for a while slows all of them down.
void measureTasks(benchmark::State &state, const std::vector<Task> &tasks) {
  std::vector<std::vector<double>> cpu(tasks.size()), elapsed(tasks.size());
  std::vector<double> units;
  for (auto _ : state)
    for (size_t i = 0; i < tasks.size(); ++i) {
      units.push_back(timed([] { unit().measure(kTransforms); }).cpu / kTransforms);
      const Took took = tasks[i].run();
      cpu[i].push_back(took.cpu);
      elapsed[i].push_back(took.elapsed);
    }
  const double f = median(units);
  const auto tell = [&](const std::string &name, const std::vector<double> &times) {
    const double time = median(times);
    addFigure({name, time * 1e9, time / f, f * 1e9});
    state.counters[name] = time;
  };
  for (size_t i = 0; i < tasks.size(); ++i) {
    tell(tasks[i].name + ", CPU", cpu[i]);
    if (tasks[i].elapsed) tell(tasks[i].name + ", elapsed", elapsed[i]);
  }
}

bool addTasks(const char *name, std::vector<Task> (*tasksOf)(const Hour &)) {
  benchmark::RegisterBenchmark(name,
                               [tasksOf](benchmark::State &state) {
                                 const Hour hour;
                                 measureTasks(state, tasksOf(hour));
                               })
      ->Iterations(kRounds)
      ->Unit(benchmark::kSecond);
  return true;
}

QAV_BENCH = addTasks("an hour decoded", [](const Hour &hour) {
  const auto tool = [&hour](const char *jobs, bool toFile) {
    hour.removeOutput();
    return runTool({"decode", "-q", "-f", "-j", jobs, hour.mp2(), "-o", toFile ? hour.output() : "/dev/null"});
  };
  return std::vector<Task>{
      {"an hour's frames decoded", [&] { return timed([&] { hour.decodeFrames(); }); }, false},
      {"an hour's samples written",
       [&] {
         hour.removeOutput();
         return timed([&] { hour.writeSamples(); });
       },
       false},
      {"qav decode -j 1 to /dev/null, an hour", [=] { return tool("1", false); }, true},
      {"qav decode -j 2 to /dev/null, an hour", [=] { return tool("2", false); }, true},
      {"qav decode -j 1, an hour", [=] { return tool("1", true); }, true},
      {"qav decode -j 2, an hour", [=] { return tool("2", true); }, true},
  };
});

QAV_BENCH = addTasks("an hour encoded", [](const Hour &hour) {
  const auto tool = [&hour](const char *jobs) {
    hour.removeOutput();
    return runTool({"encode", "-q", "-f", "-j", jobs, hour.wav(), "-o", hour.output()});
  };
  return std::vector<Task>{
      {"an hour's frames encoded",
       [&] { return timed([&] { hour.encodeFrames(kBlocks, [](const uint8_t *frame, uint32_t) { keep(frame); }); }); },
       false},
      {"an hour's samples read", [&] { return timed([&] { hour.readSamples(); }); }, false},
      {"qav encode -j 1, an hour", [=] { return tool("1"); }, true},
      {"qav encode -j 2, an hour", [=] { return tool("2"); }, true},
  };
});

}  // namespace
}  // namespace qav::bench
