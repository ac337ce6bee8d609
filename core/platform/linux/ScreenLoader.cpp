#include <string>
#include <utility>

#include "codecs/Modules.h"
#include "platform/Screen.h"
#include "platform/linux/ScreenModuleEntry.h"

namespace lenslark {
namespace {

/// Stands for a screen whose module cannot be loaded, and says why.
class MissingScreen final : public Screen {
 public:
  explicit MissingScreen(std::string reason) : reason_(std::move(reason)) {}

  ScreenContent content() override { fail(); }
  std::optional<Rect> windowBounds(std::uint32_t) override { return std::nullopt; }
  std::unique_ptr<ScreenStream> captureDisplay(std::uint32_t, const Request&, FrameHandler,
                                               StopHandler) override {
    fail();
  }
  std::unique_ptr<ScreenStream> captureWindow(std::uint32_t, const Request&, FrameHandler,
                                              StopHandler) override {
    fail();
  }
  std::unique_ptr<ScreenStream> captureArea(const PixelRect&, const ExcludedApplications&,
                                            const Request&, FrameHandler, StopHandler) override {
    fail();
  }

 private:
  [[noreturn]] void fail() const { throw CaptureError::unavailable(reason_); }

  const std::string reason_;
};

}  // namespace

std::unique_ptr<Screen> makeScreen() {
  try {
    const auto make = reinterpret_cast<decltype(&lenslarkScreenModule)>(
        Modules::entry(screenModule, screenModuleSymbol));
    return std::unique_ptr<Screen>(make());
  } catch (const Error& error) {
    return std::make_unique<MissingScreen>(error.what());
  }
}

}  // namespace lenslark
