#include "control/Doctor.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>

#include "base/Error.h"
#include "base/FileDescriptor.h"
#include "lenslark/frame_file.h"
#include "support/Devices.h"
#include "support/ScopedVariable.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

using Doctor::Check;
using Doctor::Level;

/// Above any process id that Linux gives.
constexpr std::uint32_t gonePid = 0x3FFFFFFF;

/// A version 1 frame file of one pixel. Without an age it has no heartbeat.
std::string frameFile(std::uint32_t writerPid, std::optional<double> heartbeatAge) {
  LLFrameHeader header = {};
  header.magic = LL_FRAME_MAGIC;
  header.version = 1;
  header.width = 1;
  header.height = 1;
  header.bytesPerRow = 4;
  header.writerPid = writerPid;
  if (heartbeatAge) {
    header.heartbeat = Clock::uptimeNanoseconds() - static_cast<std::uint64_t>(*heartbeatAge * 1e9);
  }
  std::string bytes(LL_FRAME_DATA_OFFSET + 4, '\0');
  std::memcpy(bytes.data(), &header, sizeof header);
  return bytes;
}

class DoctorTest : public testing::Test {
 protected:
  DoctorTest() { std::filesystem::create_directory(feeds); }

  std::vector<Check> run(bool removeStale = false) {
    return Doctor::run(control, [this] { return appStatus; }, removeStale,
                       {.application = [this] { return application; },
                        .injectorEnabled = [this](const std::string&) { return injectorEnabled; },
                        .emulators = [this] { return emulators; },
                        .feedDirectory = feeds});
  }

  /// The check with this title; a check without any title where there is none.
  Check check(const std::string& title, bool removeStale = false) {
    for (const Check& found : run(removeStale)) {
      if (found.title == title) return found;
    }
    return {};
  }

  std::string feed(const std::string& name, const std::string& bytes, mode_t mode = 0600) {
    const std::string path = folder.write("feeds/" + name, bytes);
    ::chmod(path.c_str(), mode);
    return path;
  }

  /// What the doctor says of files only: what comes after the devices.
  std::vector<Check> fileFindings(bool removeStale = false) {
    std::vector<Check> found;
    for (Check& each : run(removeStale)) {
      if (each.title.find(feeds.string()) != std::string::npos) found.push_back(std::move(each));
    }
    return found;
  }

  TemporaryDirectory folder;
  const std::filesystem::path feeds = folder / "feeds";
  const ScopedVariable globalFeed{"LENSLARK_SHM", (folder / "global.shm").string()};
  const ScopedVariable display{"DISPLAY", ":0"};
  ConfigStore store{folder / "support"};
  MediaLibrary media{folder / "support" / "Media"};
  std::vector<ConnectedDevice> connected;
  CameraControl control{store, media, [this] { return connected; }};

  std::optional<std::string> appStatus;
  std::optional<RunningApplications::Application> application;
  std::vector<AndroidEmulator::RunningEmulator> emulators;
  bool injectorEnabled = true;
};

TEST_F(DoctorTest, aCheckAsJsonLeavesOutWhatItHasNot) {
  EXPECT_EQ(Doctor::json({Level::info, "t", {}, {}}).dump(), R"({"level":"info","title":"t"})");
  EXPECT_EQ(Doctor::json({Level::error, "t", {"a", "b"}, "f"}).dump(),
            R"({"details":["a","b"],"fix":"f","level":"error","title":"t"})");
  EXPECT_EQ(Doctor::json({Level::ok, "", {}, {}})["level"], "ok");
  EXPECT_EQ(Doctor::json({Level::warning, "", {}, {}})["level"], "warning");
}

TEST_F(DoctorTest, tellsThatTheApplicationDoesNotRun) {
  EXPECT_EQ(run().front(),
            (Check{Level::warning,
                   "Lenslark.app is not running",
                   {"Cameras show the placeholder unless `lenslark serve` is running."},
                   "open -a Lenslark (or run `lenslark serve`)"}));
}

TEST_F(DoctorTest, tellsThatTheApplicationRuns) {
  application = {77, "2.1"};
  EXPECT_EQ(run().front(),
            (Check{Level::ok, "Lenslark.app running (pid 77), version 2.1", {}, {}}));
}

