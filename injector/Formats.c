#include "Formats.h"

#include <errno.h>
#include <string.h>

static const struct {
  uint32_t fourcc;
  const char* name;
} formats[] = {
    {V4L2_PIX_FMT_YUV420, "Planar YUV 4:2:0"},
    {V4L2_PIX_FMT_NV12, "Y/CbCr 4:2:0"},
    {V4L2_PIX_FMT_YUYV, "YUYV 4:2:2"},
    {V4L2_PIX_FMT_RGB24, "24-bit RGB 8-8-8"},
    {V4L2_PIX_FMT_BGR32, "32-bit BGRA/X 8-8-8-8"},
};

static const struct {
  int width, height;
} sizes[] = {{640, 480}, {1280, 720}, {1280, 960}, {1920, 1080}};

// The first is the default.
static const uint32_t rates[] = {30, 60, 25, 24, 20, 15, 10, 5};

enum {
  formatCount = sizeof(formats) / sizeof(formats[0]),
  sizeCount = sizeof(sizes) / sizeof(sizes[0]),
  rateCount = sizeof(rates) / sizeof(rates[0]),
  defaultSize = 1,
};

_Static_assert(scalerMaxWidth >= 1920, "the scaler's rows hold the widest picture");

static bool isYuv(uint32_t fourcc) {
  return fourcc != V4L2_PIX_FMT_RGB24 && fourcc != V4L2_PIX_FMT_BGR32;
}

static int formatIndex(uint32_t fourcc) {
  for (int i = 0; i < formatCount; ++i) {
    if (formats[i].fourcc == fourcc) return i;
  }
  return -1;
}

static int sizeIndex(uint32_t width, uint32_t height) {
  for (int i = 0; i < sizeCount; ++i) {
    if ((uint32_t)sizes[i].width == width && (uint32_t)sizes[i].height == height) return i;
  }
  return -1;
}

PictureFormat formatDefault(void) {
  return (PictureFormat){formats[0].fourcc, sizes[defaultSize].width, sizes[defaultSize].height,
                         false};
}

int formatEnumerate(struct v4l2_fmtdesc* description) {
  if (description->type != V4L2_BUF_TYPE_VIDEO_CAPTURE || description->index >= formatCount ||
      description->mbus_code != 0) {
    return EINVAL;
  }
  const uint32_t index = description->index;
  memset(description, 0, sizeof(*description));
  description->index = index;
  description->type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  description->pixelformat = formats[index].fourcc;
  description->flags = isYuv(formats[index].fourcc) ? V4L2_FMT_FLAG_CSC_YCBCR_ENC : 0;
  strncpy((char*)description->description, formats[index].name,
          sizeof(description->description) - 1);
  return 0;
}

int formatEnumerateSizes(struct v4l2_frmsizeenum* size) {
  if (size->index >= sizeCount || formatIndex(size->pixel_format) < 0) return EINVAL;
  const uint32_t index = size->index;
  const uint32_t fourcc = size->pixel_format;
  memset(size, 0, sizeof(*size));
  size->index = index;
  size->pixel_format = fourcc;
  size->type = V4L2_FRMSIZE_TYPE_DISCRETE;
  size->discrete.width = (uint32_t)sizes[index].width;
  size->discrete.height = (uint32_t)sizes[index].height;
  return 0;
}

int formatEnumerateIntervals(struct v4l2_frmivalenum* interval) {
  if (interval->index >= rateCount || formatIndex(interval->pixel_format) < 0 ||
      sizeIndex(interval->width, interval->height) < 0) {
    return EINVAL;
  }
  const struct v4l2_frmivalenum wish = *interval;
  memset(interval, 0, sizeof(*interval));
  interval->index = wish.index;
  interval->pixel_format = wish.pixel_format;
  interval->width = wish.width;
  interval->height = wish.height;
  interval->type = V4L2_FRMIVAL_TYPE_DISCRETE;
  interval->discrete = (struct v4l2_fract){1, rates[wish.index]};
  return 0;
}

static uint64_t distance(uint32_t a, int b) {
  return a > (uint32_t)b ? a - (uint32_t)b : (uint32_t)b - a;
}

PictureFormat formatSettle(const struct v4l2_pix_format* wish) {
  const int index = formatIndex(wish->pixelformat);
  int best = 0;
  uint64_t least = UINT64_MAX;
  for (int i = 0; i < sizeCount; ++i) {
    const uint64_t away =
        distance(wish->width, sizes[i].width) + distance(wish->height, sizes[i].height);
    if (away < least) {
      least = away;
      best = i;
    }
  }
  PictureFormat format = {formats[index < 0 ? 0 : index].fourcc, sizes[best].width,
                          sizes[best].height, false};
  // The matrix is the application's to choose if it says that it does.
  format.bt709 = isYuv(format.fourcc) && wish->priv == V4L2_PIX_FMT_PRIV_MAGIC &&
                 (wish->flags & V4L2_PIX_FMT_FLAG_SET_CSC) != 0 &&
                 wish->ycbcr_enc == V4L2_YCBCR_ENC_709;
  return format;
}

void formatDescribe(const PictureFormat* format, struct v4l2_pix_format* into) {
  memset(into, 0, sizeof(*into));
  into->width = (uint32_t)format->width;
  into->height = (uint32_t)format->height;
  into->pixelformat = format->fourcc;
  into->field = V4L2_FIELD_NONE;
  into->bytesperline = (uint32_t)pictureStride(format);
  into->sizeimage = (uint32_t)pictureSize(format);
  into->colorspace = V4L2_COLORSPACE_SRGB;
  into->priv = V4L2_PIX_FMT_PRIV_MAGIC;
  into->xfer_func = V4L2_XFER_FUNC_SRGB;
  if (isYuv(format->fourcc)) {
    into->ycbcr_enc = format->bt709 ? V4L2_YCBCR_ENC_709 : V4L2_YCBCR_ENC_601;
    into->quantization = V4L2_QUANTIZATION_LIM_RANGE;
  } else {
    into->quantization = V4L2_QUANTIZATION_FULL_RANGE;
  }
}

struct v4l2_fract formatInterval(struct v4l2_fract wish) {
  if (wish.numerator == 0 || wish.denominator == 0) return (struct v4l2_fract){1, rates[0]};
  const double wanted = (double)wish.numerator / wish.denominator;
  uint32_t best = rates[0];
  double least = -1;
  for (int i = 0; i < rateCount; ++i) {
    const double difference = wanted - 1.0 / rates[i];
    const double away = difference < 0 ? -difference : difference;
    if (least < 0 || away < least) {
      least = away;
      best = rates[i];
    }
  }
  return (struct v4l2_fract){1, best};
}
