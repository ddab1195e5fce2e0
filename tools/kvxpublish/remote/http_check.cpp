#include "tools/kvxpublish/remote/http_check.h"

#include <optional>
#include <string_view>
#include <vector>

#include "foundations/text.h"
#include "net/content_range.h"
#include "tools/kvxpublish/remote/http_answer.h"
#include "tools/kvxpublish/site/content_problems.h"

namespace kvx::publish {
namespace {

std::string quoted(const std::string& header) { return '"' + header + '"'; }

// A Cache-Control with which caches need not ask the server every time.
bool lets_caches_keep(const std::string& cache_control) {
  const std::string text = to_lower_ascii(cache_control);
  const auto has = [&text](std::string_view word) { return text.find(word) != std::string::npos; };
  return has("immutable") || (has("max-age=") && !has("max-age=0") && !has("no-cache") && !has("no-store"));
}

}  // namespace

bool HttpCheck::open(Failure& failure) {
  std::string reason;
  return client_.open(reason) || fail(ExitCode::failed, "the network could not be initialised: " + reason, failure);
}

void HttpCheck::check_document(const std::string& url, std::vector<std::string>& notes) {
  Answer answer{url, {}};
  const auto headers_alone = [](const uint8_t*, size_t) { return false; };
  if (!get(answer, {"Cache-Control: no-cache", "Pragma: no-cache"}, headers_alone) || answer.http.status != status_ok) {
    return;
  }
  const std::string caching = answer.http.header("cache-control");
  if (lets_caches_keep(caching)) {
    notes.push_back(url + ": is sent with the Cache-Control " + quoted(caching) +
                    ", so that players can get old releases from caches; let the server send \"no-cache\"");
  }
  if (!check_coding(answer)) return;
  if (!answer.http.header("content-length").empty()) return;
  static_cast<void>(wrong(answer, "is sent without a Content-Length; let the server send it as a plain file"));
}

bool HttpCheck::check_resuming(const std::string& url, uint64_t size) {
  if (size == 0) return check_whole(url, size, {});
  const uint64_t offset = size - 1;
  Answer answer{url, {}};
  const auto one_byte = [&answer](const uint8_t*, size_t count) {
    return answer.http.status == status_partial_content && count == 1;
  };
  if (!get(answer, {"Range: bytes=" + std::to_string(offset) + "-"}, one_byte)) return false;
  switch (answer.http.status) {
    case status_partial_content: return check_range(answer, offset, size);
    case status_ok:
      return check_coding(answer) &&
             wrong(answer,
                   "the server ignores ranges, and interrupted downloads begin again from the start; switch "
                   "them on for plain files");
    case status_range_not_satisfiable: {
      uint64_t actual = 0;
      if (read_total(answer.http.header("content-range"), actual)) return wrong_size(answer, actual, size);
      return wrong(answer, "the server rejects a range within the file (HTTP 416); let it send plain files itself");
    }
    default: return wrong_status(answer);
  }
}

bool HttpCheck::check_whole(const std::string& url, uint64_t size, const ContentSink& sink) {
  Answer answer{url, {}};
  std::optional<bool> is_sound;  // known with the first piece, or at the end of an empty body
  const auto judge = [&] {
    if (!is_sound) is_sound = check_head(answer, size);
    return *is_sound;
  };
  uint64_t position = 0;
  bool stopped = false;
  const auto take = [&](const uint8_t* bytes, size_t count) {
    if (!judge() || !sink) return false;
    position += count;
    stopped = !sink(bytes, count);
    return !stopped;
  };
  std::string reason;
  const HttpResult result = client_.get(url, {}, answer.http, take, reason);
  if (result == HttpResult::failed && position == 0) return wrong(answer, reason, ExitCode::failed);
  if (!judge() || stopped) return false;
  if (!sink || (result == HttpResult::done && position == size)) return true;
  if (result == HttpResult::failed) reason = " (" + reason + ')';
  return wrong(
      answer,
      "the connection closed after " + std::to_string(position) + " of " + std::to_string(size) + " bytes" + reason,
      ExitCode::failed);
}

bool HttpCheck::get(Answer& answer, const std::vector<std::string>& headers, const HttpSink& sink) {
  std::string reason;
  return client_.get(answer.url, headers, answer.http, sink, reason) != HttpResult::failed ||
         wrong(answer, reason, ExitCode::failed);
}

bool HttpCheck::check_head(const Answer& answer, uint64_t size) {
  if (answer.http.status != status_ok) return wrong_status(answer);
  return check_coding(answer) && check_length(answer, size);
}

bool HttpCheck::check_coding(const Answer& answer) {
  const std::string coding = answer.http.header("content-encoding");
  return coding.empty() || to_lower_ascii(coding) == "identity" ||
         wrong(answer, "is sent with the content coding " + quoted(coding) +
                           ", which launchers do not undo; switch compression off for the site");
}

bool HttpCheck::check_length(const Answer& answer, uint64_t length) {
  const std::string header = answer.http.header("content-length");
  if (header.empty()) return wrong(answer, "is sent without a Content-Length; let the server send it as a plain file");
  uint64_t actual = 0;
  if (!read_number(header, actual)) {
    return wrong(answer, "is sent with the Content-Length " + quoted(header) +
                             ", which is no number; let the server send it as a plain file");
  }
  return actual == length || wrong_size(answer, actual, length);
}

bool HttpCheck::check_range(const Answer& answer, uint64_t offset, uint64_t size) {
  if (!check_coding(answer)) return false;
  const std::string range = answer.http.header("content-range");
  if (range.empty()) {
    return wrong(answer, "a part is sent without a Content-Range; let the server send plain files itself");
  }
  uint64_t actual = 0;
  if (read_total(range, actual) && actual != size) return wrong_size(answer, actual, size);
  if (!is_expected_range(to_wide(range), offset, size)) {
    return wrong(answer, "the part from byte " + std::to_string(offset) + " is sent with the Content-Range " +
                             quoted(range) + "; let the server send plain files itself");
  }
  const std::string length = answer.http.header("content-length");
  return length == std::to_string(size - offset) ||
         wrong(answer, "the part from byte " + std::to_string(offset) + " is sent with the Content-Length " +
                           quoted(length) + " instead of " + std::to_string(size - offset) +
                           "; let the server send plain files itself");
}

bool HttpCheck::wrong_size(const Answer& answer, uint64_t actual, uint64_t size) {
  problems_.add(ExitCode::refused, size_problem(answer.url, actual, size));
  return false;
}

bool HttpCheck::wrong_status(const Answer& answer) {
  if (answer.http.status == status_not_found || answer.http.status == status_forbidden ||
      answer.http.status == status_gone) {
    problems_.add(ExitCode::refused,
                  missing_problem(answer.url + " (HTTP " + std::to_string(answer.http.status) + ')'));
    return false;
  }
  return wrong(answer, "the server answers HTTP " + std::to_string(answer.http.status), ExitCode::failed);
}

bool HttpCheck::wrong(const Answer& answer, const std::string& line, ExitCode code) {
  problems_.add(code, answer.url + ": " + line);
  return false;
}

}  // namespace kvx::publish