TEST_F(DoctorTest, tellsThatTheScreenMayNotBeRecordedRightAfterTheApplication) {
  appStatus = "on screen=denied";
  EXPECT_EQ(run()[1],
            (Check{Level::warning,
                   "Lenslark.app has no Screen Recording permission",
                   {"Image, video and pattern cameras still work; the live desktop doesn't."},
                   "System Settings › Privacy & Security › Screen & System Audio Recording › "
                   "allow Lenslark, then Restart Lenslark"}));
}

TEST_F(DoctorTest, saysNothingOfTheScreenWhereNothingIsDenied) {
  appStatus = "on screen=granted";
  EXPECT_EQ(check("Lenslark.app has no Screen Recording permission").title, "");
}

TEST_F(DoctorTest, asksForTheAnswerWhenAllElseIsDone) {
  feed("lenslark.shm", frameFile(gonePid, 1));
  bool removed = false;
  Doctor::run(control,
              [&] {
                removed = !std::filesystem::exists(feeds / "lenslark.shm");
                return std::nullopt;
              },
              true,
              {.application = [] { return std::nullopt; },
               .injectorEnabled = {},
               .emulators = {},
               .feedDirectory = feeds});
  EXPECT_TRUE(removed);
}

TEST_F(DoctorTest, tellsInjectorsThatArePresent) {
  const ScopedVariable ios("LENSLARK_INJECT_DYLIB", folder.write("LenslarkInject.dylib", ""));
  const ScopedVariable android("LENSLARK_EMU_INJECT_DYLIB", folder.write("Emu.dylib", ""));
  const auto checks = run();
  EXPECT_EQ(checks[1], (Check{Level::ok, "iOS injector present", {}, {}}));
  EXPECT_EQ(checks[2], (Check{Level::ok, "Android injector present", {}, {}}));
}

TEST_F(DoctorTest, tellsAnInjectorThatIsMissing) {
  const ScopedVariable nowhere("LENSLARK_INJECT_DYLIB", std::nullopt);
  EXPECT_EQ(check("iOS injector missing"),
            (Check{Level::error,
                   "iOS injector missing",
                   {},
                   "scripts/build-injector.sh, or reinstall Lenslark"}));
}

TEST_F(DoctorTest, tellsAnInjectorThatIsQuarantined) {
  const std::string library = folder.write("LenslarkInject.dylib", "");
  const ScopedVariable ios("LENSLARK_INJECT_DYLIB", library);
  if (::setxattr(library.c_str(), "user.com.apple.quarantine", "0", 1, 0) != 0) {
    GTEST_SKIP() << "no extended attributes here";
  }
  const Check found = check("iOS injector is quarantined");
  EXPECT_EQ(found.level, Level::error);
  EXPECT_EQ(found.fix,
            "open Lenslark.app once, or: xattr -d com.apple.quarantine \"" + library + "\"");
}

TEST_F(DoctorTest, tellsThatTheSettingsAreTheDefaults) {
  EXPECT_EQ(check("Config: defaults (no config.json yet)"),
            (Check{Level::ok,
                   "Config: defaults (no config.json yet)",
                   {"schema 1, 0 assignment(s), 0 media item(s)"},
                   {}}));
}

TEST_F(DoctorTest, countsTheSettings) {
  CameraControl::SetRequest request;
  request.kind = "pattern";
  control.set(request);
  EXPECT_EQ(check("Config: " + (folder / "support" / "config.json").string()).details,
            std::vector<std::string>{"schema 1, 1 assignment(s), 0 media item(s)"});
}

TEST_F(DoctorTest, tellsThatTheSettingsCannotBeRead) {
  const std::string file = folder.write("support/config.json", "{\n  oops");
  const Check found = check("The settings cannot be read");
  EXPECT_EQ(found.level, Level::warning);
  EXPECT_EQ(found.fix, "mend \"" + file + "\", or move it away");
  ASSERT_EQ(found.details.size(), 2U);
  EXPECT_NE(found.details[0].find("line 2"), std::string::npos) << found.details[0];
  EXPECT_EQ(check("Config: " + file).level, Level::ok);
}

TEST_F(DoctorTest, warnsOfSettingsThatAreKeptAside) {
  const std::string later = folder.write("support/config.json.broken-1715000002", "{");
  const std::string earlier = folder.write("support/config.json.broken-1715000001", "[");
  EXPECT_EQ(check("Settings that could not be read are kept aside"),
            (Check{Level::warning,
                   "Settings that could not be read are kept aside",
                   {earlier, later, "Unused media are not removed while any such file is there."},
                   "take what is still wanted from there into \"" +
                       (folder / "support" / "config.json").string() +
                       "\", then delete every "
                       "config.json.broken-* beside it"}));
}

