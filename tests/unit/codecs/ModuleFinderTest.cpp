#include "codecs/ModuleFinder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/Error.h"
#include "base/FileDescriptor.h"
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

TEST(ModuleFinderTest, aModuleSaysWhatItWasMadeOf) {
  const fs::path good = fs::path(IMAGE_MODULE).parent_path();
  const auto* stamp =
      static_cast<const char*>(ModuleFinder::load(library, moduleStampSymbol, {good}));
  EXPECT_THAT(stamp, testing::MatchesRegex("lenslark-module-1 [0-9.]+-[^ ]+-[0-9a-f]+"));
}

TEST(ModuleFinderTest, refusesAModuleThatWasMadeOfOtherHeaders) {
  const TemporaryDirectory directory;
  std::string module = readFile(IMAGE_MODULE);
  const std::size_t stamp = module.find("lenslark-module-1 ");
  ASSERT_NE(stamp, std::string::npos);
  const std::size_t end = module.find('\0', stamp);
  module[end - 1] = module[end - 1] == '0' ? '1' : '0';
  directory.write(library, module);
  EXPECT_THAT(failure({directory.path()}), HasSubstr("belongs to another build"));
}

TEST(ModuleFinderTest, refusesAModuleWithoutTheEntry) {
  EXPECT_THAT(failure({fs::path(IMAGE_MODULE).parent_path()}, "lenslarkNoSuchEntry"),
              HasSubstr("lenslarkNoSuchEntry"));
}

}  // namespace
}  // namespace lenslark
