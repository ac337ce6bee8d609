#include "control/CameraControl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "codecs/Modules.h"
#include "media/MediaError.h"
#include "support/Devices.h"
#include "support/ScopedVariable.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// A PNG of one colour: each value makes a file of its own.
std::string png(std::uint8_t value) {
  PixelBuffer picture({4, 2}, true);
  for (int y = 0; y < 2; ++y) std::fill_n(picture.span().row(y), 16, value);
  const auto bytes = Modules::imageCodec().encodePng(picture.view());
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

class CameraControlTest : public testing::Test {
 protected:
  CameraControl::SetRequest request(std::string kind, std::vector<std::string> paths = {}) {
    return {.kind = std::move(kind), .paths = std::move(paths)};
  }

  std::string failure(const CameraControl::SetRequest& request) {
    try {
      control.set(request);
      return "";
    } catch (const ControlError& error) {
      return error.what();
    }
  }

  SourceSpec sourceOf(const CameraControl::SetRequest& request) {
    control.set(request);
    return store.config().global().source;
  }

  std::string picture(std::string_view name, std::uint8_t value = 1) {
    return folder.write(name, png(value));
  }

  TemporaryDirectory folder;
  ConfigStore store{folder / "support"};
  MediaLibrary media{folder / "support" / "Media"};
  std::vector<ConnectedDevice> connected{simulator("U1", "iPhone"), emulator("Pixel", 42)};
  int listings = 0;
  CameraControl control{store, media, [this] {
                          ++listings;
                          return connected;
                        }};
};

TEST_F(CameraControlTest, withoutADeviceTheScopeIsGlobal) {
  EXPECT_THAT(control.scopes({}, {}), ElementsAre(Scope::global()));
}

TEST_F(CameraControlTest, aDeviceGivesDeviceScopes) {
  EXPECT_THAT(control.scopes("all", {}), ElementsAre(Scope::device(DeviceKey::ios("U1")),
                                                     Scope::device(DeviceKey::android("Pixel"))));
}

TEST_F(CameraControlTest, aCameraGivesCameraScopes) {
  EXPECT_THAT(control.scopes("booted", CameraPosition::front),
              ElementsAre(Scope::camera(DeviceKey::ios("U1"), CameraPosition::front)));
}

TEST_F(CameraControlTest, aCameraNeedsADevice) {
  try {
    control.scopes({}, CameraPosition::back);
    FAIL();
  } catch (const ControlError& error) {
    EXPECT_STREQ(error.what(), "--camera needs --device");
  }
}

TEST_F(CameraControlTest, aKeyCostsNoListing) {
  control.devices("ios:U9");
  EXPECT_EQ(listings, 0);
}

TEST_F(CameraControlTest, aSelectorThatIsNoTextIsRepaired) {
  EXPECT_THAT(control.devices("ios:\xff"), ElementsAre(DeviceKey::ios("\xEF\xBF\xBD")));
}

TEST_F(CameraControlTest, desktopAndPatternHaveOtherNames) {
  for (const char* kind : {"desktop", "live", "Desktop"}) {
    EXPECT_TRUE(sourceOf(request(kind)).is<SourceSpec::Desktop>()) << kind;
  }
  for (const char* kind : {"pattern", "test", "test-pattern", "PATTERN"}) {
    EXPECT_TRUE(sourceOf(request(kind)).is<SourceSpec::Pattern>()) << kind;
  }
}

TEST_F(CameraControlTest, aDisplaysIndexComesFromTheFirstPath) {
  EXPECT_EQ(sourceOf(request("display", {"2"})), (SourceSpec{SourceSpec::Display{2}}));
  EXPECT_EQ(sourceOf(request("display", {"+3"})), (SourceSpec{SourceSpec::Display{3}}));
  EXPECT_EQ(sourceOf(request("display", {"-1"})), (SourceSpec{SourceSpec::Display{-1}}));
}

TEST_F(CameraControlTest, aDisplayBeyondAllOthersIsNotTheFirst) {
  EXPECT_EQ(sourceOf(request("display", {"3000000000"})),
            (SourceSpec{SourceSpec::Display{3000000000}}));
  EXPECT_EQ(sourceOf(request("display", {"99999999999999999999"})),
            (SourceSpec{SourceSpec::Display{std::numeric_limits<std::int64_t>::max()}}));
}

TEST_F(CameraControlTest, aDisplayWithoutANumberIsTheFirst) {
  EXPECT_EQ(sourceOf(request("display")), (SourceSpec{SourceSpec::Display{0}}));
  EXPECT_EQ(sourceOf(request("display", {"two"})), (SourceSpec{SourceSpec::Display{0}}));
}

TEST_F(CameraControlTest, aGivenIndexWinsOverThePath) {
  auto display = request("display", {"2"});
  display.displayIndex = 5;
  EXPECT_EQ(sourceOf(display), (SourceSpec{SourceSpec::Display{5}}));
}

TEST_F(CameraControlTest, aWindowTakesItsTextOrTheFirstPath) {
  EXPECT_EQ(sourceOf(request("window", {"Maps"})), (SourceSpec{SourceSpec::Window{"Maps"}}));
  auto window = request("window", {"Maps"});
  window.windowMatch = "Safari Tech Preview";
  EXPECT_EQ(sourceOf(window), (SourceSpec{SourceSpec::Window{"Safari Tech Preview"}}));
}

TEST_F(CameraControlTest, aWindowNeedsAText) {
  EXPECT_EQ(failure(request("window")), "window needs a title or app name");
}

TEST_F(CameraControlTest, filesAreAskedForByKind) {
  EXPECT_EQ(failure(request("image")), "image needs a file");
  EXPECT_EQ(failure(request("Video")), "video needs a file");
  EXPECT_EQ(failure(request("slideshow")), "slideshow needs a folder or images");
}

TEST_F(CameraControlTest, anEmptyFolderIsNoSlideshow) {
  std::filesystem::create_directory(folder / "empty");
  EXPECT_EQ(failure(request("slideshow", {(folder / "empty").string()})),
            "slideshow needs a folder or images");
}

TEST_F(CameraControlTest, anUnknownKindIsQuotedAsTyped) {
  EXPECT_EQ(failure(request("HoloGram")),
            "unknown source \"HoloGram\" (desktop, image, video, slideshow, pattern, display, "
            "window)");
}

TEST_F(CameraControlTest, whatFailsWritesNothing) {
  failure(request("hologram"));
  EXPECT_FALSE(std::filesystem::exists(store.fileURL()));
}

TEST_F(CameraControlTest, anImageIsImportedAndNamedById) {
  const SourceSpec source = sourceOf(request("image", {picture("card.png")}));
  ASSERT_EQ(media.items().size(), 1U);
  EXPECT_EQ(source, (SourceSpec{SourceSpec::Image{media.items().front().id}}));
}

TEST_F(CameraControlTest, aPictureIsNoVideoButStaysInTheLibrary) {
  const std::string path = picture("card.png");
  EXPECT_EQ(failure(request("video", {path})), path + " is an image, not a video");
  EXPECT_EQ(media.items().size(), 1U);
  EXPECT_THAT(store.config().assignments, IsEmpty());
}

TEST_F(CameraControlTest, aMissingFileIsTheLibrarysError) {
  EXPECT_THROW(control.set(request("image", {"/nowhere/a.png"})), MediaError);
}

TEST_F(CameraControlTest, aSlideshowTakesAFolderInNaturalOrder) {
  picture("show/10.png", 10);
  picture("show/2.png", 2);
  auto show = request("slideshow", {(folder / "show").string()});
  show.interval = 1.5;
  const SourceSpec source = sourceOf(show);
  const auto& slides = std::get<SourceSpec::Slideshow>(source.value);
  EXPECT_EQ(slides.intervalSec, 1.5);
  ASSERT_EQ(slides.mediaIds.size(), 2U);
  EXPECT_EQ(media.item(slides.mediaIds[0])->name, "2.png");
  EXPECT_EQ(media.item(slides.mediaIds[1])->name, "10.png");
}

TEST_F(CameraControlTest, anOverlayIsImportedAndClamped) {
  auto pattern = request("pattern");
  pattern.overlayPath = picture("logo.png");
  pattern.anchor = Anchor::center;
  pattern.scale = 7;
  pattern.opacity = -1;
  pattern.x = 0.5;
  const auto written = control.set(pattern);
  ASSERT_EQ(written.size(), 1U);
  EXPECT_EQ(written[0].overlay, (OverlaySpec{.media = media.items().front().id,
                                             .anchor = Anchor::center,
                                             .scale = 1,
                                             .opacity = 0,
                                             .x = 0.5,
                                             .y = {}}));
}

TEST_F(CameraControlTest, writtenAssignmentsAreStoredWithTheirDate) {
  const Date before = Clock::now();
  auto pattern = request("pattern");
  pattern.device = "all";
  const auto written = control.set(pattern);
  EXPECT_EQ(store.config().assignments, written);
  ASSERT_EQ(written.size(), 2U);
  ASSERT_TRUE(written[0].updatedAt);
  EXPECT_GE(*written[0].updatedAt, before);
  EXPECT_LE(*written[0].updatedAt, Clock::now());
}

TEST_F(CameraControlTest, allWithNothingConnectedWritesNothing) {
  connected.clear();
  auto pattern = request("pattern");
  pattern.device = "all";
  EXPECT_THAT(control.set(pattern), IsEmpty());
  EXPECT_THAT(store.config().assignments, IsEmpty());
}

TEST_F(CameraControlTest, aDeviceThatIsOffIsSetByItsKey) {
  auto pattern = request("pattern");
  pattern.device = "ios:OFF";
  control.set(pattern);
  EXPECT_EQ(store.config().assignments.front().scope, Scope::device(DeviceKey::ios("OFF")));
}

TEST_F(CameraControlTest, emulatorsHaveNoFrontCamera) {
  auto pattern = request("pattern");
  pattern.device = "all";
  pattern.camera = CameraPosition::front;
  EXPECT_EQ(failure(pattern),
            "Android emulators have one Lenslark camera (the back camera; the emulator takes a "
            "single webcam). Set it without --camera, or with --camera back.");
  EXPECT_THAT(store.config().assignments, IsEmpty());
}

TEST_F(CameraControlTest, theFrontCameraIsRefusedBeforeAnythingIsImported) {
  auto image = request("image", {picture("card.png")});
  image.device = "Pixel";
  image.camera = CameraPosition::front;
  failure(image);
  EXPECT_THAT(media.items(), IsEmpty());
}

TEST_F(CameraControlTest, aRequestReplacesWhatTheScopeHad) {
  control.set(request("pattern"));
  control.set(request("display", {"1"}));
  EXPECT_EQ(store.config().assignments.size(), 1U);
}

TEST_F(CameraControlTest, importsReportTheirProgress) {
  std::vector<std::string> paths;
  const std::string path = picture("card.png");
  control.importMedia(path, {}, [&](const std::string& file, const MediaLibrary::Progress& done) {
    paths.push_back(file);
    EXPECT_LE(done.bytesDone, done.bytesTotal);
  });
  EXPECT_THAT(paths, testing::Contains(path));
}

TEST_F(CameraControlTest, aTildeThatNoShellExpandedMeansTheHomeDirectory) {
  const ScopedVariable home("HOME", folder.path().string());
  picture("card.png");
  EXPECT_EQ(control.importMedia("~/card.png").name, "card.png");
}

TEST_F(CameraControlTest, theSameFileTwiceIsOneItem) {
  EXPECT_EQ(control.importMedia(picture("a.png")).id, control.importMedia(picture("b.png")).id);
  EXPECT_EQ(media.items().size(), 1U);
}

TEST_F(CameraControlTest, resetForgetsOneScope) {
  control.set(request("pattern"));
  auto device = request("pattern");
  device.device = "iPhone";
  control.set(device);
  control.reset({}, {}, false);
  ASSERT_EQ(store.config().assignments.size(), 1U);
  EXPECT_EQ(store.config().assignments.front().scope, Scope::device(DeviceKey::ios("U1")));
}

TEST_F(CameraControlTest, resetOfWhatIsNotSetIsNoError) {
  EXPECT_NO_THROW(control.reset("iPhone", CameraPosition::back, false));
}

TEST_F(CameraControlTest, resetAllForgetsEverySettingButNoDevice) {
  store.update([](ConfigFile& config) {
    config.knownDevices.push_back({DeviceKey::ios("U1"), "iPhone", {}});
  });
  auto everywhere = request("pattern");
  everywhere.device = "all";
  control.set(everywhere);
  control.reset({}, CameraPosition::back, true);
  EXPECT_THAT(store.config().assignments, IsEmpty());
  EXPECT_EQ(store.config().knownDevices.size(), 1U);
}

TEST_F(CameraControlTest, descriptionsNameTheLibrarysItems) {
  control.set(request("image", {picture("card.png")}));
  const Assignment global = store.config().global();
  EXPECT_EQ(control.describe(global).at("name"), "card.png");
  EXPECT_EQ(control.summary(global), "image card.png");
}

TEST_F(CameraControlTest, theDeviceListHasTheConnectedDevices) {
  EXPECT_EQ(control.devicesJSON().size(), 2U);
}

}  // namespace
}  // namespace lenslark