TEST_F(DoctorTest, warnsOfNothingKeptAsideWhenThereIsNothing) {
  folder.write("support/config.json.draft", "{");
  EXPECT_EQ(check("Settings that could not be read are kept aside"), Check{});
}

TEST_F(DoctorTest, keptAsideSettingsComeBehindTheSettingsInForce) {
  folder.write("support/config.json.broken-1715000001", "{");
  const auto checks = run();
  const auto found =
      std::ranges::find(checks, "Settings that could not be read are kept aside", &Check::title);
  ASSERT_NE(found, checks.end());
  EXPECT_TRUE(std::prev(found)->title.starts_with("Config: "));
}

TEST_F(DoctorTest, goesOnPastALibraryThatCannotBeRead) {
  folder.write("support/Media/index.json", "{");
  feed("lenslark.shm", frameFile(gonePid, 1));
  EXPECT_EQ(check("The media library's list cannot be read").level, Level::warning);
  EXPECT_EQ(fileFindings().size(), 1U);
}

TEST_F(DoctorTest, aSimulatorThatIsFedIsWell) {
  connected = {simulator("U", "iPhone")};
  const std::string global = folder.write("global.shm", frameFile(1, 0));
  const Check found = check("iPhone [ios:U]");
  EXPECT_EQ(found.level, Level::ok);
  EXPECT_EQ(found.fix, std::nullopt);
  EXPECT_EQ(found.details, (std::vector<std::string>{
                               "DYLD_INSERT_LIBRARIES set: apps launched now get the camera",
                               "back: desktop under the window (default)",
                               "  feed " + global + " heartbeat 0.0 s",
                               "front: desktop under the window (default)",
                               "  feed " + global + " heartbeat 0.0 s",
                           }));
}

TEST_F(DoctorTest, aSimulatorThatIsNotFedWants) {
  connected = {simulator("U", "iPhone")};
  const Check found = check("iPhone [ios:U]");
  EXPECT_EQ(found.level, Level::warning);
  EXPECT_EQ(found.fix, "turn Lenslark on");
  EXPECT_EQ(found.details.at(2), "  no feed (placeholder)");
}

TEST_F(DoctorTest, aFeedIsLiveBelowThreeSeconds) {
  connected = {simulator("U", "iPhone")};
  folder.write("global.shm", frameFile(1, 2.5));
  EXPECT_EQ(check("iPhone [ios:U]").level, Level::ok);
  folder.write("global.shm", frameFile(1, 3.0));
  EXPECT_EQ(check("iPhone [ios:U]").level, Level::warning);
}

TEST_F(DoctorTest, aFeedWithoutHeartbeatNeverHadOne) {
  connected = {simulator("U", "iPhone")};
  const std::string global = folder.write("global.shm", frameFile(1, std::nullopt));
  const Check found = check("iPhone [ios:U]");
  EXPECT_EQ(found.level, Level::warning);
  EXPECT_EQ(found.details.at(2), "  feed " + global + " heartbeat never");
}

TEST_F(DoctorTest, aSimulatorWithoutInjectorKeepsItsFixWhenItIsNotFed) {
  connected = {simulator("U", "iPhone")};
  injectorEnabled = false;
  const Check found = check("iPhone [ios:U]");
  EXPECT_EQ(found.level, Level::warning);
  EXPECT_EQ(found.details.front(), "camera injector not enabled on this simulator");
  EXPECT_EQ(found.fix,
            "turn on Auto in the Lenslark menu, or `lenslark ios enable --udid U`, then relaunch "
            "the app");
}

TEST_F(DoctorTest, anEmulatorStartedWithoutInjectorIsAnError) {
  connected = {emulator("Pixel_8", 4711)};
  emulators = {{"Pixel_8", 4711, false}, {"Pixel_8", 4712, true}};
  const Check found = check("Pixel_8 [android:Pixel_8]");
  EXPECT_EQ(found.level, Level::error);
  EXPECT_EQ(found.fix, "quit it, then `lenslark android launch Pixel_8`");
  EXPECT_EQ(found.details,
            (std::vector<std::string>{
                "running WITHOUT the Lenslark camera (started outside Lenslark)",
                "back: desktop under the window (default)", "  no feed (placeholder)"}));
}

