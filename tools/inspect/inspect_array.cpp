#include "tools/inspect/inspect_array.h"

namespace qav::tool {

std::string base64(const void *data, size_t bytes) {
  static constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const auto *const in = static_cast<const uint8_t *>(data);
  std::string text;
  text.reserve((bytes + 2) / 3 * 4);
  for (size_t i = 0; i < bytes; i += 3) {
    const size_t n = std::min<size_t>(3, bytes - i);
    uint32_t word = 0;
    for (size_t k = 0; k < 3; ++k) word = word << 8 | (k < n ? in[i + k] : 0u);
    for (size_t k = 0; k < 4; ++k) text += k <= n ? kDigits[word >> (18 - 6 * k) & 63] : '=';
  }
  return text;
}

}  // namespace qav::tool
