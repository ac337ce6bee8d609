#pragma once

#include <string>

#include "base/Error.h"

namespace lenslark {

/// Why a file cannot be shown or found.
class MediaError final : public Error {
 public:
  enum class Kind { notAFile, tooLarge, unsupported, notFound };

  static MediaError notAFile(const std::string& path);
  static MediaError tooLarge(const std::string& path);
  static MediaError unsupported(const std::string& fileName);
  static MediaError notFound(const std::string& query);

  Kind kind() const noexcept { return kind_; }

 private:
  MediaError(Kind kind, const std::string& message, std::string_view code);

  Kind kind_;
};

}  // namespace lenslark
