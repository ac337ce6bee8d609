#include "base/Uuid.h"

#include <fmt/core.h>
#include <sys/random.h>

#include <algorithm>
#include <array>

#include "base/PosixError.h"

namespace lenslark::Uuid {

std::string make() {
  std::array<unsigned char, 16> bytes{};
  if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    throwErrno("getrandom");
  }
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);
  std::string text;
  for (std::size_t index = 0; index < bytes.size(); ++index) {
    if (index == 4 || index == 6 || index == 8 || index == 10) text += '-';
    text += fmt::format("{:02X}", bytes[index]);
  }
  return text;
}

bool isWellFormed(std::string_view text) noexcept {
  constexpr std::string_view form = "00000000-0000-0000-0000-000000000000";
  const auto fits = [](char character, char wanted) {
    if (wanted == '-') return character == '-';
    return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'F');
  };
  return std::equal(text.begin(), text.end(), form.begin(), form.end(), fits);
}

}  // namespace lenslark::Uuid
