// Bytes under a name that a tool module can open, without a file.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace qav::test {

class MemoryFile {
 public:
  MemoryFile(const void *data, size_t bytes) : fd(memfd_create("input", 0)) {
    const char *from = static_cast<const char *>(data);
    while (bytes > 0) {
      const ssize_t n = write(fd, from, bytes);
      if (n <= 0) {
        std::perror("memory file");
        std::abort();
      }
      from += n;
      bytes -= size_t(n);
    }
  }
  ~MemoryFile() { close(fd); }
  MemoryFile(const MemoryFile &) = delete;
  MemoryFile &operator=(const MemoryFile &) = delete;

  std::string name() const { return "/proc/self/fd/" + std::to_string(fd); }

 private:
  int fd;
};

}  // namespace qav::test
