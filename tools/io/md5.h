// MD5 (RFC 1321), for checksums of decoded PCM; not for secrets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace qav::tool {

class Md5 {
 public:
  void add(const void *data, size_t bytes);

  // The digest of everything added, as 32 hexadecimal digits. Nothing can be added afterwards.
  std::string hexDigest();

 private:
  void addBlock(const uint8_t *block);

  uint32_t state_[4] = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476};
  uint64_t bytes_ = 0;
  uint8_t partial_[64] = {};
};

}  // namespace qav::tool
