#pragma once

#include <string>
#include <system_error>

namespace lenslark {

/// The error number of a failed system call as an exception, with what failed in front and, where
/// something is to be had, what to do behind: posixError(ENOSPC, "/tmp/lenslark.shm").what() is
/// "/tmp/lenslark.shm: No space left on device; make room there". A number that is no known error
/// becomes EIO.
std::system_error posixError(int errorNumber, const std::string& what);

/// That the system has no thread to give, and what to do.
std::system_error threadShortage();

/// Throws posixError(errno, what).
[[noreturn]] void throwErrno(const std::string& what);

}  // namespace lenslark
