#include "codecs/ModuleFinder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/Error.h"
#include "codecs/ModuleEntry.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

constexpr const char* library = "lenslark-image.so";

std::string failure(const std::vector<fs::path>& directories,
                    const char* symbol = imageModuleSymbol) {
  try {
    ModuleFinder::load(library, symbol, directories);
  } catch (const Error& error) {
    return error.what();
  }
  return "";
}

TEST(ModuleFinderTest, searchesTheVariableThenBesideTheProgramThenItsPrefix) {
  const auto path = ModuleFinder::searchPath("/chosen", "/opt/lenslark/bin/lenslark");
  ASSERT_GE(path.size(), 4U);
  EXPECT_EQ(path[0], "/chosen");
  EXPECT_EQ(path[1], "/opt/lenslark/bin");
  EXPECT_THAT(path, testing::Contains(fs::path("/opt/lenslark/lib/lenslark")));
  EXPECT_EQ(path.back().filename(), "lenslark");
}

TEST(ModuleFinderTest, leavesTheVariableOutWhenItIsEmpty) {
  EXPECT_EQ(ModuleFinder::searchPath("", "/opt/bin/lenslark").front(), "/opt/bin");
}

TEST(ModuleFinderTest, loadsFromTheFirstPlaceThatHasAUsableModule) {
  const TemporaryDirectory directory;
  directory.write(std::string("broken/") + library, "this is no library");
  const fs::path good = fs::path(IMAGE_MODULE).parent_path();
  EXPECT_NE(ModuleFinder::load(library, imageModuleSymbol,
                               {directory / "missing", directory / "broken", good}),
            nullptr);
}

TEST(ModuleFinderTest, saysWhichModuleIsMissingAndWhereItLooked) {
  EXPECT_EQ(failure({"/no/such/place", "/nor/this"}),
            "lenslark-image.so could not be loaded: there is no such file. "
            "Looked in: /no/such/place, /nor/this");
}

TEST(ModuleFinderTest, saysWhatIsWrongWithAModuleThatIsThere) {
  const TemporaryDirectory directory;
  const std::string file = directory.write(library, "this is no library");
  EXPECT_THAT(failure({"/no/such/place", directory.path()}), HasSubstr(file));
  EXPECT_THAT(failure({directory.path()}), Not(HasSubstr("no such file")));
}

TEST(ModuleFinderTest, refusesALibraryOfAnotherBuild) {
  const TemporaryDirectory directory;
  // Any library without the stamp.
  fs::create_symlink("/lib/x86_64-linux-gnu/libm.so.6", directory / library);
  if (!fs::exists(directory / library)) GTEST_SKIP() << "no libm where it is on amd64";
  EXPECT_THAT(failure({directory.path()}), HasSubstr("belongs to another build"));
}

TEST(ModuleFinderTest, refusesAModuleWithoutTheEntry) {
  EXPECT_THAT(failure({fs::path(IMAGE_MODULE).parent_path()}, "lenslarkNoSuchEntry"),
              HasSubstr("lenslarkNoSuchEntry"));
}

}  // namespace
}  // namespace lenslark
