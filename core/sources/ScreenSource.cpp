#include "sources/ScreenSource.h"

#include <fmt/core.h>

#include <utility>

namespace lenslark {
namespace {

std::string nameOf(const CaptureSource& source) {
  if (const auto* display = std::get_if<CaptureSource::Display>(&source.value)) {
    return fmt::format("display {}", display->index);
  }
  return fmt::format("window \"{}\"", std::get<CaptureSource::Window>(source.value).match);
}

}  // namespace

ScreenSource::ScreenSource(Screen& screen, CaptureOptions options)
    : screen_(screen), options_(std::move(options)) {}

void ScreenSource::start(Emit emit) {
  failure_.clear();
  capturer_.emplace(screen_, std::move(emit),
                    [this](const Error& error) { failure_.note(nameOf(options_.source), error); });
  capturer_->start(options_);
}

void ScreenSource::stop() { capturer_.reset(); }

}  // namespace lenslark
