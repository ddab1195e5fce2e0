#include <windows.h>
#include <bcrypt.h>
#include <wincrypt.h>

#include <array>
#include <cstring>
#include <gtest/gtest.h>

#include "foundations/paths.h"
#include "foundations/text.h"
#include "manifest/bcrypt_handles.h"
#include "manifest/built_in_keys.h"
#include "tests/support/sha256_hex.h"
#include "tests/support/signing_keys.h"
#include "tests/support/temp_folder.h"
#include "tests/support/test_paths.h"

namespace kvx::test {
namespace {

constexpr size_t coordinate_bytes = 32;

// The platform's ECCPRIVATEBLOB.
struct PrivateKeyBlob {
  BCRYPT_ECCKEY_BLOB header{BCRYPT_ECDSA_PRIVATE_P256_MAGIC, coordinate_bytes};
  std::array<char, 2 * coordinate_bytes> point{};
  std::array<char, coordinate_bytes> secret{};
};

std::string pem_content(const std::string& pem) {
  DWORD size = 0;
  CryptStringToBinaryA(pem.c_str(), 0, CRYPT_STRING_BASE64HEADER, nullptr, &size, nullptr, nullptr);
  std::string bytes(size, '\0');
  CryptStringToBinaryA(pem.c_str(), 0, CRYPT_STRING_BASE64HEADER, reinterpret_cast<BYTE*>(bytes.data()), &size, nullptr,
                       nullptr);
  return bytes;
}

// A P-256 key in PKCS#8 has fixed lengths throughout, so that the bytes before its two octet strings find them.
template <size_t size>
bool copy_after(const std::string& bytes, std::string_view marker, std::array<char, size>& out) {
  const size_t found = bytes.find(marker);
  if (found == std::string::npos || bytes.size() - found - marker.size() < size) return false;
  std::memcpy(out.data(), bytes.data() + found + marker.size(), size);
  return true;
}

PrivateKeyBlob read_private_key(SigningKey key) {
  using std::string_view_literals::operator""sv;
  const std::string name = key == SigningKey::primary ? "primary" : "backup";
  const std::string bytes =
      pem_content(read_text(full_path(to_wide(source_path("keys/development/" + name + ".pem")))));
  PrivateKeyBlob blob;
  if (!copy_after(bytes, "\x02\x01\x01\x04\x20"sv, blob.secret) ||
      !copy_after(bytes, "\x03\x42\x00\x04"sv, blob.point)) {
    ADD_FAILURE() << name << ".pem is not a P-256 key in PKCS#8";
  }
  return blob;
}

std::string sign_digest(const PrivateKeyBlob& key, Sha256Bytes digest) {
  BCRYPT_ALG_HANDLE opened = nullptr;
  EXPECT_EQ(BCryptOpenAlgorithmProvider(&opened, BCRYPT_ECDSA_P256_ALGORITHM, nullptr, 0), 0);
  const AlgorithmHandle provider(opened);
  PrivateKeyBlob blob = key;
  BCRYPT_KEY_HANDLE imported = nullptr;
  EXPECT_EQ(BCryptImportKeyPair(provider.get(), nullptr, BCRYPT_ECCPRIVATE_BLOB, &imported,
                                reinterpret_cast<UCHAR*>(&blob), sizeof(blob), 0),
            0);
  const KeyHandle private_key(imported);
  std::string r_and_s(2 * coordinate_bytes, '\0');
  ULONG written = 0;
  EXPECT_EQ(BCryptSignHash(private_key.get(), nullptr, digest.data(), static_cast<ULONG>(digest.size()),
                           reinterpret_cast<UCHAR*>(r_and_s.data()), static_cast<ULONG>(r_and_s.size()), &written, 0),
            0);
  EXPECT_EQ(written, r_and_s.size());
  return r_and_s;
}

}  // namespace

std::string sign_manifest(std::string_view manifest, SigningKey key) {
  const auto& identifier = built_in_keys()[key == SigningKey::primary ? 0 : 1].identifier;
  std::string file = "KVXSIG01";
  file.append(identifier.begin(), identifier.end());
  return file + sign_digest(read_private_key(key), sha256_bytes(manifest));
}

}  // namespace kvx::test
