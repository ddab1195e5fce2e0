#include "tools/kvxpublish/site/content_copy.h"

#include <memory>
#include <mutex>

#include "manifest/sha256.h"
#include "tools/kvxpublish/cli/progress.h"
#include "tools/kvxpublish/platform/files.h"
#include "tools/kvxpublish/platform/parallel.h"
#include "tools/kvxpublish/platform/paths.h"
#include "tools/kvxpublish/site/content_problems.h"
#include "tools/kvxpublish/site/folder_site.h"

namespace kvx::publish {
namespace {

// What the threads of one copy share.
struct CopyState {
  SiteWriter& writer;
  Console& console;
  Progress progress;
  std::mutex mutex;
  Failure failure;  // of the thread that failed last; guarded by the mutex
};

// The work of one thread.
class ContentCopier {
 public:
  ContentCopier(const std::string& from, CopyState& state) : from_(open_folder_site(from)), state_(state) {}

  [[nodiscard]] bool copy(const Content& content) {
    Failure failure;
    if (copy(content, failure)) return true;
    const std::scoped_lock lock(state_.mutex);
    state_.failure = failure;
    return false;
  }

 private:
  bool copy(const Content& content, Failure& failure) {
    const std::string name = blob_name(content.sha256);
    fs::path place;
    if (!state_.writer.claim(content.sha256, content.size, place)) return true;
    OutputFile file;
    std::string reason;
    discard_file(place);  // of a run that failed
    if (!file.create(place, reason)) return cannot_write(place, reason, failure);
    const auto sink = [&](const uint8_t* bytes, size_t count) { return take(file, bytes, count, reason); };
    if (!hasher_.reset()) return fail(ExitCode::failed, "SHA-256 is not available on this system", failure);
    if (!from_->read_content(name, content.size, sink, failure)) {
      if (state_.console.interrupted()) return fail(ExitCode::failed, "stopped; nothing was changed", failure);
      return !reason.empty() && cannot_write(place, reason, failure);
    }
    return hasher_.finish_text() == content.sha256 ||
           fail(ExitCode::refused, digest_problem(from_->name_of(name)), failure);
  }

  bool take(OutputFile& file, const uint8_t* bytes, size_t count, std::string& reason) {
    if (!file.write(bytes, count, reason)) return false;
    state_.progress.advance(count);
    return hasher_.update(bytes, count) && !state_.console.interrupted();
  }

  static bool cannot_write(const fs::path& place, const std::string& reason, Failure& failure) {
    return fail(ExitCode::failed, path_text(place) + ": cannot be written: " + reason, failure);
  }

  const std::unique_ptr<SiteReader> from_;
  CopyState& state_;
  Sha256Hasher hasher_;
};

}  // namespace

bool copy_content(const std::string& from, const std::vector<Content>& content, SiteWriter& writer, Console& console,
                  Failure& failure) {
  CopyState state{writer, console, Progress(console, "copying", total_bytes(content)), {}, {}};
  const auto make_work = [&]() -> IndexWork {
    const auto copier = std::make_shared<ContentCopier>(from, state);
    return [&content, copier](size_t index) { return copier->copy(content[index]); };
  };
  if (for_each_index(content.size(), make_work)) return true;
  failure = state.failure;
  return false;
}

}  // namespace kvx::publish
