// Placeholder.h - the picture that a camera shows while nothing feeds it: a lens, struck through.
//
// Threads: any. Owns: nothing.
#pragma once

#include <stdint.h>

/// Draws row `y` of the placeholder of `width` x `height` into `row`, BGRA.
void placeholderRow(uint8_t* row, int y, int width, int height);
