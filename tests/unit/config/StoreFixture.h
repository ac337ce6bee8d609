#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "base/FileDescriptor.h"
#include "base/PosixError.h"
#include "config/ConfigJson.h"
#include "config/ConfigStore.h"
#include "support/Eventually.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {

inline std::string textOf(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

inline Assignment imageFor(const Scope& scope, const std::string& id) {
  return {.scope = scope, .source = {SourceSpec::Image{id}}, .overlay = {}, .updatedAt = {}};
}

inline ConfigFile withFps(int fps) {
  ConfigFile config;
  config.settings.fps = fps;
  return config;
}

/// A support directory of the test's own, inside a temporary one.
class StoreFixture : public testing::Test {
 protected:
  /// Writes `config.json` in place. It is never empty in between: what readers see does not
  /// depend on how long a busy machine lets the writer wait.
  void edit(const std::string& text) const {
    std::filesystem::create_directories(directory_);
    const FileDescriptor file = FileDescriptor::open(file_.string(), O_WRONLY | O_CREAT, 0644);
    writeAll(file, std::as_bytes(std::span(text)), file_.string());
    if (::ftruncate(file.get(), static_cast<off_t>(text.size())) != 0) throwErrno(file_.string());
  }
  void edit(const ConfigFile& config) const { edit(ConfigJson::write(config)); }

  /// Replaces `config.json` by a file written elsewhere, as many editors do.
  void editByRename(const std::string& text) const {
    temporary_.write("draft", text);
    std::filesystem::rename(temporary_ / "draft", file_);
  }
  void editByRename(const ConfigFile& config) const { editByRename(ConfigJson::write(config)); }

  /// The file's names in the support directory that start so.
  std::vector<std::filesystem::path> filesNamed(const std::string& prefix) const {
    std::vector<std::filesystem::path> found;
    for (const auto& entry : std::filesystem::directory_iterator(directory_)) {
      if (entry.path().filename().string().starts_with(prefix)) found.push_back(entry.path());
    }
    std::ranges::sort(found);
    return found;
  }
  std::vector<std::filesystem::path> keptAside() const { return filesNamed("config.json.broken-"); }

  const TemporaryDirectory temporary_;
  const std::filesystem::path directory_ = temporary_ / "Lenslark";
  const std::filesystem::path file_ = directory_ / "config.json";
};

/// The configurations that an observer was told of, in order.
class Told {
 public:
  ConfigStore::Observer observer() {
    return [this](const ConfigFile& config) {
      const std::scoped_lock lock(mutex_);
      configs_.push_back(config);
    };
  }
  std::vector<ConfigFile> configs() const {
    const std::scoped_lock lock(mutex_);
    return configs_;
  }
  /// Waits until the last that was told is this one.
  bool endsWith(const ConfigFile& config) const {
    return eventually([&] {
      const auto all = configs();
      return !all.empty() && all.back() == config;
    });
  }

 private:
  mutable std::mutex mutex_;
  std::vector<ConfigFile> configs_;
};

}  // namespace lenslark
