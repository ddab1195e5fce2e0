#include <windows.h>
#include <bcrypt.h>

#include <algorithm>

#include "manifest/sha256.h"

namespace kvx {
namespace {

constexpr size_t largest_piece_bytes = size_t{1} << 30;  // the platform takes a 32-bit length

// Null when the provider could not be opened; that is then remembered for the process.
BCRYPT_ALG_HANDLE sha256_provider() {
  static const BCRYPT_ALG_HANDLE provider = [] {
    BCRYPT_ALG_HANDLE opened = nullptr;
    return BCryptOpenAlgorithmProvider(&opened, BCRYPT_SHA256_ALGORITHM, nullptr, 0) == 0 ? opened : nullptr;
  }();
  return provider;
}

}  // namespace

void Sha256HandleTraits::close(value_type value) { BCryptDestroyHash(value); }

bool Sha256Hasher::reset() {
  handle_.reset();
  const BCRYPT_ALG_HANDLE provider = sha256_provider();
  BCRYPT_HASH_HANDLE created = nullptr;
  if (provider == nullptr || BCryptCreateHash(provider, &created, nullptr, 0, nullptr, 0, 0) != 0) return false;
  handle_.reset(created);
  return true;
}

bool Sha256Hasher::update(const void* bytes, size_t length) {
  if (!handle_) return false;
  // The platform's parameter is not const, though it only reads.
  auto* next = static_cast<UCHAR*>(const_cast<void*>(bytes));
  while (length > 0) {
    const size_t piece = std::min(length, largest_piece_bytes);
    if (BCryptHashData(handle_.get(), next, static_cast<ULONG>(piece), 0) != 0) {
      handle_.reset();  // or the digest would be that of other bytes
      return false;
    }
    next += piece;
    length -= piece;
  }
  return true;
}

bool Sha256Hasher::finish(Sha256Digest& digest) {
  if (!handle_) return false;
  const NTSTATUS status = BCryptFinishHash(handle_.get(), digest.data(), static_cast<ULONG>(digest.size()), 0);
  handle_.reset();
  return status == 0;
}

}  // namespace kvx
