#include "tools/kvxpublish/remote/content_check.h"

#include <algorithm>
#include <memory>
#include <optional>

#include "manifest/sha256.h"
#include "tools/kvxpublish/cli/progress.h"
#include "tools/kvxpublish/platform/parallel.h"
#include "tools/kvxpublish/remote/http_check.h"
#include "tools/kvxpublish/remote/site_opener.h"
#include "tools/kvxpublish/site/content_problems.h"
#include "tools/kvxpublish/site/site_reader.h"

namespace kvx::publish {
namespace {

// What the threads of one check share.
struct CheckState {
  ContentDepth depth;
  Console& console;
  Progress& progress;
  Problems& problems;
};

// The work of one thread.
class ContentChecker {
 public:
  explicit ContentChecker(const CheckState& state) : state_(state) {}

  [[nodiscard]] bool open(const std::string& location, Failure& failure) {
    if (!open_site(location, site_, failure)) return false;
    if (!is_url(location)) return true;
    return http_.emplace(state_.problems).open(failure);
  }

  // Adds what is wrong to the problems. False once the person has asked to stop.
  [[nodiscard]] bool check(const Content& content) {
    const bool whole = state_.depth == ContentDepth::digests;
    if (http_) {
      static_cast<void>(check_on_server(*http_, content, whole));
    } else {
      static_cast<void>(check_in_folder(content, whole));
    }
    if (!whole) state_.progress.advance(content.size);
    return !state_.console.interrupted();
  }

 private:
  [[nodiscard]] std::string name_of(const Content& content) const { return site_->name_of(blob_name(content.sha256)); }

  bool check_on_server(HttpCheck& http, const Content& content, bool whole) {
    const std::string url = name_of(content);
    if (!http.check_resuming(url, content.size)) return false;
    return !whole || (http.check_whole(url, content.size, digest_sink()) && check_digest(content));
  }

  bool check_in_folder(const Content& content, bool whole) {
    uint64_t size = 0;
    Failure failure;
    const std::string name = blob_name(content.sha256);
    switch (site_->find_size(name, size, failure)) {
      case Search::failed: return add(failure);
      case Search::absent: return add({ExitCode::refused, missing_problem(name_of(content))});
      case Search::found: break;
    }
    if (size != content.size) return add({ExitCode::refused, size_problem(name_of(content), size, content.size)});
    if (!whole) return true;
    if (site_->read_content(name, content.size, digest_sink(), failure)) return check_digest(content);
    return state_.console.interrupted() || add(failure);
  }

  [[nodiscard]] ContentSink digest_sink() {
    hashed_ = hasher_.reset();
    return [this](const uint8_t* bytes, size_t count) {
      hashed_ = hashed_ && hasher_.update(bytes, count);
      state_.progress.advance(count);
      return !state_.console.interrupted();
    };
  }

  bool check_digest(const Content& content) {
    if (!hashed_) return add({ExitCode::failed, "SHA-256 is not available on this system"});
    return hasher_.finish_text() == content.sha256 || add({ExitCode::refused, digest_problem(name_of(content))});
  }

  bool add(const Failure& problem) {
    state_.problems.add(problem);
    return false;
  }

  const CheckState& state_;
  std::unique_ptr<SiteReader> site_;
  std::optional<HttpCheck> http_;
  Sha256Hasher hasher_;
  bool hashed_ = false;
};

// A server may treat whole files otherwise than parts of them. One is enough to see it, and a large one is what servers
// like to compress.
void check_one_whole(const std::string& location, const std::vector<Content>& content, Problems& problems) {
  std::unique_ptr<SiteReader> site;
  HttpCheck http(problems);
  Failure failure;
  if (!open_site(location, site, failure) || !http.open(failure)) {
    problems.add(failure);
    return;
  }
  const auto largest = std::ranges::max_element(content, {}, &Content::size);
  static_cast<void>(http.check_whole(site->name_of(blob_name(largest->sha256)), largest->size, {}));
}

}  // namespace

bool check_content(const std::string& location, const std::vector<Content>& content, ContentDepth depth,
                   Console& console, Problems& problems, Failure& failure) {
  Progress progress(console, "checking", total_bytes(content));
  const CheckState state{depth, console, progress, problems};
  const auto make_work = [&]() -> IndexWork {
    const auto checker = std::make_shared<ContentChecker>(state);
    Failure unopened;
    if (!checker->open(location, unopened)) {
      problems.add(unopened);
      return [](size_t) { return false; };
    }
    return [&content, checker](size_t index) { return checker->check(content[index]); };
  };
  static_cast<void>(for_each_index(content.size(), make_work));
  if (console.interrupted()) return fail(ExitCode::failed, "stopped; nothing was changed", failure);
  if (is_url(location) && depth == ContentDepth::sizes && problems.empty()) {
    check_one_whole(location, content, problems);
  }
  return true;
}

}  // namespace kvx::publish
