/*
 * read_feed.c - takes the latest picture out of a feed and writes it to a PPM file.
 *
 *     read_feed /tmp/lenslark.shm picture.ppm
 *
 * It knows nothing of lenslark but lenslark/frame_file.h, and shows all that a reader of feeds has
 * to do: look at what it opened, believe no size before it is checked, and make sure that the
 * writer did not paint over the picture while it was copied.
 *
 * This program reads with pread(). A reader that stays, such as a camera injector, maps the file
 * instead: see "Mapping a feed" in frame-file.md.
 *
 * Build: cc -std=c11 -o read_feed read_feed.c
 */
#define _POSIX_C_SOURCE 200809L

#include <errno.h>
#include <fcntl.h>
#include <inttypes.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "lenslark/frame_file.h"

/* The writer fills a slot in about a millisecond and then leaves it for the time of a frame. */
enum { attempts = 200, pauseMilliseconds = 1 };

/* More than any writer offers: a header that asks for more is broken. */
static const uint64_t mostBytes = UINT64_C(256) << 20;

typedef struct Picture {
  uint32_t width;
  uint32_t height;
  uint32_t bytesPerRow;
  uint8_t* pixels;
} Picture;

/* Where a frame lies, and the counter that moves when it is painted over. */
typedef struct Place {
  uint64_t counter;
  uint32_t width;
  uint32_t height;
  uint32_t bytesPerRow;
  uint64_t offset;
} Place;

static bool readExactly(int fd, void* target, size_t size, uint64_t offset) {
  uint8_t* bytes = target;
  for (size_t done = 0; done < size;) {
    ssize_t count = pread(fd, bytes + done, size - done, (off_t)(offset + done));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false; /* An error, or the file ends before it should. */
    done += (size_t)count;
  }
  return true;
}

static bool readHeader(int fd, LLFrameHeader* header) {
  return readExactly(fd, header, sizeof(*header), 0) && header->magic == LL_FRAME_MAGIC;
}

static uint32_t frontOf(const LLFrameHeader* header) {
  return header->version >= LL_FRAME_VERSION ? header->frontSlot & 1 : 0;
}

static Place placeIn(const LLFrameHeader* header, uint32_t number) {
  if (header->version < LL_FRAME_VERSION) {
    /* The oldest writers have one frame and describe it in the header itself. */
    return (Place){header->sequence, header->width, header->height, header->bytesPerRow,
                   LL_FRAME_DATA_OFFSET};
  }
  const LLFrameSlot* slot = &header->slots[number];
  return (Place){slot->seq, slot->width, slot->height, slot->bytesPerRow,
                 LL_FRAME_DATA_OFFSET + number * header->slotCapacity};
}

static bool isSame(const Place* one, const Place* other) {
  return one->counter == other->counter && one->width == other->width &&
         one->height == other->height && one->bytesPerRow == other->bytesPerRow &&
         one->offset == other->offset;
}

/* Whether a frame can lie there in a file of this size. Nothing here can overflow. */
static bool isPossible(const Place* place, uint64_t fileSize) {
  const uint64_t bytes = (uint64_t)place->bytesPerRow * place->height;
  return place->width != 0 && place->height != 0 &&
         (uint64_t)place->width * LL_FRAME_BYTES_PER_PIXEL <= place->bytesPerRow &&
         bytes <= mostBytes && bytes <= fileSize && place->offset >= LL_FRAME_DATA_OFFSET &&
         place->offset <= fileSize - bytes;
}

static bool copyPixels(int fd, const Place* place, Picture* picture) {
  const size_t bytes = (size_t)place->bytesPerRow * place->height;
  uint8_t* pixels = realloc(picture->pixels, bytes);
  if (pixels == NULL) return false;
  *picture = (Picture){place->width, place->height, place->bytesPerRow, pixels};
  return readExactly(fd, pixels, bytes, place->offset);
}

static void rest(void) {
  const struct timespec time = {0, pauseMilliseconds * 1000000L};
  nanosleep(&time, NULL);
}

/* The latest frame, whole. The caller frees its pixels, also after a failure. */
static bool takePicture(int fd, uint64_t fileSize, Picture* picture) {
  for (int attempt = 0; attempt < attempts; ++attempt) {
    if (attempt > 0) rest();
    LLFrameHeader header;
    if (!readHeader(fd, &header)) return false;
    const uint32_t front = frontOf(&header);
    const Place place = placeIn(&header, front);
    if (place.counter % 2 != 0) continue; /* Being painted. */
    /* One that is not in front yet might be followed by the one before it. */
    if (!readHeader(fd, &header)) return false;
    if (frontOf(&header) != front) continue;
    const bool copied = isPossible(&place, fileSize) && copyPixels(fd, &place, picture);
    if (!readHeader(fd, &header)) return false;
    /* All of it: counter and description may have been read a moment apart. */
    const Place after = placeIn(&header, front);
    if (isSame(&place, &after)) return copied;
    /* Painted over meanwhile: what was copied may be half of one frame and half of another. */
  }
  return false;
}

/* PPM has no alpha. Premultiplied colours without it are the picture on black. */
static bool writePpm(const char* path, const Picture* picture) {
  FILE* file = fopen(path, "wb");
  if (file == NULL) return false;
  fprintf(file, "P6\n%" PRIu32 " %" PRIu32 "\n255\n", picture->width, picture->height);
  for (uint32_t y = 0; y < picture->height; ++y) {
    const uint8_t* row = picture->pixels + (size_t)y * picture->bytesPerRow;
    for (uint32_t x = 0; x < picture->width; ++x) {
      const uint8_t* bgra = row + (size_t)x * LL_FRAME_BYTES_PER_PIXEL;
      const uint8_t rgb[3] = {bgra[2], bgra[1], bgra[0]};
      fwrite(rgb, sizeof(rgb), 1, file);
    }
  }
  const bool written = ferror(file) == 0;
  return fclose(file) == 0 && written;
}

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: read_feed FEED PICTURE.ppm\n");
    return 2;
  }
  /* Anything may lie in /tmp: follow no link, wait for no FIFO, and read regular files alone. */
  const int fd = open(argv[1], O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  struct stat status;
  if (fd < 0 || fstat(fd, &status) != 0) {
    fprintf(stderr, "read_feed: %s: %s\n", argv[1], strerror(errno));
    return 1;
  }
  Picture picture = {0, 0, 0, NULL};
  int result = 1;
  if (!S_ISREG(status.st_mode) || status.st_size < (off_t)LL_FRAME_DATA_OFFSET) {
    fprintf(stderr, "read_feed: %s is no feed\n", argv[1]);
  } else if (!takePicture(fd, (uint64_t)status.st_size, &picture)) {
    fprintf(stderr, "read_feed: %s holds no whole picture\n", argv[1]);
  } else if (!writePpm(argv[2], &picture)) {
    fprintf(stderr, "read_feed: cannot write %s\n", argv[2]);
  } else {
    result = 0;
  }
  free(picture.pixels);
  close(fd);
  return result;
}