TEST_F(DoctorTest, anEmulatorStartedWithInjectorIsWell) {
  connected = {emulator("Pixel_8", 4711)};
  emulators = {{"Pixel_8", 4711, true}};
  folder.write("global.shm", frameFile(1, 0));
  const Check found = check("Pixel_8 [android:Pixel_8]");
  EXPECT_EQ(found.level, Level::ok);
  EXPECT_EQ(found.details.size(), 2U);
}

TEST_F(DoctorTest, keepsTheOrderOfTheDevices) {
  connected = {emulator("A", 1), simulator("B", "B"), emulator("C", 2)};
  std::vector<std::string> titles;
  for (const Check& each : run()) {
    if (each.title.ends_with("]")) titles.push_back(each.title);
  }
  EXPECT_EQ(titles, (std::vector<std::string>{"A [android:A]", "B [ios:B]", "C [android:C]"}));
}

TEST_F(DoctorTest, goesOnPastDevicesThatCannotBeListed) {
  const CameraControl broken(store, media, []() -> std::vector<ConnectedDevice> {
    throw Error("simctl printed nonsense");
  });
  feed("lenslark.shm", frameFile(gonePid, 1));
  const auto checks = Doctor::run(broken, [] { return std::nullopt; }, false,
                                  {.application = [] { return std::nullopt; },
                                   .injectorEnabled = {},
                                   .emulators = {},
                                   .feedDirectory = feeds});
  EXPECT_EQ(std::ranges::count(checks, Check{Level::warning,
                                             "The devices could not be checked",
                                             {"simctl printed nonsense"},
                                             {}}),
            1);
  EXPECT_EQ(
      std::ranges::count(checks, std::optional<std::string>("lenslark doctor --fix"), &Check::fix),
      1);
}

TEST_F(DoctorTest, tellsAFeedThatOthersMayRead) {
  const std::string path =
      feed("lenslark-sim-U.shm", frameFile(static_cast<std::uint32_t>(::getpid()), 0), 0644);
  EXPECT_EQ(fileFindings(), (std::vector{Check{Level::warning,
                                               path + " is readable by other users",
                                               {"mode 644 (written by Lenslark 1.0)"},
                                               "restart Lenslark; 1.1 recreates feeds as 0600"}}));
}

TEST_F(DoctorTest, tellsAStaleFeedAndLeavesIt) {
  const std::string path = feed("lenslark-sim-U.shm", frameFile(gonePid, 100));
  EXPECT_EQ(fileFindings(),
            (std::vector{Check{Level::warning,
                               "Stale feed " + path + " (writer pid 1073741823 is gone)",
                               {},
                               "lenslark doctor --fix"}}));
  EXPECT_TRUE(std::filesystem::exists(path));
}

TEST_F(DoctorTest, removesAStaleFeedWhenAsked) {
  const std::string path = feed("lenslark-sim-U.shm", frameFile(gonePid, 100));
  EXPECT_EQ(fileFindings(true),
            (std::vector{Check{Level::info, "Removed stale feed " + path, {}, {}}}));
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(DoctorTest, neverRemovesAFeedWhoseWriterLivesOrHasEnded) {
  const std::string alive =
      feed("lenslark-a.shm", frameFile(static_cast<std::uint32_t>(::getpid()), 100));
  const std::string ended = feed("lenslark-b.shm", frameFile(0, 100));
  EXPECT_EQ(fileFindings(true), std::vector<Check>());
  EXPECT_TRUE(std::filesystem::exists(alive));
  EXPECT_TRUE(std::filesystem::exists(ended));
}

TEST_F(DoctorTest, looksOnlyAtFilesNamedAsFeeds) {
  const std::string other = feed("other.shm", frameFile(gonePid, 1), 0644);
  const std::string backup = feed("lenslark.shm.bak", frameFile(gonePid, 1), 0644);
  EXPECT_EQ(fileFindings(true), std::vector<Check>());
  EXPECT_TRUE(std::filesystem::exists(other));
  EXPECT_TRUE(std::filesystem::exists(backup));
}

TEST_F(DoctorTest, saysWhatAFeedReplacesAndWhatItCannot) {
  const std::string at = (feeds / "lenslark-").string();
  std::filesystem::create_directory(at + "directory.shm");
  std::filesystem::create_symlink("/nowhere", at + "link.shm");
  const std::vector<Check> found = fileFindings(false);
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[0].details,
            std::vector<std::string>{
                "A camera whose feed has this name cannot be fed until it is removed."});
  EXPECT_EQ(found[1].details, std::vector<std::string>{
                                  "A camera whose feed has this name puts a file in its place."});
}

