#include "tests/converter/converter_test.h"

#include <fstream>
#include <iterator>

namespace qav::test {

Bytes testData(const std::string &name) {
  std::ifstream file(QAV_TEST_DATA "/" + name, std::ios::binary);
  EXPECT_TRUE(file) << name;
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace qav::test
