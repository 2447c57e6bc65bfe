// For tests that go through very many cases. Where each instruction is dear, by emulation or by being counted,
// QAV_TEST_ONE_IN=N asks for one in N of them.
#pragma once

#include <cstdint>
#include <cstdlib>

namespace qav::test {

inline uint32_t oneIn() {
  static const uint32_t n = [] {
    const char *const asked = std::getenv("QAV_TEST_ONE_IN");
    return asked == nullptr ? 1 : uint32_t(std::strtoul(asked, nullptr, 10));
  }();
  return n == 0 ? 1 : n;
}

}  // namespace qav::test
