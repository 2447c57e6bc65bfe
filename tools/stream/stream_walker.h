// The stream walker: goes through an input from front to back and says what stands where.
//
// Every subcommand that reads MPEG audio uses it, so that all of them agree on which bytes are frames and which are
// damage, and count alike. It works in constant memory, from files and pipes, and its events do not depend on how the
// input is cut into blocks.
//
// The rules:
// - A header found by hunting counts when the next one stands where its length says, or the stream ends there. The very
//   first header of an input also counts when only the second one is damaged.
// - A frame in step (standing exactly where the one before it ended, same layer, version and rate) counts even when
//   garbage follows it. But when its header leads nowhere (or over a good frame) and
//     - the length of its neighbours leads to a good header: this header is damaged, one frame is lost;
//     - a good header or a tag stands inside the frame: the frame's bytes are missing, one frame is lost.
//   A right check word proves the header.
// - A change of bitrate is no change of format. A change of layer, version, rate or channels is, once the next header
//   confirms it.
// - A stream ends at the end of the input, at a tag, and at the end of the data chunk of a RIFF file.
// - Bytes that belong to no frame, no tag and no chunk of a RIFF file are damage wherever they stand.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "tools/io/byte_window.h"
#include "tools/riff/riff.h"
#include "tools/stream/check_word.h"
#include "tools/stream/frame_header.h"
#include "tools/stream/tags.h"

namespace qav::tool {

// Where something stands. Frames are counted from 0, lost ones included where it is known that they were there; bytes
// from the start of the input; time in seconds of audio from the first frame, lost frames of known place included.
struct Place {
  uint64_t frame = 0;
  uint64_t offset = 0;
  double seconds = 0;
};

struct FrameEvent {
  Place place;
  FrameHeader header;
  const uint8_t *data;  // header.frameBytes bytes, valid until the next call of next()
  Check check;          // none also when the walker does not verify
};

enum class DamageKind {
  lostSync,      // bytes that are no frame: a damaged header, garbage, or frames overwritten
  missingBytes,  // the frame is shorter than its header says: the next one, or a tag, begins inside it
  truncated,     // the input ends inside the last frame, or inside the chunk or tag that holds it
};

struct DamageEvent {
  Place place;
  DamageKind kind;
  uint64_t bytes;        // concerned, in the input
  uint64_t lostFrames;   // frames known to have stood here
  uint64_t lostSamples;  // per channel, of those frames
  std::string what;      // one phrase
};

// The input is a RIFF file: said before anything of the stream inside it.
struct ContainerEvent {
  RiffContainer riff;
};

struct TagEvent {
  Place place;
  TagKind kind;
  uint64_t bytes;
};

// A stream of another format begins; the first one's beginning is no change.
struct FormatChangeEvent {
  Place place;
  FrameHeader before;
  FrameHeader after;
};

// Something that plays but should not be; said where it begins.
struct OddityEvent {
  enum class Kind { reservedValue, illegalCombination };
  Place place;
  Kind kind;
  std::string what;
};

// MPEG audio that is not decoded begins here: Layer III, or free format. Its bytes are reported as damage all the same.
struct ForeignEvent {
  Place place;
  const char *name;
};

struct EndEvent {
  Place place;         // frames in all, bytes in all, time in all
  uint64_t decodable;  // FrameEvents given
};

using Event = std::variant<FrameEvent, DamageEvent, ContainerEvent, TagEvent, FormatChangeEvent, OddityEvent,
                           ForeignEvent, EndEvent>;

class StreamWalker {
 public:
  struct Options {
    bool verifyChecks = true;    // say in every FrameEvent whether the check word is right
    KeptChunks *keep = nullptr;  // takes the chunks of a RIFF file around its stream
  };

  explicit StreamWalker(ByteSource &source) : StreamWalker(source, Options{}) {}
  StreamWalker(ByteSource &source, Options options);

  // The next event; EndEvent for ever after the end. Throws Failure, Interrupted as the source does.
  const Event &next();

 private:
  enum class State { start, inStep, hunting, trailer, ended };

  void step();
  void begin();
  void stepInStep();
  void stepHunting();
  void stepTrailer();
  void finish();

  Place here(uint64_t ahead = 0) const;
  bool headerAt(size_t at, FrameHeader &header);
  bool leadsOn(size_t at, const FrameHeader &from);
  bool confirmedAt(size_t at, FrameHeader &header);
  bool streamEndsAt(size_t at);
  TagStart trustedTagAt(size_t at);
  void judgeFrameThatLeadsNowhere(const FrameHeader &own);
  bool isProven(const FrameHeader &own) const;
  bool isContradicted(const FrameHeader &own);
  bool takeDamagedHeader(const FrameHeader *own);
  size_t nextStreamInside(size_t frameBytes);
  bool looksLikeCutHeader(size_t bytes);

  void takeFrame(const FrameHeader &header);
  void takeTag(const TagStart &tag);
  void takeLostFrame(DamageKind kind, size_t bytes, std::string what);
  void takeCutFrame(size_t bytes);
  void startHunting();
  void endHunting();
  bool claimApeItems(size_t at);
  uint64_t framesThatFit(uint64_t bytes) const;
  void countLost(uint64_t frames);
  void noteOddities(const FrameHeader &header);

  Options options_;
  ByteWindow window_;
  HeaderParser parser_;
  State state_ = State::start;
  std::vector<Event> queue_;  // found at the current position, not yet given
  size_t given_ = 0;
  size_t pending_ = 0;  // bytes of the frame given last, still in the window

  std::optional<RiffContainer> container_;
  std::optional<FrameHeader> last_;  // frame accepted last
  uint64_t frame_ = 0;               // number of the next frame
  uint64_t decodable_ = 0;
  double secondsBefore_ = 0;   // of the stretches before the current one
  uint64_t samples_ = 0;       // of the current stretch
  Place damageStart_;          // while hunting
  bool foreignNamed_ = false;  // in this run of damage
  uint64_t foreignTries_ = 0;
  bool emphasisNoted_ = false;  // in the frames just before
  bool combinationNoted_ = false;
};

}  // namespace qav::tool
