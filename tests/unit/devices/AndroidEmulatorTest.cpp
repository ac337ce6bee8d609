#include "devices/AndroidEmulator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "base/FileDescriptor.h"
#include "devices/CommandError.h"
#include "devices/Shell.h"
#include "support/Eventually.h"
#include "support/ScopedVariable.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

using AndroidEmulator::Facing;
using AndroidEmulator::Process;
using AndroidEmulator::Webcam;
using AndroidEmulator::WebcamLabels;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

// The SDK's place

TEST(AndroidEmulatorTest, anEmptyAndroidHomeWinsOverTheSdkRoot) {
  const ScopedVariable home("ANDROID_HOME", "");
  const ScopedVariable root("ANDROID_SDK_ROOT", "/opt/sdk");
  EXPECT_EQ(AndroidEmulator::sdkRoot(), "");
}

TEST(AndroidEmulatorTest, anEmptyAndroidHomeLooksBelowTheRootDirectory) {
  const ScopedVariable home("ANDROID_HOME", "");
  try {
    AndroidEmulator::emulatorPath();
    FAIL() << "there is an /emulator/emulator where the tests run";
  } catch (const CommandError& error) {
    EXPECT_STREQ(error.what(),
                 "Android emulator not found at /emulator/emulator. Set ANDROID_HOME.");
  }
}

TEST(AndroidEmulatorTest, theSdkRootCountsWithoutAndroidHome) {
  const ScopedVariable home("ANDROID_HOME", std::nullopt);
  const ScopedVariable root("ANDROID_SDK_ROOT", "/opt/sdk");
  EXPECT_EQ(AndroidEmulator::sdkRoot(), "/opt/sdk");
}

class SdkBelowHomeTest : public testing::Test {
 protected:
  TemporaryDirectory home_;
  ScopedVariable homeVariable_{"HOME", home_.path().string()};
  ScopedVariable androidHome_{"ANDROID_HOME", std::nullopt};
  ScopedVariable sdkRoot_{"ANDROID_SDK_ROOT", std::nullopt};
};

TEST_F(SdkBelowHomeTest, isInTheLibrary) {
  EXPECT_EQ(AndroidEmulator::sdkRoot(), (home_ / "Library/Android/sdk").string());
}

TEST_F(SdkBelowHomeTest, isWhereLinuxInstallsItWhenOnlyThatIsThere) {
  std::filesystem::create_directories(home_ / "Android/Sdk");
  EXPECT_EQ(AndroidEmulator::sdkRoot(), (home_ / "Android/Sdk").string());
}

TEST_F(SdkBelowHomeTest, inTheLibraryWinsWhenBothAreThere) {
  std::filesystem::create_directories(home_ / "Android/Sdk");
  std::filesystem::create_directories(home_ / "Library/Android/sdk");
  EXPECT_EQ(AndroidEmulator::sdkRoot(), (home_ / "Library/Android/sdk").string());
}

TEST(AndroidEmulatorTest, aToolThatMayNotBeExecutedIsNotFound) {
  const TemporaryDirectory sdk;
  sdk.write("emulator/emulator", "");
  const ScopedVariable home("ANDROID_HOME", sdk.path().string());
  EXPECT_THROW(AndroidEmulator::emulatorPath(), CommandError);
}

TEST(AndroidEmulatorTest, aDirectoryIsNoTool) {
  const TemporaryDirectory sdk;
  std::filesystem::create_directories(sdk / "emulator/emulator");
  const ScopedVariable home("ANDROID_HOME", sdk.path().string());
  EXPECT_THROW(AndroidEmulator::emulatorPath(), CommandError);
}

// Virtual devices

TEST(AndroidEmulatorTest, listsNamesWithoutTheToolsOwnLines) {
  EXPECT_THAT(AndroidEmulator::parseAVDList("INFO    | Storing crashdata in: /tmp/x\n"
                                            "\n"
                                            "WARNING | something\n"
                                            "  Pixel_8_API_35\t\n"
                                            "   \n"
                                            "Medium_Tablet\n"),
              ElementsAre("Pixel_8_API_35", "Medium_Tablet"));
}

