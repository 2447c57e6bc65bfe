#include "tools/stream/frame_shift.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <functional>
#include <optional>
#include <string_view>
#include <system_error>
#include <vector>

#include "tools/io/failure.h"
#include "tools/stream/mpeg_input.h"

namespace qav::tool {

namespace {

constexpr size_t kRunFrames = 8;
constexpr size_t kFirstFrames = 64;

struct NumberedFrame {
  uint64_t number;
  size_t hash;  // of its bytes
};

class FrameHashes {
 public:
  explicit FrameHashes(const std::string &file) : input_(file, {.verifyChecks = false}) {}

  std::optional<NumberedFrame> next() {
    while (!ended_) {
      const Event &event = input_.next();
      ended_ = std::holds_alternative<EndEvent>(event);
      if (const auto *frame = std::get_if<FrameEvent>(&event)) {
        const std::string_view bytes(reinterpret_cast<const char *>(frame->data), frame->header.frameBytes);
        return NumberedFrame{frame->place.frame, std::hash<std::string_view>()(bytes)};
      }
    }
    return std::nullopt;
  }

 private:
  MpegInput input_;
  bool ended_ = false;
};

// The last frames, as long as none is missing between them.
class FrameRun {
 public:
  void add(const NumberedFrame &frame) {
    if (count_ > 0 && frame.number != end_) count_ = 0;
    std::shift_left(hashes_.begin(), hashes_.end(), 1);
    hashes_.back() = frame.hash;
    end_ = frame.number + 1;
    ++count_;
  }

  bool isWhole() const { return count_ >= kRunFrames; }
  uint64_t first() const { return end_ - kRunFrames; }
  uint64_t end() const { return end_; }
  // Frames of silence are all alike and tell nothing.
  bool isTelling() const { return isWhole() && std::adjacent_find(hashes_.begin(), hashes_.end()) == hashes_.end(); }
  bool isLike(const FrameRun &other) const { return isWhole() && hashes_ == other.hashes_; }

 private:
  std::array<size_t, kRunFrames> hashes_{};
  size_t count_ = 0;
  uint64_t end_ = 0;
};

// A stream up to its first run that tells something.
struct Beginning {
  std::vector<NumberedFrame> frames;
  std::optional<FrameRun> run;
};

Beginning beginningOf(const std::string &file) {
  Beginning beginning;
  FrameHashes hashes(file);
  FrameRun run;
  while (!beginning.run || beginning.frames.size() < kFirstFrames) {
    const auto frame = hashes.next();
    if (!frame) break;
    beginning.frames.push_back(*frame);
    run.add(*frame);
    if (!beginning.run && run.isTelling()) beginning.run = run;
  }
  return beginning;
}

// Whether some frame of the run of `a` has the same number in `b`. The first one may be the last of a silence.
bool agreeAsNumbered(const Beginning &a, const Beginning &b) {
  return std::any_of(a.frames.begin(), a.frames.end(), [&](const NumberedFrame &frame) {
    if (frame.number <= a.run->first() || frame.number >= a.run->end()) return false;
    const auto at = std::lower_bound(b.frames.begin(), b.frames.end(), frame.number,
                                     [](const NumberedFrame &one, uint64_t number) { return one.number < number; });
    return at != b.frames.end() && at->number == frame.number && at->hash == frame.hash;
  });
}

std::optional<uint64_t> find(const FrameRun &run, const std::string &file) {
  FrameHashes hashes(file);
  FrameRun last;
  while (const auto frame = hashes.next()) {
    last.add(*frame);
    if (last.isLike(run)) return last.first();
  }
  return std::nullopt;
}

bool canBeReadTwice(const std::string &file) {
  std::error_code error;
  return file != "-" && std::filesystem::is_regular_file(file, error);
}

}  // namespace

int64_t findFrameShift(const std::string &a, const std::string &b) {
  if (!canBeReadTwice(a) || !canBeReadTwice(b)) return 0;
  try {
    const Beginning ofA = beginningOf(a), ofB = beginningOf(b);
    if (!ofA.run || !ofB.run || agreeAsNumbered(ofA, ofB)) return 0;
    if (const auto place = find(*ofB.run, a)) return static_cast<int64_t>(*place - ofB.run->first());
    if (const auto place = find(*ofA.run, b)) return static_cast<int64_t>(ofA.run->first() - *place);
  } catch (const Failure &) {
    // Whoever compares the streams will meet it again.
  }
  return 0;
}

}  // namespace qav::tool
