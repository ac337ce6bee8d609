#include "Painter.h"

#include <linux/videodev2.h>
#include <string.h>

#include "Placeholder.h"

// Pixels of two rows that are converted in one go.
enum { pieceWidth = 128 };

size_t pictureStride(const PictureFormat* format) {
  const size_t width = (size_t)format->width;
  switch (format->fourcc) {
    case V4L2_PIX_FMT_YUYV:
      return width * 2;
    case V4L2_PIX_FMT_RGB24:
      return width * 3;
    case V4L2_PIX_FMT_BGR32:
      return width * 4;
    default:
      return width;
  }
}

size_t pictureSize(const PictureFormat* format) {
  const size_t packed = pictureStride(format) * (size_t)format->height;
  const bool planar = format->fourcc == V4L2_PIX_FMT_YUV420 || format->fourcc == V4L2_PIX_FMT_NV12;
  return planar ? packed + packed / 2 : packed;
}

static void interleave(const uint8_t* restrict even, const uint8_t* restrict odd,
                       uint8_t* restrict out, int count) {
  for (int i = 0; i < count; ++i) {
    out[2 * i] = even[i];
    out[2 * i + 1] = odd[i];
  }
}

static void weave(const uint8_t* restrict luma, const uint8_t* restrict cb,
                  const uint8_t* restrict cr, uint8_t* restrict out, int pairs) {
  for (int i = 0; i < pairs; ++i) {
    out[4 * i] = luma[2 * i];
    out[4 * i + 1] = cb[i];
    out[4 * i + 2] = luma[2 * i + 1];
    out[4 * i + 3] = cr[i];
  }
}

static void paintPlanar(Painter* painter, const PictureFormat* format, uint8_t* out, int y,
                        const uint8_t* upper, const uint8_t* lower) {
  const RowKernels* with = kernels();
  const ColourMatrix* matrix = format->bt709 ? &matrixBt709 : &matrixBt601;
  const size_t width = (size_t)format->width;
  const size_t plane = width * (size_t)format->height;
  uint8_t* const y0 = out + (size_t)y * width;
  uint8_t* const cb = out + plane + (size_t)y / 2 * (width / 2);
  uint8_t* const cr = cb + plane / 4;
  const bool interleaved = format->fourcc == V4L2_PIX_FMT_NV12;
  for (int x = 0; x < format->width; x += pieceWidth) {
    const int count = format->width - x < pieceWidth ? format->width - x : pieceWidth;
    const size_t at = (size_t)x * 4;
    feedPrefetch(&painter->feed, (size_t)count * 4 * 2);
    with->luma(upper + at, y0 + x, count, matrix);
    with->luma(lower + at, y0 + width + x, count, matrix);
    with->chroma(upper + at, lower + at, interleaved ? painter->cb + x / 2 : cb + x / 2,
                 interleaved ? painter->cr + x / 2 : cr + x / 2, count, matrix);
  }
  if (interleaved) {
    interleave(painter->cb, painter->cr, out + plane + (size_t)y / 2 * width, format->width / 2);
  }
}

static void paintPacked(Painter* painter, const PictureFormat* format, uint8_t* out,
                        const uint8_t* row) {
  const RowKernels* with = kernels();
  const ColourMatrix* matrix = format->bt709 ? &matrixBt709 : &matrixBt601;
  switch (format->fourcc) {
    case V4L2_PIX_FMT_YUYV:
      with->luma(row, painter->luma, format->width, matrix);
      with->chroma(row, row, painter->cb, painter->cr, format->width, matrix);
      weave(painter->luma, painter->cb, painter->cr, out, format->width / 2);
      break;
    case V4L2_PIX_FMT_RGB24:
      with->rgb(row, out, format->width);
      break;
    default:
      memcpy(out, row, pictureStride(format));
  }
}

static void paintPair(Painter* painter, const PictureFormat* format, uint8_t* out, int y,
                      const uint8_t* upper, const uint8_t* lower) {
  if (format->fourcc == V4L2_PIX_FMT_YUV420 || format->fourcc == V4L2_PIX_FMT_NV12) {
    paintPlanar(painter, format, out, y, upper, lower);
    return;
  }
  const size_t stride = pictureStride(format);
  paintPacked(painter, format, out + (size_t)y * stride, upper);
  paintPacked(painter, format, out + (size_t)(y + 1) * stride, lower);
}

static bool paintFeed(Painter* painter, const PictureFormat* format, uint8_t* out) {
  Feed* feed = &painter->feed;
  scalerPlan(&painter->scaler, feed, format->width, format->height);
  for (int y = 0; y < format->height; y += 2) {
    const uint8_t* upper = scalerRow(&painter->scaler, feed, y);
    const uint8_t* lower = upper ? scalerRow(&painter->scaler, feed, y + 1) : NULL;
    if (!lower) return false;
    paintPair(painter, format, out, y, upper, lower);
  }
  return feedIsUntorn(feed);
}

static void paintPlaceholder(Painter* painter, const PictureFormat* format, uint8_t* out) {
  uint8_t* upper = painter->scaler.lanes[0];
  uint8_t* lower = painter->scaler.lanes[1];
  for (int y = 0; y < format->height; y += 2) {
    placeholderRow(upper, y, format->width, format->height);
    placeholderRow(lower, y + 1, format->width, format->height);
    paintPair(painter, format, out, y, upper, lower);
  }
  // The rows were the scaler's: its next plan starts from black ones.
  painter->scaler.sourceWidth = 0;
}

void paint(Painter* painter, LLCamera camera, const PictureFormat* format, uint8_t* out,
           const uint8_t* last) {
  // A writer that publishes twice while the frame is read leaves it torn. The next one is whole, or
  // the writer always is as quick as that: then there is no time for more than a copy.
  for (int attempt = 0; attempt < 4; ++attempt) {
    if (!feedOpen(&painter->feed, camera)) break;
    // Also of a writer that is too quick for this reader: it is there.
    painter->lastSign = painter->feed.lastSign;
    const bool inTime = attempt == 0 || feedCopy(&painter->feed);
    const bool whole = inTime && paintFeed(painter, format, out);
    feedClose(&painter->feed);
    if (whole) {
      painter->published = painter->feed.published;
      return;
    }
  }
  painter->published = 0;
  const bool recent = painter->lastSign != 0 && feedClock() - painter->lastSign <= FEED_PATIENCE_NS;
  if (last && recent) {
    if (last != out) memcpy(out, last, pictureSize(format));
    return;
  }
  paintPlaceholder(painter, format, out);
}
