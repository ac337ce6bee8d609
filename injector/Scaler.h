// Scaler.h - lays a feed's frame into a picture of another size, row by row.
//
// Fitted, the whole frame is shown with black bars; filled, the picture is covered and what stands
// over is cut. Bilinear; frames of twice the size and more are halved first.
// Threads: a Scaler belongs to one thread at a time. Owns: its rows.
#pragma once

#include "Feed.h"
#include "Kernels.h"

enum { scalerMaxWidth = 1920 };

typedef struct Scaler {
  // What the plan was made for.
  uint32_t sourceWidth, sourceHeight;
  int width, height;
  bool fill;

  // The plan. Positions in the source are 16.16 fixed point.
  bool halved, wholeColumns;
  uint32_t rowWidth, rowCount;  // The source's size, after halving.
  int left, top, shownWidth, shownHeight;
  int64_t firstColumn, firstRow, columnStep, rowStep;
  Tap taps[scalerMaxWidth];

  uint8_t black[scalerMaxWidth * 4];
  uint8_t lanes[2][scalerMaxWidth * 4 + feedPadding];
  uint8_t mixed[feedMaxStride + feedPadding];
  uint8_t halves[2][feedMaxStride / 2 + feedPadding];
} Scaler;

/// Prepares for frames like the feed's in a picture of `width` x `height`.
void scalerPlan(Scaler* scaler, const Feed* feed, int width, int height);

/// Row `y` of the picture, `width` BGRA pixels, valid until the next call for the same lane.
/// Rows are asked for from the top, even ones in lane 0 and odd ones in lane 1.
/// NULL if the feed fails.
const uint8_t* scalerRow(Scaler* scaler, Feed* feed, int y);
