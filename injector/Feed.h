// Feed.h - finds a camera's frame file and reads its latest whole frame.
//
// A frame file is opened anew for each frame, so that one that is replaced, resized or truncated
// meanwhile is simply seen as it is now. Opening costs some microseconds, and no descriptor stays
// behind that the host could close or inherit. Its header is read with pread(), its pixels through
// a mapping that is kept from frame to frame and read so that the host program never sees a SIGBUS
// (View.h).
//
// Files are tried in this order, and the first that has a living writer is the feed:
//   /tmp/lenslark-pid-PID-back.shm (or -front), /tmp/lenslark-pid-PID.shm,
//   $LENSLARK_DEVICE_FEED-back.shm (or -front), $LENSLARK_DEVICE_FEED.shm,
//   $LENSLARK_SHM if that is set, else /tmp/lenslark.shm.
//
// Threads: a Feed belongs to one thread at a time. feedConfigure() belongs to the constructor.
// Owns: the descriptor from feedOpen() to feedClose(), the view until feedForget().
// Fails: nothing is reported but "no frame"; a file that is not a regular file of this user with
// one link, or whose header does not add up, counts as absent.
#pragma once

#include <stdbool.h>
#include <stdint.h>

#include "View.h"
#include "lenslark/frame_file.h"

enum {
  feedMaxSide = 16384,
  feedMaxStride = feedMaxSide * 4,
  feedLeastRows = 4,  ///< As many as may be asked for at once.
  feedBandBytes = feedLeastRows * feedMaxStride,
  feedBandTarget = 131072,
  feedLead = 36864,                 ///< Bytes read in place are asked for so far ahead,
  feedLeadWindow = 24576,           ///< but these at most before some are read.
  feedPadding = 64,                 ///< Vectors may read (and ignore) this much behind a row.
  feedCopyBytes = 2048 * 2048 * 4,  ///< No frame of lenslark's own is larger.
  feedRoomBytes = feedCopyBytes + feedPadding,
};

/// A writer that gave no sign of life for so long is gone.
#define FEED_PATIENCE_NS UINT64_C(3000000000)

typedef struct Feed {
  uint32_t width, height, stride;  ///< Of the frame, in pixels and bytes.
  bool fill;                       ///< The view is covered rather than the picture kept whole.
  uint64_t lastSign;               ///< CLOCK_MONOTONIC nanoseconds of the writer's heartbeat.
  uint64_t published;              ///< The same of the frame's publication.

  /// Room for a whole frame, feedRoomBytes that belong to someone else, or NULL.
  uint8_t* room;

  View view;
  int descriptor;
  uint64_t pixelsAt;              // Offset of the top row in the file.
  uint64_t counterAt, counter;    // The slot's sequence counter, and what it was.
  bool copied;                    // The room holds the frame, whole.
  bool entered;                   // The view's bytes may be read in place.
  uint32_t bandFirst, bandCount;  // The rows that the room, or the band, holds otherwise.
  uint64_t aheadAt, aheadEnd;     // What to prefetch of the rows to come: offsets from the top row.
  uint8_t band[feedBandBytes + feedPadding];
} Feed;

/// Remembers what the environment says about feeds.
void feedConfigure(void);

/// Opens the feed of one camera and takes its latest frame's geometry. False if there is none.
bool feedOpen(Feed* feed, LLCamera camera);

/// Copies the frame that was found without stopping to convert it, which takes more memory traffic
/// but leaves a quick writer the least time to overtake. False if it did. Where there is no room
/// for the frame nothing is copied, and its rows are read one by one as ever.
bool feedCopy(Feed* feed);

/// `count` (at most feedLeastRows) whole rows from `first` on, `stride` bytes apart, valid until
/// the next call. NULL if the file ends before.
const uint8_t* feedRows(Feed* feed, uint32_t first, uint32_t count);

/// Asks the processor for some more of the rows that follow those read, `size` bytes. Called every
/// few hundred pixels of work, so that memory is waited for while the work is done: no processor
/// can have more than some cache lines on their way at once.
void feedPrefetch(Feed* feed, size_t size);

/// True if the rows read since feedOpen() all belong to the frame that it found.
bool feedIsUntorn(const Feed* feed);

void feedClose(Feed* feed);

/// Lets go of what is kept from frame to frame.
void feedForget(Feed* feed);

/// CLOCK_MONOTONIC in nanoseconds.
uint64_t feedClock(void);
