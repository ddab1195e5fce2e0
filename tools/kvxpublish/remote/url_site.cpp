#include "tools/kvxpublish/remote/url_site.h"

#include <windows.h>
#include <winhttp.h>

#include <string_view>

#include "foundations/text.h"
#include "net/content_range.h"
#include "net/http_request.h"
#include "net/http_session.h"
#include "net/transfer.h"
#include "net/url.h"
#include "tools/kvxpublish/remote/http_answer.h"

namespace kvx::publish {
namespace {

// A request for the first byte alone is answered with the size of the whole; a server without ranges sends the whole
// file's length, and the connection is closed before its body comes.
bool read_size(const WinHttpHandle& request, uint32_t status, uint64_t& size) {
  const bool whole = status == status_ok;
  std::wstring header;
  if (!query_header_text(request, whole ? WINHTTP_QUERY_CONTENT_LENGTH : WINHTTP_QUERY_CONTENT_RANGE, header)) {
    return false;
  }
  std::wstring_view text = header;
  return whole ? take_number(text, size) && text.empty() : read_total(text, size);
}

class UrlSite : public SiteReader {
 public:
  explicit UrlSite(std::wstring base_url) : base_url_(std::move(base_url)) {}

  [[nodiscard]] bool open(Failure& failure) {
    std::string error;
    return session_.open(L"kvxpublish", error) ||
           fail(ExitCode::failed, "the network could not be initialised: " + error, failure);
  }

  [[nodiscard]] std::string name_of(const std::string& relative) const override { return to_utf8(url_of(relative)); }

  [[nodiscard]] Search read_file(const std::string& relative, uint64_t limit, std::string& bytes,
                                 Failure& failure) override {
    std::string error;
    const int32_t status = fetch_to_memory(session_, url_of(relative), bytes, limit, error);
    if (status == transport_failure) return failed(relative, error, failure);
    return judge(relative, static_cast<uint32_t>(status), failure);
  }

  [[nodiscard]] Search find_size(const std::string& relative, uint64_t& size, Failure& failure) override {
    std::string error;
    UrlParts url;
    HttpRequest request;
    uint32_t status = 0;
    if (!parse_url(url_of(relative), url, error) ||
        !send_request(session_, url, L"Range: bytes=0-0\r\n", request, status, error)) {
      return failed(relative, error, failure);
    }
    // An empty file has no first byte.
    const bool sized =
        status == status_ok || status == status_partial_content || status == status_range_not_satisfiable;
    if (!sized) return judge(relative, status, failure);
    if (!read_size(request.request, status, size)) return failed(relative, "the server did not tell its size", failure);
    return Search::found;
  }

  [[nodiscard]] bool read_content(const std::string& relative, uint64_t size, const ContentSink& sink,
                                  Failure& failure) override {
    std::string error;
    uint32_t status = 0;
    ReceiveBuffer buffer;
    const TransferResult result =
        download_range(session_, url_of(relative), 0, size, sink, nullptr, buffer, status, error);
    if (result == TransferResult::ok) return true;
    if (result == TransferResult::write_failed) error = "stopped";
    return fail(ExitCode::failed, name_of(relative) + ": " + error, failure);
  }

 private:
  [[nodiscard]] std::wstring url_of(const std::string& relative) const { return base_url_ + to_wide(relative); }

  Search failed(const std::string& relative, const std::string& reason, Failure& failure) const {
    static_cast<void>(fail(ExitCode::failed, name_of(relative) + ": " + reason, failure));
    return Search::failed;
  }

  Search judge(const std::string& relative, uint32_t status, Failure& failure) const {
    if (status == status_ok) return Search::found;
    if (status == status_not_found) return Search::absent;
    return failed(relative, "HTTP " + std::to_string(status), failure);
  }

  const std::wstring base_url_;
  HttpSession session_;
};

}  // namespace

bool open_url_site(std::wstring base_url, std::unique_ptr<SiteReader>& site, Failure& failure) {
  if (!base_url.ends_with(L'/')) base_url += L'/';
  UrlParts parts;
  std::string error;
  if (!parse_url(base_url, parts, error)) {
    return fail(ExitCode::usage, to_utf8(base_url) + ": " + error, failure);
  }
  auto opened = std::make_unique<UrlSite>(std::move(base_url));
  if (!opened->open(failure)) return false;
  site = std::move(opened);
  return true;
}

}  // namespace kvx::publish
