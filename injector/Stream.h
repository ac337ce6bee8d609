// Stream.h - buffers, the queue, and the moments at which frames are due.
//
// Pictures are painted when a buffer is dequeued: the application's thread does the work, no other
// thread exists. A queued buffer whose frame is due makes the descriptor readable.
//
// Buffers are shared anonymous memory. An application's mmap() is a second mapping of the same
// pages, so no descriptor stands behind it, and what is mapped stays valid after the buffer is
// freed. Only a buffer that is exported moves into a file in memory.
//
// Threads: any. Owns: the buffers' memory, until their handle frees them or is closed.
// Fails: the calls return 0 or an errno value, as the ioctl of their name does.
#pragma once

#include <sys/types.h>

#include "Device.h"

/// A new handle: without buffers its descriptor turns readable, for read().
void streamOpened(Handle* handle, int descriptor);
void streamClosed(Handle* handle);

int streamRequest(Handle* handle, int descriptor, struct v4l2_requestbuffers* request);
int streamCreate(Handle* handle, int descriptor, struct v4l2_create_buffers* create);
int streamQuery(Handle* handle, struct v4l2_buffer* buffer);
int streamExport(Handle* handle, struct v4l2_exportbuffer* request);
int streamPrepare(Handle* handle, struct v4l2_buffer* buffer);
int streamQueue(Handle* handle, int descriptor, struct v4l2_buffer* buffer);
int streamDequeue(Handle* handle, int descriptor, struct v4l2_buffer* buffer);
int streamOn(Handle* handle, int descriptor, uint32_t type);
int streamOff(Handle* handle, int descriptor, uint32_t type);

/// read(): the bytes handed out, or -1 with errno.
ssize_t streamRead(Handle* handle, int descriptor, void* into, size_t size);

/// mmap() of a buffer: the address, or MAP_FAILED with errno.
void* streamMap(Handle* handle, void* address, size_t length, int protection, int flags,
                off_t offset);

/// Notes that a range of addresses is unmapped.
void streamUnmapped(const void* address, size_t length);
