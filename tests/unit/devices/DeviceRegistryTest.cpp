#include "devices/DeviceRegistry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "support/Eventually.h"

namespace lenslark {
namespace {

using namespace std::chrono_literals;

/// Tools that answer when they are let, shared with scans that may outlive their registry.
class Tools {
 public:
  static DeviceDiscovery discovery(const std::shared_ptr<Tools>& self) {
    return {.simulators =
                [self] {
                  ++self->scans_;
                  self->answered_.wait();
                  return std::vector<Simulator::Device>{{"A", "iPhone", "iOS-17-2"}};
                },
            .emulators = [] { return std::vector<AndroidEmulator::Process>{}; },
            .screenContent = [] { return std::optional<ScreenContent>(); }};
  }

  void answer() { mayAnswer_.set_value(); }
  int scans() const { return scans_; }

 private:
  std::promise<void> mayAnswer_;
  std::shared_future<void> answered_ = mayAnswer_.get_future().share();
  std::atomic<int> scans_ = 0;
};

DeviceDiscovery oneSimulator() {
  return {.simulators =
              [] {
                return std::vector<Simulator::Device>{{"A", "iPhone", "iOS-17-2"}};
              },
          .emulators = [] { return std::vector<AndroidEmulator::Process>{}; },
          .screenContent = [] { return std::optional<ScreenContent>(); }};
}

TEST(DeviceRegistryTest, knowsNothingBeforeItsStart) {
  const DeviceRegistry registry(oneSimulator());
  EXPECT_TRUE(registry.snapshot().devices.empty());
  EXPECT_EQ(registry.snapshot().screenAccess, std::nullopt);
}

TEST(DeviceRegistryTest, theFirstSnapshotIsThereWhenItHasStarted) {
  DeviceRegistry registry(oneSimulator());
  registry.start();
  ASSERT_EQ(registry.snapshot().devices.size(), 1U);
  EXPECT_EQ(registry.snapshot().screenAccess, false);
}

TEST(DeviceRegistryTest, theFirstSnapshotIsPublishedWhenItHasStarted) {
  DeviceRegistry registry(oneSimulator());
  std::atomic<std::size_t> devices = 0;
  registry.onChange(
      [&](const DeviceRegistry::Snapshot& snapshot) { devices = snapshot.devices.size(); });
  registry.start();
  EXPECT_EQ(devices, 1U);
}

TEST(DeviceRegistryTest, theChangeHandlerMayAskForTheSnapshot) {
  DeviceRegistry registry(oneSimulator());
  std::atomic<std::size_t> devices = 0;
  registry.onChange(
      [&](const DeviceRegistry::Snapshot&) { devices = registry.snapshot().devices.size(); });
  registry.start();
  EXPECT_EQ(devices, 1U);
}

TEST(DeviceRegistryTest, goesOnScanning) {
  const auto shown = std::make_shared<std::atomic<bool>>(false);
  DeviceDiscovery discovery = oneSimulator();
  discovery.screenContent = [shown] {
    ScreenContent content;
    if (*shown) {
      content.windows.push_back({.id = 7,
                                 .title = "iPhone",
                                 .bundleIdentifier = "com.apple.iphonesimulator",
                                 .frame = {0, 0, 400, 800}});
    }
    return std::optional(content);
  };
  DeviceRegistry registry(std::move(discovery), {.interval = 20ms});
  const auto changes = std::make_shared<std::atomic<int>>(0);
  registry.onChange([changes](const DeviceRegistry::Snapshot&) { ++*changes; });
  registry.start();
  *shown = true;
  EXPECT_TRUE(eventually([&] { return *changes == 2; }));
  EXPECT_EQ(registry.snapshot().devices.front().window->windowID, 7U);
}

TEST(DeviceRegistryTest, aToolThatHangsHoldsNobodyUp) {
  const auto tools = std::make_shared<Tools>();
  {
    DeviceRegistry registry(Tools::discovery(tools));
    auto started = std::async(std::launch::async, [&] { registry.start(); });
    ASSERT_TRUE(eventually([&] { return tools->scans() == 1; }));
    const auto before = std::chrono::steady_clock::now();
    EXPECT_TRUE(registry.snapshot().devices.empty());
    registry.stop();
    started.get();
    EXPECT_LT(std::chrono::steady_clock::now() - before, 1s);
  }
  tools->answer();
}

TEST(DeviceRegistryTest, afterItsStopNothingIsPublished) {
  const auto tools = std::make_shared<Tools>();
  const auto changes = std::make_shared<std::atomic<int>>(0);
  {
    DeviceRegistry registry(Tools::discovery(tools));
    registry.onChange([changes](const DeviceRegistry::Snapshot&) { ++*changes; });
    auto started = std::async(std::launch::async, [&] { registry.start(); });
    ASSERT_TRUE(eventually([&] { return tools->scans() == 1; }));
    registry.stop();
  }
  tools->answer();
  // The scan holds the handler, and so the counter, until it has ended.
  EXPECT_TRUE(eventually([&] { return changes.use_count() == 1; }));
  EXPECT_EQ(*changes, 0);
}

TEST(DeviceRegistryTest, aStartGoesOnWithoutAToolThatHangs) {
  const auto tools = std::make_shared<Tools>();
  DeviceRegistry registry(Tools::discovery(tools), {.patience = 50ms});
  registry.start();
  EXPECT_TRUE(registry.snapshot().devices.empty());
  tools->answer();
  EXPECT_TRUE(eventually([&] { return registry.snapshot().devices.size() == 1; }));
}

TEST(DeviceRegistryTest, oneScanRunsAtATime) {
  const auto tools = std::make_shared<Tools>();
  DeviceRegistry registry(Tools::discovery(tools), {.interval = 10ms, .patience = 50ms});
  registry.start();
  // Many beats of the timer pass while the first scan is still waiting for its tool.
  std::this_thread::sleep_for(200ms);
  EXPECT_EQ(tools->scans(), 1);
  tools->answer();
}

}  // namespace
}  // namespace lenslark
