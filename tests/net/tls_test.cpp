// The network code against a real server with TLS. Needs the environment that tests/support/nginx_site.sh makes. A
// process may read the trusted authorities only once, so the tests without trust run in a process of their own.
#include <windows.h>
#include <wincrypt.h>

#include <atomic>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>

#include "foundations/text.h"
#include "foundations/unique_handle.h"
#include "manifest/manifest_fetch.h"
#include "net/transfer.h"
#include "tests/support/scripted_server.h"
#include "tests/support/signing_keys.h"
#include "tests/support/temp_folder.h"

namespace kvx {
namespace {

struct StoreTraits {
  using value_type = HCERTSTORE;
  static value_type none() { return nullptr; }
  static void close(value_type value) { CertCloseStore(value, 0); }
};
using Store = UniqueHandle<StoreTraits>;

struct CertificateTraits {
  using value_type = PCCERT_CONTEXT;
  static value_type none() { return nullptr; }
  static void close(value_type value) { CertFreeCertificateContext(value); }
};
using Certificate = UniqueHandle<CertificateTraits>;

std::string environment(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr) ADD_FAILURE() << name << " is not set; start this program through tests/support/nginx_site.sh";
  return value == nullptr ? std::string() : value;
}

// The current user's trusted root authorities.
Store root_store() { return Store(CertOpenSystemStoreW(0, L"ROOT")); }

// Makes the user trust the site's authority as long as it lives. A change is saved when the store closes, which it does
// with the last reference to a certificate in it; so none is kept.
class TrustedAuthority {
 public:
  TrustedAuthority() {
    const std::string encoded = test::read_text(to_wide(environment("KVX_SITE_AUTHORITY")));
    authority_.reset(CertCreateCertificateContext(X509_ASN_ENCODING, reinterpret_cast<const BYTE*>(encoded.data()),
                                                  static_cast<DWORD>(encoded.size())));
    EXPECT_TRUE(CertAddEncodedCertificateToStore(root_store().get(), X509_ASN_ENCODING,
                                                 reinterpret_cast<const BYTE*>(encoded.data()),
                                                 static_cast<DWORD>(encoded.size()), CERT_STORE_ADD_ALWAYS, nullptr));
  }
  TrustedAuthority(const TrustedAuthority&) = delete;
  TrustedAuthority& operator=(const TrustedAuthority&) = delete;
  ~TrustedAuthority() {
    const Store store = root_store();
    // Deleting it also frees it.
    const PCCERT_CONTEXT found =
        CertFindCertificateInStore(store.get(), X509_ASN_ENCODING, 0, CERT_FIND_EXISTING, authority_.get(), nullptr);
    EXPECT_TRUE(found != nullptr && CertDeleteCertificateFromStore(found));
  }

 private:
  Certificate authority_;
};

class UntrustedSite : public testing::Test {
 protected:
  UntrustedSite() {
    EXPECT_TRUE(session_.open(L"KVXLauncher/1.0.0", error_)) << error_;
    publish("manifest.json", manifest_);
    publish("manifest.sig", test::sign_manifest(manifest_));
    publish("files\\blob", blob_);
  }

  static void publish(const std::string& name, const std::string& bytes) {
    test::write_text(to_wide(environment("KVX_SITE_FOLDER") + "\\" + name), bytes);
  }

  int32_t fetch(const std::string& url) { return fetch_to_memory(session_, to_wide(url), body_, 1000, error_); }

  TransferResult download(const std::string& name, uint64_t offset, uint64_t total_size) {
    received_.clear();
    error_.clear();
    const TransferSink sink = [this](const uint8_t* bytes, size_t count) {
      received_.append(bytes, bytes + count);
      return true;
    };
    return download_range(session_, to_wide(environment("KVX_SITE_URL") + name), offset, total_size, sink, nullptr,
                          buffer_, http_status_, error_);
  }

  ReceiveBuffer buffer_;
  const std::string manifest_ = "{\"product\": \"kvx\"}";
  const std::string blob_ = std::string(3000000, 'a') + "the end";
  HttpSession session_;
  std::string body_;
  std::string received_;
  uint32_t http_status_ = 0;
  std::string error_;
};

TEST_F(UntrustedSite, RefusesACertificateOfAnUnknownAuthority) {
  EXPECT_EQ(fetch(environment("KVX_SITE_URL") + "manifest.json"), 0);
  EXPECT_THAT(error_, testing::StartsWith("send: "));
  EXPECT_EQ(body_, "");
  EXPECT_EQ(download("files/blob", 0, blob_.size()), TransferResult::network);
  EXPECT_THAT(error_, testing::StartsWith("send: "));
  EXPECT_EQ(http_status_, 0U);
}

class TrustedSite : public UntrustedSite {
 protected:
  static void SetUpTestSuite() { trusted = std::make_unique<TrustedAuthority>(); }
  static void TearDownTestSuite() { trusted.reset(); }

