// A condition that has to hold in a fuzz target, in every build.
#pragma once

#include <cstdio>
#include <cstdlib>

#define EXPECT(condition)                                                          \
  do {                                                                             \
    if (!(condition)) {                                                            \
      std::fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                \
    }                                                                              \
  } while (false)
