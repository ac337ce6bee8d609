#pragma once

#include <memory>
#include <mutex>

#include "sources/FrameSource.h"
#include "sources/TestPatternSource.h"

namespace lenslark {

/// The test pattern as a camera's source: 1280 x 720, its QR code reads "lenslark://test-pattern".
class PatternSource final : public FrameSource {
 public:
  explicit PatternSource(int fps);

  ContentKind kind() const noexcept override { return ContentKind::pattern; }
  void start(Emit emit) override;
  void stop() override;
  std::optional<std::string> problem() const override;

 private:
  std::shared_ptr<TestPatternSource> running() const;

  const int fps_;
  mutable std::mutex mutex_;                    // guards pattern_
  std::shared_ptr<TestPatternSource> pattern_;  // while it runs
};

}  // namespace lenslark
