#include "tools/kvxpublish/release/content_pass.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <numeric>
#include <set>

#include "foundations/text.h"
#include "manifest/sha256.h"
#include "tools/kvxpublish/cli/progress.h"
#include "tools/kvxpublish/platform/files.h"
#include "tools/kvxpublish/platform/parallel.h"
#include "tools/kvxpublish/platform/paths.h"
#include "tools/kvxpublish/release/private_key_check.h"

namespace kvx::publish {
namespace {

constexpr size_t buffer_bytes = 4194304;

constexpr const char* no_digest = "SHA-256 is not available on this system";

// What the threads of one pass share.
class PassState {
 public:
  PassState(const char* what, uint64_t total_bytes, Console& console)
      : console_(console), progress_(console, what, total_bytes) {}

  void advance(uint64_t bytes) { progress_.advance(bytes); }

  // The first failure is the one that counts.
  void fail_with(const Failure& failure) {
    const std::scoped_lock lock(mutex_);
    if (!failed_.exchange(true)) failure_ = failure;
  }

  // False with `failure` filled once the person has asked to stop; false too when another thread has failed.
  [[nodiscard]] bool may_go_on(Failure& failure) const {
    if (console_.interrupted()) return fail(ExitCode::failed, "stopped; nothing was changed", failure);
    return !failed_.load();
  }

  // For when all threads have ended.
  [[nodiscard]] const Failure& failure() const { return failure_; }

 private:
  Console& console_;
  Progress progress_;
  std::atomic<bool> failed_{false};
  std::mutex mutex_;
  Failure failure_;
};

bool cannot_read(const GameFile& file, const std::string& reason, Failure& failure) {
  return fail(ExitCode::failed, path_text(file.source) + ": cannot be read: " + reason, failure);
}

bool has_changed(const GameFile& file, Failure& failure) {
  return fail(ExitCode::failed, path_text(file.source) + ": changed while it was packed; pack again", failure);
}

// Content on its way into a site: a file beside the others that are on their way, deleted unless it is kept.
class TemporaryFile {
 public:
  explicit TemporaryFile(fs::path path) : path_(std::move(path)), created_(file_.create(path_, reason_)) {}
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() {
    if (!created_ || kept_) return;
    file_.close();
    discard_file(path_);
  }

  [[nodiscard]] bool write(const uint8_t* bytes, size_t count, Failure& failure) {
    if (created_ && file_.write(bytes, count, reason_)) return true;
    return fail(ExitCode::failed, path_text(path_) + ": cannot be written: " + reason_, failure);
  }

  // The finished file. From now on the site's writer moves or deletes it.
  const fs::path& keep() {
    file_.close();
    kept_ = true;
    return path_;
  }

 private:
  const fs::path path_;
  OutputFile file_;
  std::string reason_;
  const bool created_;
  bool kept_ = false;
};

// The work of one thread: one file after the other, through one buffer.
class Worker {
 public:
  Worker(PassState& state, SiteWriter* writer, const std::set<uint64_t>& site_sizes)
      : state_(state), writer_(writer), site_sizes_(site_sizes), buffer_(buffer_bytes) {}

  bool take(GameFile& file, Failure& failure) {
    const bool taken = writer_ == nullptr ? measure(file, failure) : store(file, failure);
    if (!taken) return false;
    FileStamp now;
    const bool same =
        file_stamp(file.source, now) && now.size == file.size && now.last_write_time == file.last_write_time;
    return same || has_changed(file, failure);
  }

 private:
  // Takes each piece of the file that was read; false stops.
  using PieceSink = std::function<bool(const uint8_t* bytes, size_t count)>;

  bool open(const GameFile& file, Failure& failure) {
    FileKind kind{};
    std::string reason;
    return source_.open(file.source, kind, reason) || cannot_read(file, reason, failure);
  }

  // Fills the buffer as far as the file goes on.
  bool fill_buffer(const GameFile& file, size_t& filled, Failure& failure) {
    filled = 0;
    while (filled < buffer_.size()) {
      size_t got = 0;
      std::string reason;
      if (!source_.read(buffer_.data() + filled, buffer_.size() - filled, got, reason)) {
        return cannot_read(file, reason, failure);
      }
      if (got == 0) break;
      filled += got;
    }
    return true;
  }

  // Reads the open file to its end and fills `sha256`.
  bool read(const GameFile& file, std::string& sha256, const PieceSink& sink, Failure& failure) {
    Sha256Hasher hasher;
    uint64_t position = 0;
    for (;;) {
      size_t count = 0;
      if (!state_.may_go_on(failure) || !fill_buffer(file, count, failure)) return false;
      if (count == 0) break;
      if (position == 0 && !check_no_private_key(file, buffer_.data(), count, failure)) return false;
      position += count;
      if (position > file.size) return has_changed(file, failure);
      if (!hasher.update(buffer_.data(), count)) return fail(ExitCode::failed, no_digest, failure);
      if (!sink(buffer_.data(), count)) return false;
    }
    if (position != file.size) return has_changed(file, failure);
    sha256 = hasher.finish_text();
    return !sha256.empty() || fail(ExitCode::failed, no_digest, failure);
  }