TEST_F(DoctorTest, touchesNothingThatIsNoRegularFile) {
  const std::string stale = folder.write("elsewhere.shm", frameFile(gonePid, 1));
  const std::string at = (feeds / "lenslark-").string();
  std::filesystem::create_directory(at + "directory.shm");
  std::filesystem::create_symlink(stale, at + "link.shm");
  std::filesystem::create_symlink("/nowhere", at + "nowhere.shm");
  ASSERT_EQ(::mkfifo((at + "pipe.shm").c_str(), 0666), 0);
  const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  (at + "socket.shm").copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);

  std::vector<std::string> titles;
  for (const Check& each : fileFindings(true)) {
    EXPECT_EQ(each.level, Level::info);
    titles.push_back(each.title);
  }
  EXPECT_EQ(titles, (std::vector<std::string>{at + "directory.shm is a directory, no feed",
                                              at + "link.shm is a symbolic link, no feed",
                                              at + "nowhere.shm is a symbolic link, no feed",
                                              at + "pipe.shm is a pipe, no feed",
                                              at + "socket.shm is a socket, no feed"}));
  EXPECT_TRUE(std::filesystem::exists(stale));
  EXPECT_TRUE(std::filesystem::is_symlink(at + "link.shm"));
}

TEST_F(DoctorTest, aDeviceInTheWayOfAFeedHasToBeRemoved) {
  const std::string device = (feeds / "lenslark-device.shm").string();
  constexpr unsigned memory = 1;
  constexpr unsigned null = 3;
  if (::mknod(device.c_str(), S_IFCHR | 0600U, makedev(memory, null)) != 0)
    GTEST_SKIP() << "may make no device";
  EXPECT_EQ(
      fileFindings(true),
      (std::vector{Check{Level::info,
                         device + " is a device, no feed",
                         {"A camera whose feed has this name cannot be fed until it is removed."},
                         {}}}));
  EXPECT_TRUE(std::filesystem::exists(device));
}

TEST_F(DoctorTest, leavesFilesThatHoldNoFeed) {
  for (const auto& [name, bytes] :
       {std::pair{"lenslark-empty.shm", std::string()},
        std::pair{"lenslark-short.shm", frameFile(gonePid, 1).substr(0, 4095)},
        std::pair{"lenslark-text.shm", std::string(8192, 'x')}}) {
    feed(name, bytes);
  }
  EXPECT_EQ(fileFindings(true), std::vector<Check>());
  EXPECT_TRUE(std::filesystem::exists(feeds / "lenslark-text.shm"));
  EXPECT_TRUE(std::filesystem::exists(feeds / "lenslark-short.shm"));
}

TEST_F(DoctorTest, tellsANegativeWriterAndGoesOn) {
  const std::string broken = feed("lenslark-a.shm", frameFile(0xFFFFFFFB, 1));
  const std::string stale = feed("lenslark-b.shm", frameFile(gonePid, 1));
  const auto found = fileFindings(true);
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[0].level, Level::warning);
  EXPECT_NE(found[0].details.at(0).find("-5"), std::string::npos);
  EXPECT_EQ(found[1].title, "Removed stale feed " + stale);
  EXPECT_TRUE(std::filesystem::exists(broken));
}

TEST_F(DoctorTest, aFileFullOfHolesCostsNoTime) {
  const std::string path = feed("lenslark-huge.shm", frameFile(gonePid, 1));
  ASSERT_EQ(::truncate(path.c_str(), off_t{1} << 40), 0);
  EXPECT_EQ(fileFindings().size(), 1U);
}

TEST_F(DoctorTest, aDirectoryThatIsNotThereHoldsNoFeeds) {
  std::filesystem::remove(feeds);
  EXPECT_EQ(fileFindings(true), std::vector<Check>());
}

TEST_F(DoctorTest, hintsAtADisplayThatIsMissing) {
  EXPECT_EQ(check("No display: DISPLAY is not set").title, "");
  const ScopedVariable none("DISPLAY", std::nullopt);
  EXPECT_EQ(check("No display: DISPLAY is not set").level, Level::info);
}

}  // namespace
}  // namespace lenslark