TEST(AndroidEmulatorTest, anEmptyListHasNoNames) {
  EXPECT_THAT(AndroidEmulator::parseAVDList(""), IsEmpty());
  EXPECT_THAT(AndroidEmulator::parseAVDList("\n \t\n"), IsEmpty());
}

TEST(AndroidEmulatorTest, aNameThatHoldsInfoFurtherInIsAName) {
  EXPECT_THAT(AndroidEmulator::parseAVDList("My_INFO\n"), ElementsAre("My_INFO"));
}

// Webcams

TEST(AndroidEmulatorTest, readsTheWebcamList) {
  EXPECT_THAT(
      AndroidEmulator::parseWebcamList(
          "List of web cameras connected to the computer:\n"
          " Camera 'Lenslark Camera' can be specified by label as 'webcam0' for -camera-back.\n"
          " Camera 'Lenslark Camera (Front)' can be specified by label as 'webcam12'\n"),
      ElementsAre(Webcam{"webcam0", "Lenslark Camera"},
                  Webcam{"webcam12", "Lenslark Camera (Front)"}));
}

struct WebcamCase {
  const char* text;
  std::vector<Webcam> webcams;
};

class WebcamListTest : public testing::TestWithParam<WebcamCase> {};

TEST_P(WebcamListTest, isReadAsTheRuleSays) {
  EXPECT_EQ(AndroidEmulator::parseWebcamList(GetParam().text), GetParam().webcams);
}

INSTANTIATE_TEST_SUITE_P(
    Rule, WebcamListTest,
    testing::Values(
        // Two on one line.
        WebcamCase{"Camera 'a' can be specified by label as 'webcam0'Camera 'b' can be specified "
                   "by label as 'webcam1'",
                   {{"webcam0", "a"}, {"webcam1", "b"}}},
        // A name may hold quotes.
        WebcamCase{"Camera 'Bob's cam' can be specified by label as 'webcam0'",
                   {{"webcam0", "Bob's cam"}}},
        // The leftmost opening counts.
        WebcamCase{"Camera 'x Camera 'y' can be specified by label as 'webcam0'",
                   {{"webcam0", "x Camera 'y"}}},
        // A label that is none makes the name go on.
        WebcamCase{"Camera 'a' can be specified by label as 'video0' or 'b' can be specified by "
                   "label as 'webcam3'",
                   {{"webcam3", "a' can be specified by label as 'video0' or 'b"}}},
        // A name is never empty.
        WebcamCase{"Camera '' can be specified by label as 'webcam0'", {}},
        // A name does not go over the end of its line.
        WebcamCase{"Camera 'a\nb' can be specified by label as 'webcam0'", {}},
        WebcamCase{"Camera 'a\rb' can be specified by label as 'webcam0'", {}},
        // A label has digits and a closing quote.
        WebcamCase{"Camera 'a' can be specified by label as 'webcam'", {}},
        WebcamCase{"Camera 'a' can be specified by label as 'webcam1", {}},
        WebcamCase{"Camera 'a' can be specified by label as 'webcam1x'", {}},
        // The letters' case counts.
        WebcamCase{"camera 'a' can be specified by label as 'webcam1'", {}}, WebcamCase{"", {}}));

