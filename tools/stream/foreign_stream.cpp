#include "tools/stream/foreign_stream.h"

#include <algorithm>

namespace qav::tool {

namespace {

constexpr size_t kLongestFreeFrame = 2048;  // a free-format frame of a bitrate below the listed maximum is shorter
constexpr size_t kShortestFreeFrame = 24;

// The fields that stay the same from frame to frame: sync, version, layer; sampling rate.
bool sameKind(const uint8_t *a, const uint8_t *b) {
  return a[0] == b[0] && (a[1] & 0xFE) == (b[1] & 0xFE) && (a[2] & 0x0C) == (b[2] & 0x0C);
}

// 11 bits of sync; then the version: 3 MPEG-1, 2 MPEG-2, 0 the unofficial MPEG-2.5; then the layer code.
unsigned versionCode(const uint8_t *h) { return h[1] >> 3 & 3; }
unsigned layerCode(const uint8_t *h) { return h[1] >> 1 & 3; }
bool isHeader(const uint8_t *h) {
  return h[0] == 0xFF && (h[1] & 0xE0) == 0xE0 && versionCode(h) != 1 && layerCode(h) != 0 && (h[2] & 0xF0) != 0xF0 &&
         (h[2] & 0x0C) != 0x0C;
}

size_t layer3Bytes(const uint8_t *h) {
  static constexpr uint32_t kKbps1[15] = {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
  static constexpr uint32_t kKbps2[15] = {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};
  static constexpr uint32_t kFreqHz[3] = {44100, 48000, 32000};
  const unsigned version = versionCode(h);
  const uint32_t freqHz = kFreqHz[h[2] >> 2 & 3] >> (version == 3 ? 0 : version == 2 ? 1 : 2);
  const uint32_t kbps = (version == 3 ? kKbps1 : kKbps2)[h[2] >> 4];
  return (version == 3 ? 144000 : 72000) * kbps / freqHz + (h[2] >> 1 & 1);
}

bool isLayer3Run(const uint8_t *data, size_t visible, bool isEnd) {
  size_t at = 0;
  for (int frames = 1; frames <= 3; ++frames) {
    at += layer3Bytes(data + at);
    if (at == visible && isEnd) return true;
    if (at + 4 > visible || !isHeader(data + at) || !sameKind(data, data + at) || data[at + 2] >> 4 == 0) return false;
  }
  return true;
}

// Free format states no length: the distance to the next header repeats, but for the padding slot.
bool isFreeRun(const uint8_t *data, size_t visible) {
  const size_t slot = layerCode(data) == 3 ? 4 : 1;
  const auto isLike = [&](size_t at) {
    return at + 4 <= visible && isHeader(data + at) && sameKind(data, data + at) && data[at + 2] >> 4 == 0;
  };
  for (size_t distance = kShortestFreeFrame; distance <= kLongestFreeFrame; ++distance) {
    if (!isLike(distance)) continue;
    size_t at = distance;
    int frames = 1;
    for (bool found = true; found && frames < 4; frames += found ? 1 : 0) {
      found = false;
      for (const size_t step : {distance, distance + slot, distance - slot}) {
        if (isLike(at + step)) {
          at += step;
          found = true;
          break;
        }
      }
    }
    if (frames >= 3) return true;
  }
  return false;
}

}  // namespace

const char *foreignStreamAt(const uint8_t *data, size_t visible, bool isEnd) {
  if (visible < 4 || !isHeader(data)) return nullptr;
  const unsigned version = versionCode(data);
  const bool isFree = data[2] >> 4 == 0;
  if (isFree) {
    static constexpr const char *kNames[3][2] = {{"free-format MPEG-1 Layer I", "free-format MPEG-2 Layer I"},
                                                 {"free-format MPEG-1 Layer II", "free-format MPEG-2 Layer II"},
                                                 {"free-format MPEG-1 Layer III", "free-format MPEG-2 Layer III"}};
    return isFreeRun(data, visible) ? kNames[3 - layerCode(data)][version == 3 ? 0 : 1] : nullptr;
  }
  if (layerCode(data) != 1 || !isLayer3Run(data, visible, isEnd)) return nullptr;
  return version == 3 ? "MPEG-1 Layer III" : version == 2 ? "MPEG-2 Layer III" : "MPEG-2.5 Layer III";
}

}  // namespace qav::tool
