#include "format/frame_header.h"

#include "format/alloc_tables.h"

namespace qav {

const int32_t freqHzTbl[6] = {
    22050, 24000, 16000,  // MPEG-2 low sampling frequencies
    44100, 48000, 32000,  // MPEG-1
};

const int32_t bitrateLSF[60] = {
    0, 32, 48, 56, 64,  80,  96,  112, 128, 144, 160, 176, 192, 224, 256,  // MPEG-2, Layer I
    0, 8,  16, 24, 32,  40,  48,  56,  64,  80,  96,  112, 128, 144, 160,  // MPEG-2, Layer II
    0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448,  // MPEG-1, Layer I
    0, 32, 48, 56, 64,  80,  96,  112, 128, 160, 192, 224, 256, 320, 384,  // MPEG-1, Layer II
};

namespace {

constexpr int32_t kRefused = -1;

// Subbands of each allocation table, in the order of allocTables.
constexpr int32_t sblimitTbl[5] = {27, 30, 8, 12, 30};

// First jointly coded subband by mode extension.
constexpr int32_t jsboundTbl[4] = {4, 8, 12, 16};

// Bytes of a frame: a slot is 4 bytes and carries 12 samples a channel x 8 bits in Layer I, 1 byte and 144 in Layer II.
int32_t frameBytes(const FrameParams &fp) {
  if (fp.layer == 1) return (12000 * fp.kbps / fp.freqHz + fp.padding) * 4;
  return 144000 * fp.kbps / fp.freqHz + fp.padding;
}

}  // namespace

int32_t parseFrameHeader(const uint8_t *header, FrameParams &fp) {
  const int32_t b1 = header[1];
  const int32_t b2 = header[2];
  const int32_t b3 = header[3];

  if (header[0] != 0xFF || (b1 & 0xF0) != 0xF0) return kRefused;
  fp.id = (b1 >> 3) & 1;
  fp.protection = 1 - (b1 & 1);

  const int32_t layerCode = (b1 >> 1) & 3;
  if (layerCode < 2) return kRefused;  // reserved, Layer III
  fp.layer = 4 - layerCode;

  fp.bitrateIndex = b2 >> 4;
  if (fp.bitrateIndex == 15 || fp.bitrateIndex == 0) return kRefused;  // forbidden, free format

  fp.privateBit = b2 & 1;
  fp.padding = (b2 >> 1) & 1;
  fp.samplingIndex = (b2 >> 2) & 3;
  if (fp.samplingIndex == 3) return kRefused;  // reserved

  fp.emphasis = b3 & 3;
  fp.original = (b3 >> 2) & 1;
  fp.copyright = (b3 >> 3) & 1;
  fp.mode = b3 >> 6;
  fp.channels = fp.mode == kModeSingleChannel ? 1 : 2;
  fp.modeExt = (b3 >> 4) & 3;
  fp.freqHz = freqHzTbl[fp.id * 3 + fp.samplingIndex];
  fp.kbps = bitrateLSF[fp.id * 30 + (fp.layer - 1) * 15 + fp.bitrateIndex];
  neb_hdr_to_frps(&fp);
  return frameBytes(fp);
}

int32_t pick_table(FrameParams &fp) {
  const int32_t perChannel = fp.channels > 0 ? fp.kbps / fp.channels : fp.kbps;
  const int32_t kHz = fp.freqHz / 1000;

  int table = 3;
  if (fp.id != 1) {
    table = 4;
  } else if ((kHz == 48 && perChannel >= 56) || (perChannel >= 56 && perChannel <= 80)) {
    table = 0;
  } else if (kHz != 48 && perChannel >= 96) {
    table = 1;
  } else if (kHz != 32 && perChannel <= 48) {
    table = 2;
  }
  fp.allocTable = allocTables[table];
  return sblimitTbl[table];
}

}  // namespace qav

using namespace qav;

extern "C" void neb_hdr_to_frps(FrameParams *fp) {
  fp->sblimit = fp->layer == 2 ? pick_table(*fp) : kSubbands;
  fp->jsbound = fp->mode == kModeJointStereo ? jsboundTbl[fp->modeExt & 3] : fp->sblimit;
}
