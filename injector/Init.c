// Init.c - the library's start: before it, every interposed call only passes through.

#include "Device.h"
#include "Feed.h"
#include "Kernels.h"
#include "Real.h"

__attribute__((constructor)) static void start(void) {
  realResolve();
  kernelsSelect();
  feedConfigure();
  deviceConfigure();
  realStart();
  deviceAdoptRedirected();
}
