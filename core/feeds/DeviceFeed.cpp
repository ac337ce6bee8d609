#include "feeds/DeviceFeed.h"

namespace lenslark {
namespace {

class RegistryFeed final : public DeviceFeed {
 public:
  explicit RegistryFeed(Screen* screen) : registry_(screen) {}

  void start(Handler onChange) override {
    registry_.onChange(std::move(onChange));
    registry_.start();
  }
  void stop() override { registry_.stop(); }

 private:
  DeviceRegistry registry_;
};

}  // namespace

std::unique_ptr<DeviceFeed> connectedDevices(Screen* screen) {
  return std::make_unique<RegistryFeed>(screen);
}

}  // namespace lenslark
