// A folder of the test's own, removed with all that is in it.
#pragma once

#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace qav::tool {

class ScratchFolder {
 public:
  ScratchFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "qav-test-XXXXXX").string();
    path_ = mkdtemp(name.data());
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchFolder(const ScratchFolder &) = delete;
  ScratchFolder &operator=(const ScratchFolder &) = delete;

  std::string operator/(const std::string &name) const { return path_ + "/" + name; }

  std::string put(const std::string &name, const std::string &content) const {
    std::ofstream(*this / name, std::ios::binary) << content;
    return *this / name;
  }

  // The names in the folder, sorted.
  std::vector<std::string> names() const {
    std::vector<std::string> all;
    for (const auto &entry : std::filesystem::directory_iterator(path_))
      all.push_back(entry.path().filename().string());
    std::sort(all.begin(), all.end());
    return all;
  }

 private:
  std::string path_;
};

inline std::string contentOf(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace qav::tool
