#include "tools/cli/batch_report.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

#include "tools/io/failure.h"
#include "tools/io/message.h"

namespace qav::tool {

namespace {

std::string toHex(const std::string &bytes) {
  std::string text;
  for (const char c : bytes) text += fmt::format("{:02x}", static_cast<unsigned>(static_cast<unsigned char>(c)));
  return text;
}

std::string fromHex(const std::string &text) {
  std::string bytes;
  for (size_t i = 0; i + 1 < text.size(); i += 2)
    bytes += static_cast<char>(std::strtoul(text.substr(i, 2).c_str(), nullptr, 16));
  return bytes;
}

Failure reportFailure(const std::string &path, int error) {
  return Failure(kUnusable, {{},
                             "the report " + displayName(path) + " cannot be written: " + errorText(error),
                             "choose another place with --report"});
}

// Where the last whole line ends: an earlier run may have been stopped in the middle of one.
off_t endOfLines(int fd) {
  off_t end = lseek(fd, 0, SEEK_END);
  char last = '\n';
  while (end > 0 && pread(fd, &last, 1, end - 1) == 1 && last != '\n') --end;
  return end;
}

}  // namespace

std::optional<FileState> fileState(const std::string &path) {
  struct stat status {};
  if (path == "-" || stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  return FileState{static_cast<uint64_t>(status.st_size),
                   fmt::format("{}.{:09}", status.st_mtim.tv_sec, status.st_mtim.tv_nsec)};
}

Json objectAbout(const std::string &file, const std::optional<FileState> &state, const std::string &command) {
  Json object;
  object["file"] = toUtf8(file);
  if (toUtf8(file) != file) object["fileHex"] = toHex(file);
  object["command"] = command;
  if (state) {
    object["size"] = state->bytes;
    object["modified"] = state->modified;
  }
  return object;
}

ReportFile::ReportFile(const std::string &path, bool append, bool force) : path_(path) {
  struct stat status {};
  const bool isDevice = stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
  const int exclusive = append || isDevice ? 0 : force ? O_TRUNC : O_EXCL;
  fd_ = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | exclusive, 0666);
  if (fd_ < 0 && errno == EEXIST)
    fail("the report " + displayName(path) + " exists already",
         "continue it with --resume, overwrite it with -f, or choose another with --report");
  if (fd_ < 0) throw reportFailure(path, errno);
  if (append && fstat(fd_, &status) == 0 && S_ISREG(status.st_mode)) {
    const off_t end = endOfLines(fd_);
    if (ftruncate(fd_, end) != 0 || lseek(fd_, end, SEEK_SET) < 0) {
      const int error = errno;
      close(fd_);
      throw reportFailure(path, error);
    }
  }
}

ReportFile::~ReportFile() { close(fd_); }

void ReportFile::write(const Json &object) {
  const std::string line = inertJson(object.dump()) + "\n";
  const std::lock_guard lock(mutex_);
  for (size_t done = 0; done < line.size();) {
    const ssize_t n = ::write(fd_, line.data() + done, line.size() - done);
    if (n < 0 && errno != EINTR) throw ReportBroken{reportFailure(path_, errno)};
    if (n > 0) done += static_cast<size_t>(n);
  }
}

EarlierReport::EarlierReport(const std::string &path, const std::string &command) {
  struct stat status {};
  if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
    fail(displayName(path) + " is no file, and no report", "check --resume");
  std::ifstream file(path, std::ios::binary);
  if (!file) fail("the report " + displayName(path) + " cannot be opened: " + errorText(errno), "check --resume");
  std::string line;
  for (uint64_t number = 1; std::getline(file, line); ++number) {
    const bool isWhole = !file.eof();  // else an earlier run was stopped in the middle of it
    try {
      add(Json::parse(line), command);
    } catch (const Json::exception &) {
      if (isWhole) fail(fmt::format("{} is no report: line {}", displayName(path), number), "check --resume");
    }
  }
}

void EarlierReport::add(const Json &object, const std::string &command) {
  const std::string other = object.at("command");
  if (other != command) fail("the report is one of 'qav " + other + "'", "check --resume");
  Entry entry;
  entry.status = object.at("status");
  if (object.contains("modified")) {
    entry.state.bytes = object.at("size");
    entry.state.modified = object.at("modified");
  }
  if (object.contains("output")) entry.outputs.push_back(object.at("output"));
  if (object.contains("outputs")) entry.outputs = object.at("outputs");
  entries_[object.contains("fileHex") ? fromHex(object.at("fileHex")) : std::string(object.at("file"))] =
      std::move(entry);
}

std::optional<int> EarlierReport::statusOf(const std::string &input, const std::optional<FileState> &state) const {
  const auto found = entries_.find(input);
  if (found == entries_.end() || !state || found->second.state != *state) return std::nullopt;
  const Entry &entry = found->second;
  if (entry.status != kGood && entry.status != kDamaged) return std::nullopt;
  // A name that is not UTF-8 cannot be told from its JSON.
  for (const std::string &output : entry.outputs)
    if (output.find("\xEF\xBF\xBD") == output.npos && access(output.c_str(), F_OK) != 0) return std::nullopt;
  return entry.status;
}

}  // namespace qav::tool
