#include "base/LazyCrypto.h"

#include <dlfcn.h>
#include <fmt/core.h>
#include <openssl/opensslv.h>

#include <type_traits>

#include "base/Error.h"

namespace lenslark {

const LazyCrypto& LazyCrypto::shared() {
  static const LazyCrypto crypto;
  return crypto;
}

LazyCrypto::LazyCrypto() {
  const auto name = fmt::format("libcrypto.so.{}", OPENSSL_SHLIB_VERSION);
  void* library = dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) throw Error(fmt::format("cannot load {}: {}", name, dlerror()));
  const auto find = [&](auto& function, const char* symbol) {
    function = reinterpret_cast<std::decay_t<decltype(function)>>(dlsym(library, symbol));
    if (function == nullptr) throw Error(fmt::format("{} has no {}", name, symbol));
  };
  find(newContext, "EVP_MD_CTX_new");
  find(freeContext, "EVP_MD_CTX_free");
  find(sha256, "EVP_sha256");
  find(begin, "EVP_DigestInit_ex");
  find(add, "EVP_DigestUpdate");
  find(finish, "EVP_DigestFinal_ex");
  find(encodeBlock, "EVP_EncodeBlock");
}

}  // namespace lenslark
