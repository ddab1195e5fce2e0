// trust_ca CERTIFICATE: adds a PEM or DER certificate to the current user's trusted roots, for test servers. Windows
// asks the user first; Wine does not, and keeps it in the prefix.
#include <windows.h>
#include <wincrypt.h>

#include <cstdio>
#include <string>
#include <vector>

#include "foundations/error_text.h"
#include "foundations/files.h"
#include "foundations/paths.h"
#include "foundations/text.h"

namespace {

constexpr uint64_t certificate_limit_bytes = 65536;

int fail(const std::string& text) {
  static_cast<void>(std::fprintf(stderr, "trust_ca: %s\n", text.c_str()));
  return 1;
}

// PEM becomes DER; anything else is taken as DER already.
std::vector<BYTE> certificate_bytes(const std::string& file) {
  const auto length = static_cast<DWORD>(file.size());
  DWORD count = 0;
  if (CryptStringToBinaryA(file.data(), length, CRYPT_STRING_BASE64HEADER, nullptr, &count, nullptr, nullptr) == 0) {
    return {file.begin(), file.end()};
  }
  std::vector<BYTE> bytes(count);
  CryptStringToBinaryA(file.data(), length, CRYPT_STRING_BASE64HEADER, bytes.data(), &count, nullptr, nullptr);
  return bytes;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {  // NOLINT(misc-use-internal-linkage): the runtime calls it
  if (argc != 2) return fail("usage: trust_ca CERTIFICATE");
  std::string file;
  if (!kvx::read_file(kvx::full_path(argv[1]), certificate_limit_bytes, file)) {
    return fail(kvx::to_utf8(argv[1]) + ": cannot be read");
  }
  const std::vector<BYTE> certificate = certificate_bytes(file);
  HCERTSTORE store = CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, L"Root");
  if (store == nullptr) return fail("the trusted roots cannot be opened: " + kvx::error_text(GetLastError()));
  const bool added = CertAddEncodedCertificateToStore(store, X509_ASN_ENCODING, certificate.data(),
                                                      static_cast<DWORD>(certificate.size()),
                                                      CERT_STORE_ADD_REPLACE_EXISTING, nullptr) != 0;
  const DWORD error = GetLastError();
  CertCloseStore(store, 0);
  return added ? 0 : fail(kvx::to_utf8(argv[1]) + ": cannot be added: " + kvx::error_text(error));
}