  // The digest that was read, against the one that was known.
  static bool settle(GameFile& file, const std::string& sha256, Failure& failure) {
    if (!file.sha256.empty() && file.sha256 != sha256) return has_changed(file, failure);
    file.sha256 = sha256;
    return true;
  }

  bool measure(GameFile& file, Failure& failure) {
    std::string sha256;
    const auto count_only = [this](const uint8_t* /*bytes*/, size_t count) {
      state_.advance(count);
      return true;
    };
    return open(file, failure) && read(file, sha256, count_only, failure) && settle(file, sha256, failure);
  }

  // A file that the site may have is read first, and copied only when it is missing; any other is copied at once.
  bool store(GameFile& file, Failure& failure) {
    if (!file.sha256.empty()) return store_measured(file, failure);
    if (file.size <= buffer_.size()) return store_small(file, failure);
    if (!site_sizes_.contains(file.size)) return open(file, failure) && copy(file, true, failure);
    return measure(file, failure) && store_after_measuring(file, failure);
  }

  bool store_measured(GameFile& file, Failure& failure) {
    bool present = false;
    if (!writer_->has_content(file.sha256, file.size, present, failure)) return false;
    if (!present) return open(file, failure) && copy(file, true, failure);
    state_.advance(file.size);
    return true;
  }

  bool store_after_measuring(GameFile& file, Failure& failure) {
    bool present = false;
    if (!writer_->has_content(file.sha256, file.size, present, failure)) return false;
    if (present) return true;
    std::string reason;
    if (!source_.rewind(reason)) return cannot_read(file, reason, failure);
    return copy(file, false, failure);
  }

  // The whole file fits the buffer, so that it is read once whether or not the site has it.
  bool store_small(GameFile& file, Failure& failure) {
    bool present = false;
    if (!measure(file, failure) || !writer_->has_content(file.sha256, file.size, present, failure)) return false;
    if (present) return true;
    fs::path place;
    if (!writer_->claim(file.sha256, file.size, place)) return true;
    TemporaryFile copy(place);
    if (!copy.write(buffer_.data(), file.size, failure)) return false;
    copy.keep();
    return true;
  }

  // Copies the open file from where it stands and hashes what is copied.
  bool copy(GameFile& file, bool counts, Failure& failure) {
    TemporaryFile copy(writer_->temporary_path());
    std::string sha256;
    const auto write = [&](const uint8_t* bytes, size_t count) {
      if (counts) state_.advance(count);
      return copy.write(bytes, count, failure);
    };
    return read(file, sha256, write, failure) && settle(file, sha256, failure) &&
           writer_->take_content(copy.keep(), file.sha256, file.size, failure);
  }

  PassState& state_;
  SiteWriter* const writer_;
  const std::set<uint64_t>& site_sizes_;
  std::vector<uint8_t> buffer_;
  InputFile source_;
};

// The largest first, so that no thread is left with one of them at the end.
std::vector<size_t> by_size(const std::vector<GameFile>& files) {
  std::vector<size_t> order(files.size());
  std::iota(order.begin(), order.end(), size_t{0});
  std::ranges::sort(order, [&](size_t a, size_t b) { return files[a].size > files[b].size; });
  return order;
}

bool run_pass(const char* what, std::vector<GameFile>& files, SiteWriter* writer, Console& console, Failure& failure) {
  uint64_t total_bytes = 0;
  for (const GameFile& file : files) total_bytes += file.size;
  const std::set<uint64_t> site_sizes = writer == nullptr ? std::set<uint64_t>() : writer->content_sizes();
  PassState state(what, total_bytes, console);
  const std::vector<size_t> order = by_size(files);
  const auto make_work = [&]() -> IndexWork {
    const auto worker = std::make_shared<Worker>(state, writer, site_sizes);
    return [&, worker](size_t index) {
      Failure reason;
      if (worker->take(files[order[index]], reason)) return true;
      state.fail_with(reason);
      return false;
    };
  };
  if (for_each_index(order.size(), make_work)) return true;
  failure = state.failure();
  return false;
}

}  // namespace

bool measure_files(std::vector<GameFile>& files, Console& console, Failure& failure) {
  return run_pass("reading", files, nullptr, console, failure);
}

bool store_files(std::vector<GameFile>& files, SiteWriter& writer, Console& console, Failure& failure) {
  return run_pass("packing", files, &writer, console, failure);
}

}  // namespace kvx::publish
