#include "devices/Injectors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "devices/CommandError.h"
#include "support/ScopedVariable.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

constexpr const char* variable = "LENSLARK_TEST_DYLIB";

std::vector<std::string> libraries(const std::string& extension) {
  std::vector<std::string> found;
  for (const auto& path : Injectors::candidates("Lib.dylib", "/a/b/c/d/bin")) {
    if (path.extension() == extension) found.push_back(path.string());
  }
  return found;
}

TEST(InjectorsTest, looksFromTheInstalledProgramUpToTheApplication) {
  EXPECT_THAT(libraries(".dylib"),
              testing::ElementsAre("/a/b/c/d/lib/lenslark/Lib.dylib", "/a/b/c/d/bin/Lib.dylib",
                                   "/a/b/c/d/Resources/Lib.dylib", "/a/b/c/d/Lib.dylib",
                                   "/a/b/c/d/bin/build/Lib.dylib", "/a/b/c/d/build/Lib.dylib",
                                   "/a/b/c/build/Lib.dylib", "/a/b/build/Lib.dylib",
                                   "/Applications/Lenslark.app/Contents/Resources/Lib.dylib"));
}

TEST(InjectorsTest, theElfTwinComesAfterTheLibraryInEachPlace) {
  const auto all = Injectors::candidates("Lib.dylib", "/a/b/c/d/bin");
  ASSERT_EQ(all.size() % 2, 0U);
  for (std::size_t index = 0; index < all.size(); index += 2) {
    auto twin = all[index];
    EXPECT_EQ(all[index + 1], twin.replace_extension(".so"));
  }
}

TEST(InjectorsTest, theVariableWins) {
  const TemporaryDirectory directory;
  const std::string library = directory.write("Other.dylib", "");
  const ScopedVariable override(variable, library);
  EXPECT_EQ(Injectors::path("Lib.dylib", variable), library);
}

/// A library that lies beside the test program for as long as it lives.
class LibraryBesideProgram {
 public:
  explicit LibraryBesideProgram(const std::string& name)
      : path_(std::filesystem::canonical("/proc/self/exe").parent_path() / name) {
    std::ofstream{path_};
  }
  ~LibraryBesideProgram() { std::filesystem::remove(path_); }
  LibraryBesideProgram(const LibraryBesideProgram&) = delete;
  LibraryBesideProgram& operator=(const LibraryBesideProgram&) = delete;

  std::string path() const { return path_.string(); }

 private:
  std::filesystem::path path_;
};

TEST(InjectorsTest, aVariableThatNamesAMissingFileIsPassedOver) {
  const LibraryBesideProgram library("InjectorsTestBeside.dylib");
  const ScopedVariable override(variable, "/nowhere/InjectorsTestBeside.dylib");
  EXPECT_EQ(Injectors::path("InjectorsTestBeside.dylib", variable), library.path());
}

TEST(InjectorsTest, theElfTwinIsFound) {
  const LibraryBesideProgram library("InjectorsTestTwin.so");
  EXPECT_EQ(Injectors::path("InjectorsTestTwin.dylib", variable), library.path());
}

TEST(InjectorsTest, aMissingLibraryIsAnErrorThatSaysWhatToDo) {
  try {
    Injectors::path("Nothing.dylib", variable);
    FAIL() << "there is a Nothing.dylib where the tests run";
  } catch (const CommandError& error) {
    EXPECT_STREQ(error.what(),
                 "Nothing.dylib not found. Run scripts/build-injector.sh or install Lenslark.app.");
  }
}

TEST(InjectorsTest, aSharedObjectIsTold) {
  // Position-independent programs are shared objects to the loader.
  EXPECT_TRUE(Injectors::isElfLibrary("/proc/self/exe"));
}

TEST(InjectorsTest, otherFilesAreNoSharedObjects) {
  const TemporaryDirectory directory;
  EXPECT_FALSE(Injectors::isElfLibrary(directory.write("empty", "")));
  EXPECT_FALSE(Injectors::isElfLibrary(directory.write("short", "\177ELF")));
  EXPECT_FALSE(Injectors::isElfLibrary(directory.write("text", std::string(100, 'x'))));
  EXPECT_FALSE(Injectors::isElfLibrary(directory.path().string()));
  EXPECT_FALSE(Injectors::isElfLibrary("/nowhere"));
}

TEST(InjectorsTest, aPipeInPlaceOfALibraryHoldsNobodyUp) {
  const TemporaryDirectory directory;
  const std::string pipe = (directory / "pipe").string();
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_FALSE(Injectors::isElfLibrary(pipe));
}

}  // namespace
}  // namespace lenslark
