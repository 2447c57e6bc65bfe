#include "tools/io/byte_source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "tools/io/failure.h"
#include "tools/io/interrupt.h"
#include "tools/io/message.h"

namespace qav::tool {

namespace {

const char *openRemedy(int error) {
  switch (error) {
    case ENOENT: return "check the name";
    case EACCES: return "check the permissions";
    case ENAMETOOLONG: return "use a shorter name";
    case EMFILE:
    case ENFILE: return "use fewer jobs with -j";
    default: return "check the name and the drive";
  }
}

}  // namespace

FileSource::FileSource(const std::string &name) : fd_(STDIN_FILENO), owned_(name != "-"), mayWait_(true) {
  if (owned_) {
    do fd_ = open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    while (fd_ < 0 && errno == EINTR);
    if (fd_ < 0) {
      const int error = errno;
      fail("cannot be opened: " + errorText(error), openRemedy(error));
    }
  }
  struct stat status {};
  if (fstat(fd_, &status) != 0) {
    const int error = errno;
    if (owned_) close(fd_);
    fail("cannot be read: " + errorText(error), owned_ ? "check the drive" : "give a file or connect standard input");
  }
  if (S_ISDIR(status.st_mode)) {
    if (owned_) close(fd_);
    fail("is a directory", "name the files in it, or use --recursive");
  }
  if (S_ISREG(status.st_mode)) {
    mayWait_ = false;
    const off_t at = owned_ ? 0 : lseek(fd_, 0, SEEK_CUR);
    if (at >= 0 && at <= status.st_size) size_ = static_cast<uint64_t>(status.st_size - at);
    posix_fadvise(fd_, 0, 0, POSIX_FADV_SEQUENTIAL);
  }
}

FileSource::~FileSource() {
  if (owned_) close(fd_);
}

size_t FileSource::read(uint8_t *to, size_t bytes) {
  for (;;) {
    if (mayWait_)
      waitReadable(fd_);
    else
      throwIfInterrupted();
    const ssize_t n = ::read(fd_, to, bytes);
    if (n >= 0) return static_cast<size_t>(n);
    if (errno == EINTR || errno == EAGAIN) continue;
    fail("cannot be read: " + errorText(errno), "check the drive or the connection");
  }
}

}  // namespace qav::tool
