#include "config/DeviceKey.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace lenslark {
namespace {

TEST(DeviceKeyTest, printsBackWhatItParsed) {
  const auto key = DeviceKey::parse("android:Pixel_8_API_35");
  ASSERT_TRUE(key);
  EXPECT_EQ(key->platform, Platform::android);
  EXPECT_EQ(key->id, "Pixel_8_API_35");
  EXPECT_EQ(key->description(), "android:Pixel_8_API_35");
}

TEST(DeviceKeyTest, keepsColonsInsideTheId) {
  EXPECT_EQ(DeviceKey::parse("ios:a:b"), DeviceKey::ios("a:b"));
  EXPECT_EQ(DeviceKey::parse("ios::a"), DeviceKey::ios(":a"));
}

TEST(DeviceKeyTest, refusesWhatIsNoKey) {
  for (const char* text :
       {"", ":", "ios", "ios:", ":ABC", "IOS:ABC", "web:123", " ios:A", "::ios:x"}) {
    EXPECT_EQ(DeviceKey::parse(text), std::nullopt) << text;
  }
}

TEST(DeviceKeyTest, givesASimulatorTwoCamerasAndAnEmulatorOne) {
  using enum CameraPosition;
  EXPECT_EQ(DeviceKey::ios("A").cameras(), (std::vector{back, front}));
  EXPECT_EQ(DeviceKey::android("A").cameras(), std::vector{back});
}

TEST(DeviceKeyTest, sortsAndroidBeforeIosAndThenById) {
  std::vector keys{DeviceKey::ios("B"), DeviceKey::android("Z"), DeviceKey::ios("A")};
  std::ranges::sort(keys, [](const DeviceKey& a, const DeviceKey& b) { return a < b; });
  EXPECT_EQ(keys, (std::vector{DeviceKey::android("Z"), DeviceKey::ios("A"), DeviceKey::ios("B")}));
}

TEST(DeviceKeyTest, ordersEqualKeysNeitherWay) {
  const DeviceKey key = DeviceKey::ios("A");
  EXPECT_FALSE(key < key);
  EXPECT_FALSE(key > key);
  EXPECT_TRUE(key <= key);
  EXPECT_TRUE(key >= key);
}

TEST(DeviceKeyTest, comparesPlatformAndId) {
  EXPECT_EQ(DeviceKey::ios("A"), DeviceKey::ios("A"));
  EXPECT_NE(DeviceKey::ios("A"), DeviceKey::android("A"));
  EXPECT_NE(DeviceKey::ios("A"), DeviceKey::ios("B"));
}

TEST(CameraPositionTest, readsItsRawValuesOnly) {
  EXPECT_EQ(parseCameraPosition("back"), CameraPosition::back);
  EXPECT_EQ(parseCameraPosition("front"), CameraPosition::front);
  EXPECT_EQ(parseCameraPosition("Front"), std::nullopt);
  EXPECT_EQ(parseCameraPosition(""), std::nullopt);
}

}  // namespace
}  // namespace lenslark
