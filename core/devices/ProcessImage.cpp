#include "devices/ProcessImage.h"

#include <unistd.h>

#include <string_view>

namespace lenslark {
namespace {

std::vector<std::string> merged(char* const* inherited, const Shell::Environment& additions) {
  std::vector<std::string> variables;
  // In front: whether a process has the injector is read from what ps shows of its environment, and
  // that is the first hundred kilobytes.
  for (const auto& [name, value] : additions) {
    variables.emplace_back(name).append("=").append(value);
  }
  for (; inherited != nullptr && *inherited != nullptr; ++inherited) {
    const std::string_view variable = *inherited;
    const std::string name(variable.substr(0, variable.find('=')));
    if (!additions.contains(name)) variables.emplace_back(variable);
  }
  return variables;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  result.reserve(texts.size() + 1);
  for (std::string& text : texts) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

}  // namespace

ProcessImage::ProcessImage(const std::string& executable, const std::vector<std::string>& arguments,
                           const Shell::Environment& environment)
    : words_{executable} {
  words_.insert(words_.end(), arguments.begin(), arguments.end());
  arguments_ = pointers(words_);
  if (environment.empty()) return;
  variables_ = merged(environ, environment);
  environment_ = pointers(variables_);
}

char* const* ProcessImage::environment() const noexcept {
  return environment_.empty() ? environ : environment_.data();
}

}  // namespace lenslark
