// Runs a fuzz target without a fuzzer: over every file of the folders it is given, then over random changes of them.
//
//   replay_TARGET [--seconds N] [--seed N] FOLDER...
//
// An input that stops the target is left behind as finding-TARGET in the working folder.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "fuzz/fuzz.h"

extern "C" __attribute__((weak)) void __sanitizer_set_death_callback(void (*callback)());

namespace {

using qav::fuzz::Bytes;
namespace fs = std::filesystem;

constexpr size_t kLongestInput = 1 << 16;

std::string finding;         // name of the file for an input that stops the target
const Bytes *now = nullptr;  // the input in work

void leaveFinding() {
  if (now == nullptr) return;
  const int file = open(finding.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (file < 0) return;
  const ssize_t written = write(file, now->data(), now->size());
  static_cast<void>(written);
  close(file);
}

void onSignal(int signal) {
  leaveFinding();
  std::signal(signal, SIG_DFL);
  raise(signal);
}

void run(const Bytes &input) {
  now = &input;
  const qav::fuzz::Block<uint8_t> exact(input);
  LLVMFuzzerTestOneInput(exact.data(), exact.size());
  now = nullptr;
}

Bytes readFile(const fs::path &path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), {});
}

class Mutator {
 public:
  explicit Mutator(uint32_t seed) : random(seed) {}

  Bytes change(const std::vector<Bytes> &corpus) {
    Bytes b = corpus[pick(corpus.size())];
    for (size_t rounds = 1 + pick(8); rounds > 0; --rounds) {
      const size_t at = pick(b.size() + 1);
      const size_t n = std::min(b.size() - at, size_t(1) << pick(9));
      const auto from = b.begin() + ptrdiff_t(at);
      switch (pick(7)) {
        case 0:
          if (at < b.size()) b[at] ^= uint8_t(1u << pick(8));
          break;
        case 1:
          if (at < b.size()) b[at] = uint8_t(random());
          break;
        case 2: {
          static constexpr uint8_t kTelling[] = {0x00, 0x01, 0x7F, 0x80, 0xFE, 0xFF, 0xFC, 0xFD};
          for (size_t i = at; i < std::min(b.size(), at + 1 + pick(4)); ++i) b[i] = kTelling[pick(sizeof kTelling)];
          break;
        }
        case 3: b.erase(from, from + ptrdiff_t(n)); break;
        case 4: {
          const Bytes piece(from, from + ptrdiff_t(n));
          if (b.size() + n <= kLongestInput)
            b.insert(b.begin() + ptrdiff_t(pick(b.size() + 1)), piece.begin(), piece.end());
          break;
        }
        case 5: {
          const Bytes &other = corpus[pick(corpus.size())];
          const size_t start = pick(other.size() + 1);
          const size_t length = std::min(other.size() - start, kLongestInput - std::min(kLongestInput, at));
          b.resize(at);
          b.insert(b.end(), other.begin() + ptrdiff_t(start), other.begin() + ptrdiff_t(start + length));
          break;
        }
        default:
          if (n <= 16)
            for (size_t i = at; i < at + n; ++i) b[i] = uint8_t(random());
      }
    }
    return b;
  }

 private:
  size_t pick(size_t n) { return n == 0 ? 0 : random() % n; }
  std::mt19937 random;
};

}  // namespace

int main(int argc, char **argv) {
  finding = "finding-" + fs::path(argv[0]).filename().string();
  if (__sanitizer_set_death_callback != nullptr) __sanitizer_set_death_callback(leaveFinding);
  for (const int signal : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGALRM}) std::signal(signal, onSignal);

  double seconds = 0;
  uint32_t seed = 1;
  std::vector<fs::path> files;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--seconds" && i + 1 < argc) {
      seconds = std::atof(argv[++i]);
    } else if (argument == "--seed" && i + 1 < argc) {
      seed = uint32_t(std::atoll(argv[++i]));
    } else if (fs::is_directory(argument)) {
      for (const auto &entry : fs::directory_iterator(argument)) files.push_back(entry.path());
    } else if (fs::exists(argument)) {
      files.emplace_back(argument);
    }
  }
  std::sort(files.begin(), files.end());

  constexpr unsigned kPatience = 120;  // seconds; an input takes milliseconds
  std::vector<Bytes> corpus = {Bytes()};
  for (const fs::path &file : files) {
    corpus.push_back(readFile(file));
    alarm(kPatience);
    run(corpus.back());
  }
  if (corpus.size() == 1) {
    std::fprintf(stderr, "nothing to replay\n");
    return 1;
  }

  Mutator mutator(seed);
  const auto start = std::chrono::steady_clock::now();
  const auto passed = [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(); };
  size_t runs = 0;
  for (; passed() < seconds; ++runs) {
    alarm(kPatience);
    run(mutator.change(corpus));
  }
  alarm(0);
  std::printf("%zu inputs replayed, %zu changes of them in %.0f s with seed %u\n", files.size(), runs, seconds,
              unsigned(seed));
  return 0;
}
