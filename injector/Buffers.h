// Buffers.h - the memory of a device's buffers.
//
// Threads: every call is made with the device's lock held. Owns: the memory, through the device.
// Fails: with an errno value.
#pragma once

#include "Device.h"

enum {
  buffersMaxLength = 64 << 20,
  buffersCapabilities = V4L2_BUF_CAP_SUPPORTS_MMAP | V4L2_BUF_CAP_SUPPORTS_USERPTR |
                        V4L2_BUF_CAP_SUPPORTS_ORPHANED_BUFS,
};

/// True for the kinds of memory that are supported.
bool buffersKnow(uint32_t memory);

/// Adds as many as there is room for of `count` buffers; EINVAL or ENOMEM if that is none.
int buffersAdd(Device* device, uint32_t memory, uint32_t count, uint32_t length);

/// Frees all buffers and leaves the device without an owner.
void buffersFree(Device* device);

/// True if an application has mapped any of them.
bool buffersAreMapped(const Device* device);

/// Provides two pictures of `size` bytes to paint into.
int buffersReserveScratch(Device* device, size_t size);

/// Provides the painter with room for a whole frame, most of it memory only once it is needed.
/// Without it a writer that publishes without a pause is followed less well.
void buffersReserveRoom(Device* device);

/// Takes over what a buffer handed in says about its memory.
int buffersAdopt(Device* device, Buffer* buffer, const struct v4l2_buffer* request);

/// A descriptor of a buffer's memory, with open()'s flags, that can be mapped and handed to other
/// processes. Until one is asked for there is none. What is mapped already stays as it is: EBUSY.
int buffersExport(Buffer* buffer, unsigned flags, int* descriptor);

/// Says how a buffer stands.
void buffersDescribe(const Device* device, uint32_t index, struct v4l2_buffer* into);
