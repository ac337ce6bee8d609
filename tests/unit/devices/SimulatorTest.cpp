#include "devices/Simulator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "base/Json.h"
#include "devices/CommandError.h"
#include "support/ScopedVariable.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

using Simulator::Device;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr const char* captured = R"({
  "devices" : {
    "com.apple.CoreSimulator.SimRuntime.iOS-17-2" : [
      {
        "lastBootedAt" : "2025-05-01T09:30:00Z",
        "dataPath" : "\/Users\/me\/Library\/Developer\/CoreSimulator\/Devices\/5D2F6A8E\/data",
        "dataPathSize" : 18337792,
        "udid" : "5D2F6A8E-1C3B-4E7F-9A10-2B3C4D5E6F70",
        "isAvailable" : true,
        "deviceTypeIdentifier" : "com.apple.CoreSimulator.SimDeviceType.iPhone-15-Pro",
        "state" : "Booted",
        "name" : "iPhone 15 Pro"
      },
      {
        "udid" : "7A0E1F22-91B4-4C0D-8B64-0C1D2E3F4A5B",
        "state" : "Booted",
        "name" : "iPhone 15"
      }
    ],
    "com.apple.CoreSimulator.SimRuntime.watchOS-10-2" : [

    ],
    "com.apple.CoreSimulator.SimRuntime.iOS-18-0" : [
      { "udid" : "B", "name" : "iPad", "state" : "Booted" }
    ]
  }
})";

TEST(SimulatorTest, readsTheBootedDevices) {
  EXPECT_THAT(Simulator::parseDeviceList(captured),
              UnorderedElementsAre(
                  Device{"5D2F6A8E-1C3B-4E7F-9A10-2B3C4D5E6F70", "iPhone 15 Pro", "iOS-17-2"},
                  Device{"7A0E1F22-91B4-4C0D-8B64-0C1D2E3F4A5B", "iPhone 15", "iOS-17-2"},
                  Device{"B", "iPad", "iOS-18-0"}));
}

TEST(SimulatorTest, keepsTheOrderWithinARuntime) {
  const auto devices = Simulator::parseDeviceList(
      R"({"devices":{"r.x":[{"udid":"2","name":"b"},{"udid":"1","name":"a"}]}})");
  EXPECT_THAT(devices, ElementsAre(Device{"2", "b", "x"}, Device{"1", "a", "x"}));
}

TEST(SimulatorTest, aDeviceWithoutANameIsLeftOutAlone) {
  const auto devices = Simulator::parseDeviceList(
      R"({"devices":{"r.x":[{"udid":"1"},{"udid":"2","name":7},{"name":"n"},{},
          {"udid":"3","name":"c"}]}})");
  EXPECT_THAT(devices, ElementsAre(Device{"3", "c", "x"}));
}

TEST(SimulatorTest, aRuntimeWithoutDotsIsTakenWhole) {
  const auto devices =
      Simulator::parseDeviceList(R"({"devices":{"tvOS":[{"udid":"1","name":"a"}]}})");
  EXPECT_THAT(devices, ElementsAre(Device{"1", "a", "tvOS"}));
}

TEST(SimulatorTest, aRuntimeOfDotsAloneIsTakenWhole) {
  const auto devices =
      Simulator::parseDeviceList(R"({"devices":{"..":[{"udid":"1","name":"a"}]}})");
  EXPECT_THAT(devices, ElementsAre(Device{"1", "a", ".."}));
}

TEST(SimulatorTest, otherShapesHoldNoDevices) {
  for (const char* text : {"[]", "null", "7", "{}", R"({"devices":[]})", R"({"devices":null})",
                           R"({"devices":{"r":{}}})", R"({"devices":{"r":[1]}})",
                           R"({"devices":{"r":["a"],"s":[{"udid":"1","name":"a"}]}})"}) {
    EXPECT_THAT(Simulator::parseDeviceList(text), IsEmpty()) << text;
  }
}

TEST(SimulatorTest, whatIsNotJsonIsAnError) {
  for (const char* text : {"", "An error was encountered", "{\"devices\":", "{} {}"}) {
    EXPECT_THROW(Simulator::parseDeviceList(text), JsonError) << text;
  }
}

TEST(SimulatorTest, deeplyNestedOutputIsAnErrorNotACrash) {
  EXPECT_THROW(Simulator::parseDeviceList(std::string(1'000'000, '[')), JsonError);
}

TEST(SimulatorTest, theInjectorIsFoundByItsVariable) {
  const TemporaryDirectory directory;
  const std::string library = directory.write("Mine.dylib", "");
  const ScopedVariable variable("LENSLARK_INJECT_DYLIB", library);
  EXPECT_EQ(Simulator::injectorPath(), library);
}

TEST(SimulatorTest, aMissingInjectorIsToldBeforeTheDeviceIsTouched) {
  const ScopedVariable variable("LENSLARK_INJECT_DYLIB", "/nowhere/LenslarkInject.dylib");
  try {
    Simulator::enableGlobally("booted");
    FAIL() << "there is an injector where the tests run";
  } catch (const CommandError& error) {
    EXPECT_STREQ(error.what(),
                 "LenslarkInject.dylib not found. Run scripts/build-injector.sh or install "
                 "Lenslark.app.");
  }
}

}  // namespace
}  // namespace lenslark
