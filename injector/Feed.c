#include "Feed.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdatomic.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "Real.h"

static char deviceFeed[PATH_MAX];
static char globalFeed[PATH_MAX];

static void remember(char* into, const char* text) {
  const size_t length = strlen(text);
  if (length < PATH_MAX) memcpy(into, text, length + 1);
}

void feedConfigure(void) {
  const char* device = getenv("LENSLARK_DEVICE_FEED");
  const char* global = getenv("LENSLARK_SHM");
  remember(deviceFeed, device ? device : "");
  remember(globalFeed, global ? global : "/tmp/lenslark.shm");
}

uint64_t feedClock(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (uint64_t)now.tv_sec * UINT64_C(1000000000) + (uint64_t)now.tv_nsec;
}

static bool readAt(int descriptor, void* into, size_t size, uint64_t offset) {
  return pread(descriptor, into, size, (off_t)offset) == (ssize_t)size;
}

static bool isAlive(const LLFrameHeader* header) {
  if (header->heartbeat == 0) {
    // A writer that has only just opened its file.
    const pid_t writer = (pid_t)header->writerPid;
    return writer > 0 && (kill(writer, 0) == 0 || errno == EPERM);
  }
  const uint64_t now = feedClock();
  return header->heartbeat <= now && now - header->heartbeat <= FEED_PATIENCE_NS;
}

// Takes the geometry of the front slot, or of the only frame of a version 1 file.
static bool takeGeometry(Feed* feed, const LLFrameHeader* header, uint64_t fileSize) {
  uint64_t room;
  if (header->version >= LL_FRAME_VERSION) {
    const uint32_t front = header->frontSlot & 1;
    const LLFrameSlot* slot = &header->slots[front];
    if (header->slotCapacity > fileSize) return false;
    feed->width = slot->width;
    feed->height = slot->height;
    feed->stride = slot->bytesPerRow;
    feed->published = slot->timestamp;
    feed->counter = slot->seq;
    feed->counterAt = offsetof(LLFrameHeader, slots) + front * sizeof(LLFrameSlot);
    feed->pixelsAt = LL_FRAME_DATA_OFFSET + front * header->slotCapacity;
    room = header->slotCapacity;
  } else {
    feed->width = header->width;
    feed->height = header->height;
    feed->stride = header->bytesPerRow;
    feed->published = header->timestamp;
    feed->counter = header->sequence;
    feed->counterAt = offsetof(LLFrameHeader, sequence);
    feed->pixelsAt = LL_FRAME_DATA_OFFSET;
    room = fileSize;
  }
  if (feed->width == 0 || feed->width > feedMaxSide) return false;
  if (feed->height == 0 || feed->height > feedMaxSide) return false;
  if (feed->stride < feed->width * LL_FRAME_BYTES_PER_PIXEL) return false;
  if (feed->stride > feedMaxStride) return false;
  const uint64_t size = (uint64_t)feed->stride * feed->height;
  return size <= room && feed->pixelsAt <= fileSize && size <= fileSize - feed->pixelsAt;
}

enum Outcome { nobody, noFrame, ready };

static enum Outcome tryFile(Feed* feed, const char* path) {
  feed->descriptor =
      realOpenat(AT_FDCWD, path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY, 0);
  if (feed->descriptor < 0) return nobody;
  enum Outcome outcome = nobody;
  struct stat status;
  LLFrameHeader header;
  if (realFstatat(feed->descriptor, "", &status, AT_EMPTY_PATH) == 0 && S_ISREG(status.st_mode) &&
      status.st_uid == geteuid() && status.st_nlink == 1 &&
      status.st_size >= (off_t)LL_FRAME_DATA_OFFSET &&
      readAt(feed->descriptor, &header, sizeof(header), 0) && header.magic == LL_FRAME_MAGIC &&
      isAlive(&header)) {
    feed->fill = header.sceneMode == LLSceneModeFill;
    feed->lastSign = header.heartbeat;
    feed->copied = false;
    feed->bandCount = 0;
    feed->aheadAt = feed->aheadEnd = 0;
    const bool whole = takeGeometry(feed, &header, (uint64_t)status.st_size);
    outcome = whole && feed->counter % 2 == 0 ? ready : noFrame;
    viewOpen(&feed->view, feed->descriptor, &status);
    feed->entered = outcome == ready && viewEnter(&feed->view);
  }
  if (outcome != ready) feedClose(feed);
  return outcome;
}

