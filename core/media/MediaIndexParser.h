#pragma once

#include <string>
#include <vector>

#include "media/MediaLibrary.h"

namespace lenslark::MediaIndex {

/// What the text of an index holds.
struct Parsed {
  std::vector<MediaItem> items;
  bool whole = true;  ///< Whether every entry was understood.
};

/// Reads the text of an index in one pass, without a tree of values in between: a library has
/// thousands of entries, and every command that touches it reads them all. An entry that is
/// malformed, or whose stored file would lie outside the library, is left out. The text is used up:
/// what is unescaped is unescaped in it.
/// **Fails** with JsonError when it is no list.
Parsed parse(std::string text);

}  // namespace lenslark::MediaIndex
