#include "sources/PatternSource.h"

#include <utility>

#include "config/Lenslark.h"

namespace lenslark {

PatternSource::PatternSource(int fps) : fps_(fps) {}

void PatternSource::start(Emit emit) {
  auto pattern =
      std::make_shared<TestPatternSource>(Lenslark::defaultWidth, Lenslark::defaultHeight, fps_,
                                          "lenslark://test-pattern", std::move(emit));
  pattern->start();
  const std::lock_guard lock(mutex_);
  pattern_ = std::move(pattern);
}

void PatternSource::stop() {
  std::shared_ptr<TestPatternSource> pattern;
  {
    const std::lock_guard lock(mutex_);
    pattern = std::exchange(pattern_, nullptr);
  }
  if (pattern) pattern->stop();
}

std::optional<std::string> PatternSource::problem() const {
  const auto pattern = running();
  return pattern ? pattern->problem() : std::nullopt;
}

std::shared_ptr<TestPatternSource> PatternSource::running() const {
  const std::lock_guard lock(mutex_);
  return pattern_;
}

}  // namespace lenslark
