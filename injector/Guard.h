// Guard.h - lets a thread touch a mapping whose file somebody may cut short.
//
// Such a touch raises SIGBUS. While nobody in the host program has a handler of its own for it, one
// is set here: it puts empty pages into the mapping's place, the touch reads zeros, and who asked
// for the guard is told at the end. Any other SIGBUS ends the program as it would have without.
// Once set, the handler stays; a host that sets its own afterwards has the last word.
//
// Threads: any; a guard belongs to the thread that set it up, which has one at a time.
// Owns: the handler. Fails: never raises anything itself.
#pragma once

#include <stdbool.h>
#include <stddef.h>

/// From now on this thread may read `length` bytes at `address`, the whole of a mapping. False if
/// the host takes SIGBUS itself, or this thread has it blocked: then a touch could end the program.
bool guardBegin(void* address, size_t length);

/// True while no touch has missed its file. Afterwards the mapping shows it no more.
bool guardHolds(void);

/// Takes the guard back.
void guardEnd(void);
