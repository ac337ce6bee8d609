#include "base/PosixError.h"

#include <fmt/core.h>
#include <sys/resource.h>

#include <cerrno>
#include <cstring>

namespace lenslark {
namespace {

/// What ends a shortage. Empty for every other error.
std::string remedy(int errorNumber) {
  switch (errorNumber) {
    case EMFILE: {
      rlimit limit{};
      ::getrlimit(RLIMIT_NOFILE, &limit);
      return fmt::format("; the limit is {}, raise it (`ulimit -n`)", limit.rlim_cur);
    }
    case ENFILE:
      return "; end other programs, or raise fs.file-max";
    case ENOSPC:
      return "; make room there";
    case EDQUOT:
      return "; make room there, or have the quota raised";
    case ENOMEM:
      return "; end other programs, or raise the limit of this one (`ulimit -v`)";
    default:
      return {};
  }
}

/// The system's errors, and how a shortage is ended.
class Category final : public std::error_category {
 public:
  const char* name() const noexcept override { return "posix"; }
  std::string message(int errorNumber) const override {
    return std::generic_category().message(errorNumber) + remedy(errorNumber);
  }
  std::error_condition default_error_condition(int errorNumber) const noexcept override {
    return {errorNumber, std::generic_category()};
  }
};

const std::error_category& category() noexcept {
  static const Category category;
  return category;
}

}  // namespace

std::system_error posixError(int errorNumber, const std::string& what) {
  const bool known = errorNumber > 0 && ::strerrorname_np(errorNumber) != nullptr;
  return {known ? errorNumber : EIO, category(), what};
}

std::system_error threadShortage() {
  return posixError(EAGAIN,
                    "no thread can be started; end other programs, or raise the limits of "
                    "processes (`ulimit -u`) and memory (`ulimit -v`)");
}

void throwErrno(const std::string& what) { throw posixError(errno, what); }

}  // namespace lenslark
