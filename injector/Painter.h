// Painter.h - makes a camera's next picture, in the pixel format that the application chose.
//
// This is the frame path: it allocates nothing, takes no lock and prints nothing.
// Threads: a Painter belongs to one thread at a time. Owns: its scratch rows.
#pragma once

#include <stddef.h>

#include "Scaler.h"

/// What the application negotiated.
typedef struct PictureFormat {
  uint32_t fourcc;  ///< One of the formats of Formats.h.
  int width, height;
  bool bt709;  ///< Y'CbCr by BT.709 rather than BT.601.
} PictureFormat;

typedef struct Painter {
  Feed feed;
  Scaler scaler;
  uint64_t published;  ///< When the frame painted last was published, 0 if there was none.
  uint64_t lastSign;   // When the writer of the latest painted frame was last seen alive.
  uint8_t luma[scalerMaxWidth];
  uint8_t cb[scalerMaxWidth / 2];
  uint8_t cr[scalerMaxWidth / 2];
} Painter;

/// Bytes of one picture.
size_t pictureSize(const PictureFormat* format);

/// Bytes of one row (of the luma plane, if there are planes).
size_t pictureStride(const PictureFormat* format);

/// Paints the camera's latest frame into `out`, pictureSize() bytes. Without a frame it repeats
/// `last`, the picture painted before (NULL if there is none), until the writer was silent for
/// three seconds, and then paints the placeholder.
void paint(Painter* painter, LLCamera camera, const PictureFormat* format, uint8_t* out,
           const uint8_t* last);
