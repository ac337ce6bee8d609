#include <spawn.h>
#include <sys/wait.h>

#include "base/PosixError.h"
#include "unit/config/StoreFixture.h"

namespace lenslark {
namespace {

class ConfigStoreProcessTest : public StoreFixture {};

/// A process of its own that sets `count` scopes, one after the other.
class Writer {
 public:
  Writer(const std::filesystem::path& directory, const std::string& name, int count) {
    std::vector<std::string> words{CONFIG_WRITER, directory.string(), name, std::to_string(count)};
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const int error =
        ::posix_spawn(&pid_, CONFIG_WRITER, nullptr, nullptr, arguments.data(), environ);
    if (error != 0) throw posixError(error, CONFIG_WRITER);
  }

  /// Waits for its end; whether it succeeded.
  bool succeeds() const {
    int status = 0;
    return ::waitpid(pid_, &status, 0) == pid_ && WIFEXITED(status) && WEXITSTATUS(status) == 0;
  }

 private:
  pid_t pid_ = 0;
};

TEST_F(ConfigStoreProcessTest, losesNoChangeOfProcessesThatWriteAtOnce) {
  constexpr int changes = 40;
  Told told;
  ConfigStore store(directory_);
  store.observe(told.observer());
  const Writer one(directory_, "one", changes);
  const Writer two(directory_, "two", changes);
  EXPECT_TRUE(one.succeeds());
  EXPECT_TRUE(two.succeeds());

  const ConfigFile config = ConfigJson::read(textOf(file_));
  EXPECT_EQ(config.assignments.size(), 2U * changes);
  EXPECT_TRUE(told.endsWith(config));
  EXPECT_TRUE(filesNamed("config.json.").empty());
}

}  // namespace
}  // namespace lenslark
