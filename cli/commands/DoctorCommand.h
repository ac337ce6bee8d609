#pragma once

#include <string>
#include <vector>

#include "commands/Arguments.h"
#include "control/Doctor.h"

/// `doctor [--fix] [--json]`: checks the installation, and mends what it can.
namespace lenslark::DoctorCommand {

/// **Fails** with Error after everything is printed when a check found an error.
void run(const Arguments& arguments);

/// The findings for people: a mark and the title, the details below it, then what to do. What
/// would move a terminal's cursor, as file names may, is replaced.
std::string text(const std::vector<Doctor::Check>& checks);

}  // namespace lenslark::DoctorCommand
