#include "base/Digest.h"

#include <fmt/core.h>

#include <array>

#include "base/Error.h"
#include "base/LazyCrypto.h"

namespace lenslark {
namespace {

void check(int result) {
  if (result != 1) throw Error("SHA-256 is not available in this system's libcrypto");
}

}  // namespace

struct Sha256::State {
  const LazyCrypto& crypto = LazyCrypto::shared();
  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context{crypto.newContext(),
                                                                  crypto.freeContext};
};

Sha256::Sha256() : state_(std::make_unique<State>()) {
  check(state_->crypto.begin(state_->context.get(), state_->crypto.sha256(), nullptr));
}
Sha256::~Sha256() = default;
Sha256::Sha256(Sha256&&) noexcept = default;
Sha256& Sha256::operator=(Sha256&&) noexcept = default;

void Sha256::add(std::span<const std::byte> bytes) {
  check(state_->crypto.add(state_->context.get(), bytes.data(), bytes.size()));
}

std::string Sha256::finish() {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int size = 0;
  check(state_->crypto.finish(state_->context.get(), digest.data(), &size));
  std::string text;
  for (unsigned int index = 0; index < size; ++index) {
    text += fmt::format("{:02x}", digest[index]);
  }
  return text;
}

}  // namespace lenslark
