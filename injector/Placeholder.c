#include "Placeholder.h"

#include <string.h>

static const uint8_t ground[4] = {0x2a, 0x24, 0x20, 0xff};
static const uint8_t rim[4] = {0xb4, 0xac, 0xa8, 0xff};
static const uint8_t glass[4] = {0x4a, 0x40, 0x3a, 0xff};
static const uint8_t stroke[4] = {0x5a, 0x5a, 0xe0, 0xff};

static void span(uint8_t* row, int width, int from, int to, const uint8_t* colour) {
  if (from < 0) from = 0;
  if (to > width) to = width;
  for (int x = from; x < to; ++x) memcpy(row + 4 * x, colour, 4);
}

// Where a circle around the middle crosses a row that lies `away` from it.
static int reach(int radius, int away) {
  const int square = radius * radius - away * away;
  return square <= 0 ? 0 : (int)__builtin_sqrt((double)square);
}

void placeholderRow(uint8_t* row, int y, int width, int height) {
  const int middle = width / 2;
  const int away = y - height / 2;
  const int radius = height / 4;
  const int outer = reach(radius, away);
  const int inner = reach(radius * 3 / 4, away);
  span(row, width, 0, width, ground);
  span(row, width, middle - outer, middle + outer, rim);
  span(row, width, middle - inner, middle + inner, glass);
  if (away > -radius && away < radius) {
    span(row, width, middle + away - radius / 10, middle + away + radius / 10, stroke);
  }
}
