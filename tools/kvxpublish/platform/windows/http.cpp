#include "tools/kvxpublish/platform/http.h"

#include <windows.h>
#include <winhttp.h>

#include <algorithm>
#include <string_view>

#include "foundations/text.h"
#include "net/http_request.h"
#include "net/http_session.h"
#include "net/url.h"

namespace kvx::publish {
namespace {

constexpr size_t buffer_bytes = 1048576;

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r";
  const size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) + 1 - first);
}

// Lines "Name: value" after the status line. Several headers of one name are one list (RFC 9110, 5.3).
void read_headers(const std::string& text, HttpAnswer& answer) {
  for (size_t start = 0; start < text.size();) {
    const size_t end = std::min(text.find('\n', start), text.size());
    const std::string_view line = std::string_view(text).substr(start, end - start);
    const size_t colon = line.find(':');
    if (colon != std::string_view::npos) {
      std::string& known = answer.headers[to_lower_ascii(trimmed(line.substr(0, colon)))];
      known += (known.empty() ? "" : ", ") + std::string(trimmed(line.substr(colon + 1)));
    }
    start = end + 1;
  }
}

}  // namespace

bool check_url(const std::string& url, std::string& reason) {
  UrlParts ignored;
  return parse_url(to_wide(url), ignored, reason);
}

struct HttpClient::Session {
  HttpSession session;
  std::vector<uint8_t> buffer = std::vector<uint8_t>(buffer_bytes);
};

HttpClient::HttpClient() : session_(std::make_unique<Session>()) {}
HttpClient::~HttpClient() = default;

bool HttpClient::open(std::string& reason) { return session_->session.open(L"kvxpublish", reason); }

HttpResult HttpClient::get(const std::string& url, const std::vector<std::string>& headers, HttpAnswer& answer,
                           const HttpSink& sink, std::string& reason) {
  answer = {};
  std::wstring lines;
  for (const std::string& line : headers) lines += to_wide(line) + L"\r\n";
  UrlParts parts;
  HttpRequest request;
  if (!parse_url(to_wide(url), parts, reason) ||
      !send_request(session_->session, parts, lines, request, answer.status, reason)) {
    return HttpResult::failed;
  }
  std::wstring all;
  if (query_header_text(request.request, WINHTTP_QUERY_RAW_HEADERS_CRLF, all)) read_headers(to_utf8(all), answer);
  std::vector<uint8_t>& buffer = session_->buffer;
  for (;;) {
    DWORD ready = 0;  // a read waits until it has all that it asks for
    DWORD got = 0;
    if (WinHttpQueryDataAvailable(request.request.get(), &ready) == 0 ||
        WinHttpReadData(request.request.get(), buffer.data(),
                        static_cast<DWORD>(std::min<size_t>(std::max<size_t>(ready, 1), buffer.size())), &got) == 0) {
      reason = describe_http_error("download", GetLastError());
      return HttpResult::failed;
    }
    if (got == 0) return HttpResult::done;
    if (!sink(buffer.data(), got)) return HttpResult::stopped;
  }
}

}  // namespace kvx::publish
