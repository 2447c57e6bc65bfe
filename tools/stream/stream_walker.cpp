#include "tools/stream/stream_walker.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "tools/io/message.h"
#include "tools/stream/foreign_stream.h"

namespace qav::tool {

namespace {

// Every decision sees this far ahead, or to the end: two longest frames, a header and a tag behind them, or four frames
// of Layer III or free format.
constexpr size_t kSight = size_t{16} * 1024;
// What hunting looks at from a position.
constexpr size_t kHuntSight = size_t{8} * 1024;
static_assert(kHuntSight >= 2 * QAV_MAX_FRAME_BYTES + kTagSightBytes && kHuntSight >= 4 * 2048 - 1);

// Recognising free format costs much; garbage made to look like it must not slow the walk down.
constexpr uint64_t kForeignTries = 1000;

constexpr size_t kNowhere = SIZE_MAX;

constexpr const char *kDamagedHeader = "the header is damaged";
constexpr const char *kGarbage = "bytes that are no MPEG audio";

}  // namespace

StreamWalker::StreamWalker(ByteSource &source, Options options) : options_(options), window_(source) {
  queue_.reserve(8);
}

const Event &StreamWalker::next() {
  if (given_ == queue_.size()) {
    if (state_ == State::ended && !queue_.empty()) return queue_.back();
    window_.consume(std::exchange(pending_, 0));
    queue_.clear();
    given_ = 0;
    while (queue_.empty()) {
      window_.fill(kSight);
      step();
    }
  }
  return queue_[given_++];
}

void StreamWalker::step() {
  switch (state_) {
    case State::start: return begin();
    case State::inStep: return stepInStep();
    case State::hunting: return stepHunting();
    case State::trailer: return stepTrailer();
    case State::ended: return;
  }
}

Place StreamWalker::here(uint64_t ahead) const {
  const double seconds = last_ ? static_cast<double>(samples_) / last_->freqHz : 0.0;
  return {frame_, window_.offset() + ahead, secondsBefore_ + seconds};
}

// ------------------------------------------------------------------------------------------------ looking ahead ----

bool StreamWalker::headerAt(size_t at, FrameHeader &header) {
  return at + kHeaderBytes <= window_.visible() && parser_.parse(window_.data() + at, header);
}

// A tag whose three letters could be chance is trusted where something that belongs to a stream follows it.
TagStart StreamWalker::trustedTagAt(size_t at) {
  if (at >= window_.visible()) return {TagKind::id3v2, 0};
  const uint8_t *const data = window_.data();
  const size_t visible = window_.visible();
  const uint8_t first = data[at];
  if (first != 'I' && first != 'T' && first != 'A') return {TagKind::id3v2, 0};
  const TagStart tag = tagAt(data + at, visible - at);
  if (tag.bytes == 0 || tag.kind != TagKind::id3v1) return tag;
  const size_t behind = at + static_cast<size_t>(tag.bytes);
  FrameHeader header;
  const bool trusted = behind == visible ? window_.isEnd()
                                         : headerAt(behind, header) || tagAt(data + behind, visible - behind).bytes > 0;
  return trusted ? tag : TagStart{TagKind::id3v1, 0};
}

bool StreamWalker::streamEndsAt(size_t at) {
  return (at == window_.visible() && window_.isEnd()) || trustedTagAt(at).bytes > 0;
}

// Whether what stands at `at` fits behind a frame like `from`: its stream goes on, or ends there.
bool StreamWalker::leadsOn(size_t at, const FrameHeader &from) {
  FrameHeader header;
  return streamEndsAt(at) || (headerAt(at, header) && sameFormatAndChannels(from, header));
}

// A header that the next one, or the end of the stream, confirms.
bool StreamWalker::confirmedAt(size_t at, FrameHeader &header) {
  return headerAt(at, header) && leadsOn(at + header.frameBytes, header);
}

// Where inside a frame of this length another confirmed header or a tag begins; kNowhere: nothing does.
size_t StreamWalker::nextStreamInside(size_t frameBytes) {
  const size_t end = std::min(frameBytes, window_.visible());
  FrameHeader header;
  for (size_t at = 1; at < end; ++at)
    if (confirmedAt(at, header) || trustedTagAt(at).bytes > 0) return at;
  return kNowhere;
}

// Whether the last 1 to 3 bytes of the input could begin a frame like the one before.
bool StreamWalker::looksLikeCutHeader(size_t bytes) {
  const uint8_t *const data = window_.data();
  const uint8_t versionAndLayer =
      static_cast<uint8_t>(0xF0 | (last_->version == 1 ? 8 : 0) | (last_->layer == 1 ? 6 : 4));
  if (data[0] != 0xFF) return false;
  return bytes < 2 || (data[1] & 0xFE) == versionAndLayer;
}

// --------------------------------------------------------------------------------------------------- the states ----

// Tags, then perhaps a RIFF file, then perhaps more tags, then the first frame.
void StreamWalker::begin() {
  if (const TagStart tag = trustedTagAt(0); tag.bytes > 0) return takeTag(tag);
  if (!container_ && isRiffWave(window_.data(), window_.visible())) {
    const Place start = here();
    container_ = readRiffHead(window_, options_.keep);
    if (!container_) {
      window_.skip(UINT64_MAX);  // there is nothing to be found in what is left
      queue_.push_back(DamageEvent{start, DamageKind::truncated, window_.offset() - start.offset, 0, 0,
                                   "the RIFF file ends before its data chunk"});
      container_ = RiffContainer{};
      state_ = State::trailer;
      return;
    }
    if (container_->dataBytes) window_.setEnd(container_->dataOffset + *container_->dataBytes);
    queue_.push_back(ContainerEvent{*container_});
    return;
  }
  // The very first header may count although the second one is damaged: its own length leads over that one.
  FrameHeader first, third;
  if (headerAt(0, first) && first.frameBytes <= window_.visible() && !leadsOn(first.frameBytes, first))
    for (const bool padding : {false, true})
      if (confirmedAt(first.frameBytes + frameBytesLike(first, padding), third) && sameFormatAndChannels(first, third))
        return takeFrame(first);
  startHunting();
}

void StreamWalker::stepInStep() {
  const size_t visible = window_.visible();
  if (visible == 0) {
    state_ = State::trailer;
    return;
  }
  if (const TagStart tag = trustedTagAt(0); tag.bytes > 0) return takeTag(tag);

  FrameHeader own;
  if (headerAt(0, own)) {
    const bool isWhole = own.frameBytes <= visible;
    if (isWhole && leadsOn(own.frameBytes, own) && !isContradicted(own)) return takeFrame(own);
    if (sameFormat(*last_, own)) return judgeFrameThatLeadsNowhere(own);
  }
  if (visible < kHeaderBytes && looksLikeCutHeader(visible)) return takeCutFrame(visible);
  if (takeDamagedHeader(nullptr)) return;
  startHunting();
}

// A header in step that leads nowhere, or where it should not.
void StreamWalker::judgeFrameThatLeadsNowhere(const FrameHeader &own) {
  const size_t visible = window_.visible();
  const bool isWhole = own.frameBytes <= visible;
  const bool hasUsualChannels = own.channels == last_->channels;
  if (isWhole && !hasUsualChannels && leadsOn(own.frameBytes, *last_))
    return takeLostFrame(DamageKind::lostSync, own.frameBytes, kDamagedHeader);
  FrameHeader other;
  if (isWhole && hasUsualChannels && confirmedAt(own.frameBytes, other) && !sameFormatAndChannels(own, other))
    return takeFrame(own);  // a stream of another format begins behind it
  if (!isProven(own) && takeDamagedHeader(&own)) return;
  if (const size_t inside = nextStreamInside(own.frameBytes); inside != kNowhere) {
    const TagStart tag = trustedTagAt(inside);
    if (tag.bytes > 0 && tag.kind != TagKind::id3v2) return takeCutFrame(inside);
    return takeLostFrame(
        DamageKind::missingBytes, inside,
        fmt::format("{} of {} are missing from the frame", own.frameBytes - inside, counted(own.frameBytes, "byte")));
  }
  if (!isWhole) return takeCutFrame(visible);
  if (hasUsualChannels) return takeFrame(own);
  startHunting();
}

// The check word covers most of the header.
bool StreamWalker::isProven(const FrameHeader &own) const {
  return own.frameBytes <= window_.visible() && verifyCheckWord(window_.data(), own) == Check::good;
}

// Whether a header in step that leads on is wrong all the same.
bool StreamWalker::isContradicted(const FrameHeader &own) {
  const size_t end = own.frameBytes;
  // A tag at the end of the input belongs to no frame: a frame cut by exactly the tag's length seems whole.
  constexpr size_t kId3v1Bytes = 128;
  if (end == window_.visible() && window_.isEnd() &&
      trustedTagAt(end - std::min(end, kId3v1Bytes)).bytes == kId3v1Bytes)
    return true;
  FrameHeader inside;
  if (sameFormatAndChannels(*last_, own)) {
    // Damaged into a multiple of the true bitrate, it leads over the good frame behind its own.
    if (own.kbps <= last_->kbps || isProven(own)) return false;
    for (const bool padding : {false, true})
      if (confirmedAt(frameBytesLike(*last_, padding), inside) && sameFormatAndChannels(*last_, inside)) return true;
    return false;
  }
  // One last frame of another format, of just the length of its neighbours.
  return streamEndsAt(end) && (end == frameBytesLike(*last_, false) || end == frameBytesLike(*last_, true)) &&
         !isProven(own);
}

// Where the length of a neighbour leads from here to a good header, the header here is damaged. `own` is what this
// header says, if anything.
bool StreamWalker::takeDamagedHeader(const FrameHeader *own) {
  for (const bool padding : {last_->padding, !last_->padding}) {
    if (padding != last_->padding && !usesPadding(*last_)) continue;
    const size_t length = frameBytesLike(*last_, padding);
    if (length > window_.visible() || !leadsOn(length, *last_)) continue;
    if (own && own->frameBytes == length) continue;
    if (!own && nextStreamInside(length) != kNowhere) continue;  // some bytes inserted before a good header
    // A frame of the usual bitrate whose stream ends one byte early is cut.
    if (own && own->kbps == last_->kbps && streamEndsAt(length)) continue;
    takeLostFrame(DamageKind::lostSync, length, kDamagedHeader);
    return true;
  }
  // The neighbour behind, of another bitrate: its own length leads back to here.
  for (size_t at = kHeaderBytes; at <= QAV_MAX_FRAME_BYTES; ++at) {
    FrameHeader header;
    if (!headerAt(at, header) || !sameFormatAndChannels(*last_, header)) continue;
    if (at != frameBytesLike(header, false) && !(usesPadding(header) && at == frameBytesLike(header, true))) continue;
    if ((own && own->frameBytes == at) || !leadsOn(at + header.frameBytes, header)) continue;
    if (!own && nextStreamInside(at) != kNowhere) continue;
    takeLostFrame(DamageKind::lostSync, at, kDamagedHeader);
    return true;
  }
  return false;
}

void StreamWalker::startHunting() {
  damageStart_ = here();
  foreignNamed_ = false;
  state_ = State::hunting;
}

void StreamWalker::stepHunting() {
  const size_t visible = window_.visible();
  const bool isEnd = window_.isEnd();
  const size_t stop = isEnd ? visible : visible - kHuntSight;
  const uint8_t *const data = window_.data();
  for (size_t at = 0; at < stop; ++at) {
    const uint8_t byte = data[at];
    if (byte == 0xFF) {
      FrameHeader header;
      if (confirmedAt(at, header)) {
        window_.consume(at);
        endHunting();
        return takeFrame(header);
      }
      if (!foreignNamed_ && foreignTries_ < kForeignTries && at + 1 < visible && (data[at + 1] & 0xE0) == 0xE0) {
        ++foreignTries_;
        if (const char *const name = foreignStreamAt(data + at, visible - at, isEnd)) {
          foreignNamed_ = true;
          queue_.push_back(ForeignEvent{here(at), name});
          window_.consume(at);
          return;
        }
      }
    } else if (byte == 'A' && claimApeItems(at)) {
      return;
    } else if (const TagStart tag = trustedTagAt(at); tag.bytes > 0) {
      window_.consume(at);
      endHunting();
      return takeTag(tag);
    }
  }
  window_.consume(stop);
  if (isEnd) {
    endHunting();
    state_ = State::trailer;
  }
}

// An APE tag without a header is recognised by its footer; its items lie in what looked like garbage until here.
bool StreamWalker::claimApeItems(size_t at) {
  const uint64_t bytes = apeFooterAt(window_.data() + at, window_.visible() - at);
  if (bytes == 0) return false;
  const uint64_t end = window_.offset() + at + 32;
  if (end - damageStart_.offset < bytes) return false;
  window_.consume(at + 32);
  Place tagPlace = damageStart_;
  tagPlace.offset = end - bytes;
  if (const uint64_t garbage = tagPlace.offset - damageStart_.offset; garbage > 0)
    queue_.push_back(DamageEvent{damageStart_, DamageKind::lostSync, garbage, 0, 0, kGarbage});
  queue_.push_back(TagEvent{tagPlace, TagKind::ape, bytes});
  state_ = last_ ? State::inStep : State::start;
  return true;
}

// How many frames like the last one fill this many bytes exactly, but for their padding slots; 0: none do.
uint64_t StreamWalker::framesThatFit(uint64_t bytes) const {
  if (!last_ || bytes == 0) return 0;
  const double slot = last_->layer == 1 ? 4.0 : 1.0;
  const double mean = (last_->layer == 1 ? 48000.0 : 144000.0) * last_->kbps / last_->freqHz;
  const double frames = std::round(static_cast<double>(bytes) / mean);
  return std::fabs(static_cast<double>(bytes) - frames * mean) <= slot ? static_cast<uint64_t>(frames) : 0;
}

void StreamWalker::countLost(uint64_t frames) {
  frame_ += frames;
  if (last_) samples_ += frames * last_->frameSamples;
}

void StreamWalker::endHunting() {
  const uint64_t bytes = window_.offset() - damageStart_.offset;
  if (bytes == 0) return;
  const uint64_t frames = framesThatFit(bytes);
  queue_.push_back(
      DamageEvent{damageStart_, DamageKind::lostSync, bytes, frames, last_ ? frames * last_->frameSamples : 0,
                  frames > 0 ? fmt::format("{} destroyed", counted(frames, "frame")) : std::string(kGarbage)});
  countLost(frames);
}

// Behind the stream: the rest of a RIFF file, and what may follow that.
void StreamWalker::stepTrailer() {
  if (container_ && container_->dataBytes) {
    const uint64_t end = container_->dataOffset + *container_->dataBytes;
    container_->dataBytes.reset();  // it is dealt with
    if (window_.offset() < end) {
      queue_.push_back(DamageEvent{here(), DamageKind::truncated, 0, 0, 0,
                                   fmt::format("the data chunk is {} short", counted(end - window_.offset(), "byte"))});
    }
    window_.setEnd(std::nullopt);
    if ((end & 1) != 0) window_.skip(1);
    return;
  }
  const size_t visible = window_.visible();
  if (visible == 0) return finish();
  if (const TagStart tag = trustedTagAt(0); tag.bytes > 0) return takeTag(tag);
  const uint64_t chunk = container_ ? chunkBytesAt(window_.data(), visible) : 0;
  const Place place = here();
  const uint64_t bytes =
      chunk > 0 ? passChunk(window_, options_.keep, KeptChunks::Side::behindData) : window_.skip(UINT64_MAX);
  if (chunk == 0)
    queue_.push_back(DamageEvent{place, DamageKind::lostSync, bytes, 0, 0, kGarbage});
  else if (bytes + 1 < chunk)  // the padding byte of the last chunk is often left out
    queue_.push_back(DamageEvent{place, DamageKind::truncated, bytes, 0, 0, "the last chunk of the RIFF file is cut"});
}

void StreamWalker::finish() {
  queue_.push_back(EndEvent{here(), decodable_});
  state_ = State::ended;
}

// ---------------------------------------------------------------------------------------------- taking what is there ----

void StreamWalker::takeFrame(const FrameHeader &header) {
  if (last_ && !sameFormatAndChannels(*last_, header)) {
    queue_.push_back(FormatChangeEvent{here(), *last_, header});
    secondsBefore_ += static_cast<double>(samples_) / last_->freqHz;
    samples_ = 0;
  }
  last_ = header;
  noteOddities(header);
  const uint8_t *const data = window_.data();
  const Check check = options_.verifyChecks ? verifyCheckWord(data, header) : Check::none;
  queue_.push_back(FrameEvent{here(), header, data, check});
  pending_ = header.frameBytes;
  ++frame_;
  ++decodable_;
  samples_ += header.frameSamples;
  state_ = State::inStep;
}

void StreamWalker::takeTag(const TagStart &tag) {
  const Place place = here();
  const uint64_t bytes = window_.skip(tag.bytes);
  queue_.push_back(TagEvent{place, tag.kind, bytes});
  if (bytes < tag.bytes)
    queue_.push_back(
        DamageEvent{place, DamageKind::truncated, bytes, 0, 0,
                    fmt::format("the {} tag is cut: {} of {}", tagName(tag.kind), bytes, counted(tag.bytes, "byte"))});
  if (state_ == State::hunting) state_ = last_ ? State::inStep : State::start;
}

void StreamWalker::takeLostFrame(DamageKind kind, size_t bytes, std::string what) {
  queue_.push_back(DamageEvent{here(), kind, bytes, 1, last_->frameSamples, std::move(what)});
  countLost(1);
  window_.consume(bytes);
}

void StreamWalker::takeCutFrame(size_t bytes) {
  queue_.push_back(DamageEvent{here(), DamageKind::truncated, bytes, 0, 0,
                               fmt::format("the last frame is cut after {}", counted(bytes, "byte"))});
  ++frame_;
  window_.consume(bytes);
}

void StreamWalker::noteOddities(const FrameHeader &header) {
  const bool reserved = header.emphasis == 2;
  const bool illegal = isIllegalCombination(header);
  if (reserved && !emphasisNoted_)
    queue_.push_back(OddityEvent{here(), OddityEvent::Kind::reservedValue, "emphasis has its reserved value 2"});
  if (illegal && !combinationNoted_)
    queue_.push_back(OddityEvent{here(), OddityEvent::Kind::illegalCombination,
                                 fmt::format("Layer II at {} kbit/s is not allowed for {}", header.kbps,
                                             header.channels == 1 ? "one channel" : "two channels")});
  emphasisNoted_ = reserved;
  combinationNoted_ = illegal;
}

}  // namespace qav::tool
