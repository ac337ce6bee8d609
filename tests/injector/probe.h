// probe.h - what the clients of the tests share.
#pragma once

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define CHECK(condition)                                                                   \
  do {                                                                                     \
    if (!(condition)) {                                                                    \
      fprintf(stderr, "probe: line %d: %s (%s)\n", __LINE__, #condition, strerror(errno)); \
      exit(1);                                                                             \
    }                                                                                      \
  } while (0)
