#include "manifest/manifest_fetch.h"

#include "foundations/log.h"
#include "foundations/text.h"
#include "manifest/manifest_limits.h"
#include "manifest/signature.h"
#include "net/stoppable_fetch.h"
#include "net/transfer.h"

namespace kvx {
namespace {

constexpr int most_attempts = 3;
constexpr int most_transport_failures = 2;
constexpr uint32_t retry_pause_ms = 1500;

constexpr int32_t http_ok = 200;
constexpr int32_t http_not_found = 404;

std::wstring channel_url(const ManifestFetchContext& context) {
  if (context.channel == "live") return context.base_url;
  return context.base_url + to_wide(context.channel) + L"/";
}

class ManifestFetch {
 public:
  ManifestFetch(const ManifestFetchContext& context, std::string& manifest, std::string& signature, std::string& error)
      : context_(context), manifest_(manifest), signature_(signature), error_(error) {}

  ManifestFetchStatus run() {
    while (attempts_ < most_attempts) {
      const uint32_t pause_ms = static_cast<uint32_t>(attempts_) * retry_pause_ms;
      if (attempts_ > 0 && !context_.wait_or_stop(pause_ms)) break;
      switch (attempt()) {
        case AttemptResult::fetched: return ManifestFetchStatus::ok;
        case AttemptResult::not_published: return ManifestFetchStatus::not_published;
        case AttemptResult::give_up: return ManifestFetchStatus::failed;
        case AttemptResult::try_again: break;
      }
    }
    return signature_failed_ ? ManifestFetchStatus::untrusted : ManifestFetchStatus::failed;
  }

 private:
  enum class AttemptResult : uint8_t { fetched, not_published, give_up, try_again };

  AttemptResult attempt() {
    const AttemptResult result = attempt_manifest();
    if (result != AttemptResult::fetched) return result;
    if (!attempt_signature()) return AttemptResult::try_again;
    return verify() ? AttemptResult::fetched : AttemptResult::try_again;
  }

  AttemptResult attempt_manifest() {
    const std::wstring url = channel_url(context_) + L"manifest.json";
    const int32_t status = fetch(url, manifest_, largest_manifest_bytes);
    if (status == http_ok) return AttemptResult::fetched;
    if (status == transport_failure) {
      ++attempts_;
      log::write("manifest fetch failed (attempt %d): %s", attempts_, error_.c_str());
      ++transport_failures_;
      const bool give_up = transport_failures_ >= most_transport_failures && !signature_failed_;
      return give_up ? AttemptResult::give_up : AttemptResult::try_again;
    }
    error_ = "HTTP " + std::to_string(status);
    if (status == http_not_found) return AttemptResult::not_published;
    log::write("manifest fetch: %s", error_.c_str());
    ++attempts_;
    return AttemptResult::try_again;
  }

  bool attempt_signature() {
    const std::wstring url = channel_url(context_) + L"manifest.sig";
    const int32_t status = fetch(url, signature_, largest_signature_bytes);
    if (status == http_ok) return true;
    if (status != transport_failure) error_ = "manifest.sig: HTTP " + std::to_string(status);
    ++attempts_;
    log::write("signature fetch failed (attempt %d): %s", attempts_, error_.c_str());
    return false;
  }

  int32_t fetch(const std::wstring& url, std::string& body, uint64_t max_bytes) {
    return fetch_or_stop(context_.threads, url, body, max_bytes, error_);
  }

  bool verify() {
    std::string key_name;
    if (verify_manifest(manifest_, signature_, context_.keys, key_name, error_)) {
      log::write("manifest: %u bytes, signature OK (key %s)", static_cast<unsigned>(manifest_.size()),
                 key_name.c_str());
      return true;
    }
    ++attempts_;
    log::write("manifest signature check FAILED (attempt %d): %s", attempts_, error_.c_str());
    signature_failed_ = true;
    return false;
  }

  const ManifestFetchContext& context_;
  std::string& manifest_;
  std::string& signature_;
  std::string& error_;
  int attempts_ = 0;
  int transport_failures_ = 0;
  bool signature_failed_ = false;
};

}  // namespace

ManifestFetchStatus fetch_manifest(const ManifestFetchContext& context, std::string& manifest, std::string& signature,
                                   std::string& error) {
  return ManifestFetch(context, manifest, signature, error).run();
}

}  // namespace kvx
