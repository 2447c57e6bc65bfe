// What has become of each input, as lines of JSON: written while the batch runs, and read by a later one.
#pragma once

#include <cstdint>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/io/failure.h"

namespace qav::tool {

using Json = nlohmann::ordered_json;

// A file as it is now: its length, and when it was changed last. Nothing for what is no regular file.
struct FileState {
  uint64_t bytes = 0;
  std::string modified;  // seconds since 1970 with nine decimals
  bool operator==(const FileState &) const = default;
};
std::optional<FileState> fileState(const std::string &path);

// Put the file's name and state first into an object about it. A name that is not UTF-8 is told in hexadecimal too.
Json objectAbout(const std::string &file, const std::optional<FileState> &state, const std::string &command);

// Thrown where the report cannot be written: the fault of no input, and the end of the batch.
struct ReportBroken {
  Failure failure;
};

// Objects appended to a file one by one, each written before the work goes on: what is there after an interruption, or
// a loss of power, is whole lines about inputs that are finished.
class ReportFile {
 public:
  // Continues an existing file only where `append` allows it, and replaces it only where `force` does. Throws Failure.
  ReportFile(const std::string &path, bool append, bool force);
  ~ReportFile();
  ReportFile(const ReportFile &) = delete;
  ReportFile &operator=(const ReportFile &) = delete;

  // From any thread. Throws ReportBroken.
  void write(const Json &object);

 private:
  std::string path_;
  std::mutex mutex_;
  int fd_ = -1;
};

// What an earlier report says of the inputs.
class EarlierReport {
 public:
  // Throws Failure when the file cannot be read, or is no report of this subcommand.
  EarlierReport(const std::string &path, const std::string &command);

  // The status with which this input was done; nothing where it was not, has changed since, or an output is gone.
  std::optional<int> statusOf(const std::string &input, const std::optional<FileState> &state) const;

 private:
  void add(const Json &object, const std::string &command);

  struct Entry {
    FileState state;
    int status = 0;
    std::vector<std::string> outputs;
  };
  std::unordered_map<std::string, Entry> entries_;
};

}  // namespace qav::tool
