// The tool's stream walker on any bytes: the same events however the input is cut, every byte accounted for once, frames
// that are what they are said to be, and no more steps than bytes.
#include "tools/stream/stream_walker.h"

#include <string>

#include "fuzz/fuzz.h"
#include "fuzz/memory_source.h"
#include "tools/stream/stream_report.h"

using namespace qav::fuzz;
using namespace qav::tool;

namespace {

struct Walk {
  std::vector<std::string> events;
  std::string report;
};

std::string text(const Place &place) {
  return std::to_string(place.frame) + "@" + std::to_string(place.offset) + "@" + std::to_string(place.seconds);
}

// One event as text, and how many bytes of the input it covers.
std::string text(const Event &event, uint64_t &bytes) {
  bytes = 0;
  if (const auto *e = std::get_if<FrameEvent>(&event)) {
    bytes = e->header.frameBytes;
    return "frame " + text(e->place) + " " + formatText(e->header) + " " + std::to_string(int(e->check));
  }
  if (const auto *e = std::get_if<DamageEvent>(&event)) {
    bytes = e->bytes;
    return "damage " + text(e->place) + " " + std::to_string(e->bytes) + " " + std::to_string(e->lostFrames) + " " +
           e->what;
  }
  if (const auto *e = std::get_if<TagEvent>(&event)) {
    bytes = e->bytes;
    return "tag " + text(e->place) + " " + std::to_string(e->bytes) + " " + tagName(e->kind);
  }
  if (const auto *e = std::get_if<FormatChangeEvent>(&event)) return "change " + text(e->place) + formatText(e->after);
  if (const auto *e = std::get_if<OddityEvent>(&event)) return "oddity " + text(e->place) + e->what;
  if (const auto *e = std::get_if<ForeignEvent>(&event)) return "foreign " + text(e->place) + e->name;
  if (const auto *e = std::get_if<ContainerEvent>(&event)) return "container " + std::to_string(e->riff.dataOffset);
  if (const auto *e = std::get_if<EndEvent>(&event)) return "end " + text(e->place) + std::to_string(e->decodable);
  FUZZ_CHECK(false);  // an event of no kind
}

Walk walk(const Bytes &input, const Bytes &cuts) {
  MemorySource source(input, cuts, cuts.empty());
  KeptChunks kept;
  StreamWalker walker(source, {.keep = &kept});
  StreamReport report;
  Walk result;
  uint64_t next = 0;  // the first byte that is not accounted for yet
  bool isContained = false;
  for (;;) {
    const Event &event = walker.next();
    report.observe(event);
    uint64_t bytes = 0;
    result.events.push_back(text(event, bytes));
    FUZZ_CHECK(result.events.size() <= 2 * input.size() + 16);
    if (std::holds_alternative<ContainerEvent>(event)) isContained = true;
    if (const auto *e = std::get_if<EndEvent>(&event)) {
      FUZZ_CHECK(e->place.offset == input.size());
      FUZZ_CHECK(isContained || next == input.size());
      break;
    }
    if (bytes > 0) {
      const Place place = std::visit(
          [](const auto &e) {
            if constexpr (requires { e.place; })
              return e.place;
            else
              return Place{};
          },
          event);
      FUZZ_CHECK(place.offset + bytes <= input.size());
      // Of a tag or chunk that is cut, damage is said besides: its bytes are accounted for already.
      const bool isSaidBesides = std::holds_alternative<DamageEvent>(event) && place.offset + bytes <= next;
      FUZZ_CHECK(isSaidBesides || (isContained ? place.offset >= next : place.offset == next));
      if (!isSaidBesides) next = place.offset + bytes;
      if (const auto *e = std::get_if<FrameEvent>(&event))
        FUZZ_CHECK(std::equal(e->data, e->data + bytes, input.begin() + ptrdiff_t(place.offset)));
    }
  }
  result.report = report.json(0).dump();
  for (const auto side : {KeptChunks::Side::beforeData, KeptChunks::Side::behindData}) {
    FUZZ_CHECK(kept.bytes(side) % 2 == 0 && kept.bytes(side) <= input.size() + 1);  // a cut chunk is padded
    result.report += ", kept " + std::to_string(kept.bytes(side));
  }
  return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in(data, size);
  const Bytes cuts = in.bytes(1 + in.byte() % 8);
  const Bytes input = in.rest();
  const Walk whole = walk(input, {}), cut = walk(input, cuts.empty() ? Bytes{0} : cuts);
  FUZZ_CHECK(whole.events == cut.events);
  FUZZ_CHECK(whole.report == cut.report);
  return 0;
}
