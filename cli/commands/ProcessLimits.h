#pragma once

/// What the shell that started this process lets it have.
namespace lenslark::ProcessLimits {

/// Each feed takes a descriptor, a film or a display some more; what the shell allows by default is
/// less than many devices need, and less than the system has to give.
void allowMoreDescriptors() noexcept;

/// Where the address space is limited (`ulimit -v`), has all threads take their memory from one
/// heap. One for each would reserve 64 MB at a time, which nobody uses: a gigabyte in all.
void spareAddressSpace() noexcept;

}  // namespace lenslark::ProcessLimits
