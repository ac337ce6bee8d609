// View.h - a feed's file seen through a mapping, without trusting what is behind it.
//
// Whoever touches a page of a mapping whose file was cut short gets SIGBUS. Its bytes are read
// under a guard that stands such a touch (Guard.h), or, where the host has its own ways with that
// signal, copied by the kernel, which fails where it would have raised it. With what is prefetched
// a frame costs less than half of what it does with pread(), which looks up and pins each page of
// the file.
//
// A mapping keeps a file's space until it is gone, so a view is closed as soon as its file is no
// longer the feed.
//
// Threads: a View belongs to one thread at a time. Owns: the mapping, from viewOpen() to
// viewClose(). Fails: a file that cannot be mapped is not in view: there is nothing to touch, and
// viewCopy() says false.
#pragma once

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/stat.h>

typedef struct View {
  uint8_t* address;  // NULL while no file is in view.
  size_t length;
  dev_t device;
  ino_t inode;
} View;

/// Brings a file into view, whose descriptor and status these are. Free if it already is.
void viewOpen(View* view, int descriptor, const struct stat* file);

/// Lets this thread read what is in view until viewLeave(). False where that cannot be done safely.
bool viewEnter(View* view);

/// `size` bytes at `offset` of the file to read in place, between viewEnter() and viewLeave(). NULL
/// if the file ends before, by what was known of it when it came into view.
const uint8_t* viewBytes(const View* view, size_t size, uint64_t offset);

/// False if something that was read in place was not there, and read as zeros.
bool viewIsWhole(void);

void viewLeave(View* view);

/// Copies `size` bytes at `offset` of the file. False if the file ends before, or the kernel will
/// not copy for this process.
bool viewCopy(const View* view, void* into, size_t size, uint64_t offset);

/// Asks the processor for bytes that will be read soon. Of each two pages the lines are asked for
/// in turns, which memory answers sooner than one page's after the other's: what is walked through
/// from call to call is complete when it ends at a multiple of 8 KB.
void viewPrefetch(const View* view, size_t size, uint64_t offset);

void viewClose(View* view);
