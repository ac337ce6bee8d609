#include "platform/UserDirectories.h"

#include <gtest/gtest.h>

#include "support/ScopedVariable.h"

namespace lenslark {
namespace {

TEST(UserDirectoriesTest, takesTheHomeOfTheEnvironment) {
  const ScopedVariable home("HOME", "/home/someone");
  EXPECT_EQ(UserDirectories::home(), "/home/someone");
}

TEST(UserDirectoriesTest, asksTheUserDatabaseOtherwise) {
  for (const std::optional<std::string>& value :
       {std::optional<std::string>(), std::optional<std::string>("")}) {
    const ScopedVariable home("HOME", value);
    EXPECT_TRUE(UserDirectories::home().is_absolute());
  }
}

TEST(UserDirectoriesTest, keepsDataBelowHome) {
  const ScopedVariable home("HOME", "/home/someone");
  const ScopedVariable data("XDG_DATA_HOME", std::nullopt);
  EXPECT_EQ(UserDirectories::applicationSupport(), "/home/someone/.local/share");
}

TEST(UserDirectoriesTest, keepsDataWhereTheUserWantsIt) {
  const ScopedVariable data("XDG_DATA_HOME", "/data");
  EXPECT_EQ(UserDirectories::applicationSupport(), "/data");
}

TEST(UserDirectoriesTest, passesOverADataDirectoryThatIsNotAbsolute) {
  const ScopedVariable home("HOME", "/home/someone");
  for (const char* value : {"", "data", "./data"}) {
    const ScopedVariable data("XDG_DATA_HOME", value);
    EXPECT_EQ(UserDirectories::applicationSupport(), "/home/someone/.local/share") << value;
  }
}

}  // namespace
}  // namespace lenslark
