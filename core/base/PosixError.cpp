#include "base/PosixError.h"

#include <cerrno>
#include <cstring>

namespace lenslark {

std::system_error posixError(int errorNumber, const std::string& what) {
  const bool known = errorNumber > 0 && ::strerrorname_np(errorNumber) != nullptr;
  return {known ? errorNumber : EIO, std::generic_category(), what};
}

bool isShortage(int errorNumber) noexcept {
  return errorNumber == EMFILE || errorNumber == ENFILE || errorNumber == ENOMEM ||
         errorNumber == ENOSPC || errorNumber == EIO;
}

void throwErrno(const std::string& what) { throw posixError(errno, what); }

}  // namespace lenslark
