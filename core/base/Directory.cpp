#include "base/Directory.h"

#include "base/PosixError.h"

namespace lenslark {

void createDirectories(const std::filesystem::path& directory) {
  std::error_code error;
  std::filesystem::create_directories(directory, error);
  if (error) throw posixError(error.value(), "cannot create " + directory.string());
}

}  // namespace lenslark
