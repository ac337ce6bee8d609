// Sets COUNT scopes of devices NAME-0, NAME-1 ... in the store of DIRECTORY.
#include <cstdio>
#include <exception>
#include <string>

#include "config/ConfigStore.h"

int main(int argc, char** argv) {
  using namespace lenslark;
  if (argc != 4) return 2;
  try {
    ConfigStore store(argv[1]);
    const int count = std::stoi(argv[3]);
    for (int index = 0; index < count; ++index) {
      const std::string device = std::string(argv[2]) + "-" + std::to_string(index);
      store.set({.scope = Scope::device(DeviceKey::ios(device)),
                 .source = {SourceSpec::Pattern{}},
                 .overlay = {},
                 .updatedAt = {}});
    }
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
