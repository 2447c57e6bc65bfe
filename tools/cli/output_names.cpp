#include "tools/cli/output_names.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <utility>

#include "tools/io/failure.h"
#include "tools/io/message.h"

namespace qav::tool {

namespace {

using FileIdentity = std::pair<dev_t, ino_t>;

std::string lastName(const std::string &path) { return path.substr(path.rfind('/') + 1); }

bool isDirectory(const std::string &path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool isRegularFile(const std::string &path, FileIdentity *identity = nullptr) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
  if (identity) *identity = {status.st_dev, status.st_ino};
  return true;
}

// Outputs that will be the same file have the same key, however their folder is spelt.
std::string outputKey(const std::string &path) {
  FileIdentity id;
  if (isRegularFile(path, &id)) return "file " + std::to_string(id.first) + " " + std::to_string(id.second);
  const size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  struct stat status {};
  if (stat(folder.c_str(), &status) != 0) return "path " + path;
  return "in " + std::to_string(status.st_dev) + " " + std::to_string(status.st_ino) + " " + lastName(path);
}

bool isSharedDevice(const std::string &path) {
  struct stat status {};
  return path != "-" && stat(path.c_str(), &status) == 0 && S_ISCHR(status.st_mode);
}

void makeFolder(const std::string &path) {
  if (mkdir(path.c_str(), 0777) != 0 && errno != EEXIST)
    throw Failure(kUnusable, {displayName(path), "cannot be created: " + errorText(errno), "create it first"});
}

}  // namespace

std::string extensionOf(const std::string &path) {
  const size_t nameStart = path.rfind('/') + 1;
  const size_t dot = path.rfind('.');
  return dot == std::string::npos || dot <= nameStart ? std::string() : path.substr(dot);
}

std::string withExtension(const std::string &path, const std::string &extension) {
  return path.substr(0, path.size() - extensionOf(path).size()) + extension;
}

std::vector<std::string> planOutputs(const CommonOptions &options, const std::string &extension) {
  return planOutputs(options, [&](const std::string &, bool) { return extension; });
}

std::vector<std::string> planOutputs(const CommonOptions &options, const ExtensionFor &extensionFor) {
  const std::vector<std::string> &inputs = options.inputs;
  const std::string &output = options.output;
  const bool several = inputs.size() > 1 || options.recursive || !options.filesFrom.empty();
  std::string folder;
  if (!output.empty() && output != "-" && (isDirectory(output) || output.back() == '/' || several)) {
    if (several && !isSharedDevice(output)) makeFolder(output);
    if (several && !isDirectory(output) && !isSharedDevice(output))
      failUsage("several inputs cannot go to the one file " + displayName(output), "name a directory with -o");
    if (isDirectory(output) || output.back() == '/') folder = output.back() == '/' ? output : output + "/";
  }
  if (several && output == "-")
    failUsage("several inputs cannot go to one standard output", "name a directory with -o");

  std::map<FileIdentity, std::string> inputFiles;
  for (const std::string &input : inputs) {
    FileIdentity id;
    if (input != "-" && isRegularFile(input, &id)) inputFiles.emplace(id, input);
  }

  std::vector<std::string> outputs;
  std::map<std::string, std::string> takenBy;
  for (size_t i = 0; i < inputs.size(); ++i) {
    const std::string &input = inputs[i];
    const std::string extension = extensionFor(input, output.empty());
    std::string path;
    if (!folder.empty()) {
      const std::string &place = options.places[i];
      for (size_t slash = place.find('/'); slash != place.npos; slash = place.find('/', slash + 1))
        makeFolder(folder + place.substr(0, slash));
      path = folder + (input == "-" ? "stdin" + extension : withExtension(place, extension));
    }
    if (folder.empty() && !output.empty()) path = output;
    if (output.empty()) path = input == "-" ? "-" : withExtension(input, extension);

    FileIdentity id;
    if (path != "-" && isRegularFile(path, &id) && inputFiles.count(id) != 0)
      failUsage("the output " + displayName(path) + " is also an input", "choose another name or folder with -o");
    if (!isSharedDevice(path)) {
      const auto [other, isNew] = takenBy.emplace(path == "-" ? path : outputKey(path), input);
      if (!isNew)
        failUsage(displayName(other->second) + " and " + displayName(input) + " would both be written to " +
                      (path == "-" ? "standard output" : displayName(path)),
                  "convert them one by one with -o");
    }
    outputs.push_back(std::move(path));
  }
  return outputs;
}

void refuseUnfitStandardOutput(const CommonOptions &options, const std::string &output, OutputKind kind) {
  if (output != "-") return;
  const bool isStream = kind == OutputKind::stream;
  if (options.json)
    failUsage(fmt::format("--json and the {} would both go to standard output", isStream ? "stream" : "samples"),
              "use -o FILE");
  if (isatty(STDOUT_FILENO))
    failUsage(isStream ? "a stream is not written to a terminal" : "samples are not written to a terminal",
              "use -o FILE");
}

void refuseInputAsOutput(const std::vector<std::string> &inputs, const std::string &output) {
  FileIdentity out, in;
  if (output == "-" || !isRegularFile(output, &out)) return;
  for (const std::string &input : inputs)
    if (input != "-" && isRegularFile(input, &in) && in == out)
      failUsage("the output " + displayName(output) + " is also an input", "choose another name or folder with -o");
}

}  // namespace qav::tool