TEST(AndroidEmulatorTest, aHostileWebcamListIsReadInLinearTime) {
  std::string text;
  for (int count = 0; count < 200'000; ++count) text += "Camera '";
  for (int count = 0; count < 50'000; ++count) text += "' can be specified by label as 'webcam";
  EXPECT_THAT(AndroidEmulator::parseWebcamList(text), IsEmpty());
}

TEST(AndroidEmulatorTest, withoutAFrontWebcamTheBackOneServesBoth) {
  EXPECT_EQ(
      AndroidEmulator::chooseWebcams({{"webcam0", "FaceTime"}, {"webcam1", "Lenslark Camera"}}),
      (WebcamLabels{"webcam1", "webcam1"}));
}

TEST(AndroidEmulatorTest, theFirstWebcamOfEachNameIsOurs) {
  EXPECT_EQ(AndroidEmulator::chooseWebcams({{"webcam2", "Lenslark Camera (Front)"},
                                            {"webcam1", "Lenslark Camera"},
                                            {"webcam0", "Lenslark Camera"}}),
            (WebcamLabels{"webcam1", "webcam2"}));
}

TEST(AndroidEmulatorTest, aListWithoutOurWebcamIsAnError) {
  try {
    AndroidEmulator::chooseWebcams({{"webcam0", "Lenslark Camera (Front)"}});
    FAIL() << "a webcam of another name was taken";
  } catch (const CommandError& error) {
    EXPECT_STREQ(error.what(),
                 "The emulator did not list \"Lenslark Camera\"; is LenslarkEmuInject.dylib "
                 "built?");
  }
}

// Launching

TEST(AndroidEmulatorTest, theBackCameraIsFed) {
  EXPECT_THAT(AndroidEmulator::launchArguments("Pixel", Facing::back, "webcam0", {"-no-audio"}),
              ElementsAre("-avd", "Pixel", "-camera-back", "webcam0", "-camera-front", "emulated",
                          "-no-audio"));
}

TEST(AndroidEmulatorTest, theFrontCameraIsFed) {
  EXPECT_THAT(AndroidEmulator::launchArguments("Pixel", Facing::front, "webcam0", {}),
              ElementsAre("-avd", "Pixel", "-camera-front", "webcam0", "-camera-back", "emulated"));
}

TEST(AndroidEmulatorTest, bothIsAsBack) {
  EXPECT_EQ(AndroidEmulator::launchArguments("Pixel", Facing::both, "webcam0", {"-x"}),
            AndroidEmulator::launchArguments("Pixel", Facing::back, "webcam0", {"-x"}));
}

TEST(AndroidEmulatorTest, facingsHaveTexts) {
  for (const Facing facing : {Facing::back, Facing::front, Facing::both}) {
    EXPECT_EQ(AndroidEmulator::parseFacing(AndroidEmulator::rawValue(facing)), facing);
  }
  EXPECT_EQ(AndroidEmulator::parseFacing("Back"), std::nullopt);
}

/// The first bytes of a shared object of this machine's kind.
std::string elfLibrary() {
  std::string header("\177ELF\2\1\1", 7);
  header.resize(16);
  header += std::string("\3\0", 2);
  return header + std::string(64, '\0');
}

TEST(AndroidEmulatorTest, aMachOLibraryIsInsertedAlone) {
  const TemporaryDirectory directory;
  const ScopedVariable preload("LD_PRELOAD", std::nullopt);
  const std::string library = directory.write("LenslarkEmuInject.dylib", "\xCF\xFA\xED\xFE....");
  EXPECT_THAT(AndroidEmulator::injection(library),
              ElementsAre(Pair("DYLD_INSERT_LIBRARIES", library)));
}

TEST(AndroidEmulatorTest, anElfLibraryIsPreloadedToo) {
  const TemporaryDirectory directory;
  const ScopedVariable preload("LD_PRELOAD", std::nullopt);
  const std::string library = directory.write("LenslarkEmuInject.so", elfLibrary());
  EXPECT_THAT(AndroidEmulator::injection(library),
              ElementsAre(Pair("DYLD_INSERT_LIBRARIES", library), Pair("LD_PRELOAD", library)));
}

TEST(AndroidEmulatorTest, anElfLibraryComesBeforeWhatIsPreloaded) {
  const TemporaryDirectory directory;
  const ScopedVariable preload("LD_PRELOAD", "/usr/lib/other.so");
  const std::string library = directory.write("LenslarkEmuInject.so", elfLibrary());
  EXPECT_THAT(AndroidEmulator::injection(library),
              Contains(Pair("LD_PRELOAD", library + ":/usr/lib/other.so")));
}

TEST(AndroidEmulatorTest, anElfLibraryThatCannotBeNamedToTheLoaderIsAnError) {
  const TemporaryDirectory directory;
  const std::string library = directory.write("my sdk/LenslarkEmuInject.so", elfLibrary());
  EXPECT_THROW(AndroidEmulator::injection(library), CommandError);
}

// Running emulators

TEST(AndroidEmulatorTest, readsTheProcessList) {
  EXPECT_THAT(
      AndroidEmulator::parseProcessList(
          "    1 /sbin/launchd\n"
          "  123 /path/qemu-system-aarch64 -netdelay none -avd Pixel_8\n"
          "\n"
          "45678 /sdk/emulator/qemu/linux-x86_64/qemu-system-x86_64   -avd  Tablet -no-audio\n"),
      ElementsAre(Process{"Pixel_8", 123}, Process{"Tablet", 45678}));
}

TEST(AndroidEmulatorTest, aProcessWithoutItsDeviceIsNoEmulator) {
  EXPECT_THAT(AndroidEmulator::parseProcessList("1 qemu-system-x86_64 -kernel vmlinux\n"
                                                "2 qemu-system-x86_64 -avd\n"
                                                "3 qemu-system-x86_64 -avd   \n"
                                                "4 /bin/emulator -avd Pixel\n"),
              IsEmpty());
}

TEST(AndroidEmulatorTest, aProcessWithoutANumberIsSkipped) {
  EXPECT_THAT(AndroidEmulator::parseProcessList("PID qemu-system -avd a\n"
                                                "99999999999 qemu-system -avd b\n"
                                                "12x qemu-system -avd c\n"
                                                "qemu-system -avd d\n"
                                                "5 qemu-system -avd e\n"),
              ElementsAre(Process{"e", 5}));
}

TEST(AndroidEmulatorTest, theFirstDeviceOptionCounts) {
  EXPECT_THAT(AndroidEmulator::parseProcessList("7 qemu-system -avd -avd -avd b"),
              ElementsAre(Process{"-avd", 7}));
}

TEST(AndroidEmulatorTest, anyBytesCanBeReadAsAProcessList) {
  std::string text = "qemu-system";
  for (int byte = 0; byte < 256; ++byte) text += static_cast<char>(byte);
  EXPECT_THAT(AndroidEmulator::parseProcessList(text + text + "\n\n qemu-system \n"), IsEmpty());
}

/// A process that ps shows as an emulator.
class RunningEmulatorTest : public testing::Test {
 protected:
  void start(const std::string& avd, const Shell::Environment& environment = {}) {
    const std::filesystem::path engine = directory_ / "qemu-system-x86_64";
    std::filesystem::copy_file("/bin/sh", engine);
    // The camera may have been preloaded into the tests themselves.
    const ScopedVariable preload("LD_PRELOAD", std::nullopt);
    // It stops itself: it is there and does nothing.
    pid_ = Shell::launchDetached(
        engine.string(), {"-c", "kill -STOP $$", "engine", "-netdelay", "none", "-avd", avd},
        environment);
  }
  ~RunningEmulatorTest() override {
    if (pid_ > 0) ::kill(pid_, SIGKILL);
  }

  /// Of the emulators found, which on a busy machine are not ours alone.
  std::optional<AndroidEmulator::RunningEmulator> found(const std::string& avd) {
    const auto all = AndroidEmulator::running();
    const auto it =
        std::find_if(all.begin(), all.end(), [&](const auto& one) { return one.avd == avd; });
    if (it == all.end()) return std::nullopt;
    return *it;
  }

  TemporaryDirectory directory_;
  std::string avd_ = "Test_" + directory_.path().filename().string();
  pid_t pid_ = 0;
};

TEST_F(RunningEmulatorTest, isFoundByItsProcess) {
  start(avd_);
  EXPECT_EQ(found(avd_), (AndroidEmulator::RunningEmulator{avd_, pid_, false}));
}

TEST_F(RunningEmulatorTest, isFoundWhateverTheTerminalsWidth) {
  const ScopedVariable columns("COLUMNS", "20");
  start(avd_);
  EXPECT_THAT(AndroidEmulator::processes(), Contains(Process{avd_, pid_}));
}

TEST_F(RunningEmulatorTest, hasACameraWhenItWasStartedWithTheInjector) {
  const ScopedVariable columns("COLUMNS", "20");
  start(avd_, {{"DYLD_INSERT_LIBRARIES", "/opt/LenslarkEmuInject.dylib"}});
  const auto emulator = found(avd_);
  ASSERT_TRUE(emulator);
  EXPECT_TRUE(emulator->hasCamera);
}

TEST_F(RunningEmulatorTest, hasACameraInAVastEnvironmentToo) {
  const ScopedVariable vast("A_VAST_VARIABLE", std::string(100'000, 'x'));
  const ScopedVariable another("ANOTHER_VARIABLE", std::string(100'000, 'y'));
  start(avd_, {{"DYLD_INSERT_LIBRARIES", "/opt/LenslarkEmuInject.dylib"}});
  const auto emulator = found(avd_);
  ASSERT_TRUE(emulator);
  EXPECT_TRUE(emulator->hasCamera);
}

TEST_F(RunningEmulatorTest, isAmongTheRunningDevices) {
  start(avd_);
  EXPECT_TRUE(AndroidEmulator::runningAVDs().contains(avd_));
}

TEST_F(RunningEmulatorTest, isGoneWhenItsProcessIs) {
  start(avd_);
  ASSERT_TRUE(found(avd_));
  ::kill(pid_, SIGKILL);
  EXPECT_TRUE(eventually([&] { return !found(avd_); }));
}

// The tool itself, played by a script

class EmulatorToolTest : public testing::Test {
 protected:
  void tool(const std::string& script) {
    sdk_.writeProgram("emulator/emulator", "#!/bin/sh\n" + script + "\n");
  }

  TemporaryDirectory sdk_;
  ScopedVariable home_{"ANDROID_HOME", sdk_.path().string()};
  std::string library_ = sdk_.write("LenslarkEmuInject.dylib", "");
  ScopedVariable injector_{"LENSLARK_EMU_INJECT_DYLIB", library_};
};

TEST_F(EmulatorToolTest, listsVirtualDevicesWhateverItsStatus) {
  tool("test \"$*\" = -list-avds && printf 'INFO | x\\nPixel\\n'; exit 1");
  EXPECT_THAT(AndroidEmulator::listAVDs(), ElementsAre("Pixel"));
}

TEST_F(EmulatorToolTest, listsWebcamsOfBothStreamsWithTheInjectorInserted) {
  tool(
      "test \"$*\" = -webcam-list && "
      "echo \"Camera 'a' can be specified by label as 'webcam1'\" >&2; "
      "echo \"Camera '$DYLD_INSERT_LIBRARIES' can be specified by label as 'webcam0'\"");
  EXPECT_THAT(AndroidEmulator::listWebcams(),
              ElementsAre(Webcam{"webcam0", library_}, Webcam{"webcam1", "a"}));
}

TEST_F(EmulatorToolTest, isStartedWithOurWebcamAndTheInjector) {
  tool(
      "case \"$1\" in\n"
      "-webcam-list) echo \"Camera 'Lenslark Camera' can be specified by label as 'webcam4'\";;\n"
      "*) echo \"$$ $DYLD_INSERT_LIBRARIES $*\" > \"$ANDROID_HOME/new\"\n"
      "   mv \"$ANDROID_HOME/new\" \"$ANDROID_HOME/started\";;\n"
      "esac");
  const pid_t pid = AndroidEmulator::launch("Pixel", Facing::both, {"-no-window"});
  const std::string started = (sdk_ / "started").string();
  ASSERT_TRUE(eventually([&] { return std::filesystem::exists(started); }));
  EXPECT_EQ(readFile(started), std::to_string(pid) + " " + library_ +
                                   " -avd Pixel -camera-back webcam4 -camera-front emulated "
                                   "-no-window\n");
}

TEST_F(EmulatorToolTest, withoutOurWebcamNothingIsStarted) {
  tool("test \"$1\" = -webcam-list || touch \"$ANDROID_HOME/started\"");
  EXPECT_THROW(AndroidEmulator::launch("Pixel", Facing::back, {}), CommandError);
  EXPECT_FALSE(std::filesystem::exists(sdk_ / "started"));
}

}  // namespace
}  // namespace lenslark
