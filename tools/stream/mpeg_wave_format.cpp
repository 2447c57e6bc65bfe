#include "tools/stream/mpeg_wave_format.h"

#include "tools/io/little_endian.h"
#include "tools/riff/riff.h"

namespace qav::tool {

namespace {

constexpr uint32_t kJointStereo = 1;  // as in a frame's header

// Flags: the bits of the same names in the headers of the frames, or-ed. So a set protection bit, as there, means that a
// frame has no check word.
constexpr uint32_t kPrivateBit = 0x01, kCopyright = 0x02, kOriginalHome = 0x04, kProtectionBit = 0x08, kIdMpeg1 = 0x10;

}  // namespace

void MpegWaveFormat::add(const FrameHeader &header) {
  if (frames_ == 0) first_ = header;
  ++frames_;
  bytes_ += header.frameBytes;
  samples_ += header.frameSamples;
  constantBitrate_ &= header.kbps == first_.kbps;
  constantLength_ &= header.frameBytes == first_.frameBytes && !usesPadding(header);
  layers_ |= header.layer;  // 1 for Layer I, 2 for Layer II
  modes_ |= 1u << header.mode;
  if (header.mode == kJointStereo) modeExtensions_ |= 1u << header.modeExt;
  flags_ |= (header.privateBit ? kPrivateBit : 0) | (header.copyright ? kCopyright : 0) |
            (header.original ? kOriginalHome : 0) | (header.hasCheck ? 0 : kProtectionBit) |
            (header.version == 1 ? kIdMpeg1 : 0);
}

MpegWaveFormat::Content MpegWaveFormat::content() const {
  uint32_t bytesPerSecond = first_.kbps * 125;
  if (!constantBitrate_) bytesPerSecond = static_cast<uint32_t>((bytes_ * first_.freqHz + samples_ - 1) / samples_);
  Content all{};
  uint8_t *to = all.data();
  const auto put = [&to](uint64_t value, size_t bytes) {
    putLe(to, value, bytes);
    to += bytes;
  };
  put(kFormatMpeg, 2);
  put(first_.channels, 2);
  put(first_.freqHz, 4);
  put(bytesPerSecond, 4);
  put(constantLength_ ? first_.frameBytes : 1, 2);  // alignment: of frames of changing length there is none
  put(0, 2);                                        // bits of a sample: not said of compressed ones
  put(22, 2);                                       // bytes of the extension
  put(layers_, 2);
  put(constantBitrate_ ? first_.kbps * 1000 : 0, 4);
  put(modes_, 2);  // 1 stereo, 2 joint stereo, 4 dual channel, 8 single channel
  put(modeExtensions_, 2);
  put(first_.emphasis + 1, 2);  // 1 none, 2 50/15 microseconds, 3 reserved, 4 CCITT J.17
  put(flags_, 2);
  put(0, 8);  // time stamp of the first frame
  return all;
}

}  // namespace qav::tool
