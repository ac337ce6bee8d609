#include "Ioctl.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/utsname.h>

#include "Formats.h"
#include "Real.h"
#include "Stream.h"
#include "UserMemory.h"

typedef struct Call {
  Handle* handle;
  Device* device;
  int descriptor;
} Call;

// The largest argument of the requests below.
typedef union Argument {
  struct v4l2_capability capability;
  struct v4l2_fmtdesc description;
  struct v4l2_frmsizeenum size;
  struct v4l2_frmivalenum interval;
  struct v4l2_format format;
  struct v4l2_streamparm parameters;
  struct v4l2_input input;
  struct v4l2_requestbuffers request;
  struct v4l2_create_buffers create;
  struct v4l2_exportbuffer exported;
  struct v4l2_buffer buffer;
  uint32_t number;
} Argument;

static uint32_t kernelVersion(void) {
  struct utsname name;
  unsigned major = 5;
  unsigned minor = 10;
  unsigned patch = 0;
  if (uname(&name) == 0) sscanf(name.release, "%u.%u.%u", &major, &minor, &patch);
  return (major & 0xff) << 16 | (minor & 0xff) << 8 | (patch > 0xff ? 0xff : patch);
}

static int queryCapability(const Call* call, struct v4l2_capability* into) {
  memset(into, 0, sizeof(*into));
  snprintf((char*)into->driver, sizeof(into->driver), "lenslark");
  snprintf((char*)into->card, sizeof(into->card), "%s", call->device->name);
  snprintf((char*)into->bus_info, sizeof(into->bus_info), "platform:lenslark-%03d",
           call->device->index);
  into->version = kernelVersion();
  into->device_caps =
      V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_READWRITE | V4L2_CAP_STREAMING | V4L2_CAP_EXT_PIX_FORMAT;
  into->capabilities = into->device_caps | V4L2_CAP_DEVICE_CAPS;
  return 0;
}

// True if an application of higher priority has claimed the device.
static bool isOverruled(const Call* call) {
  return call->handle->priority < handleHighestPriority(call->device);
}

static int getFormat(const Call* call, struct v4l2_format* format) {
  if (format->type != V4L2_BUF_TYPE_VIDEO_CAPTURE) return EINVAL;
  pthread_mutex_lock(&call->device->lock);
  const PictureFormat current = call->device->format;
  pthread_mutex_unlock(&call->device->lock);
  formatDescribe(&current, &format->fmt.pix);
  return 0;
}

static int tryFormat(struct v4l2_format* format) {
  if (format->type != V4L2_BUF_TYPE_VIDEO_CAPTURE) return EINVAL;
  const PictureFormat settled = formatSettle(&format->fmt.pix);
  formatDescribe(&settled, &format->fmt.pix);
  return 0;
}

static int setFormat(const Call* call, struct v4l2_format* format) {
  if (format->type != V4L2_BUF_TYPE_VIDEO_CAPTURE) return EINVAL;
  const PictureFormat settled = formatSettle(&format->fmt.pix);
  Device* device = call->device;
  pthread_mutex_lock(&device->lock);
  const bool busy = device->owner != NULL;
  if (!busy) device->format = settled;
  pthread_mutex_unlock(&device->lock);
  if (busy) return EBUSY;
  formatDescribe(&settled, &format->fmt.pix);
  return 0;
}

static int parameters(const Call* call, struct v4l2_streamparm* parameter, bool set) {
  if (parameter->type != V4L2_BUF_TYPE_VIDEO_CAPTURE) return EINVAL;
  Device* device = call->device;
  const struct v4l2_fract wish = parameter->parm.capture.timeperframe;
  pthread_mutex_lock(&device->lock);
  const bool busy = set && device->streaming;
  if (set && !busy) device->interval = formatInterval(wish);
  const struct v4l2_fract interval = device->interval;
  pthread_mutex_unlock(&device->lock);
  if (busy) return EBUSY;
  memset(&parameter->parm, 0, sizeof(parameter->parm));
  parameter->parm.capture.capability = V4L2_CAP_TIMEPERFRAME;
  parameter->parm.capture.timeperframe = interval;
  parameter->parm.capture.readbuffers = 2;
  return 0;
}

static int enumerateInput(const Call* call, struct v4l2_input* input) {
  if (input->index != 0) return EINVAL;
  memset(input, 0, sizeof(*input));
  snprintf((char*)input->name, sizeof(input->name), "%s", call->device->name);
  input->type = V4L2_INPUT_TYPE_CAMERA;
  return 0;
}

