#pragma once

#include <string>

/// What `lenslark` can do, in one page.
namespace lenslark::HelpText {

/// Begins with the program's name and version, ends with a line feed.
std::string text();

/// Writes it to standard output.
void print();

}  // namespace lenslark::HelpText
