// Stops the program where something does not hold, in every build.
#pragma once

#include <cstdio>
#include <cstdlib>

#define EXPECT(condition)                                                                 \
  do {                                                                                    \
    if (!(condition)) {                                                                   \
      std::fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition); \
      std::exit(1);                                                                       \
    }                                                                                     \
  } while (false)
