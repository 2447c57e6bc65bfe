// std::mt19937 whose results are exactly 32 bits wide on every platform, so that they need no conversion.
#pragma once

#include <cstdint>
#include <random>

namespace qav::test {

using Random = std::mersenne_twister_engine<uint32_t, 32, 624, 397, 31, 0x9908B0DF, 11, 0xFFFFFFFF, 7, 0x9D2C5680, 15,
                                            0xEFC60000, 18, 1812433253>;

}  // namespace qav::test
