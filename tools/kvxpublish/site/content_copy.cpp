#include "tools/kvxpublish/site/content_copy.h"

#include <windows.h>

#include <memory>
#include <mutex>

#include "foundations/error_text.h"
#include "foundations/paths.h"
#include "foundations/system_handles.h"
#include "foundations/text.h"
#include "foundations/write_all.h"
#include "manifest/sha256.h"
#include "tools/kvxpublish/cli/progress.h"
#include "tools/kvxpublish/platform/parallel.h"
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
    std::wstring place;
    if (!state_.writer.claim(content.sha256, content.size, place)) return true;
    FileHandle file(CreateFileW(long_path(place).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return cannot_write(place, failure);
    uint32_t error = 0;
    const auto sink = [&](const uint8_t* bytes, size_t count) { return take(file, bytes, count, error); };
    if (!hasher_.reset()) return fail(ExitCode::failed, "SHA-256 is not available on this system", failure);
    if (!from_->read_content(name, content.size, sink, failure)) {
      if (state_.console.interrupted()) return fail(ExitCode::failed, "stopped; nothing was changed", failure);
      return error != 0 ? fail(ExitCode::failed, to_utf8(place) + ": cannot be written: " + error_text(error), failure)
                        : false;
    }
    return hasher_.finish_text() == content.sha256 ||
           fail(ExitCode::refused, digest_problem(from_->name_of(name)), failure);
  }

  bool take(const FileHandle& file, const uint8_t* bytes, size_t count, uint32_t& error) {
    if (!write_all(file.get(), bytes, count, error)) return false;
    state_.progress.advance(count);
    return hasher_.update(bytes, count) && !state_.console.interrupted();
  }

  static bool cannot_write(const std::wstring& place, Failure& failure) {
    const uint32_t error = GetLastError();
    return fail(ExitCode::failed, to_utf8(place) + ": cannot be written: " + error_text(error), failure);
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
