#include "tools/kvxpublish/remote/url_site.h"

#include <utility>

#include "tools/kvxpublish/platform/http.h"
#include "tools/kvxpublish/remote/http_answer.h"

namespace kvx::publish {
namespace {

class UrlSite : public SiteReader {
 public:
  explicit UrlSite(std::string base_url) : base_url_(std::move(base_url)) {}

  [[nodiscard]] bool open(Failure& failure) {
    std::string reason;
    return client_.open(reason) || fail(ExitCode::failed, "the network could not be initialised: " + reason, failure);
  }

  [[nodiscard]] std::string name_of(const std::string& relative) const override { return base_url_ + relative; }

  [[nodiscard]] Search read_file(const std::string& relative, uint64_t limit, std::string& bytes,
                                 Failure& failure) override {
    bytes.clear();
    HttpAnswer answer;
    std::string reason;
    const auto take = [&](const uint8_t* piece, size_t count) {
      if (answer.status != status_ok) return false;  // a page about what is wrong
      bytes.append(piece, piece + count);
      return bytes.size() <= limit;
    };
    switch (client_.get(name_of(relative), {"Cache-Control: no-cache", "Pragma: no-cache"}, answer, take, reason)) {
      case HttpResult::done: break;
      case HttpResult::stopped:
        if (answer.status != status_ok) break;
        return failed(relative, "is larger than " + std::to_string(limit) + " bytes", failure);
      case HttpResult::failed: return failed(relative, reason, failure);
    }
    return judge(relative, answer.status, failure);
  }

  // A request for the first byte alone is answered with the size of the whole; a server without ranges sends the whole
  // file's length, and the connection is closed before its body comes.
  [[nodiscard]] Search find_size(const std::string& relative, uint64_t& size, Failure& failure) override {
    HttpAnswer answer;
    std::string reason;
    const auto stop_unless_part = [&](const uint8_t*, size_t count) {
      return answer.status == status_partial_content && count == 1;
    };
    if (client_.get(name_of(relative), {"Range: bytes=0-0"}, answer, stop_unless_part, reason) == HttpResult::failed) {
      return failed(relative, reason, failure);
    }
    // An empty file has no first byte.
    const bool sized = answer.status == status_ok || answer.status == status_partial_content ||
                       answer.status == status_range_not_satisfiable;
    if (!sized) return judge(relative, answer.status, failure);
    const bool known = answer.status == status_ok ? read_number(answer.header("content-length"), size)
                                                  : read_total(answer.header("content-range"), size);
    return known ? Search::found : failed(relative, "the server did not tell its size", failure);
  }

  [[nodiscard]] bool read_content(const std::string& relative, uint64_t size, const ContentSink& sink,
                                  Failure& failure) override {
    HttpAnswer answer;
    std::string reason;
    uint64_t count = 0;
    const auto take = [&](const uint8_t* piece, size_t piece_bytes) {
      if (answer.status != status_ok) return false;
      count += piece_bytes;
      return count <= size && sink(piece, piece_bytes);
    };
    const HttpResult result = client_.get(name_of(relative), {}, answer, take, reason);
    if (result == HttpResult::failed) return static_cast<void>(failed(relative, reason, failure)), false;
    if (answer.status != status_ok) {
      return static_cast<void>(failed(relative, "HTTP " + std::to_string(answer.status), failure)), false;
    }
    if (count != size && (result == HttpResult::done || count > size)) {
      const std::string actual = count > size ? "more than " + std::to_string(size) : std::to_string(count);
      return fail(ExitCode::failed, name_of(relative) + ": has " + actual + " bytes, not " + std::to_string(size),
                  failure);
    }
    return result == HttpResult::done || fail(ExitCode::failed, name_of(relative) + ": stopped", failure);
  }

 private:
  Search failed(const std::string& relative, const std::string& reason, Failure& failure) const {
    static_cast<void>(fail(ExitCode::failed, name_of(relative) + ": " + reason, failure));
    return Search::failed;
  }

  Search judge(const std::string& relative, uint32_t status, Failure& failure) const {
    if (status == status_ok) return Search::found;
    if (status == status_not_found) return Search::absent;
    return failed(relative, "HTTP " + std::to_string(status), failure);
  }

  const std::string base_url_;
  HttpClient client_;
};

}  // namespace

bool open_url_site(std::string base_url, std::unique_ptr<SiteReader>& site, Failure& failure) {
  if (!base_url.ends_with('/')) base_url += '/';
  std::string reason;
  if (!check_url(base_url, reason)) return fail(ExitCode::usage, base_url + ": " + reason, failure);
  auto opened = std::make_unique<UrlSite>(std::move(base_url));
  if (!opened->open(failure)) return false;
  site = std::move(opened);
  return true;
}

}  // namespace kvx::publish
