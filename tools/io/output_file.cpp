#include "tools/io/output_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cassert>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <set>
#include <utility>

#include "tools/io/failure.h"
#include "tools/io/interrupt.h"
#include "tools/io/message.h"

namespace qav::tool {

namespace {

constexpr size_t kBufferBytes = 256 * 1024;

// So much of an output stays in the system's cache; a longer one would drive everything else out of the memory. What goes
// beyond that is written directly where the drive is fast enough for that. Otherwise it is on its way to the drive at once
// and leaves the cache as soon as it is there, so that the next block finds memory that is ready for it. (Systems before
// Linux 6.14 and some file systems do not know how.)
constexpr uint64_t kCachedBytes = uint64_t{16} << 20;
static_assert(kCachedBytes % DirectOutput::kBlockBytes == 0);
constexpr int kDontCache = 0x80;  // RWF_DONTCACHE, which is missing in most headers

[[noreturn]] void failWrite(const std::string &name, int error) {
  const char *remedy = "check the drive";
  if (error == EPIPE) failOutput(name, "the reader of the output has closed it", "let it read to the end");
  if (error == ENOSPC || error == EDQUOT) remedy = "free some space, or choose another folder with -o";
  if (error == EFBIG) remedy = "raise the limit on file sizes, or choose another file system with -o";
  if (error == EACCES || error == EPERM || error == EROFS) remedy = "choose another folder with -o";
  if (error == ENOENT) remedy = "create the folder first";
  if (error == ENAMETOOLONG) remedy = "choose a shorter name with -o";
  if (error == ENOTDIR) remedy = "choose another name with -o";
  failOutput(name, "cannot be written: " + errorText(error), remedy);
}

[[noreturn]] void failExists(const std::string &name) {
  failOutput(name, "exists already", "use -f to overwrite it, or choose another name with -o");
}

// The folder of a path, with its slash; empty for the current one.
std::string folderOf(const std::string &path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

// The path as no other spelling gives it: without links, from the root. As it is when its folder does not exist.
std::string canonical(const std::string &path) {
  std::string whole = path;
  const std::string folder = folderOf(path);
  if (char *const real = realpath(path.c_str(), nullptr)) {
    whole = real;
    free(real);
  } else if (char *const realFolder = realpath(folder.empty() ? "." : folder.c_str(), nullptr)) {
    whole = std::string(realFolder) + "/" + path.substr(folder.size());
    free(realFolder);
  }
  return whole;
}

// A name of fixed length: the target's own may already be as long as names can be.
std::string temporaryName(const std::string &target) {
  static std::atomic<unsigned> counter{0};
  return fmt::format("{}.qav-{}-{}.tmp", folderOf(target), getpid(), counter++);
}

// Regular files written by this process, finished or not.
std::mutex claimedMutex;
std::set<std::string> claimed;

void claim(const std::string &name, const std::string &target) {
  const std::lock_guard lock(claimedMutex);
  if (!claimed.insert(target).second)
    failOutput(name, "has been written from another input already", "choose another name or folder with -o");
}

void unclaim(const std::string &target) {
  const std::lock_guard lock(claimedMutex);
  claimed.erase(target);
}

}  // namespace

OutputFile::OutputFile(const std::string &name, bool overwrite)
    : name_(name),
      overwrite_(overwrite),
      buffer_(std::make_unique<uint8_t[]>(kBufferBytes + kRoomBytes)),
      block_(buffer_.get()),
      blockBytes_(kBufferBytes) {
  if (name == "-") {
    fd_ = STDOUT_FILENO;
    struct stat status {};
    if (fstat(fd_, &status) != 0) failWrite(name_, errno);
    const bool regular = S_ISREG(status.st_mode);
    // Redirected to a file: its beginning can still be corrected, unless everything is appended.
    start_ = regular ? lseek(fd_, 0, SEEK_CUR) : -1;
    canPatch_ = start_ >= 0 && (fcntl(fd_, F_GETFL) & O_APPEND) == 0;
  } else {
    openTarget(name, overwrite);
  }
}

void OutputFile::openTarget(const std::string &name, bool overwrite) {
  struct stat status {};
  mode_t mode = 0666;
  const bool exists = stat(name.c_str(), &status) == 0;
  if (exists && S_ISDIR(status.st_mode)) failOutput(name_, "is a directory", "choose a file name with -o");
  if (exists && !S_ISREG(status.st_mode)) {
    fd_ = open(name.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
    if (fd_ < 0) failWrite(name_, errno);
    owned_ = true;
    return;
  }
  if (exists) {
    if (!overwrite) failExists(name_);
    mode = status.st_mode & 07777;
  }
  target_ = canonical(name);  // what a symbolic link points at is replaced, not the link
  claim(name_, target_);
  // Once the file is there nothing may fail any more, for want of memory neither: nobody would remove it.
  do {
    temporary_ = temporaryName(target_);
    registerTemporary(temporary_);
    fd_ = open(temporary_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (fd_ < 0) {
      const int error = errno;
      unregisterTemporary(temporary_);
      if (error == EEXIST || error == EINTR) continue;
      unclaim(target_);
      failWrite(name_, error);
    }
  } while (fd_ < 0);
  if (exists) static_cast<void>(fchmod(fd_, mode));
  owned_ = canPatch_ = mayPass_ = true;
}

OutputFile::~OutputFile() { discard(); }

void OutputFile::discard() noexcept {
  direct_.reset();
  if (owned_ && fd_ >= 0) close(fd_);
  fd_ = -1;
  if (!temporary_.empty()) {
    unlink(temporary_.c_str());
    unregisterTemporary(temporary_);
    temporary_.clear();
    unclaim(target_);
  }
}

void OutputFile::write(const void *data, size_t bytes) {
  auto from = static_cast<const uint8_t *>(data);
  if (from == next()) {
    assert(bytes <= kRoomBytes);
    collected_ += bytes;
    if (collected_ >= blockBytes_) passBlockOn();
    return;
  }
  if (bytes >= kBufferBytes && !direct_) {  // worth a call of its own, from where it lies
    size_t n = bytes;
    if (!temporary_.empty() && size() < kCachedBytes) n = std::min<uint64_t>(n, kCachedBytes - size());
    flush();
    writeAll(from, n);
    passedOn_ += n;
    if (!temporary_.empty() && passedOn_ == kCachedBytes) beginDirect();
    from += n;
    bytes -= n;
  }
  while (bytes > 0) {
    const size_t n = std::min(bytes, blockBytes_ - collected_);
    std::memcpy(next(), from, n);
    from += n;
    bytes -= n;
    collected_ += n;
    if (collected_ == blockBytes_) passBlockOn();
  }
}

// A full block, and perhaps some bytes in the room behind it, which go to the beginning of the next one.
void OutputFile::passBlockOn() {
  if (direct_ && !direct_->isFast()) return flush();
  const uint8_t *const surplus = block_ + blockBytes_;
  const size_t surplusBytes = collected_ - blockBytes_;
  collected_ = blockBytes_;
  if (direct_) {
    throwIfInterrupted();
    direct_->write(block_, passedOn_);
    passedOn_ += std::exchange(collected_, 0);
    block_ = direct_->freeBlock();
    if (const int error = direct_->error()) failWrite(name_, error);
  } else {
    flush();
    if (!temporary_.empty() && passedOn_ == kCachedBytes) beginDirect();
  }
  std::memcpy(block_, surplus, surplusBytes);
  collected_ = surplusBytes;
}

void OutputFile::beginDirect() {
  direct_ = DirectOutput::open(temporary_, fd_);
  if (!direct_) return;
  block_ = direct_->freeBlock();
  blockBytes_ = DirectOutput::kBlockBytes;
}

void OutputFile::endDirect() {
  direct_->finish();
  if (const int error = direct_->error()) failWrite(name_, error);
  if (lseek(fd_, static_cast<off_t>(passedOn_), SEEK_SET) < 0) failWrite(name_, errno);
}

// Hand over what is collected; from here on through the cache.
void OutputFile::flush() {
  if (direct_) endDirect();
  writeAll(block_, collected_);
  passedOn_ += std::exchange(collected_, 0);
  direct_.reset();
  block_ = buffer_.get();
  blockBytes_ = kBufferBytes;
}

void OutputFile::writeAll(const uint8_t *data, size_t bytes) {
  while (bytes > 0) {
    throwIfInterrupted();  // a write that blocks is ended from outside
    const bool isPassing = mayPass_ && passedOn_ >= kCachedBytes;
    const iovec part{const_cast<uint8_t *>(data), bytes};
    const ssize_t n = isPassing ? pwritev2(fd_, &part, 1, -1, kDontCache) : ::write(fd_, data, bytes);
    if (n < 0) {
      if (errno == EAGAIN) {  // whoever started this made the pipe so: wait for its reader, and for signals
        pollfd one{fd_, POLLOUT, 0};
        poll(&one, 1, 100);
        continue;
      }
      if (errno == EINTR) continue;
      if (isPassing && (errno == EOPNOTSUPP || errno == EINVAL || errno == ENOSYS)) {
        mayPass_ = false;
        continue;
      }
      failWrite(name_, errno);
    }
    data += n;
    bytes -= static_cast<size_t>(n);
  }
}

void OutputFile::patch(uint64_t offset, const void *data, size_t bytes) {
  flush();
  auto from = static_cast<const uint8_t *>(data);
  auto at = static_cast<off_t>(offset) + start_;
  while (bytes > 0) {
    const ssize_t n = pwrite(fd_, from, bytes, at);
    if (n < 0) {
      if (errno == EINTR) continue;
      failWrite(name_, errno);
    }
    from += n;
    at += n;
    bytes -= static_cast<size_t>(n);
  }
}

void OutputFile::commit() {
  flush();
  throwIfInterrupted();
  if (!owned_) return;
  const int fd = fd_;
  fd_ = -1;
  if (close(fd) != 0) failWrite(name_, errno);
  if (temporary_.empty()) return;
  int result = overwrite_ ? rename(temporary_.c_str(), target_.c_str())
                          : renameat2(AT_FDCWD, temporary_.c_str(), AT_FDCWD, target_.c_str(), RENAME_NOREPLACE);
  if (result != 0 && !overwrite_ && (errno == EINVAL || errno == ENOSYS)) {
    // A file system without that call: a hard link is refused too where the name exists.
    result = link(temporary_.c_str(), target_.c_str());
    if (result == 0) unlink(temporary_.c_str());
  }
  if (result != 0) {
    if (errno == EEXIST) failExists(name_);
    failWrite(name_, errno);
  }
  unregisterTemporary(temporary_);
  temporary_.clear();
}

}  // namespace qav::tool