  static inline std::unique_ptr<TrustedAuthority> trusted;
};

TEST_F(TrustedSite, RefusesACertificateForAnotherHost) {
  std::string url = environment("KVX_SITE_URL");
  ASSERT_EQ(fetch(url + "manifest.json"), 200) << error_;
  url.replace(url.find("localhost"), 9, "127.0.0.1");
  EXPECT_EQ(fetch(url + "manifest.json"), 0);
  EXPECT_THAT(error_, testing::StartsWith("send: "));
}

// A server with TLS 1.3 alone is no case here: Wine drops that flag and keeps the one for TLS 1.2.
TEST_F(TrustedSite, SpeaksTls12AndNothingOlder) {
  EXPECT_EQ(fetch(environment("KVX_SITE_TLS12_URL") + "manifest.json"), 200) << error_;
  EXPECT_EQ(fetch(environment("KVX_SITE_TLS11_URL") + "manifest.json"), 0);
  EXPECT_THAT(error_, testing::StartsWith("send: "));
}

TEST_F(TrustedSite, FetchesTheManifestAndItsSignature) {
  const std::atomic<bool> no_stop{false};
  const StopSignal stop(no_stop);
  TransferThreads threads(session_, stop);
  const auto wait_or_stop = [&](uint32_t milliseconds) { return stop.wait_or_stop(milliseconds); };
  const std::wstring base_url = to_wide(environment("KVX_SITE_URL"));
  std::string manifest;
  std::string signature;
  for (const auto& [channel, status] : {std::pair{std::string("live"), ManifestFetchStatus::ok},
                                        std::pair{std::string("beta"), ManifestFetchStatus::not_published}}) {
    EXPECT_EQ(fetch_manifest({threads, wait_or_stop, base_url, channel, built_in_keys()}, manifest, signature, error_),
              status)
        << error_;
  }
  EXPECT_EQ(error_, "HTTP 404");
}

TEST_F(TrustedSite, DownloadsAndResumes) {
  EXPECT_EQ(download("files/blob", 0, blob_.size()), TransferResult::ok) << error_;
  EXPECT_EQ(http_status_, 200U);
  EXPECT_TRUE(received_ == blob_);

  EXPECT_EQ(download("files/blob", 3000000, blob_.size()), TransferResult::ok) << error_;
  EXPECT_EQ(http_status_, 206U);
  EXPECT_EQ(received_, "the end");

  EXPECT_EQ(download("files/blob", blob_.size(), blob_.size() + 1), TransferResult::range_rejected);
  EXPECT_EQ(http_status_, 416U);
  EXPECT_EQ(error_, "the server rejected the resume position (HTTP 416)");

  EXPECT_EQ(download("files/blob", 0, blob_.size() + 1), TransferResult::protocol);
  EXPECT_EQ(error_, "the server reports a different file size (3000007 instead of 3000008 bytes)");

  EXPECT_EQ(download("files/blob", 500, blob_.size() + 1), TransferResult::protocol);
  EXPECT_EQ(error_, "the server returned an unexpected byte range");

  EXPECT_EQ(download("files/none", 0, 1), TransferResult::http_status);
  EXPECT_EQ(error_, "the server answered HTTP 404");
}

// WinHTTP's default: what was asked for over TLS does not come without it.
TEST_F(TrustedSite, DoesNotFollowARedirectToPlainHttp) {
  test::ScriptedServer plain;
  plain.serve("file", "plain");
  ASSERT_EQ(fetch(environment("KVX_SITE_URL") + "manifest.json"), 200) << error_;
  const std::string redirect =
      environment("KVX_SITE_URL") + "redirect?to=http://127.0.0.1:" + std::to_string(plain.port()) + "/file";
  EXPECT_NE(fetch(redirect), 200);
  EXPECT_EQ(plain.requests().size(), 0U);
}

}  // namespace
}  // namespace kvx
