#include "tools/pcm/sndfile_reader.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>

#include "tools/io/interrupt.h"
#include "tools/io/message.h"

namespace qav::tool {

namespace {

// Bits of one sample; 0: of no fixed number, as many as a float has.
unsigned bitsOf(int subtype) {
  switch (subtype) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
    case SF_FORMAT_DPCM_8: return 8;
    case SF_FORMAT_PCM_16:
    case SF_FORMAT_ULAW:
    case SF_FORMAT_ALAW:
    case SF_FORMAT_IMA_ADPCM:
    case SF_FORMAT_MS_ADPCM:
    case SF_FORMAT_GSM610:
    case SF_FORMAT_VOX_ADPCM:
    case SF_FORMAT_NMS_ADPCM_16:
    case SF_FORMAT_NMS_ADPCM_24:
    case SF_FORMAT_NMS_ADPCM_32:
    case SF_FORMAT_G721_32:
    case SF_FORMAT_G723_24:
    case SF_FORMAT_G723_40:
    case SF_FORMAT_DWVW_12:
    case SF_FORMAT_DWVW_16:
    case SF_FORMAT_DPCM_16:
    case SF_FORMAT_ALAC_16: return 16;
    case SF_FORMAT_ALAC_20: return 20;
    case SF_FORMAT_PCM_24:
    case SF_FORMAT_DWVW_24:
    case SF_FORMAT_ALAC_24: return 24;
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_ALAC_32: return 32;
    case SF_FORMAT_DOUBLE: return 64;
    default: return 0;
  }
}

std::string containerName(int format) {
  SF_FORMAT_INFO info{};
  info.format = format & SF_FORMAT_TYPEMASK;
  if (sf_command(nullptr, SFC_GET_FORMAT_INFO, &info, sizeof info) != 0 || !info.name) return "sound file";
  const std::string name = info.name;
  return name.substr(0, name.find(' '));
}

bool isMpeg(int format) {
  const int subtype = format & SF_FORMAT_SUBMASK;
  return (format & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG || subtype == SF_FORMAT_MPEG_LAYER_I ||
         subtype == SF_FORMAT_MPEG_LAYER_II || subtype == SF_FORMAT_MPEG_LAYER_III;
}

}  // namespace

SndfileReader::SndfileReader(const std::string &path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) fail("cannot be opened: " + errorText(errno), "check the name and the permissions");
  stored_.reset(fdopen(fd, "rb"));
  if (!stored_) {
    close(fd);
    fail("cannot be opened: " + errorText(ENOMEM), "use fewer jobs with -j");
  }
  open(fd);
}

SndfileReader::SndfileReader(ByteWindow &window) : stored_(std::tmpfile()) {
  if (!stored_) fail("cannot be stored in a temporary file: " + errorText(errno), "save it to a file first");
  while (const size_t n = window.fill(1)) {
    if (std::fwrite(window.data(), 1, n, stored_.get()) != n)
      fail("cannot be stored in a temporary file: " + errorText(errno), "save it to a file first");
    window.consume(n);
  }
  if (std::fflush(stored_.get()) != 0)
    fail("cannot be stored in a temporary file: " + errorText(errno), "save it to a file first");
  std::rewind(stored_.get());
  open(fileno(stored_.get()));
}

void SndfileReader::open(int fd) {
  SF_INFO info{};
  file_.reset(sf_open_fd(fd, SFM_READ, &info, SF_FALSE));
  if (!file_) fail("is no sound file that is known", "name its format with --raw when it has no header");
  if (isMpeg(info.format)) failIsMpegAudio();
  format_.freqHz = info.samplerate > 0 ? static_cast<uint32_t>(info.samplerate) : 0;
  format_.channels = info.channels > 0 ? static_cast<unsigned>(info.channels) : 0;
  const unsigned bits = bitsOf(info.format & SF_FORMAT_SUBMASK);
  format_.floating = bits == 0 || bits == 64;
  format_.bits = bits == 0 ? 32 : bits;
  format_.fits16 = bits == 8 || bits == 16;
  format_.container = containerName(info.format);
  if (info.frames >= 0 && info.frames < SF_COUNT_MAX) format_.frames = static_cast<uint64_t>(info.frames);
}

size_t SndfileReader::took(sf_count_t got, size_t wanted) {
  throwIfInterrupted();
  const size_t n = got > 0 ? static_cast<size_t>(got) : 0;
  done_ += n;
  if (n == wanted || ended_) return n;
  ended_ = true;
  if (format_.frames && done_ < *format_.frames)
    remark(true,
           fmt::format("is cut off or damaged: {} are promised, {} could be read",
                       counted(*format_.frames, "sample frame"), done_),
           "fetch the whole file");
  return n;
}

size_t SndfileReader::readInt16(int16_t *to, size_t frames) {
  return took(sf_readf_short(file_.get(), to, static_cast<sf_count_t>(frames)), frames);
}

size_t SndfileReader::readDouble(double *to, size_t frames) {
  return took(sf_readf_double(file_.get(), to, static_cast<sf_count_t>(frames)), frames);
}

}  // namespace qav::tool
