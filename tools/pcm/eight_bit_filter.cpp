#include "tools/pcm/eight_bit_filter.h"

#include <algorithm>
#include <new>

namespace qav::tool {

EightBitFilter::EightBitFilter(uint32_t freqHz, unsigned channels, unsigned level) : count_(channels) {
  for (unsigned c = 0; c < channels; ++c) {
    QAV_Handle *handle = nullptr;
    if (QAV_createHandle(&handle) != QAV_OK) throw std::bad_alloc();
    channels_[c].reset(handle);
    QAV_setConfigure(handle, QAV_ITEM_IN_FREQ_HZ, freqHz);
    QAV_setConfigure(handle, QAV_ITEM_OUT_FREQ_HZ, freqHz);
    QAV_setConfigure(handle, QAV_ITEM_CHANNELS, 1);
    QAV_setConfigure(handle, QAV_ITEM_IN_FORMAT, QAV_FORMAT_PCM);
    QAV_setConfigure(handle, QAV_ITEM_OUT_FORMAT, QAV_FORMAT_PCM);
    QAV_setConfigure(handle, QAV_ITEM_INPUT_8BIT, 1);
    QAV_setConfigure(handle, QAV_ITEM_LPF_LEVEL, level);
    QAV_setConfigure(handle, QAV_ITEM_BUFFER_SIZE, 2 * kBlockFrames);  // half of it is the limit of a block
    if (QAV_detectConfigure(handle) != QAV_OK) throw std::bad_alloc();
  }
}

void EightBitFilter::filter(const int16_t *in, size_t frames, std::vector<int16_t> &out) {
  while (frames > 0) {
    const size_t n = std::min(frames, kBlockFrames);
    block(in, n, out);
    in += n * count_;
    frames -= n;
  }
}

void EightBitFilter::block(const int16_t *in, size_t frames, std::vector<int16_t> &out) {
  const size_t dropped = std::min(early_, frames);
  early_ -= dropped;
  const size_t kept = frames - dropped, before = out.size();
  out.resize(before + kept * count_);
  for (unsigned c = 0; c < count_; ++c) {
    for (size_t i = 0; i < frames; ++i) bytes_[i] = static_cast<uint8_t>((in[i * count_ + c] >> 8) + 128);
    uint32_t outBytes = 0;
    QAV_convert(channels_[c].get(), bytes_.data(), static_cast<uint32_t>(frames),
                reinterpret_cast<uint8_t *>(filtered_.data()), &outBytes);
    for (size_t i = 0; i < kept; ++i) out[before + i * count_ + c] = filtered_[dropped + i];
  }
}

void EightBitFilter::flush(std::vector<int16_t> &out) {
  const std::array<int16_t, 2 * kDelay> silence{};
  block(silence.data(), kDelay, out);
}

}  // namespace qav::tool
