/* Prints a hash of what the library makes of made-up input: streams at every rate and bitrate, mono and stereo, with and
 * without check word, the PCM they decode to, resampled PCM, and blocks through the converter. Every build on every
 * machine prints the same.
 *
 * Written in C, so that it also shows that the library needs nothing of C++. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "include/qav.h"

enum { kFrames = 6 };

static uint64_t hashBytes(uint64_t hash, const uint8_t *bytes, uint32_t n) {
  for (uint32_t i = 0; i < n; ++i) hash = (hash ^ bytes[i]) * 1099511628211u;
  return hash;
}

/* The values, whatever the order of their bytes in memory. */
static uint64_t hashSamples(uint64_t hash, const int16_t *samples, uint32_t n) {
  for (uint32_t i = 0; i < n; ++i) {
    const uint8_t bytes[2] = {(uint8_t)((uint16_t)samples[i] & 0xFF), (uint8_t)((uint16_t)samples[i] >> 8)};
    hash = hashBytes(hash, bytes, 2);
  }
  return hash;
}

static const uint64_t kEmpty = 14695981039346656037u;

/* Three decaying tones over noise, then silence with clicks: whole numbers only. */
static void makeSamples(int16_t *pcm, uint32_t frames, uint32_t channels) {
  int32_t re[3] = {9000 << 8, 7000 << 8, 3000 << 8}, im[3] = {0, 0, 0};
  static const int32_t kTurn[3] = {601, 4096, 15013}; /* of 65536, per sample */
  uint32_t random = 12345;
  for (uint32_t i = 0; i < frames; ++i) {
    int32_t sum = 0;
    for (int t = 0; t < 3; ++t) {
      re[t] -= (int32_t)((int64_t)im[t] * kTurn[t] / 65536);
      im[t] += (int32_t)((int64_t)re[t] * kTurn[t] / 65536);
      sum += re[t] / 256;
    }
    for (uint32_t ch = 0; ch < channels; ++ch) {
      random = random * 1664525u + 1013904223u;
      int32_t v = sum / (int32_t)(1 + ch) + (int32_t)(random >> 22) - 512;
      if (i > frames / 2) v = i % 500 == ch ? 32767 : 0;
      if (v > 32767) v = 32767;
      if (v < -32768) v = -32768;
      pcm[i * channels + ch] = (int16_t)v;
    }
  }
}

static int16_t input[kFrames * 1152 * 2];

static int codec(uint32_t hz, uint32_t kbps, uint32_t channels, uint32_t check) {
  const uint32_t options[5] = {0, 0, 1, check, 0};
  EncoderSession *encoder;
  DecoderSession *decoder;
  if (zo_mpeg_Encode1FrameInit(&encoder, hz, kbps, channels, options) != QAV_ENCODE_OK) return 1;
  if (zo_mpeg_Decode1FrameInit(&decoder) != QAV_DECODE_OK) return 1;
  makeSamples(input, kFrames * 1152, channels);
  uint64_t stream = kEmpty, pcm = kEmpty;
  for (uint32_t f = 0; f < kFrames; ++f) {
    uint8_t frame[QAV_MAX_FRAME_BYTES + QAV_ENCODE_SLACK_BYTES];
    static int16_t out[QAV_MAX_FRAME_PCM_BYTES / 2];
    uint32_t bytes, outBytes, consumed;
    zo_mpeg_Encode1Frame(encoder, input + f * 1152 * channels, 1152, frame, &bytes);
    stream = hashBytes(stream, frame, bytes);
    if (zo_mpeg_Decode1Frame(decoder, frame, bytes, out, &outBytes, &consumed) != QAV_DECODE_OK) return 1;
    pcm = hashSamples(pcm, out, outBytes / 2);
  }
  zo_mpeg_Encode1FrameTerm(encoder);
  zo_mpeg_Decode1FrameTerm(decoder);
  printf("%u Hz, %u kbit/s, %u channels%s: stream %016llx, PCM %016llx\n", (unsigned)hz, (unsigned)kbps,
         (unsigned)channels, check ? ", check words" : "", (unsigned long long)stream, (unsigned long long)pcm);
  return 0;
}

static int resampled(uint32_t inHz, uint32_t outHz, uint32_t channels) {
  static int16_t out[kFrames * 1152 * 2 * 8];
  FreqChangeState *s;
  uint32_t frames;
  if (NEB_freqChangeInit(&s, inHz, outHz, channels, 0) != 0) return 1;
  makeSamples(input, kFrames * 1152, channels);
  NEB_freqChange(s, input, kFrames * 1152, out, &frames);
  NEB_freqChangeTerm(s);
  printf("%u to %u Hz, %u channels: PCM %016llx\n", (unsigned)inHz, (unsigned)outHz, (unsigned)channels,
         (unsigned long long)hashSamples(kEmpty, out, frames * channels));
  return 0;
}

