#include "Scaler.h"

#include <string.h>

static int64_t fixed(double value) { return (int64_t)(value * 65536.0 + (value < 0 ? -0.5 : 0.5)); }

static int rounded(double value, int least, int most) {
  const int whole = (int)(value + 0.5);
  return whole < least ? least : whole > most ? most : whole;
}

static void place(Scaler* scaler) {
  const double width = scaler->sourceWidth;
  const double height = scaler->sourceHeight;
  const double across = scaler->width / width;
  const double down = scaler->height / height;
  double columns;  // Source pixels per shown pixel.
  double rows;
  double cutLeft = 0;
  double cutTop = 0;
  if (scaler->fill) {
    columns = rows = 1 / (across > down ? across : down);
    scaler->shownWidth = scaler->width;
    scaler->shownHeight = scaler->height;
    cutLeft = (width - scaler->width * columns) / 2;
    cutTop = (height - scaler->height * rows) / 2;
  } else {
    const double scale = across < down ? across : down;
    scaler->shownWidth = rounded(width * scale, 1, scaler->width);
    scaler->shownHeight = rounded(height * scale, 1, scaler->height);
    columns = width / scaler->shownWidth;
    rows = height / scaler->shownHeight;
  }
  scaler->left = (scaler->width - scaler->shownWidth) / 2;
  scaler->top = (scaler->height - scaler->shownHeight) / 2;
  scaler->halved = columns >= 2 && rows >= 2;
  const double unit = scaler->halved ? 0.5 : 1;
  scaler->rowWidth = scaler->halved ? scaler->sourceWidth / 2 : scaler->sourceWidth;
  scaler->rowCount = scaler->halved ? scaler->sourceHeight / 2 : scaler->sourceHeight;
  scaler->columnStep = fixed(columns * unit);
  scaler->rowStep = fixed(rows * unit);
  // Pixel centres meet, not corners.
  scaler->firstColumn = fixed((cutLeft + columns / 2) * unit - 0.5);
  scaler->firstRow = fixed((cutTop + rows / 2) * unit - 0.5);
}

static int64_t within(int64_t position, uint32_t count) {
  const int64_t last = (int64_t)(count - 1) << 16;
  return position < 0 ? 0 : position > last ? last : position;
}

static void makeTaps(Scaler* scaler) {
  for (int x = 0; x < scaler->shownWidth; ++x) {
    const int64_t at = within(scaler->firstColumn + x * scaler->columnStep, scaler->rowWidth);
    int32_t pixel = (int32_t)(at >> 16);
    int right = (int)((at & 0xffff) >> 9);
    if (pixel > 0 && pixel == (int32_t)scaler->rowWidth - 1) {
      --pixel;
      right = 128;
    }
    scaler->taps[x] = (Tap){pixel * 4, (uint8_t)(128 - right), (uint8_t)right};
  }
}

void scalerPlan(Scaler* scaler, const Feed* feed, int width, int height) {
  if (scaler->sourceWidth == feed->width && scaler->sourceHeight == feed->height &&
      scaler->width == width && scaler->height == height && scaler->fill == feed->fill) {
    return;
  }
  scaler->sourceWidth = feed->width;
  scaler->sourceHeight = feed->height;
  scaler->width = width;
  scaler->height = height;
  scaler->fill = feed->fill;
  place(scaler);
  scaler->wholeColumns = scaler->columnStep == 65536 && (scaler->firstColumn & 0xffff) == 0;
  makeTaps(scaler);
  for (int x = 0; x < scalerMaxWidth; ++x) {
    memcpy(scaler->black + 4 * x, "\0\0\0\xff", 4);
  }
  memcpy(scaler->lanes[0], scaler->black, sizeof(scaler->black));
  memcpy(scaler->lanes[1], scaler->black, sizeof(scaler->black));
}

// Rows `row` and, if there are two to mix, `row + 1` of the source, halved if that is planned.
static bool sourceRows(Scaler* scaler, Feed* feed, uint32_t row, uint32_t count, bool upperLane,
                       const uint8_t** upper, const uint8_t** lower) {
  if (!scaler->halved) {
    // The lane above asks for the row below it too, so that fetching that one moves nothing.
    const uint32_t wanted = upperLane && row + 1 < scaler->rowCount ? 2 : count;
    const uint8_t* rows = feedRows(feed, row, wanted);
    *upper = rows;
    *lower = rows ? rows + feed->stride : NULL;
    return rows != NULL;
  }
  const uint8_t* rows = feedRows(feed, 2 * row, 2 * count);
  if (!rows) return false;
  for (uint32_t i = 0; i < count; ++i) {
    const uint8_t* pair = rows + (size_t)(2 * i) * feed->stride;
    kernels()->halve(pair, pair + feed->stride, scaler->halves[i], (int)scaler->rowWidth);
  }
  *upper = scaler->halves[0];
  *lower = scaler->halves[1];
  return true;
}

const uint8_t* scalerRow(Scaler* scaler, Feed* feed, int y) {
  const int shown = y - scaler->top;
  if (shown < 0 || shown >= scaler->shownHeight) return scaler->black;
  const int64_t at = within(scaler->firstRow + shown * scaler->rowStep, scaler->rowCount);
  const int weight = (int)((at & 0xffff) >> 9);
  const int lane = y & 1;
  const uint8_t* row = NULL;
  const uint8_t* below = NULL;
  if (!sourceRows(scaler, feed, (uint32_t)(at >> 16), weight ? 2 : 1, lane == 0, &row, &below)) {
    return NULL;
  }
  if (weight) {
    kernels()->mix(row, below, scaler->mixed, (int)scaler->rowWidth, weight);
    row = scaler->mixed;
  }
  uint8_t* out = scaler->lanes[lane] + (size_t)scaler->left * 4;
  const size_t bytes = (size_t)scaler->shownWidth * 4;
  if (!scaler->wholeColumns) {
    kernels()->resample(row, out, scaler->shownWidth, scaler->taps);
    return scaler->lanes[lane];
  }
  const uint8_t* columns = row + (scaler->firstColumn >> 16) * 4;
  // Only rows that follow one another leave the other lane's row where it was.
  const bool lasting =
      !weight && !scaler->halved && scaler->rowStep == 65536 && scaler->shownWidth == scaler->width;
  if (lasting) return columns;
  memcpy(out, columns, bytes);
  return scaler->lanes[lane];
}
