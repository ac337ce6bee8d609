#include "View.h"

#include <sys/mman.h>

#include "Guard.h"
#include "Real.h"
#include "UserMemory.h"

enum {
  cacheLine = 64,
  page = 4096,
  turn = 2 * page,       ///< Two pages are asked for in turns.
  maxLength = 64 << 20,  ///< Twice what a writer of ours makes. Larger files are read.
};

static bool holds(const View* view, size_t size, uint64_t offset) {
  return view->address && offset <= view->length && size <= view->length - offset;
}

void viewOpen(View* view, int descriptor, const struct stat* file) {
  const size_t length = (size_t)file->st_size;
  if (view->address && view->device == file->st_dev && view->inode == file->st_ino &&
      view->length == length) {
    return;
  }
  viewClose(view);
  if (length > maxLength) return;
  void* address = realMmap(NULL, length, PROT_READ, MAP_SHARED, descriptor, 0);
  if (address == MAP_FAILED) return;
  *view = (View){address, length, file->st_dev, file->st_ino};
}

bool viewEnter(View* view) { return view->address && guardBegin(view->address, view->length); }

const uint8_t* viewBytes(const View* view, size_t size, uint64_t offset) {
  return holds(view, size, offset) ? view->address + offset : NULL;
}

bool viewIsWhole(void) { return guardHolds(); }

void viewLeave(View* view) {
  const bool whole = guardHolds();
  guardEnd();
  if (!whole) viewClose(view);
}

bool viewCopy(const View* view, void* into, size_t size, uint64_t offset) {
  return holds(view, size, offset) && copyGuarded(into, view->address + offset, size);
}

// Where the line is that comes in the place of the one at an offset, when two pages take turns.
static uint64_t inTurns(uint64_t offset) {
  const uint64_t line = offset % turn / cacheLine;
  return offset - offset % turn + line % 2 * page + line / 2 * cacheLine;
}

void viewPrefetch(const View* view, size_t size, uint64_t offset) {
  if (!holds(view, size, offset)) return;
  // A prefetch of what is not there is ignored.
  for (uint64_t at = offset; at < offset + size; at += cacheLine)
    __builtin_prefetch(view->address + inTurns(at), 0, 2);
}

void viewClose(View* view) {
  if (view->address) realMunmap(view->address, view->length);
  *view = (View){0};
}
