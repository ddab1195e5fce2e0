#include <openssl/evp.h>

#include "manifest/sha256.h"

namespace kvx {

void Sha256HandleTraits::close(value_type value) { EVP_MD_CTX_free(static_cast<EVP_MD_CTX*>(value)); }

bool Sha256Hasher::reset() {
  handle_.reset(EVP_MD_CTX_new());
  if (!handle_) return false;
  if (EVP_DigestInit_ex(static_cast<EVP_MD_CTX*>(handle_.get()), EVP_sha256(), nullptr) == 1) return true;
  handle_.reset();
  return false;
}

bool Sha256Hasher::update(const void* bytes, size_t length) {
  if (!handle_) return false;
  if (EVP_DigestUpdate(static_cast<EVP_MD_CTX*>(handle_.get()), bytes, length) == 1) return true;
  handle_.reset();  // or the digest would be that of other bytes
  return false;
}

bool Sha256Hasher::finish(Sha256Digest& digest) {
  if (!handle_) return false;
  const bool finished = EVP_DigestFinal_ex(static_cast<EVP_MD_CTX*>(handle_.get()), digest.data(), nullptr) == 1;
  handle_.reset();
  return finished;
}

}  // namespace kvx