typedef struct Item {
  uint32_t item, value;
} Item;

/* The converter, fed in blocks of odd lengths. */
static int converted(const char *what, const Item *items, const uint8_t *in, uint32_t inBytes, int toPcm) {
  static int16_t out[1 << 18];
  QAV_Handle *h;
  if (QAV_createHandle(&h) != QAV_OK) return 1;
  for (; items->item != 0; ++items)
    if (QAV_setConfigure(h, items->item, items->value) != QAV_OK) return 1;
  if (QAV_detectConfigure(h) != QAV_OK) return 1;
  uint64_t hash = kEmpty;
  uint32_t at = 0, total = 0, n = 0;
  int ended = 0;
  while (!ended) {
    uint32_t bytes = 1 + at * 7 % 3001;
    if (bytes > inBytes - at) bytes = inBytes - at;
    ended = bytes == 0;
    n = 0;
    if (QAV_convert(h, in + at, bytes, (uint8_t *)out, &n) != QAV_OK) return 1;
    hash = toPcm ? hashSamples(hash, out, n / 2) : hashBytes(hash, (const uint8_t *)out, n);
    at += bytes;
    total += n;
  }
  QAV_deleteHandle(h);
  printf("%s: %u bytes %016llx\n", what, (unsigned)total, (unsigned long long)hash);
  return 0;
}

static int conversions(void) {
  static const Item kFiltered[] = {{QAV_ITEM_OUT_FORMAT, QAV_FORMAT_LAYER2},
                                   {QAV_ITEM_IN_FREQ_HZ, 11025},
                                   {QAV_ITEM_OUT_FREQ_HZ, 44100},
                                   {QAV_ITEM_INPUT_8BIT, 1},
                                   {QAV_ITEM_LPF_LEVEL, 3},
                                   {QAV_ITEM_BUFFER_SIZE, 8192},
                                   {0, 0}};
  static const Item kResampled[] = {{QAV_ITEM_OUT_FORMAT, QAV_FORMAT_LAYER2},
                                    {QAV_ITEM_IN_FREQ_HZ, 96000},
                                    {QAV_ITEM_OUT_FREQ_HZ, 48000},
                                    {QAV_ITEM_KBPS, 256},
                                    {QAV_ITEM_BUFFER_SIZE, 8192},
                                    {0, 0}};
  static const Item kDecoded[] = {{QAV_ITEM_IN_FORMAT, QAV_FORMAT_MPEG}, {0, 0}};
  static uint8_t bytes[40000];
  uint32_t random = 7;
  for (uint32_t i = 0; i < sizeof bytes; ++i) bytes[i] = (uint8_t)((random = random * 1664525u + 1013904223u) >> 24);
  int failed = converted("filtered 8-bit input", kFiltered, bytes, sizeof bytes, 0);
  /* 16-bit samples as this machine stores them, odd in number. */
  makeSamples(input, kFrames * 1152, 2);
  failed |= converted("96000 to 48000 Hz, encoded", kResampled, (const uint8_t *)input, 20000, 0);

  /* Two streams with noise before, between and behind. */
  uint32_t length = 1000, begin = 0;
  for (int stream = 0; stream < 2; ++stream) {
    EncoderSession *encoder;
    if (zo_mpeg_Encode1FrameInit(&encoder, 44100, 192, 2, NULL) != QAV_ENCODE_OK) return 1;
    begin = length;
    for (uint32_t f = 0; f < kFrames; ++f) {
      uint32_t n;
      zo_mpeg_Encode1Frame(encoder, input + f * 2304, 1152, bytes + length, &n);
      length += n;
    }
    zo_mpeg_Encode1FrameTerm(encoder);
    length += 500;
  }
  bytes[begin + 8] ^= 0xFF; /* an allocation, under a check word */
  return failed | converted("damaged stream, decoded", kDecoded, bytes, length, 1);
}

int main(void) {
  static const uint32_t kHz[] = {32000, 44100, 48000};
  static const uint32_t kKbps[] = {32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384};
  static const uint32_t kOtherHz[] = {8000, 11025, 22050, 44100, 48000, 96000};
  int failed = 0;
  for (int r = 0; r < 3; ++r)
    for (int b = 0; b < 14; ++b)
      for (uint32_t channels = 1; channels <= 2; ++channels)
        for (uint32_t check = 0; check < 2; ++check) failed |= codec(kHz[r], kKbps[b], channels, check);
  for (int a = 0; a < 6; ++a)
    for (int b = 0; b < 6; ++b)
      if (kOtherHz[b] <= 8 * kOtherHz[a]) failed |= resampled(kOtherHz[a], kOtherHz[b], 1 + (uint32_t)(a + b) % 2);
  return failed | conversions();
}
