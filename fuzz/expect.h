// EXPECT(condition): aborts a fuzz target if the condition is false, also in release builds.
#pragma once

#include <cstdio>
#include <cstdlib>

#define EXPECT(condition)                                                          \
  do {                                                                             \
    if (!(condition)) {                                                            \
      std::fprintf(stderr, "%s:%d: failed: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                \
    }                                                                              \
  } while (false)
