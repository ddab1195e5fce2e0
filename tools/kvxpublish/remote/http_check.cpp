#include "tools/kvxpublish/remote/http_check.h"

#include <windows.h>
#include <winhttp.h>

#include <string_view>
#include <vector>

#include "foundations/text.h"
#include "net/content_range.h"
#include "net/http_request.h"
#include "net/url.h"
#include "tools/kvxpublish/remote/http_answer.h"
#include "tools/kvxpublish/site/content_problems.h"

namespace kvx::publish {
namespace {

constexpr size_t buffer_bytes = 1048576;

std::string quoted(const std::wstring& header) { return '"' + to_utf8(header) + '"'; }

// A Cache-Control with which caches need not ask the server every time.
bool lets_caches_keep(const std::wstring& cache_control) {
  const std::string text = to_lower_ascii(to_utf8(cache_control));
  const auto has = [&text](std::string_view word) { return text.find(word) != std::string::npos; };
  return has("immutable") || (has("max-age=") && !has("max-age=0") && !has("no-cache") && !has("no-store"));
}

}  // namespace

struct HttpCheck::Answer {
  std::string url;
  HttpRequest request;
  uint32_t status = 0;

  // Empty when the header is absent.
  [[nodiscard]] std::wstring header(uint32_t number) const {
    std::wstring text;
    return query_header_text(request.request, number, text) ? text : std::wstring();
  }
};

bool HttpCheck::open(Failure& failure) {
  std::string error;
  return session_.open(L"kvxpublish", error) ||
         fail(ExitCode::failed, "the network could not be initialised: " + error, failure);
}

void HttpCheck::check_document(const std::string& url, std::vector<std::string>& notes) {
  Answer answer;
  if (!send(url, L"Cache-Control: no-cache\r\nPragma: no-cache\r\n", answer) || answer.status != status_ok) return;
  const std::wstring caching = answer.header(WINHTTP_QUERY_CACHE_CONTROL);
  if (lets_caches_keep(caching)) {
    notes.push_back(url + ": is sent with the Cache-Control " + quoted(caching) +
                    ", so that players can get old releases from caches; let the server send \"no-cache\"");
  }
  if (!check_coding(answer)) return;
  if (!answer.header(WINHTTP_QUERY_CONTENT_LENGTH).empty()) return;
  static_cast<void>(wrong(answer, "is sent without a Content-Length; let the server send it as a plain file"));
}

bool HttpCheck::check_resuming(const std::string& url, uint64_t size) {
  if (size == 0) return check_whole(url, size, {});
  const uint64_t offset = size - 1;
  Answer answer;
  if (!send(url, L"Range: bytes=" + std::to_wstring(offset) + L"-\r\n", answer)) return false;
  switch (answer.status) {
    case status_partial_content: return check_range(answer, offset, size);
    case status_ok:
      return check_coding(answer) &&
             wrong(answer,
                   "the server ignores ranges, and interrupted downloads begin again from the start; switch "
                   "them on for plain files");
    case status_range_not_satisfiable: {
      uint64_t actual = 0;
      if (read_total(answer.header(WINHTTP_QUERY_CONTENT_RANGE), actual)) return wrong_size(answer, actual, size);
      return wrong(answer, "the server rejects a range within the file (HTTP 416); let it send plain files itself");
    }
    default: return wrong_status(answer);
  }
}

bool HttpCheck::check_whole(const std::string& url, uint64_t size, const ContentSink& sink) {
  Answer answer;
  if (!send(url, L"", answer)) return false;
  if (answer.status != status_ok) return wrong_status(answer);
  return check_coding(answer) && check_length(answer, size) && (!sink || read(answer, size, sink));
}

bool HttpCheck::send(const std::string& url, const std::wstring& headers, Answer& answer) {
  answer.url = url;
  std::string error;
  UrlParts parts;
  return (parse_url(to_wide(url), parts, error) &&
          send_request(session_, parts, headers, answer.request, answer.status, error)) ||
         wrong(answer, error, ExitCode::failed);
}

bool HttpCheck::check_coding(const Answer& answer) {
  const std::wstring coding = answer.header(WINHTTP_QUERY_CONTENT_ENCODING);
  return coding.empty() || equals_ignore_case(coding, L"identity") ||
         wrong(answer, "is sent with the content coding " + quoted(coding) +
                           ", which launchers do not undo; switch compression off for the site");
}

bool HttpCheck::check_length(const Answer& answer, uint64_t length) {
  const std::wstring header = answer.header(WINHTTP_QUERY_CONTENT_LENGTH);
  if (header.empty()) return wrong(answer, "is sent without a Content-Length; let the server send it as a plain file");
  std::wstring_view text = header;
  uint64_t actual = 0;
  if (!take_number(text, actual) || !text.empty()) {
    return wrong(answer, "is sent with the Content-Length " + quoted(header) +
                             ", which is no number; let the server send it as a plain file");
  }
  return actual == length || wrong_size(answer, actual, length);
}

bool HttpCheck::check_range(const Answer& answer, uint64_t offset, uint64_t size) {
  if (!check_coding(answer)) return false;
  const std::wstring range = answer.header(WINHTTP_QUERY_CONTENT_RANGE);
  if (range.empty()) {
    return wrong(answer, "a part is sent without a Content-Range; let the server send plain files itself");
  }
  uint64_t actual = 0;
  if (read_total(range, actual) && actual != size) return wrong_size(answer, actual, size);
  if (!is_expected_range(range, offset, size)) {
    return wrong(answer, "the part from byte " + std::to_string(offset) + " is sent with the Content-Range " +
                             quoted(range) + "; let the server send plain files itself");
  }
  const std::wstring length = answer.header(WINHTTP_QUERY_CONTENT_LENGTH);
  return length == std::to_wstring(size - offset) ||
         wrong(answer, "the part from byte " + std::to_string(offset) + " is sent with the Content-Length " +
                           quoted(length) + " instead of " + std::to_string(size - offset) +
                           "; let the server send plain files itself");
}

bool HttpCheck::read(const Answer& answer, uint64_t size, const ContentSink& sink) {
  std::vector<uint8_t> buffer(buffer_bytes);
  uint64_t position = 0;
  for (;;) {
    DWORD got = 0;
    if (WinHttpReadData(answer.request.request.get(), buffer.data(), static_cast<DWORD>(buffer.size()), &got) == 0) {
      return wrong(answer, describe_http_error("download", GetLastError()), ExitCode::failed);
    }
    if (got == 0) break;
    position += got;
    if (!sink(buffer.data(), got)) return false;
  }
  return position == size ||
         wrong(answer,
               "the connection closed after " + std::to_string(position) + " of " + std::to_string(size) + " bytes",
               ExitCode::failed);
}

bool HttpCheck::wrong_size(const Answer& answer, uint64_t actual, uint64_t size) {
  problems_.add(ExitCode::refused, size_problem(answer.url, actual, size));
  return false;
}

bool HttpCheck::wrong_status(const Answer& answer) {
  if (answer.status == status_not_found || answer.status == status_forbidden || answer.status == status_gone) {
    problems_.add(ExitCode::refused, missing_problem(answer.url + " (HTTP " + std::to_string(answer.status) + ')'));
    return false;
  }
  return wrong(answer, "the server answers HTTP " + std::to_string(answer.status), ExitCode::failed);
}

bool HttpCheck::wrong(const Answer& answer, const std::string& line, ExitCode code) {
  problems_.add(code, answer.url + ": " + line);
  return false;
}

}  // namespace kvx::publish