static enum Outcome findFile(Feed* feed, LLCamera camera) {
  const char* suffix = camera == LLCameraFront ? "-front" : "-back";
  char own[64];
  snprintf(own, sizeof(own), "/tmp/lenslark-pid-%d", (int)getpid());
  const char* const stems[] = {own, deviceFeed};
  for (int i = 0; i < 2; ++i) {
    if (stems[i][0] == '\0') continue;
    for (int wide = 0; wide < 2; ++wide) {
      char path[PATH_MAX + 16];
      snprintf(path, sizeof(path), "%s%s.shm", stems[i], wide ? "" : suffix);
      const enum Outcome outcome = tryFile(feed, path);
      if (outcome != nobody) return outcome;
    }
  }
  return globalFeed[0] == '\0' ? nobody : tryFile(feed, globalFeed);
}

bool feedOpen(Feed* feed, LLCamera camera) {
  const enum Outcome outcome = findFile(feed, camera);
  if (outcome == nobody) feedForget(feed);
  return outcome == ready;
}

static bool readPixels(const Feed* feed, void* into, size_t size, uint64_t offset) {
  const uint64_t at = feed->pixelsAt + offset;
  return viewCopy(&feed->view, into, size, at) || readAt(feed->descriptor, into, size, at);
}

bool feedCopy(Feed* feed) {
  const size_t size = (size_t)feed->stride * feed->height;
  if (!feed->room || size > feedCopyBytes) return true;
  feed->copied = readPixels(feed, feed->room, size, 0) && feedIsUntorn(feed);
  return feed->copied;
}

// As many rows as stay in the processor's nearer cache until they are converted.
static uint32_t bandRows(const Feed* feed, uint32_t first) {
  uint32_t rows = feedBandTarget / feed->stride;
  if (rows < feedLeastRows) rows = feedLeastRows;
  return rows < feed->height - first ? rows : feed->height - first;
}

static bool readBand(Feed* feed, uint8_t* band, uint32_t first) {
  const uint32_t rows = bandRows(feed, first);
  feed->bandFirst = first;
  feed->bandCount = rows;
  feed->aheadAt = (uint64_t)(first + rows) * feed->stride;
  feed->aheadEnd = feed->aheadAt + (uint64_t)bandRows(feed, first + rows) * feed->stride;
  if (readPixels(feed, band, (size_t)rows * feed->stride, (uint64_t)first * feed->stride))
    return true;
  feed->bandCount = 0;
  return false;
}

// Rows in place, unless they lie so close to the mapping's end that a vector would reach over it.
static const uint8_t* rowsInPlace(Feed* feed, uint32_t first, uint32_t count) {
  const uint64_t begin = (uint64_t)first * feed->stride;
  const size_t size = (size_t)count * feed->stride;
  const uint8_t* rows = viewBytes(&feed->view, size + feedPadding, feed->pixelsAt + begin);
  if (!rows) return NULL;
  const uint64_t end = begin + size;
  const uint64_t whole = (uint64_t)feed->stride * feed->height;
  if (feed->aheadAt < end) feed->aheadAt = end + feedLead;
  const uint64_t most = end + feedLead + feedLeadWindow;
  feed->aheadEnd = most < whole ? most : whole;
  return rows;
}

const uint8_t* feedRows(Feed* feed, uint32_t first, uint32_t count) {
  if (first > feed->height || count > feed->height - first) return NULL;
  if (feed->copied) return feed->room + (size_t)first * feed->stride;
  const uint8_t* rows = feed->entered ? rowsInPlace(feed, first, count) : NULL;
  if (rows) return rows;
  const bool held = first >= feed->bandFirst && count <= feed->bandCount &&
                    first - feed->bandFirst <= feed->bandCount - count;
  uint8_t* band = feed->room ? feed->room : feed->band;
  if (!held && !readBand(feed, band, first)) return NULL;
  return band + (size_t)(first - feed->bandFirst) * feed->stride;
}

void feedPrefetch(Feed* feed, size_t size) {
  const uint64_t rest = feed->aheadEnd > feed->aheadAt ? feed->aheadEnd - feed->aheadAt : 0;
  if (size > rest) size = (size_t)rest;
  viewPrefetch(&feed->view, size, feed->pixelsAt + feed->aheadAt);
  feed->aheadAt += size;
}

bool feedIsUntorn(const Feed* feed) {
  if (feed->copied) return true;
  uint64_t counter;
  atomic_thread_fence(memory_order_acquire);
  return readAt(feed->descriptor, &counter, sizeof(counter), feed->counterAt) &&
         counter == feed->counter && (!feed->entered || viewIsWhole());
}

void feedClose(Feed* feed) {
  if (feed->entered) viewLeave(&feed->view);
  feed->entered = false;
  realClose(feed->descriptor);
  feed->descriptor = -1;
}

void feedForget(Feed* feed) { viewClose(&feed->view); }
