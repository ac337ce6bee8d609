#pragma once

#include <openssl/evp.h>

namespace lenslark {

/// What base uses of libcrypto, which is opened when it is first needed: to relocate it takes twice
/// as long as a short command takes to run.
///
/// **Threads**: any. The library stays open for good.
class LazyCrypto {
 public:
  /// **Fails** with Error that says what is missing.
  static const LazyCrypto& shared();

  decltype(&EVP_MD_CTX_new) newContext;
  decltype(&EVP_MD_CTX_free) freeContext;
  decltype(&EVP_sha256) sha256;
  decltype(&EVP_DigestInit_ex) begin;
  decltype(&EVP_DigestUpdate) add;
  decltype(&EVP_DigestFinal_ex) finish;
  decltype(&EVP_EncodeBlock) encodeBlock;

 private:
  LazyCrypto();
};

}  // namespace lenslark
