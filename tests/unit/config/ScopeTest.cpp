#include "config/Scope.h"

#include <gtest/gtest.h>

namespace lenslark {
namespace {

const DeviceKey phone = DeviceKey::ios("UDID");

TEST(ScopeTest, isGlobalUnlessToldOtherwise) { EXPECT_EQ(Scope(), Scope::global()); }

TEST(ScopeTest, describesItself) {
  EXPECT_EQ(Scope::global().description(), "global");
  EXPECT_EQ(Scope::device(phone).description(), "ios:UDID");
  EXPECT_EQ(Scope::camera(phone, CameraPosition::front).description(), "ios:UDID front");
}

TEST(ScopeTest, namesItsKind) {
  EXPECT_EQ(Scope::global().kindName(), "global");
  EXPECT_EQ(Scope::device(phone).kindName(), "device");
  EXPECT_EQ(Scope::camera(phone, CameraPosition::back).kindName(), "camera");
}

TEST(ScopeTest, knowsItsDevice) {
  EXPECT_EQ(Scope::global().device(), std::nullopt);
  EXPECT_EQ(Scope::device(phone).device(), phone);
  EXPECT_EQ(Scope::camera(phone, CameraPosition::back).device(), phone);
}

TEST(ScopeTest, knowsItsCamera) {
  EXPECT_EQ(Scope::global().camera(), std::nullopt);
  EXPECT_EQ(Scope::device(phone).camera(), std::nullopt);
  EXPECT_EQ(Scope::camera(phone, CameraPosition::front).camera(), CameraPosition::front);
}

TEST(ScopeTest, differsByKindDeviceAndCamera) {
  const Scope camera = Scope::camera(phone, CameraPosition::back);
  EXPECT_NE(Scope::device(phone), Scope::global());
  EXPECT_NE(Scope::device(phone), camera);
  EXPECT_NE(camera, Scope::camera(phone, CameraPosition::front));
  EXPECT_NE(camera, Scope::camera(DeviceKey::android("UDID"), CameraPosition::back));
  EXPECT_EQ(camera, Scope::camera(phone, CameraPosition::back));
}

}  // namespace
}  // namespace lenslark
