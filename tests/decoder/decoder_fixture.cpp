#include "tests/decoder/decoder_fixture.h"

#include <fstream>
#include <iterator>

namespace qav::test {

Bytes readFile(const std::string &name) {
  std::ifstream in(QAV_TEST_DATA "/" + name, std::ios::binary);
  EXPECT_TRUE(in.good()) << name;
  return Bytes(std::istreambuf_iterator<char>(in), {});
}

}  // namespace qav::test
