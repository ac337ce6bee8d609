// Formats.h - the pixel formats, frame sizes and frame rates that a camera offers.
//
// Threads: any, all values are constant. Owns: nothing. Fails: enumerations answer EINVAL behind
// their end, the others settle on the nearest thing on offer.
#pragma once

#include <linux/videodev2.h>

#include "Painter.h"

/// What a camera has until an application asks for something else.
PictureFormat formatDefault(void);

// The enumerations: 0, or EINVAL.
int formatEnumerate(struct v4l2_fmtdesc* description);
int formatEnumerateSizes(struct v4l2_frmsizeenum* size);
int formatEnumerateIntervals(struct v4l2_frmivalenum* interval);

/// Settles a wish: a size on offer is kept, else the nearest is taken.
PictureFormat formatSettle(const struct v4l2_pix_format* wish);

/// Describes a format as the application reads it.
void formatDescribe(const PictureFormat* format, struct v4l2_pix_format* into);

/// The nearest frame interval on offer, the default one for a wish of zero.
struct v4l2_fract formatInterval(struct v4l2_fract wish);
