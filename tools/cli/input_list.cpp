#include "tools/cli/input_list.h"

#include <dirent.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <string_view>

#include "tools/cli/output_names.h"
#include "tools/io/byte_source.h"
#include "tools/io/failure.h"
#include "tools/io/interrupt.h"
#include "tools/io/message.h"

namespace qav::tool {

namespace {

bool isDirectory(const std::string &path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool hasExtension(const std::string &name, const std::vector<std::string> &extensions) {
  std::string own = extensionOf(name);
  std::transform(own.begin(), own.end(), own.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return std::find(extensions.begin(), extensions.end(), own) != extensions.end();
}

class Walk {
 public:
  Walk(const std::vector<std::string> &extensions, CommonOptions &options)
      : extensions_(extensions), options_(options) {}

  // A folder; `place` is its path below the one that was named, with a slash at its end, or empty.
  void folder(const std::string &path, const std::string &place) {
    throwIfInterrupted();
    const std::unique_ptr<DIR, int (*)(DIR *)> folder(opendir(path.c_str()), closedir);
    if (!folder) {
      add(path, place);  // to be reported as what cannot be read
      return;
    }
    std::vector<std::string> files, folders;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): each folder that is open is read by one thread alone
    while (const dirent *const entry = readdir(folder.get())) {
      const std::string name = entry->d_name;
      if (name == "." || name == "..") continue;
      const bool isLink = entry->d_type == DT_LNK;
      const bool isFolder = entry->d_type == DT_DIR || (entry->d_type == DT_UNKNOWN && isDirectory(path + "/" + name));
      if (isFolder)
        folders.push_back(name);
      else if (hasExtension(name, extensions_) && !(isLink && isDirectory(path + "/" + name)))
        files.push_back(name);
    }
    std::sort(files.begin(), files.end());
    std::sort(folders.begin(), folders.end());
    const std::string prefix = path.back() == '/' ? path : path + "/";
    for (const std::string &name : files) add(prefix + name, place + name);
    for (const std::string &name : folders) this->folder(prefix + name, place + name + "/");
  }

  void add(const std::string &path, const std::string &place) {
    options_.inputs.push_back(path);
    options_.places.push_back(place);
  }

 private:
  const std::vector<std::string> &extensions_;
  CommonOptions &options_;
};

std::vector<std::string> namesFrom(const std::string &list, char separator) {
  FileSource source(list);
  std::vector<std::string> names;
  std::string name;
  uint8_t block[65536];
  const auto take = [&] {
    if (!name.empty()) names.push_back(name);
    name.clear();
  };
  while (const size_t n = source.read(block, sizeof block)) {
    std::string_view rest(reinterpret_cast<const char *>(block), n);
    for (size_t end = rest.find(separator); end != rest.npos; end = rest.find(separator)) {
      name += rest.substr(0, end);
      take();
      rest.remove_prefix(end + 1);
    }
    name += rest;
  }
  take();
  return names;
}

}  // namespace

void expandInputs(CommonOptions &options, const std::vector<std::string> &extensions) {
  std::vector<std::string> named = std::move(options.inputs);
  if (!options.filesFrom.empty()) {
    try {
      const std::vector<std::string> listed = namesFrom(options.filesFrom, options.nullSeparated ? '\0' : '\n');
      named.insert(named.end(), listed.begin(), listed.end());
    } catch (const Failure &failure) {
      const std::string name = options.filesFrom == "-" ? "standard input" : displayName(options.filesFrom);
      throw Failure(failure.status,
                    {failure.complaint.place, name + " " + failure.complaint.what, failure.complaint.remedy});
    }
    if (options.filesFrom == "-" && std::count(named.begin(), named.end(), "-") > 0)
      failUsage("standard input cannot be the list and an input too", "name a file for one of them");
    if (named.empty()) fail(displayName(options.filesFrom) + " names no files", "list one on each line");
  }
  options.inputs.clear();
  Walk walk(extensions, options);
  for (const std::string &name : named) {
    if (options.recursive && name != "-" && isDirectory(name)) {
      const size_t before = options.inputs.size();
      walk.folder(name, {});
      if (options.inputs.size() == before)
        fail(displayName(name) + fmt::format(" holds no files ending in {}", fmt::join(extensions, ", ")),
             "name the files themselves");
    } else {
      walk.add(name, name.substr(name.rfind('/') + 1));
    }
  }
}

}  // namespace qav::tool
