#include <cstdio>
#include <exception>

#include "media/MediaLibrary.h"

/// Imports files into a library: media-importer DIRECTORY FILE...
int main(int count, char** arguments) {
  try {
    lenslark::MediaLibrary library(arguments[1]);
    for (int i = 2; i < count; ++i) library.importItem(arguments[i], false);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