static int setPriority(const Call* call, uint32_t priority) {
  if (isOverruled(call)) return EBUSY;
  if (priority < V4L2_PRIORITY_BACKGROUND || priority > V4L2_PRIORITY_RECORD) return EINVAL;
  call->handle->priority = priority;
  return 0;
}

static int answer(const Call* call, uint32_t request, Argument* argument) {
  switch (request) {
    case VIDIOC_QUERYCAP:
      return queryCapability(call, &argument->capability);
    case VIDIOC_ENUM_FMT:
      return formatEnumerate(&argument->description);
    case VIDIOC_ENUM_FRAMESIZES:
      return formatEnumerateSizes(&argument->size);
    case VIDIOC_ENUM_FRAMEINTERVALS:
      return formatEnumerateIntervals(&argument->interval);
    case VIDIOC_G_FMT:
      return getFormat(call, &argument->format);
    case VIDIOC_TRY_FMT:
      return tryFormat(&argument->format);
    case VIDIOC_S_FMT:
      return isOverruled(call) ? EBUSY : setFormat(call, &argument->format);
    case VIDIOC_G_PARM:
      return parameters(call, &argument->parameters, false);
    case VIDIOC_S_PARM:
      return isOverruled(call) ? EBUSY : parameters(call, &argument->parameters, true);
    case VIDIOC_ENUMINPUT:
      return enumerateInput(call, &argument->input);
    case VIDIOC_G_INPUT:
      argument->number = 0;
      return 0;
    case VIDIOC_S_INPUT:
      if (isOverruled(call)) return EBUSY;
      return argument->number == 0 ? 0 : EINVAL;
    case VIDIOC_G_PRIORITY:
      argument->number = handleHighestPriority(call->device);
      return 0;
    case VIDIOC_S_PRIORITY:
      return setPriority(call, argument->number);
    case VIDIOC_REQBUFS:
      return isOverruled(call) ? EBUSY
                               : streamRequest(call->handle, call->descriptor, &argument->request);
    case VIDIOC_CREATE_BUFS:
      return isOverruled(call) ? EBUSY
                               : streamCreate(call->handle, call->descriptor, &argument->create);
    case VIDIOC_QUERYBUF:
      return streamQuery(call->handle, &argument->buffer);
    case VIDIOC_EXPBUF:
      return streamExport(call->handle, &argument->exported);
    case VIDIOC_PREPARE_BUF:
      return streamPrepare(call->handle, &argument->buffer);
    case VIDIOC_QBUF:
      return streamQueue(call->handle, call->descriptor, &argument->buffer);
    case VIDIOC_DQBUF:
      return streamDequeue(call->handle, call->descriptor, &argument->buffer);
    case VIDIOC_STREAMON:
      return isOverruled(call) ? EBUSY : streamOn(call->handle, call->descriptor, argument->number);
    case VIDIOC_STREAMOFF:
      return isOverruled(call) ? EBUSY
                               : streamOff(call->handle, call->descriptor, argument->number);
    default:
      return ENOTTY;
  }
}

int cameraIoctl(Handle* handle, int descriptor, unsigned long request, void* argument) {
  // Requests of the file layer (FIONBIO and the like) are the kernel's own business.
  if (_IOC_TYPE(request) != 'V') return realIoctl(descriptor, request, argument);
  // Some callers pass the request as an int, which may have been sign-extended.
  const uint32_t number = (uint32_t)request;
  const size_t size = _IOC_SIZE(number);
  Argument copy;
  if (size > sizeof(copy)) {
    errno = ENOTTY;
    return -1;
  }
  memset(&copy, 0, sizeof(copy));
  const bool comesIn = (_IOC_DIR(number) & _IOC_WRITE) != 0;
  if (comesIn && !copyFromUser(&copy, argument, size)) return -1;
  const int saved = errno;
  const Call call = {handle, handle->device, descriptor};
  int error = answer(&call, number, &copy);
  // Whoever has the camera may have closed it without our notice.
  if (error == EBUSY && handlesSweep()) error = answer(&call, number, &copy);
  if (error) {
    errno = error;
    return -1;
  }
  if ((_IOC_DIR(number) & _IOC_READ) != 0 && !copyToUser(argument, &copy, size)) return -1;
  errno = saved;
  return 0;
}
