/*
 * frame_file.h - the shared-memory frame file through which lenslark hands a camera's pictures
 * to a camera injector.
 *
 * One file holds one feed. Its first 4096 bytes are a header, then come two slots of pixels. The
 * writer fills the slot that readers are not pointed at and then points them at it, so that a
 * reader always finds one whole frame. Everything is little-endian; docs/frame-file.md tells the
 * protocol in words, examples/read_feed.c is a complete reader.
 *
 * This header is plain C11 and needs nothing else of lenslark.
 */
#ifndef LENSLARK_FRAME_FILE_H
#define LENSLARK_FRAME_FILE_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The file's first four bytes, "LLF1", read as a little-endian word. */
#define LL_FRAME_MAGIC UINT32_C(0x31464C4C)

/** The layout below. Version 1 files hold a single frame at LL_FRAME_DATA_OFFSET. */
#define LL_FRAME_VERSION UINT32_C(2)

/** Bytes before the first slot's pixels, and the least size of a frame file. */
#define LL_FRAME_DATA_OFFSET UINT32_C(4096)

/** Pixels are B, G, R, A bytes with premultiplied alpha. */
#define LL_FRAME_BYTES_PER_PIXEL UINT32_C(4)

/** Which camera a feed belongs to (LLFrameHeader.camera). */
typedef uint32_t LLCamera;
enum {
  LLCameraDevice = 0, /**< The device-wide feed, or the global one. */
  LLCameraBack = 1,
  LLCameraFront = 2
};

/** How a picture meets the camera's view (LLFrameHeader.sceneMode): anything but 1 is fit. */
typedef uint32_t LLSceneMode;
enum {
  LLSceneModeFit = 0, /**< The whole picture, with bars where the shapes differ. */
  LLSceneModeFill = 1 /**< The view is covered, what stands over is cut. */
};

/** What a frame is (LLFrameHeader.contentKind). Readers take other values for live. */
typedef uint32_t LLContentKind;
enum {
  LLContentKindLive = 0,
  LLContentKindStill = 1,
  LLContentKindVideo = 2,
  LLContentKindPattern = 3
};

/** One of the two slots. Its pixels start at dataOffset + n * slotCapacity. */
typedef struct LLFrameSlot {
  uint64_t seq;         /**< Odd while the slot is being written, even when it is whole. */
  uint64_t timestamp;   /**< CLOCK_MONOTONIC nanoseconds when the frame was complete. */
  uint32_t width;       /**< Pixels. */
  uint32_t height;      /**< Pixels. The top row comes first. */
  uint32_t bytesPerRow; /**< width * 4: rows are tightly packed. */
  LLContentKind contentKind;
} LLFrameSlot;

/** The start of the file. What is marked "version 1" describes slot 0 for the oldest readers. */
typedef struct LLFrameHeader {
  uint32_t magic;       /**< LL_FRAME_MAGIC. */
  uint32_t version;     /**< LL_FRAME_VERSION. */
  uint32_t width;       /**< Version 1: width of the frame in slot 0. */
  uint32_t height;      /**< Version 1: its height. */
  uint32_t bytesPerRow; /**< Version 1: its row length. */
  LLSceneMode sceneMode;
  uint64_t sequence;         /**< Version 1: odd while slot 0 is being written. */
  uint64_t timestamp;        /**< Version 1: as LLFrameSlot.timestamp, of slot 0. */
  uint64_t heartbeat;        /**< CLOCK_MONOTONIC nanoseconds of the writer's last sign of life. */
  uint32_t writerPid;        /**< 0 once the writer has closed the file. */
  uint32_t dataOffset;       /**< LL_FRAME_DATA_OFFSET. */
  uint64_t slotCapacity;     /**< Bytes of one slot. */
  LLContentKind contentKind; /**< Of the latest published frame. */
  uint32_t frontSlot;        /**< 0 or 1: the slot with the latest whole frame. */
  LLCamera camera;
  uint32_t isStill; /**< 1 when contentKind is LLContentKindStill. */
  LLFrameSlot slots[2];
} LLFrameHeader;

/* The layout is the contract: each field where every reader expects it. */
#if defined(__cplusplus)
#define LL_FRAME_ASSERT(condition) static_assert(condition, #condition)
#else
#define LL_FRAME_ASSERT(condition) _Static_assert(condition, #condition)
#endif
LL_FRAME_ASSERT(offsetof(LLFrameHeader, magic) == 0);
LL_FRAME_ASSERT(offsetof(LLFrameHeader, version) == 4);
LL_FRAME_ASSERT(offsetof(LLFrameHeader, width) == 8);
LL_FRAME_ASSERT(offsetof(LLFrameHeader, height) == 12);
LL_FRAME_ASSERT(offsetof(LLFrameHeader, bytesPerRow) == 16);
LL_FRAME_ASSERT(offsetof(LLFrameHeader, sceneMode) == 20);
LL_FRAME_ASSERT(offsetof(LLFrameHeader, sequence) == 24);
LL_FRAME_ASSERT(offsetof(LLFrameHeader, timestamp) == 32);
LL_FRAME_ASSERT(offsetof(LLFrameHeader, heartbeat) == 40);
LL_FRAME_ASSERT(offsetof(LLFrameHeader, writerPid) == 48);
LL_FRAME_ASSERT(offsetof(LLFrameHeader, dataOffset) == 52);
LL_FRAME_ASSERT(offsetof(LLFrameHeader, slotCapacity) == 56);
LL_FRAME_ASSERT(offsetof(LLFrameHeader, contentKind) == 64);
LL_FRAME_ASSERT(offsetof(LLFrameHeader, frontSlot) == 68);
LL_FRAME_ASSERT(offsetof(LLFrameHeader, camera) == 72);
LL_FRAME_ASSERT(offsetof(LLFrameHeader, isStill) == 76);
LL_FRAME_ASSERT(offsetof(LLFrameHeader, slots) == 80);
LL_FRAME_ASSERT(offsetof(LLFrameSlot, seq) == 0);
LL_FRAME_ASSERT(offsetof(LLFrameSlot, timestamp) == 8);
LL_FRAME_ASSERT(offsetof(LLFrameSlot, width) == 16);
LL_FRAME_ASSERT(offsetof(LLFrameSlot, height) == 20);
LL_FRAME_ASSERT(offsetof(LLFrameSlot, bytesPerRow) == 24);
LL_FRAME_ASSERT(offsetof(LLFrameSlot, contentKind) == 28);
LL_FRAME_ASSERT(sizeof(LLFrameSlot) == 32);
LL_FRAME_ASSERT(sizeof(LLFrameHeader) == 144);
#undef LL_FRAME_ASSERT

#ifdef __cplusplus
}
#endif

#endif /* LENSLARK_FRAME_FILE_H */
