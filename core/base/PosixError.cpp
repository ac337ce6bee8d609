#include "base/PosixError.h"

#include <cerrno>
#include <cstring>

namespace lenslark {

std::system_error posixError(int errorNumber, const std::string& what) {
  const bool known = errorNumber > 0 && ::strerrorname_np(errorNumber) != nullptr;
  return {known ? errorNumber : EIO, std::generic_category(), what};
}

void throwErrno(const std::string& what) { throw posixError(errno, what); }

}  // namespace lenslark
